#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace NmRecording {

// A recording file, open for reading for as long as the object lives. Only
// regular files open: a directory or a device would read as something that
// is no recording at all.
class CmRecordFile {
public:
  CmRecordFile() = default;
  ~CmRecordFile();
  CmRecordFile(const CmRecordFile&) = delete;
  CmRecordFile& operator=(const CmRecordFile&) = delete;

  // False, with errno set, when the path is not a readable regular file.
  bool Open(const std::string& path);
  bool IsOpen() const { return m_Descriptor >= 0; }
  // The size the file has now; it may grow between calls.
  uint64_t Size() const;
  // Reads exactly `size` bytes at `offset`; false if the file holds fewer.
  bool ReadAt(uint64_t offset, void* destination, size_t size) const;

private:
  int m_Descriptor = -1;
};

// Bytes at any offset of a file or a memory buffer, with the file read
// through a small window, so that walking a record never holds more of it
// than the window.
class CmByteWindow {
public:
  // The first `size` bytes of an open file; the file must outlive the window.
  CmByteWindow(const CmRecordFile& file, uint64_t size);
  // A buffer in memory that outlives the window.
  CmByteWindow(const uint8_t* data, uint64_t size);

  uint64_t Size() const { return m_Size; }
  // Up to `want` contiguous bytes at `offset` (never more than the window
  // holds); `got` says how many. Null, with `got` 0, at or past the end.
  const uint8_t* Bytes(uint64_t offset, size_t want, size_t& got);
  // Whatever the window holds from `offset` on, or the next window's worth:
  // for walks that take the bytes as they come.
  const uint8_t* Stream(uint64_t offset, size_t& got);
  // All of `size` bytes at `offset`, or false.
  bool Copy(uint64_t offset, void* destination, size_t size);
  // The byte at `offset`, or -1 past the end.
  int At(uint64_t offset) {
    if (offset >= m_WindowStart && offset < m_WindowStart + m_WindowSize) {
      return m_Window[offset - m_WindowStart];
    }
    size_t got = 0;
    const uint8_t* bytes = Bytes(offset, 1, got);
    return got == 0 ? -1 : bytes[0];
  }

  // Outcomes of walks through JPEG marker structures, by marker offset and
  // walk state, for the bytes this window shows: bare JPEGs can nest in one
  // another's segments, and each walk needs doing once.
  std::unordered_map<uint64_t, std::pair<int, uint64_t>> walks;

  static constexpr size_t WindowCapacity = 256 * 1024;
  static constexpr size_t MinimumRead = 4096;

private:
  const CmRecordFile* m_File = nullptr;
  const uint8_t* m_Memory = nullptr;
  uint64_t m_Size = 0;
  std::vector<uint8_t> m_Buffer;
  const uint8_t* m_Window = nullptr;
  uint64_t m_WindowStart = 0;
  uint64_t m_WindowSize = 0;
};

} // namespace NmRecording
