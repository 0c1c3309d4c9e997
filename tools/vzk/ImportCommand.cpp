// vzk import: pulls every record out of a source plug-in and writes them, one
// after the other, into a recording file.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "BlockImport.h"
#include "Commands.h"
#include "OutputFile.h"
#include "PluginHost.h"
#include "RecordingDamage.h"
#include "RecordingIndex.h"
#include "StopSignal.h"

using namespace NmToolkit;

namespace NmVzkTool {
namespace {

std::string EscapeXml(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
    case '&':
      escaped += "&amp;";
      break;
    case '<':
      escaped += "&lt;";
      break;
    case '>':
      escaped += "&gt;";
      break;
    case '"':
      escaped += "&quot;";
      break;
    case '\'':
      escaped += "&apos;";
      break;
    default:
      escaped += c;
    }
  }
  return escaped;
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool IsNetworkStream(const std::string& media) {
  const size_t scheme = media.find("://");
  return scheme != std::string::npos && media.compare(0, scheme, "file") != 0;
}

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

class CmImport {
public:
  CmImport(const SmImportOptions& options, std::ostream& out, std::ostream& err)
      : m_Options(options), m_Out(out), m_Err(err) {}
  int Execute();

private:
  bool Limited() const {
    return StopRequested() || (m_Options.count && m_Records >= *m_Options.count) || m_Ended;
  }
  void Take(ImData* raw);
  // `owner` holds the item's bytes (the item itself, or the vector it is in).
  void Write(const ImData& item, const std::shared_ptr<const ImData>& owner);
  // Reading: what must hold before anything is loaded, then the source.
  void CheckPaths() const;
  void CheckMediaPlugin(const std::string& pluginPath) const;
  void Connect(CmToolkitTree& tree, bool live) const;
  // Tallying: every record pulled is written and counted. A failure of the
  // toolkit ends the pull; the text that tells it comes back.
  std::string Pull(CmToolkitTree& tree, bool live);
  void PullLive(ImLiveSourceToolkit& source);
  void PullPlayback(ImPlaybackSourceToolkit& source);
  // Finishing: the file gets its name, then the outcome is told.
  void Commit(const std::string& partial) const;
  int Report() const;

  const SmImportOptions& m_Options;
  std::ostream& m_Out;
  std::ostream& m_Err;
  CmOutputFile m_File;
  // With --blocks: video gathered into one block per group of pictures.
  std::unique_ptr<CmBlockImport> m_BlockImport;
  uint64_t m_Records = 0;
  uint64_t m_Skipped = 0;
  std::optional<int64_t> m_First;
  int64_t m_Last = 0;
  bool m_Ended = false;
};

void CmImport::Write(const ImData& item, const std::shared_ptr<const ImData>& owner) {
  if (Limited()) {
    return;
  }
  const uint8_t* data = item.GetDataPointer();
  const size_t size = data == nullptr ? 0 : item.GetDataSize();
  // Each record in the file carries its own length; anything else would make
  // the rest of the file unreadable.
  const uint64_t length = NmRecording::RecordLength(data, size);
  if (size == 0 || length != size) {
    if (++m_Skipped <= 10) {
      m_Err << "vzk: Item " << m_Records + m_Skipped
            << " is no generic byte data record and was left out.\n";
    }
    return;
  }
  if (m_Options.duration) {
    if (!m_First) {
      m_First = item.GetBeginTime();
    }
    if (static_cast<double>(item.GetBeginTime() - *m_First) >= *m_Options.duration * 1000.0) {
      m_Ended = true;
      return;
    }
  }
  if (!m_First) {
    m_First = item.GetBeginTime();
  }
  m_Last = std::max(m_Last, item.GetEndTime());
  if (m_BlockImport) {
    m_BlockImport->Take(owner, data, size, item.GetBeginTime());
  } else {
    m_File.Write(data, size);
  }
  ++m_Records;
}

void CmImport::Take(ImData* raw) {
  const std::shared_ptr<const ImData> item(raw);
  if (!item) {
    return;
  }
  if (const auto* vector = dynamic_cast<const ImMediaDataVector*>(item.get())) {
    std::vector<ImMediaData*> elements;
    vector->GetElements(elements);
    for (const ImMediaData* element : elements) {
      if (element != nullptr) {
        Write(*element, item);
      }
    }
    return;
  }
  Write(*item, item);
}

void CmImport::CheckPaths() const {
  const std::string& output = m_Options.output;
  if (!RealPath(output).empty() && RealPath(output) == RealPath(m_Options.media)) {
    throw CmRunError("The output " + output + " is the recording being read; name another file.");
  }
  if (!IsNetworkStream(m_Options.media) && access(m_Options.media.c_str(), R_OK) != 0) {
    throw CmRunError("The media " + m_Options.media + " cannot be read: " + std::strerror(errno) +
                     ".");
  }
  struct stat status {};
  if (!IsNetworkStream(m_Options.media) && stat(m_Options.media.c_str(), &status) == 0 &&
      S_ISDIR(status.st_mode)) {
    throw CmRunError("The media " + m_Options.media + " is a directory, not a file.");
  }
}

void CmImport::CheckMediaPlugin(const std::string& pluginPath) const {
  if (EndsWith(m_Options.media, ".gbd")) {
    return;
  }
  // The toolkit would only say that it could not parse its configuration.
  const std::string media =
      pluginPath.substr(0, pluginPath.rfind('/') + 1) + "ToolkitSourcePlugin_media.so";
  if (access(media.c_str(), F_OK) != 0) {
    throw CmRunError("Importing " + m_Options.media + " needs the media plug-in, " + media +
                     ", which this build does not have; only .gbd recordings can be "
                     "imported.");
  }
}

void CmImport::Connect(CmToolkitTree& tree, bool live) const {
  try {
    ImSourceToolkit& source = live ? static_cast<ImSourceToolkit&>(tree.Live())
                                   : static_cast<ImSourceToolkit&>(tree.Playback());
    CmPropertyNameSet supported;
    source.Connect({}, supported, 0);
    tree.MarkConnected();
  } catch (const ImToolkitError& error) {
    const std::string provider = EndsWith(m_Options.media, ".gbd") ? "recording" : "media";
    throw CmRunError("The " + provider + " plug-in could not open " + m_Options.media + ": " +
                     DescribeToolkitError(error) + ".");
  }
}

std::string CmImport::Pull(CmToolkitTree& tree, bool live) {
  try {
    if (live) {
      PullLive(tree.Live());
    } else {
      PullPlayback(tree.Playback());
    }
  } catch (const ImToolkitError& error) {
    return "The import failed after " + std::to_string(m_Records) +
           " records: " + DescribeToolkitError(error) + ".";
  }
  return "";
}

void CmImport::PullLive(ImLiveSourceToolkit& source) {
  source.StartLiveStream();
  const auto start = std::chrono::steady_clock::now();
  while (!Limited()) {
    if (m_Options.duration &&
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >=
            *m_Options.duration) {
      break;
    }
    ImData* raw = nullptr;
    if (source.GetLiveData(&raw, 200) == StatusSuccess) {
      Take(raw);
    } else {
      delete raw;
    }
  }
  source.StopLiveStream();
}

void CmImport::PullPlayback(ImPlaybackSourceToolkit& source) {
  for (uint32_t status = source.MoveFirst(); status == StatusSuccess && !Limited();
       status = source.MoveNext()) {
    ImData* raw = nullptr;
    if (source.GetData(&raw) == StatusSuccess) {
      Take(raw);
    } else {
      delete raw;
      ++m_Skipped;
      m_Err << "vzk: Record " << m_Records + m_Skipped << " could not be read.\n";
    }
  }
}

void CmImport::Commit(const std::string& partial) const {
  const std::string& output = m_Options.output;
  if (m_Records == 0 || (m_BlockImport && m_BlockImport->GetBlockCount() == 0 &&
                         m_BlockImport->GetKeptFrameCount() == 0)) {
    std::remove(partial.c_str());
    throw CmRunError(m_Options.media + " delivered no records, so " + output + " was not written.");
  }
  if (std::rename(partial.c_str(), output.c_str()) != 0) {
    throw CmRunError("The recording " + partial + " could not be renamed to " + output + ": " +
                     std::strerror(errno) + ".");
  }
}

int CmImport::Report() const {
  m_Out << "Imported " << m_Records << " record" << (m_Records == 1 ? "" : "s")
        << (m_BlockImport ? " as " + std::to_string(m_BlockImport->GetBlockCount()) + " block" +
                                (m_BlockImport->GetBlockCount() == 1 ? "" : "s")
                          : "")
        << (m_BlockImport && m_BlockImport->GetKeptFrameCount() != 0
                ? " and " + std::to_string(m_BlockImport->GetKeptFrameCount()) + " frame" +
                      (m_BlockImport->GetKeptFrameCount() == 1 ? "" : "s")
                : "")
        << " (" << m_File.GetSize() << " bytes";
  if (m_First) {
    m_Out << ", " << (m_Last - *m_First) << " ms of media";
  }
  m_Out << ") into " << m_Options.output << ".\n";
  if (StopRequested()) {
    m_Err << "vzk: Stopped by request; the recording ends there.\n";
  }
  // What the recording plug-in passed over never reached this import.
  const bool damaged =
      EndsWith(m_Options.media, ".gbd") && ReportRecordingDamage({m_Options.media}, true, m_Err);
  const bool refused = m_BlockImport && m_BlockImport->Report(m_Out, m_Err);
  if (m_Skipped != 0) {
    m_Err << "vzk: " << m_Skipped << " item" << (m_Skipped == 1 ? " was" : "s were")
          << " left out.\n";
    return 1;
  }
  return damaged || refused ? 1 : 0;
}

int CmImport::Execute() {
  CheckPaths();
  const std::string pluginPath = m_Options.plugin ? *m_Options.plugin : DefaultPluginPath();
  CheckMediaPlugin(pluginPath);
  CmPluginLibrary library(pluginPath);
  CmToolkitTree tree(library, ImportConfiguration(m_Options.media));
  const bool live = IsNetworkStream(m_Options.media);
  Connect(tree, live);
  // Written under another name first: a failed import never leaves a file
  // that looks complete.
  const std::string partial = m_Options.output + ".part";
  m_File.Open(partial);
  if (m_Options.blocks) {
    m_BlockImport = std::make_unique<CmBlockImport>(
        [this](const uint8_t* data, size_t size) { m_File.Write(data, size); });
  }
  const std::string failure = Pull(tree, live);
  if (m_BlockImport) {
    m_BlockImport->Finish();
  }
  m_File.Close();
  if (!failure.empty()) {
    m_Err << "vzk: " << failure << " What was imported so far is in " << partial << ".\n";
    return 1;
  }
  Commit(partial);
  return Report();
}

} // namespace

std::string ImportConfiguration(const std::string& media) {
  const bool recording = EndsWith(media, ".gbd");
  const std::string inner = recording ? "<recording file=\"" + EscapeXml(media) + "\"/>"
                                      : "<media url=\"" + EscapeXml(media) + "\"/>";
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<toolkit type=\"source\"><provider>vzk</provider><config>"
         "<toolkit type=\"source\"><provider>" +
         std::string(recording ? "recording" : "media") + "</provider><config>" + inner +
         "</config></toolkit></config></toolkit>\n";
}

int ImportMedia(const SmImportOptions& options, std::ostream& out, std::ostream& err) {
  return RunTellingFailures(err, [&] { return CmImport(options, out, err).Execute(); });
}

} // namespace NmVzkTool
