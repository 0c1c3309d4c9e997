#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace NmFuzz {

// A file that lives only in memory: nothing is left behind on disk, whatever
// happens to the run, and it can grow while a toolkit reads it.
class CmMemoryFile {
public:
  CmMemoryFile() : m_Descriptor(memfd_create("fuzz-input", 0)) {
    if (m_Descriptor < 0) {
      std::perror("memfd_create");
      std::abort();
    }
  }
  ~CmMemoryFile() { close(m_Descriptor); }
  CmMemoryFile(const CmMemoryFile&) = delete;
  CmMemoryFile& operator=(const CmMemoryFile&) = delete;

  void Append(const uint8_t* data, size_t size) {
    while (size > 0) {
      const ssize_t written = write(m_Descriptor, data, size);
      if (written <= 0) {
        std::perror("write");
        std::abort();
      }
      data += written;
      size -= static_cast<size_t>(written);
    }
  }
  std::string Path() const { return "/proc/self/fd/" + std::to_string(m_Descriptor); }

private:
  int m_Descriptor;
};

} // namespace NmFuzz
