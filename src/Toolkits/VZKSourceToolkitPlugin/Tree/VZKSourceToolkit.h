#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Common/Thread/CriticalSection.h"
#include "Common/Xerces/Xerces.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/SourceToolkitOperations.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitProperties.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/UpstreamToolkit.h"
#include "vzk/Toolkit.h"

namespace NmToolkit {

// The root of the toolkit tree and the base of every toolkit of this library:
// it owns the upstream toolkits, reads configuration keys, connects the chain,
// forwards navigation and delivers data through one processing step.
class CmVZKSourceToolkit : public ImPlaybackSourceToolkit, public ImLiveSourceToolkit {
public:
  // A root built from the whole configuration text.
  explicit CmVZKSourceToolkit(const char* xml);
  // A toolkit built from its own element; every derived toolkit uses this.
  explicit CmVZKSourceToolkit(const NmXerces::CmXmlNodePtr& node);
  ~CmVZKSourceToolkit() override;
  CmVZKSourceToolkit(const CmVZKSourceToolkit&) = delete;
  CmVZKSourceToolkit& operator=(const CmVZKSourceToolkit&) = delete;

  // ImSourceToolkit
  VZK_SOURCE_TOOLKIT_OPERATIONS;

  // ImLiveSourceToolkit
  VZK_LIVE_SOURCE_TOOLKIT_OPERATIONS;

  // ImPlaybackSourceToolkit
  VZK_PLAYBACK_SOURCE_TOOLKIT_OPERATIONS;

  // A derived toolkit reads its keys here; called at Connect and whenever a
  // value arrives under one of its update keys.
  virtual void ReadConfiguration();
  // Turns an input item into the output item: a new one, or `in` itself.
  virtual void ProcessData(ImData* in, ImData** out);

  bool IsConfigured() const { return m_IsConfigured; }
  bool IsConnected() const { return m_IsConnected; }
  bool IsLive() const { return m_IsLive; }
  bool IsRoot() const { return m_IsRoot; }
  const std::set<std::string>& GetKnownProperties() const { return m_KnownProperties; }

protected:
  std::string GetElementName() const;
  bool GetConfigurationValue(const std::string& key, std::string& out);
  std::string GetConfigurationValue(const std::string& key, const std::string& defaultValue);
  double GetConfigurationNumber(const std::string& key, double defaultValue);
  // Clones each property named in the passed set from `in` into `out`.
  void CopyPassedProperties(const ImData* in, CmVZKSourceToolkitProperties& out) const;
  // The shared path of GetData and GetLiveData.
  uint32_t FetchAndProcess(ImData** out, uint32_t timeout);

  const std::set<std::string>& GetPassedProperties() const { return m_PassedProperties; }
  const NmXerces::CmXmlNodePtr& GetConfigurationNode() const { return m_ConfigurationNode; }
  ImSourceToolkit* FirstUpstream() const;
  ImPlaybackSourceToolkit* FirstPlaybackUpstream(const char* operation) const;
  ImLiveSourceToolkit* FirstLiveUpstream(const char* operation) const;
  // Throws unless connected and in the mode that `operation` needs.
  void RequirePlayback(const char* operation) const;
  void RequireConnected() const;
  void SetLive(bool live) { m_IsLive = live; }
  // Hands the first upstream over to a new `Wrapper`, which takes its place
  // for data and for navigation and owns it from then on; null without an
  // upstream. Should the wrapper fail to build, the upstream is still
  // released exactly once, by whichever side holds it at that moment.
  template <typename Wrapper> Wrapper* WrapFirstUpstream() {
    if (m_UpstreamToolkits.empty() || !m_UpstreamToolkits.front()) {
      return nullptr;
    }
    auto wrapper = std::make_unique<Wrapper>(std::move(m_UpstreamToolkits.front()));
    Wrapper* view = wrapper.get();
    m_UpstreamToolkits.front() = CmUpstreamToolkit(std::move(wrapper));
    return view;
  }
  // Connects asking upstream for "Privacy_Mask" as well, for a toolkit that
  // burns the mask in itself; the host sees the property only if it asked.
  void ConnectFetchingPrivacyMask(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                                  uint64_t argument);

private:
  bool ConfigureFromXml(const char* xml);
  bool ConfigureFromNode(const NmXerces::CmXmlNodePtr& node);
  CmUpstreamToolkit CreateUpstreamToolkit(const NmXerces::CmXmlNodePtr& node);
  CmUpstreamToolkit CreateToolkitThroughFactory(const NmXerces::CmXmlNodePtr& node);
  void InitializeKnownProperties();

  // In document order; each handle also carries the playback and live casts.
  std::vector<CmUpstreamToolkit> m_UpstreamToolkits;
  bool m_IsConnected = false;
  bool m_IsLive = false;
  bool m_IsConfigured = false;
  NmThread::CmCriticalSection m_ConnectionLock;
  NmXerces::CmXmlDocumentPtr m_ConfigurationDocument;
  NmXerces::CmXmlNodePtr m_ConfigurationNode;
  bool m_IsRoot;
  std::set<std::string> m_KnownProperties;
  std::set<std::string> m_PassedProperties;
  std::map<std::string, std::string> m_UpdatedValues;
  std::set<std::string> m_UpdateKeys;
};

// Builds the toolkit of this library that an element names, or returns null
// for a name that has no toolkit here. The toolkits register in this table.
std::unique_ptr<ImSourceToolkit> CreateTransformToolkit(const NmXerces::CmXmlNodePtr& node);
std::unique_ptr<ImSourceToolkit> CreateLibraryUpstreamToolkit(const NmXerces::CmXmlNodePtr& node);

} // namespace NmToolkit
