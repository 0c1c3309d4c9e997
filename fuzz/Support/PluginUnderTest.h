#pragma once

// A source plug-in loaded the way a host loads it: the shared object beside
// the fuzzer, entered only through its two exports and the toolkit
// interfaces. The library stays loaded for the whole run, so that its
// coverage counters stay registered with libFuzzer.

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "Support/MemoryFile.h"
#include "vzk/Data.h"
#include "vzk/Plugin.h"
#include "vzk/ToolkitError.h"

namespace NmFuzz {

class CmPluginUnderTest {
public:
  explicit CmPluginUnderTest(const char* library) {
    char self[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string path = length > 0 ? std::string(self, static_cast<size_t>(length)) : "";
    path = path.substr(0, path.rfind('/') + 1) + library;
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      std::fprintf(stderr, "Cannot load %s: %s\n", path.c_str(), dlerror());
      std::abort();
    }
    m_Create = reinterpret_cast<VzkCreateInstanceFunction>(dlsym(handle, "CreateInstance"));
    m_Delete = reinterpret_cast<VzkDeleteInstanceFunction>(dlsym(handle, "DeleteInstance"));
    if (m_Create == nullptr || m_Delete == nullptr) {
      std::fprintf(stderr, "%s lacks CreateInstance or DeleteInstance\n", path.c_str());
      std::abort();
    }
  }

  // The toolkit, handed back to the plug-in when the pointer goes.
  auto Create(const std::string& xml) const {
    auto del = m_Delete;
    auto deleter = [del](NmToolkit::ImToolkit* toolkit) { del(toolkit); };
    return std::unique_ptr<NmToolkit::ImToolkit, decltype(deleter)>(m_Create(xml.c_str()), deleter);
  }

private:
  VzkCreateInstanceFunction m_Create = nullptr;
  VzkDeleteInstanceFunction m_Delete = nullptr;
};

// Touches the first and last byte of a buffer an item claims, so that a
// claim larger than the memory behind it is caught.
inline void TouchBytes(const uint8_t* data, size_t size) {
  if (size == 0) {
    return;
  }
  if (data == nullptr) {
    __builtin_trap();
  }
  volatile uint8_t sink = data[0];
  sink = static_cast<uint8_t>(sink + data[size - 1]);
  (void)sink;
}

// Everything an item answers must be safe to use: its bytes are all there,
// the payload lies inside the record, and its properties can be read.
inline void CheckItem(const NmToolkit::ImData& item) {
  TouchBytes(item.GetDataPointer(), item.GetDataSize());
  volatile int64_t times = item.GetBeginTime() ^ item.GetEndTime();
  (void)times;
  if (const auto* media = dynamic_cast<const NmToolkit::ImMediaData*>(&item)) {
    const uint8_t* payload = media->GetPayloadPointer();
    const size_t size = media->GetPayloadSize();
    if (size > item.GetDataSize() ||
        (size > 0 && (payload < item.GetDataPointer() ||
                      payload + size > item.GetDataPointer() + item.GetDataSize()))) {
      __builtin_trap();
    }
    TouchBytes(payload, size);
  }
  for (const char* name :
       {NmToolkit::NmPropertyNames::SequenceNumber, NmToolkit::NmPropertyNames::PrivacyMask}) {
    if (const auto* text =
            dynamic_cast<const NmToolkit::ImStringProperty*>(item.GetProperty(name))) {
      volatile size_t length = text->GetValue().size();
      (void)length;
    }
  }
}

} // namespace NmFuzz
