#include "RecordingDamage.h"

#include <exception>

#include "Common/Xerces/Xerces.h"

namespace NmVzkTool {

std::vector<std::string> RecordingFilesOf(const std::string& xml) {
  std::vector<std::string> files;
  try {
    const auto document = NmXerces::CmXmlWrapper::LoadXml(xml);
    // Walked with a stack of its own: a configuration may nest deeper than
    // the call stack reaches.
    std::vector<NmXerces::CmXmlNodePtr> pending = {document->GetDocumentElement()};
    while (!pending.empty()) {
      const NmXerces::CmXmlNodePtr node = pending.back();
      pending.pop_back();
      if (!node) {
        continue;
      }
      std::vector<NmXerces::CmXmlNodePtr> children;
      node->GetChildren(children);
      if (node->GetName() == "toolkit") {
        std::string provider;
        NmXerces::CmXmlNodePtr config;
        for (const auto& child : children) {
          if (child->GetName() == "provider") {
            child->GetValue(provider);
          } else if (child->GetName() == "config" && !config) {
            config = child;
          }
        }
        if (provider == "recording" && config) {
          // The plug-in reads the first recording element of its config.
          std::vector<NmXerces::CmXmlNodePtr> settings;
          config->GetChildren(settings);
          for (const auto& setting : settings) {
            std::string file;
            if (setting->GetName() == "recording") {
              if (setting->GetAttributeValue("file", file)) {
                files.push_back(file);
              }
              break;
            }
          }
        }
      }
      pending.insert(pending.end(), children.rbegin(), children.rend());
    }
  } catch (...) {
    // A tree that does not parse reads no recording either.
  }
  return files;
}

std::string DescribeRanges(const std::vector<NmRecording::SmByteRange>& ranges, size_t most) {
  std::string text;
  for (size_t i = 0; i < ranges.size() && i < most; ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(ranges[i].length) +
            (ranges[i].length == 1 ? " byte" : " bytes") + " at offset " +
            std::to_string(ranges[i].offset);
  }
  if (ranges.size() > most) {
    text += " and " + std::to_string(ranges.size() - most) + " more";
  }
  return text;
}

bool ReportRecordingDamage(const std::vector<std::string>& recordings, bool tail,
                           std::ostream& err) {
  bool damaged = false;
  for (const std::string& path : recordings) {
    NmRecording::CmRecordingIndex index(path);
    try {
      if (!index.Update()) {
        continue; // the plug-in has said so at Connect
      }
    } catch (const std::exception& error) {
      err << "vzk: The recording " << path << " could not be checked for damage: " << error.what()
          << ".\n";
      damaged = true;
      continue;
    }
    const std::vector<NmRecording::SmByteRange> ranges = index.GetDamagedRanges(tail);
    if (ranges.empty()) {
      continue;
    }
    uint64_t bytes = 0;
    for (const auto& range : ranges) {
      bytes += range.length;
    }
    err << "vzk: The recording " << path << " is damaged: " << bytes
        << (bytes == 1 ? " byte holds" : " bytes hold") << " no valid record and "
        << (bytes == 1 ? "was" : "were") << " skipped (" << DescribeRanges(ranges) << ").\n";
    damaged = true;
  }
  return damaged;
}

} // namespace NmVzkTool
