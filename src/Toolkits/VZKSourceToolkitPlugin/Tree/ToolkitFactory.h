#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "Common/Library/Library.h"
#include "vzk/Plugin.h"
#include "vzk/Toolkit.h"

namespace NmToolkit {

// Turns a configuration text into a toolkit of a plug-in library, keeps the
// library loaded while it is needed and deletes each toolkit through the
// library that made it. Not locked: callers hold the factory lock.
class CmToolkitFactory : public ImToolkitFactory {
public:
  CmToolkitFactory() = default;
  ~CmToolkitFactory() override;
  CmToolkitFactory(const CmToolkitFactory&) = delete;
  CmToolkitFactory& operator=(const CmToolkitFactory&) = delete;

  ImToolkit* CreateInstance(const char* xml) override;
  void DeleteInstance(ImToolkit* toolkit) override;

  // The file name (without directory and suffix) for a type and a provider
  // text; empty for a type that is neither "source" nor "export".
  static std::string LibraryName(const std::string& type, const std::string& provider);
  bool IsLibraryLoaded(const std::string& libraryName) const;
  size_t GetToolkitCount(const std::string& libraryName) const;

private:
  struct SmLibraryRecord {
    std::unique_ptr<NmLibrary::CmLibrary> library;
    VzkCreateInstanceFunction createInstance = nullptr;
    VzkDeleteInstanceFunction deleteInstance = nullptr;
    std::multiset<ImToolkit*> toolkits;
  };

  SmLibraryRecord* FindOrLoad(const std::string& libraryName);

  std::set<ImToolkit*> m_OwnToolkits;
  std::map<std::string, SmLibraryRecord> m_Libraries;
};

} // namespace NmToolkit
