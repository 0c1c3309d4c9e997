#include "RecordBytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace NmRecording {

CmRecordFile::~CmRecordFile() {
  if (m_Descriptor >= 0) {
    close(m_Descriptor);
  }
}

bool CmRecordFile::Open(const std::string& path) {
  // Not blocking: a FIFO would otherwise wait for a writer before fstat can refuse it.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) {
    return false;
  }
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    const int reason = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    close(descriptor);
    errno = reason;
    return false;
  }
  // Probe one read: some files open but cannot be read (a broken mount).
  char probe = 0;
  if (pread(descriptor, &probe, 1, 0) < 0) {
    const int reason = errno;
    close(descriptor);
    errno = reason;
    return false;
  }
  if (m_Descriptor >= 0) {
    close(m_Descriptor);
  }
  m_Descriptor = descriptor;
  return true;
}

uint64_t CmRecordFile::Size() const {
  struct stat status {};
  if (m_Descriptor < 0 || fstat(m_Descriptor, &status) != 0) {
    return 0;
  }
  return static_cast<uint64_t>(status.st_size);
}

bool CmRecordFile::ReadAt(uint64_t offset, void* destination, size_t size) const {
  auto* out = static_cast<uint8_t*>(destination);
  while (size > 0) {
    const ssize_t got = pread(m_Descriptor, out, size, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    out += got;
    offset += static_cast<uint64_t>(got);
    size -= static_cast<size_t>(got);
  }
  return true;
}

CmByteWindow::CmByteWindow(const CmRecordFile& file, uint64_t size) : m_File(&file), m_Size(size) {}

CmByteWindow::CmByteWindow(const uint8_t* data, uint64_t size)
    : m_Memory(data), m_Size(data == nullptr ? 0 : size), m_Window(data), m_WindowSize(m_Size) {}

const uint8_t* CmByteWindow::Bytes(uint64_t offset, size_t want, size_t& got) {
  got = 0;
  if (offset >= m_Size || want == 0) {
    return nullptr;
  }
  want = static_cast<size_t>(std::min<uint64_t>({want, m_Size - offset, WindowCapacity}));
  if (m_Memory != nullptr) {
    got = want;
    return m_Memory + offset;
  }
  if (offset < m_WindowStart || offset + want > m_WindowStart + m_WindowSize) {
    // Small reads for headers, so that looking at the end of a growing file
    // reads little; long ones for walks through a record.
    const size_t fill =
        static_cast<size_t>(std::min<uint64_t>(std::max(want, MinimumRead), m_Size - offset));
    m_Buffer.resize(WindowCapacity);
    m_WindowStart = offset;
    m_WindowSize = 0;
    if (!m_File->ReadAt(offset, m_Buffer.data(), fill)) {
      // The file shrank or failed: what cannot be read does not exist.
      m_Size = offset;
      return nullptr;
    }
    m_Window = m_Buffer.data();
    m_WindowSize = fill;
  }
  got = want;
  return m_Window + (offset - m_WindowStart);
}

const uint8_t* CmByteWindow::Stream(uint64_t offset, size_t& got) {
  if (offset < m_Size && offset >= m_WindowStart && offset < m_WindowStart + m_WindowSize) {
    got = static_cast<size_t>(m_WindowStart + m_WindowSize - offset);
    return m_Window + (offset - m_WindowStart);
  }
  return Bytes(offset, WindowCapacity, got);
}

bool CmByteWindow::Copy(uint64_t offset, void* destination, size_t size) {
  auto* out = static_cast<uint8_t*>(destination);
  while (size > 0) {
    size_t got = 0;
    const uint8_t* bytes = Bytes(offset, size, got);
    if (got == 0) {
      return false;
    }
    std::memcpy(out, bytes, got);
    out += got;
    offset += got;
    size -= got;
  }
  return true;
}

} // namespace NmRecording
