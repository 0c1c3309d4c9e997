#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <string>

#include "CommandLine.h"
#include "ContactSheet.h"
#include "JpegPicture.h"
#include "OutputFile.h"
#include "WavWriter.h"
#include "Y4mWriter.h"
#include "vzk/vzk.h"

namespace NmVzkTool {

struct SmRunCounts {
  uint64_t items = 0;       // items pulled from the tree
  uint64_t pictures = 0;    // decoded pictures (image items)
  uint64_t jpegRecords = 0; // records that carry one JPEG
  uint64_t audioPackets = 0;
  uint64_t otherRecords = 0; // records of any other kind
  uint64_t otherItems = 0;   // items that are no record at all
  uint64_t errors = 0;       // items not delivered or not written
};

// Sorts what the tree delivers by kind, counts it, and, with an output
// directory, writes each kind in its own form and lists every item in
// DIR/items.txt. Warnings go to `messages`, the first few in full.
class CmItemWriter {
public:
  // `beforeMessage` runs before each message, to take a progress line away.
  CmItemWriter(const SmRunOptions& options, const NmToolkit::CmPropertyNameSet& properties,
               std::ostream& messages, std::function<void()> beforeMessage = {});
  ~CmItemWriter();
  CmItemWriter(const CmItemWriter&) = delete;
  CmItemWriter& operator=(const CmItemWriter&) = delete;

  // `index` counts items from 1. Throws CmRunError when output cannot be
  // written; a single bad item is counted and reported, and the run goes on.
  void Handle(const NmToolkit::ImData& item, uint64_t index);
  // An item that the tree should have delivered and did not.
  void NoteUndelivered(uint64_t index, uint32_t status);
  // Closes every stream and writes the contact sheet. Throws CmRunError.
  void Finish();

  const SmRunCounts& GetCounts() const { return m_Counts; }

private:
  std::string HandleOne(const NmToolkit::ImData& item, uint64_t index, std::string& kind);
  std::string WritePicture(const NmToolkit::ImImage& image, int64_t time);
  std::string WriteRecord(const NmToolkit::ImData& item, std::string& kind);
  std::string AppendToRecords(const uint8_t* data, size_t size);
  void Warn(const std::string& text);
  void Note(const std::string& key, const std::string& text);
  void ListItem(uint64_t index, const NmToolkit::ImData& item, const std::string& kind,
                const std::string& file);

  const SmRunOptions& m_Options;
  NmToolkit::CmPropertyNameSet m_Properties;
  std::ostream& m_Messages;
  std::function<void()> m_BeforeMessage;
  bool m_Writing;
  std::string m_Directory;
  SmRunCounts m_Counts;
  uint64_t m_Warnings = 0;
  std::set<std::string> m_Notes;
  CmOutputFile m_List;
  CmOutputFile m_Records;
  std::unique_ptr<CmY4mWriter> m_Y4m;
  std::unique_ptr<CmWavWriter> m_Wav;
  std::unique_ptr<CmContactSheet> m_Sheet;
  std::unique_ptr<CmJpegPictureEncoder> m_Jpeg;
};

// Makes the directory and its parents; throws CmRunError.
void MakeDirectories(const std::string& path);

} // namespace NmVzkTool
