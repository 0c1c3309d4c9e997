// vzk run: builds a tree, connects, pulls items and hands them to the writer.

#include <cmath>
#include <memory>
#include <optional>

#include "Commands.h"
#include "Common/Error/Error.h"
#include "Common/Xerces/Xerces.h"
#include "ItemWriter.h"
#include "PluginHost.h"
#include "Progress.h"
#include "RecordingDamage.h"
#include "StopSignal.h"

using namespace NmToolkit;

namespace NmVzkTool {
namespace {

// How long one GetLiveData call may wait, so that limits and Ctrl-C are seen.
constexpr uint32_t LivePollMilliseconds = 200;

const std::set<std::string>& KnownProperties() {
  static const std::set<std::string> names = {
      NmPropertyNames::NextBeginTime,      NmPropertyNames::NextEndTime,
      NmPropertyNames::PrevBeginTime,      NmPropertyNames::PrevEndTime,
      NmPropertyNames::PrivacyMask,        NmPropertyNames::SequenceNumber,
      NmPropertyNames::HasMotion,          NmPropertyNames::RecordedSignatures,
      NmPropertyNames::ExportedSignatures, NmPropertyNames::ExportDisallowed,
      NmPropertyNames::Transcoded};
  return names;
}

// What the toolkit's "Could not parse" means for this file, in more words:
// the first cause found, looked for in the order in which the library builds
// the tree.
std::string ConfigurationHint(const std::string& path, const std::string& xml) {
  using NmXerces::CmXmlNodePtr;
  struct CmTreeCheck {
    // The element names of the library's toolkits.
    static bool IsToolkitName(const std::string& name) {
      static const std::set<std::string> names = {"image_resize",
                                                  "image_boxed_resize",
                                                  "image_filled_resize",
                                                  "text_overlay",
                                                  "image_color_format_convert",
                                                  "image_crop",
                                                  "jpeg_encoder",
                                                  "apply_privacy_mask",
                                                  "set_property",
                                                  "video_decoder",
                                                  "key_frames_only_video_decoder",
                                                  "conditional_video_decoder",
                                                  "synthetic_live"};
      return names.count(name) != 0;
    }
    // The one toolkit element inside a "config" of this library.
    static std::string ConfigFault(const CmXmlNodePtr& config) {
      std::vector<CmXmlNodePtr> children;
      config->GetChildren(children);
      if (children.size() > 1) {
        return "a \"config\" element holds " + std::to_string(children.size()) +
               " toolkit elements (\"" + children[0]->GetName() + "\", \"" +
               children[1]->GetName() + "\"), where one is allowed";
      }
      return children.empty() ? std::string() : ElementFault(children[0]);
    }
    static std::string ElementFault(const CmXmlNodePtr& node) {
      const std::string name = node->GetName();
      if (name == "toolkit") {
        return PluginFault(node);
      }
      if (name == "audio_decoder") {
        return "the element \"audio_decoder\" names a toolkit that this build does not have yet";
      }
      if (!IsToolkitName(name)) {
        return "the element \"" + name + "\" is no toolkit that the library knows";
      }
      std::vector<CmXmlNodePtr> children;
      node->GetChildren(children);
      if (children.empty()) {
        return "the toolkit element \"" + name + "\" has no upstream element inside it";
      }
      for (const CmXmlNodePtr& child : children) {
        const std::string fault = ElementFault(child);
        if (!fault.empty()) {
          return fault;
        }
      }
      return {};
    }
    // A "toolkit" element: a plug-in that must load, and for this library
    // itself a configuration of the same grammar again.
    static std::string PluginFault(const CmXmlNodePtr& node) {
      std::string type;
      if (!node->GetAttributeValue("type", type)) {
        return "a \"toolkit\" element has no \"type\" attribute";
      }
      if (type != "source" && type != "export") {
        return "a \"toolkit\" element has the type \"" + type +
               "\", which is neither \"source\" nor \"export\"";
      }
      std::string provider;
      const CmXmlNodePtr providerNode = node->SelectSingleNode("provider");
      if (!providerNode || !providerNode->GetValue(provider) || provider.empty()) {
        return "a \"toolkit\" element names no provider";
      }
      for (char& c : provider) {
        c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
      }
      const std::string library = ProgramDirectory() + "/Toolkit" +
                                  (type == "source" ? "Source" : "Export") + "Plugin_" + provider +
                                  ".so";
      try {
        const CmPluginLibrary probe(library);
      } catch (const CmRunError& error) {
        return "the plug-in of the provider \"" + provider + "\" cannot be loaded. " + error.what();
      }
      const CmXmlNodePtr config = node->SelectSingleNode("config");
      return provider == "vzk" && config ? ConfigFault(config) : std::string();
    }
  };

  std::string fault;
  try {
    const NmXerces::CmXmlDocumentPtr document = NmXerces::CmXmlWrapper::LoadXml(xml);
    if (const CmXmlNodePtr config = document->SelectSingleNode("/toolkit/config")) {
      fault = CmTreeCheck::ConfigFault(config);
    }
  } catch (const NmXerces::CmXmlError& error) {
    if (error.GetCode() == NmXerces::CmXmlErrorCode::NestingTooDeep) {
      return "The file " + path + " nests its elements deeper than " +
             std::to_string(NmXerces::MaximumNestingDepth) +
             " levels, more than a configuration may.";
    }
    return "The file " + path + " is not well-formed XML: " + error.GetDescription();
  } catch (const std::exception& error) {
    return "The file " + path + " is not well-formed XML: " + error.what();
  }
  if (!fault.empty()) {
    return "In " + path + ", " + fault + ".";
  }
  return "The XML of " + path +
         " is well-formed and its elements are known, so a toolkit refused its keys or a "
         "plug-in refused its configuration.";
}

class CmRun {
public:
  CmRun(const SmRunOptions& options, std::ostream& out, std::ostream& err, bool onTerminal)
      : m_Options(options), m_Out(out), m_Err(err), m_Progress(onTerminal && !options.quiet, err) {}

  int Execute();

private:
  bool LimitReached() const {
    return StopRequested() || (m_Options.count && m_Index >= *m_Options.count);
  }
  // False when the item lies beyond --duration in playback.
  bool WithinDuration(const ImData& item) {
    if (!m_Options.duration) {
      return true;
    }
    if (!m_FirstTime) {
      m_FirstTime = item.GetBeginTime();
    }
    return static_cast<double>(item.GetBeginTime() - *m_FirstTime) < *m_Options.duration * 1000.0;
  }
  void Playback(ImPlaybackSourceToolkit& playback);
  void Live(ImLiveSourceToolkit& live);
  void Deliver(ImData* raw, uint32_t status, bool live);
  void Warn(const std::string& text) {
    m_Progress.Clear();
    m_Err << "vzk: " << text << "\n";
  }

  const SmRunOptions& m_Options;
  std::ostream& m_Out;
  std::ostream& m_Err;
  CmProgress m_Progress;
  std::unique_ptr<CmItemWriter> m_Writer;
  uint64_t m_Index = 0;
  std::optional<int64_t> m_FirstTime;
  bool m_DurationEnded = false;
};

void CmRun::Deliver(ImData* raw, uint32_t status, bool live) {
  std::unique_ptr<ImData> item(raw);
  if (status != StatusSuccess || !item) {
    if (!live) {
      ++m_Index;
      m_Writer->NoteUndelivered(m_Index, status);
    }
    return;
  }
  if (!live && !WithinDuration(*item)) {
    m_DurationEnded = true;
    return;
  }
  ++m_Index;
  m_Writer->Handle(*item, m_Index);
  m_Progress.Update(m_Writer->GetCounts());
}

void CmRun::Playback(ImPlaybackSourceToolkit& playback) {
  uint32_t status =
      m_Options.from ? playback.MoveTo(*m_Options.from, MoveAtOrAfter) : playback.MoveFirst();
  if (status != StatusSuccess) {
    Warn(m_Options.from
             ? "The tree has no item at or after " + std::to_string(*m_Options.from) + " ms."
             : "The tree has no items.");
    return;
  }
  while (status == StatusSuccess && !LimitReached() && !m_DurationEnded) {
    ImData* raw = nullptr;
    const uint32_t got = playback.GetData(&raw);
    Deliver(raw, got, false);
    if (LimitReached() || m_DurationEnded) {
      break;
    }
    status = playback.MoveNext();
  }
}

void CmRun::Live(ImLiveSourceToolkit& live) {
  live.StartLiveStream();
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  while (!LimitReached()) {
    double wait = LivePollMilliseconds;
    if (m_Options.duration) {
      const double left = (*m_Options.duration - elapsed()) * 1000.0;
      if (left <= 0) {
        break;
      }
      wait = std::min(wait, std::ceil(left));
    }
    ImData* raw = nullptr;
    const uint32_t status = live.GetLiveData(&raw, static_cast<uint32_t>(wait));
    // In live mode no item only means that none came in time.
    Deliver(raw, status, true);
  }
  try {
    live.StopLiveStream();
  } catch (const ImToolkitError& error) {
    Warn("The live stream did not stop cleanly: " + DescribeToolkitError(error));
  }
}

int CmRun::Execute() {
  const std::string xml = ReadTextFile(m_Options.configuration, "configuration file");
  for (const std::string& name : m_Options.requested) {
    if (KnownProperties().count(name) == 0) {
      Warn("The property " + name +
           " is none of the eleven that toolkits know; only a plug-in at the root can "
           "deliver it.");
    }
  }
  CmPluginLibrary library(m_Options.plugin ? *m_Options.plugin : DefaultPluginPath());
  CmToolkitTree tree(library, xml);
  const CmPropertyNameSet requested(m_Options.requested.begin(), m_Options.requested.end());
  CmPropertyNameSet supported;
  try {
    ImSourceToolkit& source = m_Options.mode == SmRunMode::Live
                                  ? static_cast<ImSourceToolkit&>(tree.Live())
                                  : static_cast<ImSourceToolkit&>(tree.Playback());
    source.Connect(requested, supported, 0);
    tree.MarkConnected();
  } catch (const ImConfigurationError& error) {
    throw CmRunError("The tree of " + m_Options.configuration +
                     " could not be built: " + DescribeToolkitError(error) + ". " +
                     ConfigurationHint(m_Options.configuration, xml));
  } catch (const ImToolkitError& error) {
    throw CmRunError("The tree of " + m_Options.configuration +
                     " could not connect: " + DescribeToolkitError(error) + ".");
  }
  for (const std::string& name : requested) {
    if (supported.count(name) == 0) {
      Warn("The tree does not deliver the property " + name + ".");
    }
  }
  m_Writer =
      std::make_unique<CmItemWriter>(m_Options, supported, m_Err, [this] { m_Progress.Clear(); });

  std::string failure;
  try {
    if (m_Options.mode == SmRunMode::Live) {
      Live(tree.Live());
    } else {
      Playback(tree.Playback());
    }
  } catch (const ImToolkitError& error) {
    failure = "The toolkit failed at item " + std::to_string(m_Index + 1) + ": " +
              DescribeToolkitError(error) + ".";
  } catch (const CmRunError& error) {
    failure = error.what();
  }
  tree.DisconnectQuietly();
  m_Progress.Clear();
  try {
    // Streams are closed even after a failure, so that nothing written is lost.
    m_Writer->Finish();
  } catch (const CmRunError& error) {
    failure += (failure.empty() ? "" : " ") + std::string(error.what());
  }
  if (StopRequested()) {
    m_Err << "vzk: Stopped by request.\n";
  }
  m_Out << Summary(m_Writer->GetCounts(), m_Progress.GetElapsedSeconds()) << "\n";
  if (m_Options.outputDirectory) {
    m_Out << "Output in " << *m_Options.outputDirectory
          << "/ (items.txt lists every item and its file).\n";
  }
  // In live mode the last record of a growing file may still be coming.
  const bool damaged =
      ReportRecordingDamage(RecordingFilesOf(xml), m_Options.mode != SmRunMode::Live, m_Err);
  if (!failure.empty()) {
    m_Err << "vzk: " << failure << "\n";
    return 1;
  }
  return m_Writer->GetCounts().errors == 0 && !damaged ? 0 : 1;
}

} // namespace

int RunTree(const SmRunOptions& options, std::ostream& out, std::ostream& err, bool onTerminal) {
  return RunTellingFailures(err, [&] { return CmRun(options, out, err, onTerminal).Execute(); });
}

} // namespace NmVzkTool
