#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <new>

#include "Common/Error/Error.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitGlobals.h"

namespace NmToolkit {

using NmXerces::CmXmlNodePtr;

namespace {

constexpr const char* ToolkitElementName = "toolkit";
constexpr const char* UpdateKeySuffix = "_update_key";

} // namespace

CmVZKSourceToolkit::CmVZKSourceToolkit(const char* xml) : m_IsRoot(true) {
  InitializeKnownProperties();
  m_IsConfigured = ConfigureFromXml(xml);
}

CmVZKSourceToolkit::CmVZKSourceToolkit(const CmXmlNodePtr& node) : m_IsRoot(false) {
  InitializeKnownProperties();
  m_IsConfigured = ConfigureFromNode(node);
}

CmVZKSourceToolkit::~CmVZKSourceToolkit() {
  // Upstreams go from the last to the first; each handle knows whether its
  // toolkit is deleted here or goes back through the factory that made it.
  while (!m_UpstreamToolkits.empty()) {
    m_UpstreamToolkits.pop_back();
  }
}

void CmVZKSourceToolkit::InitializeKnownProperties() {
  m_KnownProperties = {NmPropertyNames::NextBeginTime,      NmPropertyNames::NextEndTime,
                       NmPropertyNames::PrevBeginTime,      NmPropertyNames::PrevEndTime,
                       NmPropertyNames::PrivacyMask,        NmPropertyNames::SequenceNumber,
                       NmPropertyNames::HasMotion,          NmPropertyNames::RecordedSignatures,
                       NmPropertyNames::ExportedSignatures, NmPropertyNames::ExportDisallowed,
                       NmPropertyNames::Transcoded};
}

bool CmVZKSourceToolkit::ConfigureFromXml(const char* xml) {
  try {
    m_ConfigurationDocument = NmXerces::CmXmlWrapper::LoadXml(xml ? xml : "");
    if (!m_ConfigurationDocument || !m_ConfigurationDocument->GetDocumentElement()) {
      return false;
    }
    std::vector<CmXmlNodePtr> children;
    if (const CmXmlNodePtr config = m_ConfigurationDocument->SelectSingleNode("/toolkit/config")) {
      config->GetChildren(children);
    }
    for (const CmXmlNodePtr& child : children) {
      // One toolkit element only: a second fails after the first is built.
      if (m_ConfigurationNode) {
        return false;
      }
      if (!ConfigureFromNode(child)) {
        return false;
      }
    }
    return true;
  } catch (const NmXerces::CmXmlError&) {
    return false;
  } catch (const ImToolkitError&) {
    return false;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    // Out of memory while the tree is built, or what a foreign plug-in threw:
    // the tree is not built, and Connect says so as for any configuration fault.
    return false;
  }
}

bool CmVZKSourceToolkit::ConfigureFromNode(const CmXmlNodePtr& node) {
  try {
    m_ConfigurationNode = node;
    std::vector<CmXmlNodePtr> children;
    if (m_IsRoot) {
      // The root's own element is also its single upstream.
      children.push_back(node);
    } else {
      node->GetChildren(children);
    }
    // Room for every upstream first, so that a toolkit once built is not
    // released again because its slot could not be made.
    m_UpstreamToolkits.reserve(children.size());
    // Built one by one so that a failing child leaves the ones before it
    // owned here, and the ones after it unbuilt.
    for (const CmXmlNodePtr& child : children) {
      m_UpstreamToolkits.push_back(CreateUpstreamToolkit(child));
    }
    return !m_UpstreamToolkits.empty();
  } catch (const ImToolkitError&) {
    return false;
  } catch (const NmError::CmError&) {
    // The XML wrapper's errors, and those of a toolkit that cannot be built
    // from its keys: both are configuration faults.
    return false;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    // Out of memory, or a foreign exception from a plug-in further up: this
    // constructor must not fail, or the upstreams built so far would be lost.
    return false;
  }
}

CmUpstreamToolkit CmVZKSourceToolkit::CreateUpstreamToolkit(const CmXmlNodePtr& node) {
  if (std::unique_ptr<ImSourceToolkit> transform = CreateTransformToolkit(node)) {
    return CmUpstreamToolkit(std::move(transform));
  }
  if (node->GetName() == ToolkitElementName) {
    return CreateToolkitThroughFactory(node);
  }
  if (std::unique_ptr<ImSourceToolkit> upstream = CreateLibraryUpstreamToolkit(node)) {
    return CmUpstreamToolkit(std::move(upstream));
  }
  throw CmConfigurationError<0>();
}

CmUpstreamToolkit CmVZKSourceToolkit::CreateToolkitThroughFactory(const CmXmlNodePtr& node) {
  // The nested element becomes a configuration text of its own, which goes to
  // the plug-in library unchanged.
  const NmXerces::CmXmlDocumentPtr document = NmXerces::CmXmlWrapper::Create(ToolkitElementName);
  const CmXmlNodePtr root = document->GetDocumentElement();
  std::string type;
  if (node->GetAttributeValue("type", type)) {
    root->SetAttributeValue("type", type);
  }
  std::vector<CmXmlNodePtr> children;
  node->GetChildren(children);
  for (const CmXmlNodePtr& child : children) {
    root->AddChild(child);
  }

  NmThread::CmCriticalSection::CmScopedLock guard(ToolkitFactoryLock());
  const std::string text = document->ToString("UTF-8");
  ImToolkit* toolkit = ToolkitFactory().CreateInstance(text.c_str());
  if (toolkit == nullptr) {
    throw CmConfigurationError<0>();
  }
  // Owned from here on, whatever it turns out to be: a toolkit that is no
  // source goes back through the factory as the handle is dropped.
  CmUpstreamToolkit upstream(toolkit, ToolkitFactory(), ToolkitFactoryLock());
  if (!upstream) {
    throw CmConfigurationError<0>();
  }
  return upstream;
}

// ---- configuration values ----

std::string CmVZKSourceToolkit::GetElementName() const {
  return m_ConfigurationNode ? m_ConfigurationNode->GetName() : std::string();
}

bool CmVZKSourceToolkit::GetConfigurationValue(const std::string& key, std::string& out) {
  if (!m_ConfigurationNode) {
    return false;
  }
  std::string updateKey;
  if (m_ConfigurationNode->GetAttributeValue(key + UpdateKeySuffix, updateKey)) {
    m_UpdateKeys.insert(updateKey);
    const auto updated = m_UpdatedValues.find(updateKey);
    if (updated != m_UpdatedValues.end()) {
      out = updated->second;
      return true;
    }
  }
  return m_ConfigurationNode->GetAttributeValue(key, out);
}

std::string CmVZKSourceToolkit::GetConfigurationValue(const std::string& key,
                                                      const std::string& defaultValue) {
  std::string value;
  return GetConfigurationValue(key, value) ? value : defaultValue;
}

double CmVZKSourceToolkit::GetConfigurationNumber(const std::string& key, double defaultValue) {
  std::string value;
  return GetConfigurationValue(key, value) ? std::atof(value.c_str()) : defaultValue;
}

void CmVZKSourceToolkit::CopyPassedProperties(const ImData* in,
                                              CmVZKSourceToolkitProperties& out) const {
  if (in == nullptr) {
    return;
  }
  for (const std::string& name : m_PassedProperties) {
    if (const ImProperty* property = in->GetProperty(name)) {
      out.SetProperty(name, std::unique_ptr<ImProperty>(property->Clone()));
    }
  }
}

void CmVZKSourceToolkit::ReadConfiguration() {}

void CmVZKSourceToolkit::ProcessData(ImData* in, ImData** out) {
  *out = in;
}

// ---- updates ----

void CmVZKSourceToolkit::UpdateValue(const std::string& key, const std::string& value) {
  if (ImSourceToolkit* upstream = FirstUpstream()) {
    upstream->UpdateValue(key, value);
  }
  const auto stored = m_UpdatedValues.find(key);
  if (stored != m_UpdatedValues.end() && stored->second == value) {
    return;
  }
  m_UpdatedValues[key] = value;
  if (m_UpdateKeys.count(key) != 0) {
    ReadConfiguration();
  }
}

void CmVZKSourceToolkit::UpdateValues(const CmKeyValueList& values) {
  if (ImSourceToolkit* upstream = FirstUpstream()) {
    upstream->UpdateValues(values);
  }
  bool reread = false;
  for (const auto& [key, value] : values) {
    const auto stored = m_UpdatedValues.find(key);
    if (stored != m_UpdatedValues.end() && stored->second == value) {
      continue;
    }
    m_UpdatedValues[key] = value;
    reread = reread || m_UpdateKeys.count(key) != 0;
  }
  if (reread) {
    ReadConfiguration();
  }
}

// ---- connection ----

void CmVZKSourceToolkit::Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                                 uint64_t argument) {
  NmThread::CmCriticalSection::CmScopedLock guard(m_ConnectionLock);
  if (m_IsConnected) {
    return;
  }
  if (!m_IsConfigured) {
    throw CmConfigurationError<0>();
  }
  m_PassedProperties.clear();
  if (ImSourceToolkit* upstream = FirstUpstream()) {
    upstream->Connect(requested, m_PassedProperties, argument);
  }
  if (GetElementName() != ToolkitElementName) {
    // This library passes on only the properties it knows, whatever the
    // upstream offered; a foreign plug-in's answer stands as it is.
    m_PassedProperties.clear();
    for (const std::string& name : requested) {
      if (m_KnownProperties.count(name) != 0) {
        m_PassedProperties.insert(name);
      }
    }
  }
  supported = m_PassedProperties;
  ReadConfiguration();
  m_IsConnected = true;
  m_IsLive = false;
}

void CmVZKSourceToolkit::Connect(uint64_t argument) {
  CmPropertyNameSet supported;
  Connect(CmPropertyNameSet(), supported, argument);
}

void CmVZKSourceToolkit::Disconnect() {
  NmThread::CmCriticalSection::CmScopedLock guard(m_ConnectionLock);
  if (m_IsConnected) {
    if (ImSourceToolkit* upstream = FirstUpstream()) {
      upstream->Disconnect();
    }
  }
  m_IsConnected = false;
}

// ---- upstream access ----

ImSourceToolkit* CmVZKSourceToolkit::FirstUpstream() const {
  return m_UpstreamToolkits.empty() ? nullptr : m_UpstreamToolkits.front().Get();
}

ImPlaybackSourceToolkit* CmVZKSourceToolkit::FirstPlaybackUpstream(const char* operation) const {
  ImPlaybackSourceToolkit* upstream =
      m_UpstreamToolkits.empty() ? nullptr : m_UpstreamToolkits.front().GetPlayback();
  if (upstream == nullptr) {
    // An empty chain, or an upstream that cannot play back.
    throw CmInvalidOperationError<0>(operation);
  }
  return upstream;
}

ImLiveSourceToolkit* CmVZKSourceToolkit::FirstLiveUpstream(const char* operation) const {
  ImLiveSourceToolkit* upstream =
      m_UpstreamToolkits.empty() ? nullptr : m_UpstreamToolkits.front().GetLive();
  if (upstream == nullptr) {
    throw CmInvalidOperationError<0>(operation);
  }
  return upstream;
}

void CmVZKSourceToolkit::RequireConnected() const {
  if (!m_IsConnected) {
    throw CmNotConnectedError<1>();
  }
}

void CmVZKSourceToolkit::RequirePlayback(const char* operation) const {
  RequireConnected();
  if (m_IsLive) {
    throw CmInvalidOperationError<1>(operation);
  }
}

// ---- navigation ----

uint32_t CmVZKSourceToolkit::MoveFirst() {
  RequirePlayback("MoveFirst");
  return FirstPlaybackUpstream("MoveFirst")->MoveFirst();
}

uint32_t CmVZKSourceToolkit::MoveLast() {
  RequirePlayback("MoveLast");
  return FirstPlaybackUpstream("MoveLast")->MoveLast();
}

uint32_t CmVZKSourceToolkit::MoveNext() {
  RequirePlayback("MoveNext");
  return FirstPlaybackUpstream("MoveNext")->MoveNext();
}

uint32_t CmVZKSourceToolkit::MovePrevious() {
  RequirePlayback("MovePrevious");
  return FirstPlaybackUpstream("MovePrevious")->MovePrevious();
}

uint32_t CmVZKSourceToolkit::MoveNextSequence() {
  RequirePlayback("MoveNextSequence");
  return FirstPlaybackUpstream("MoveNextSequence")->MoveNextSequence();
}

uint32_t CmVZKSourceToolkit::MovePreviousSequence() {
  RequirePlayback("MovePreviousSequence");
  return FirstPlaybackUpstream("MovePreviousSequence")->MovePreviousSequence();
}

uint32_t CmVZKSourceToolkit::MoveTo(int64_t time, SmMoveMode mode) {
  if (mode > MoveAtOrAfter) {
    // A mode outside the interface's enumeration is a broken host.
    std::abort();
  }
  RequirePlayback("MoveTo");
  return FirstPlaybackUpstream("MoveTo")->MoveTo(time, mode);
}

// ---- data ----

uint32_t CmVZKSourceToolkit::GetData(ImData** out) {
  RequirePlayback("GetData");
  return FetchAndProcess(out, 0);
}

uint32_t CmVZKSourceToolkit::GetLiveData(ImData** out, uint32_t timeout) {
  if (!m_IsConnected) {
    throw CmNotConnectedError<1>();
  }
  if (!m_IsLive) {
    throw CmInvalidOperationError<2>("GetLiveData");
  }
  return FetchAndProcess(out, timeout);
}

void CmVZKSourceToolkit::StartLiveStream() {
  if (!m_IsConnected) {
    throw CmNotConnectedError<1>();
  }
  m_IsLive = true;
  FirstLiveUpstream("StartLiveStream")->StartLiveStream();
}

void CmVZKSourceToolkit::StopLiveStream() {
  if (!m_IsConnected) {
    throw CmNotConnectedError<1>();
  }
  m_IsLive = false;
  FirstLiveUpstream("StopLiveStream")->StopLiveStream();
}

uint32_t CmVZKSourceToolkit::FetchAndProcess(ImData** out, uint32_t timeout) {
  if (out == nullptr) {
    throw CmInvalidArgumentError<2>("out");
  }
  *out = nullptr;
  ImData* item = nullptr;
  const uint32_t status = m_IsLive ? FirstLiveUpstream("GetLiveData")->GetLiveData(&item, timeout)
                                   : FirstPlaybackUpstream("GetData")->GetData(&item);
  std::unique_ptr<ImData> owned(item);
  if (status != StatusSuccess) {
    return status;
  }
  if (m_IsLive && dynamic_cast<ImOutOfBandData*>(item) != nullptr) {
    *out = owned.release();
    return status;
  }
  if (item == nullptr) {
    throw CmInvalidArgumentError<2>(GetElementName());
  }
  ImData* result = nullptr;
  try {
    ProcessData(item, &result);
  } catch (const ImToolkitError&) {
    throw;
  } catch (const NmError::CmError&) {
    throw CmInvalidOperationError<0>(GetElementName());
  }
  if (result == item) {
    owned.release();
  }
  *out = result;
  return status;
}

void CmVZKSourceToolkit::ConnectFetchingPrivacyMask(const CmPropertyNameSet& requested,
                                                    CmPropertyNameSet& supported,
                                                    uint64_t argument) {
  CmPropertyNameSet withMask = requested;
  withMask.insert(NmPropertyNames::PrivacyMask);
  CmVZKSourceToolkit::Connect(withMask, supported, argument);
  if (requested.count(NmPropertyNames::PrivacyMask) == 0) {
    m_PassedProperties.erase(NmPropertyNames::PrivacyMask);
    supported.erase(NmPropertyNames::PrivacyMask);
  }
}

} // namespace NmToolkit
