#pragma once

#include <cstdint>
#include <string>

#include "OutputFile.h"

namespace NmVzkTool {

// Writes PCM audio into WAV files: DIR/audio.wav, and DIR/audio-2.wav and so
// on whenever channels, rate or sample width change. The sizes in the header
// are kept right after every write, so a file stays playable if vzk dies.
class CmWavWriter {
public:
  explicit CmWavWriter(std::string directory) : m_Directory(std::move(directory)) {}
  ~CmWavWriter();
  CmWavWriter(const CmWavWriter&) = delete;
  CmWavWriter& operator=(const CmWavWriter&) = delete;

  // Returns the file name. Throws CmItemError for a form that WAV cannot hold,
  // CmRunError when the file cannot be written.
  std::string Write(uint32_t channels, uint32_t rate, uint32_t bitsPerSample, const uint8_t* data,
                    size_t size);
  void Close();
  uint32_t GetFileCount() const { return m_FileCount; }

private:
  void Start(uint32_t channels, uint32_t rate, uint32_t bitsPerSample);

  std::string m_Directory;
  CmOutputFile m_File;
  std::string m_FileName;
  uint32_t m_FileCount = 0;
  uint32_t m_Channels = 0;
  uint32_t m_Rate = 0;
  uint32_t m_Bits = 0;
};

} // namespace NmVzkTool
