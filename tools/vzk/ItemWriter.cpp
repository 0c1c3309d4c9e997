#include "ItemWriter.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "PictureConversion.h"
#include "PngFile.h"
#include "RecordingInfo.h"

using namespace NmToolkit;
using namespace NmMediaProcessing;

namespace NmVzkTool {
namespace {

constexpr uint64_t FullWarnings = 10;

std::string Numbered(const char* prefix, uint64_t number, const char* extension) {
  char name[64];
  std::snprintf(name, sizeof name, "%s-%06llu.%s", prefix, static_cast<unsigned long long>(number),
                extension);
  return name;
}

std::string DescribeProperty(const ImProperty* property) {
  if (const auto* text = dynamic_cast<const ImStringProperty*>(property)) {
    std::string value = text->GetValue();
    // One item, one line: tabs and line ends would break the list.
    for (char& c : value) {
      if (c == '\t' || c == '\n' || c == '\r') {
        c = ' ';
      }
    }
    return value;
  }
  if (const auto* flag = dynamic_cast<const ImBooleanProperty*>(property)) {
    return flag->GetValue() ? "true" : "false";
  }
  if (const auto* time = dynamic_cast<const ImUTCTimeProperty*>(property)) {
    return std::to_string(time->GetValue());
  }
  return "(value of unknown type)";
}

} // namespace

void MakeDirectories(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string part = path.substr(0, slash);
    struct stat status {};
    if (stat(part.c_str(), &status) == 0) {
      if (!S_ISDIR(status.st_mode)) {
        throw CmRunError("The output directory " + path + " cannot be made: " + part +
                         " is a file.");
      }
    } else if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) {
      throw CmRunError("The output directory " + path + " cannot be made: " + std::strerror(errno) +
                       ".");
    }
    if (slash == std::string::npos) {
      return;
    }
  }
}

CmItemWriter::CmItemWriter(const SmRunOptions& options, const CmPropertyNameSet& properties,
                           std::ostream& messages, std::function<void()> beforeMessage)
    : m_Options(options), m_Properties(properties), m_Messages(messages),
      m_BeforeMessage(std::move(beforeMessage)), m_Writing(options.outputDirectory.has_value()) {
  if (m_Writing) {
    m_Directory = *options.outputDirectory;
    MakeDirectories(m_Directory);
    m_List.Open(m_Directory + "/items.txt");
    std::string header = "# item\tbegin_ms\tend_ms\tkind\tbytes\tfile";
    for (const std::string& name : m_Properties) {
      header += "\t" + name;
    }
    m_List.Write(header + "\n");
    m_Y4m = std::make_unique<CmY4mWriter>(m_Directory);
    m_Wav = std::make_unique<CmWavWriter>(m_Directory);
  }
  if (options.contactSheet) {
    m_Sheet = std::make_unique<CmContactSheet>();
  }
}

CmItemWriter::~CmItemWriter() = default;

void CmItemWriter::Warn(const std::string& text) {
  ++m_Warnings;
  if (m_BeforeMessage && m_Warnings <= FullWarnings + 1) {
    m_BeforeMessage();
  }
  if (m_Warnings <= FullWarnings) {
    m_Messages << "vzk: " << text << "\n";
  } else if (m_Warnings == FullWarnings + 1) {
    m_Messages << "vzk: Further errors are only counted.\n";
  }
}

void CmItemWriter::Note(const std::string& key, const std::string& text) {
  if (m_Notes.insert(key).second) {
    if (m_BeforeMessage) {
      m_BeforeMessage();
    }
    m_Messages << "vzk: " << text << "\n";
  }
}

void CmItemWriter::NoteUndelivered(uint64_t index, uint32_t status) {
  ++m_Counts.items;
  ++m_Counts.errors;
  Warn("Item " + std::to_string(index) + " was not delivered (status " + std::to_string(status) +
       "): the tree could not make it.");
  if (m_Writing) {
    m_List.Write(std::to_string(index) + "\t\t\tnot delivered\t0\t\n");
  }
}

void CmItemWriter::Handle(const ImData& item, uint64_t index) {
  ++m_Counts.items;
  if (const auto* vector = dynamic_cast<const ImMediaDataVector*>(&item)) {
    std::vector<ImMediaData*> elements;
    vector->GetElements(elements);
    if (elements.empty()) {
      ListItem(index, item, "empty vector", "");
    }
    for (const ImMediaData* element : elements) {
      if (element != nullptr) {
        std::string kind;
        const std::string file = HandleOne(*element, index, kind);
        ListItem(index, *element, kind, file);
      }
    }
    return;
  }
  std::string kind;
  const std::string file = HandleOne(item, index, kind);
  ListItem(index, item, kind, file);
}

std::string CmItemWriter::HandleOne(const ImData& item, uint64_t index, std::string& kind) {
  try {
    if (const auto* image = dynamic_cast<const ImImage*>(&item)) {
      kind = "picture " + std::to_string(image->GetWidth()) + "x" +
             std::to_string(image->GetHeight()) + " " + ColorFormatName(image->GetColorFormat());
      ++m_Counts.pictures;
      if (m_Sheet) {
        m_Sheet->AddPicture(*image, index, item.GetBeginTime());
      }
      return m_Writing ? WritePicture(*image, item.GetBeginTime()) : "";
    }
    return WriteRecord(item, kind);
  } catch (const CmItemError& error) {
    ++m_Counts.errors;
    Warn("Item " + std::to_string(index) + " could not be written: " + error.what());
    return "";
  }
}

std::string CmItemWriter::WritePicture(const ImImage& image, int64_t time) {
  switch (m_Options.format) {
  case SmPictureFormat::Y4m:
    return m_Y4m->Write(image, time);
  case SmPictureFormat::Jpeg: {
    if (!m_Jpeg) {
      m_Jpeg = std::make_unique<CmJpegPictureEncoder>();
    }
    const std::vector<uint8_t> jpeg = m_Jpeg->Encode(image, m_Options.quality);
    const std::string name = Numbered("image", m_Counts.pictures, "jpg");
    WriteWholeFile(m_Directory + "/" + name, jpeg.data(), jpeg.size());
    return name;
  }
  case SmPictureFormat::Png:
  default: {
    const std::string name = Numbered("image", m_Counts.pictures, "png");
    WritePng(m_Directory + "/" + name, ToPacked(image));
    return name;
  }
  }
}

std::string CmItemWriter::WriteRecord(const ImData& item, std::string& kind) {
  const uint8_t* data = item.GetDataPointer();
  const size_t size = data == nullptr ? 0 : item.GetDataSize();
  const SmRecordFacts facts = ReadRecordFacts(data, size);
  kind = facts.kind;
  if (facts.jpeg != nullptr) {
    ++m_Counts.jpegRecords;
    if (m_Sheet) {
      m_Sheet->AddJPEG(facts.jpeg, facts.jpegSize, m_Counts.items, item.GetBeginTime());
    }
    if (!m_Writing) {
      return "";
    }
    const std::string name = Numbered("jpeg", m_Counts.jpegRecords, "jpg");
    WriteWholeFile(m_Directory + "/" + name, facts.jpeg, facts.jpegSize);
    return name;
  }
  if (facts.isAudio) {
    ++m_Counts.audioPackets;
    if (!m_Writing) {
      return "";
    }
    if (facts.codec == 1) {
      return m_Wav->Write(facts.channels, facts.samplingFrequency, facts.bitsPerSample,
                          facts.payload, facts.payloadSize);
    }
    Note("audio" + std::to_string(facts.codec),
         "Audio in " + facts.codecName +
             " is not PCM, so its packets go to records.gbd, not into a WAV file; an "
             "\"audio_decoder\" element in the tree turns audio into PCM.");
    return AppendToRecords(data, size);
  }
  if (facts.isRecord) {
    ++m_Counts.otherRecords;
    if (m_Sheet && facts.isVideo) {
      m_Sheet->NoteUndecodable(facts.codecName + " record");
    }
    return m_Writing ? AppendToRecords(data, size) : "";
  }
  ++m_Counts.otherItems;
  if (dynamic_cast<const ImOutOfBandData*>(&item) != nullptr) {
    kind = "out-of-band data";
  } else if (dynamic_cast<const ImMetaData*>(&item) != nullptr) {
    kind = "metadata";
  } else if (dynamic_cast<const ImExportData*>(&item) != nullptr) {
    kind = "export data";
  } else {
    kind = "data";
  }
  if (!m_Writing || size == 0) {
    return "";
  }
  const std::string name = Numbered("item", m_Counts.otherItems, "bin");
  WriteWholeFile(m_Directory + "/" + name, data, size);
  return name;
}

std::string CmItemWriter::AppendToRecords(const uint8_t* data, size_t size) {
  if (!m_Records.IsOpen()) {
    m_Records.Open(m_Directory + "/records.gbd");
  }
  m_Records.Write(data, size);
  return "records.gbd";
}

void CmItemWriter::ListItem(uint64_t index, const ImData& item, const std::string& kind,
                            const std::string& file) {
  if (!m_Writing) {
    return;
  }
  std::string line = std::to_string(index) + "\t" + std::to_string(item.GetBeginTime()) + "\t" +
                     std::to_string(item.GetEndTime()) + "\t" + kind + "\t" +
                     std::to_string(item.GetDataSize()) + "\t" + file;
  for (const std::string& name : m_Properties) {
    const ImProperty* property = item.GetProperty(name);
    line += "\t" + (property != nullptr ? DescribeProperty(property) : std::string());
  }
  m_List.Write(line + "\n");
}

void CmItemWriter::Finish() {
  if (m_Writing) {
    m_Y4m->Close();
    m_Wav->Close();
    m_Records.Close();
    m_List.Close();
  }
  if (m_Sheet) {
    m_Sheet->Write(*m_Options.contactSheet, m_Messages);
  }
}

} // namespace NmVzkTool
