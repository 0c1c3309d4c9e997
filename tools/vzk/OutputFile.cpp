#include "OutputFile.h"

#include <cerrno>
#include <cstring>

#include "PluginHost.h"

namespace NmVzkTool {
namespace {

[[noreturn]] void Fail(const std::string& path, int error) {
  throw CmRunError("The file " + path + " could not be written: " + std::strerror(error) + ".");
}

} // namespace

CmOutputFile::~CmOutputFile() {
  if (m_File != nullptr) {
    std::fclose(m_File);
  }
}

void CmOutputFile::Open(const std::string& path) {
  if (m_File != nullptr) {
    Close();
  }
  m_Path = path;
  m_Size = 0;
  m_File = std::fopen(path.c_str(), "wb");
  if (m_File == nullptr) {
    Fail(path, errno);
  }
}

void CmOutputFile::Write(const void* data, size_t size) {
  if (size != 0 && std::fwrite(data, 1, size, m_File) != size) {
    Fail(m_Path, errno);
  }
  m_Size += size;
}

void CmOutputFile::WriteAt(uint64_t offset, const void* data, size_t size) {
  if (std::fseek(m_File, static_cast<long>(offset), SEEK_SET) != 0 ||
      std::fwrite(data, 1, size, m_File) != size || std::fseek(m_File, 0, SEEK_END) != 0) {
    Fail(m_Path, errno);
  }
}

void CmOutputFile::Close() {
  if (m_File == nullptr) {
    return;
  }
  std::FILE* file = m_File;
  m_File = nullptr;
  const bool failed = std::fflush(file) != 0;
  const int error = errno;
  if (std::fclose(file) != 0 || failed) {
    Fail(m_Path, failed ? error : errno);
  }
}

void WriteWholeFile(const std::string& path, const void* data, size_t size) {
  CmOutputFile file(path);
  file.Write(data, size);
  file.Close();
}

} // namespace NmVzkTool
