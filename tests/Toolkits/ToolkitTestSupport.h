#pragma once

#include <dlfcn.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "vzk/vzk.h"

// Configuration texts and journal access for the scripted test plug-in.
namespace NmToolkitTest {

// Where the build puts the plug-ins and the test programs.
inline std::string BinaryDirectory() {
  const char* build = std::getenv("VZK_BUILD_DIR");
  return std::string(build ? build : ".") + "/bin";
}

inline const std::string DefaultItems = "<item begin='1000' end='1039' sequence='0' payload='a'>"
                                        "<property name='Sequence_Number' value='1'/>"
                                        "<property name='Privacy_Mask' value='2x1;10'/>"
                                        "<property name='Custom_Property' value='x'/></item>"
                                        "<item begin='1040' end='1079' sequence='0' payload='b'/>"
                                        "<item begin='2000' end='2039' sequence='1' payload='c'/>"
                                        "<item begin='2040' end='2079' sequence='1' payload='d'/>"
                                        "<item begin='3000' end='3039' sequence='2' payload='e'/>";

inline std::string ScriptedToolkit(const std::string& items = DefaultItems,
                                   const std::string& supports = "Sequence_Number,Custom_Property",
                                   const std::string& type = "source",
                                   const std::string& provider = "scripted") {
  return "<toolkit type='" + type + "'><provider>" + provider +
         "</provider><config><script supports='" + supports + "'>" + items +
         "</script></config></toolkit>";
}

// How often `word` occurs in `text`, as a count of calls in a journal.
inline size_t Count(const std::string& text, const std::string& word) {
  size_t count = 0;
  for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    ++count;
  }
  return count;
}

// The record bytes of an item as text; "null" for no item.
inline std::string Payload(const NmToolkit::ImData* item) {
  return item ? std::string(reinterpret_cast<const char*>(item->GetDataPointer()),
                            item->GetDataSize())
              : "null";
}
inline std::string Payload(const std::unique_ptr<NmToolkit::ImData>& item) {
  return Payload(item.get());
}

inline std::string StringProperty(const NmToolkit::ImData& item, const std::string& name) {
  const auto* property = dynamic_cast<const NmToolkit::ImStringProperty*>(item.GetProperty(name));
  return property ? property->GetValue() : "absent";
}

// -1 stands for no such property.
inline int64_t TimeProperty(const NmToolkit::ImData& item, const std::string& name) {
  const auto* property = dynamic_cast<const NmToolkit::ImUTCTimeProperty*>(item.GetProperty(name));
  return property ? property->GetValue() : -1;
}

// A root configuration whose single element is `element` wrapping `inner`.
inline std::string RootConfiguration(const std::string& inner) {
  return "<toolkit type='source'><provider>vzk</provider><config>" + inner + "</config></toolkit>";
}

// The scripted plug-in as loaded by the factory: same file, same handle.
class ScriptedJournal {
public:
  explicit ScriptedJournal(const std::string& directory,
                           const std::string& name = "ToolkitSourcePlugin_scripted.so") {
    m_Handle = dlopen((directory + "/" + name).c_str(), RTLD_NOW | RTLD_LOCAL);
  }
  ~ScriptedJournal() {
    if (m_Handle) {
      dlclose(m_Handle);
    }
  }
  ScriptedJournal(const ScriptedJournal&) = delete;
  ScriptedJournal& operator=(const ScriptedJournal&) = delete;

  bool IsOpen() const { return m_Handle != nullptr; }
  std::string Text() const {
    auto function = reinterpret_cast<const char* (*)()>(dlsym(m_Handle, "ScriptedSourceJournal"));
    return function ? function() : std::string();
  }
  void Clear() const {
    auto function = reinterpret_cast<void (*)()>(dlsym(m_Handle, "ScriptedSourceClearJournal"));
    if (function) {
      function();
    }
  }
  int Instances() const {
    auto function = reinterpret_cast<int (*)()>(dlsym(m_Handle, "ScriptedSourceInstances"));
    return function ? function() : -1;
  }

private:
  void* m_Handle = nullptr;
};

} // namespace NmToolkitTest
