#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"

#include <locale>
#include <new>

#include "Common/Process/Process.h"
#include "Common/Xerces/Xerces.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {
namespace {

constexpr const char* LibrarySuffix = ".so";

std::string TrimAndLower(const std::string& text) {
  const std::locale locale;
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && std::isspace(text[begin], locale)) {
    ++begin;
  }
  while (end > begin && std::isspace(text[end - 1], locale)) {
    --end;
  }
  std::string result = text.substr(begin, end - begin);
  for (char& c : result) {
    c = std::tolower(c, locale);
  }
  return result;
}

} // namespace

std::string CmToolkitFactory::LibraryName(const std::string& type, const std::string& provider) {
  if (type == "source") {
    return "ToolkitSourcePlugin_" + provider;
  }
  if (type == "export") {
    return "ToolkitExportPlugin_" + provider;
  }
  return {};
}

CmToolkitFactory::~CmToolkitFactory() {
  for (ImToolkit* toolkit : m_OwnToolkits) {
    delete toolkit;
  }
  m_OwnToolkits.clear();
  for (auto& [name, record] : m_Libraries) {
    for (ImToolkit* toolkit : record.toolkits) {
      if (toolkit != nullptr) {
        record.deleteInstance(toolkit);
      }
    }
    record.toolkits.clear();
    try {
      record.library->Unload();
    } catch (const NmError::CmError&) {
      // Nothing to report to at unload; the loader keeps what it could not free.
    }
    record.library.reset();
  }
  m_Libraries.clear();
}

CmToolkitFactory::SmLibraryRecord* CmToolkitFactory::FindOrLoad(const std::string& libraryName) {
  const auto found = m_Libraries.find(libraryName);
  if (found != m_Libraries.end()) {
    return &found->second;
  }
  auto library = std::make_unique<NmLibrary::CmLibrary>();
  try {
    const NmFile::CmFile module = NmProcess::CmProcess::CurrentModule();
    library->Load(NmFile::CmFile(module.GetDirectory(), libraryName + LibrarySuffix));
  } catch (const NmError::CmError&) {
    return nullptr;
  }
  SmLibraryRecord record;
  record.createInstance =
      reinterpret_cast<VzkCreateInstanceFunction>(library->GetSymbol("CreateInstance"));
  record.deleteInstance =
      reinterpret_cast<VzkDeleteInstanceFunction>(library->GetSymbol("DeleteInstance"));
  if (record.createInstance == nullptr || record.deleteInstance == nullptr) {
    return nullptr;
  }
  record.library = std::move(library);
  return &m_Libraries.emplace(libraryName, std::move(record)).first->second;
}

ImToolkit* CmToolkitFactory::CreateInstance(const char* xml) {
  const std::string text = xml ? xml : "";
  std::string type;
  std::string provider;
  try {
    const NmXerces::CmXmlDocumentPtr document = NmXerces::CmXmlWrapper::LoadXml(text);
    const NmXerces::CmXmlNodePtr toolkitNode = document->SelectSingleNode("/toolkit");
    if (!toolkitNode || !toolkitNode->GetAttributeValue("type", type)) {
      throw CmConfigurationError<1>();
    }
    const NmXerces::CmXmlNodePtr providerNode = document->SelectSingleNode("/toolkit/provider");
    if (!providerNode || !providerNode->GetValue(provider)) {
      throw CmConfigurationError<2>();
    }
  } catch (const NmXerces::CmXmlError&) {
    throw CmConfigurationError<0>();
  }

  const std::string libraryName = LibraryName(type, TrimAndLower(provider));
  if (!libraryName.empty()) {
    if (SmLibraryRecord* record = FindOrLoad(libraryName)) {
      ImToolkit* toolkit = record->createInstance(text.c_str());
      try {
        record->toolkits.insert(toolkit);
      } catch (const std::bad_alloc&) {
        // Unrecorded, it could never be deleted through its library.
        if (toolkit != nullptr) {
          record->deleteInstance(toolkit);
        }
        throw;
      }
      if (toolkit != nullptr) {
        return toolkit;
      }
    }
  }
  throw CmFileError<6>(libraryName);
}

void CmToolkitFactory::DeleteInstance(ImToolkit* toolkit) {
  if (toolkit == nullptr) {
    return;
  }
  if (m_OwnToolkits.erase(toolkit) != 0) {
    delete toolkit;
    return;
  }
  for (auto& [name, record] : m_Libraries) {
    const auto found = record.toolkits.find(toolkit);
    if (found != record.toolkits.end()) {
      record.toolkits.erase(found);
      record.deleteInstance(toolkit);
      return;
    }
  }
}

bool CmToolkitFactory::IsLibraryLoaded(const std::string& libraryName) const {
  const auto found = m_Libraries.find(libraryName);
  return found != m_Libraries.end() && found->second.library && found->second.library->IsLoaded();
}

size_t CmToolkitFactory::GetToolkitCount(const std::string& libraryName) const {
  const auto found = m_Libraries.find(libraryName);
  return found == m_Libraries.end() ? 0 : found->second.toolkits.size();
}

} // namespace NmToolkit
