#include "Common/File/File.h"

#include <sys/stat.h>

namespace NmFile {

CmFile::CmFile(const std::string& directory, const std::string& name) {
  if (directory.empty()) {
    m_Path = name;
  } else if (name.empty()) {
    m_Path = directory;
  } else {
    const char last = directory.back();
    m_Path = directory + ((last == '\\' || last == '/') ? "" : "/") + name;
  }
}

std::string CmFile::GetDirectory() const {
  const size_t separator = m_Path.find_last_of("\\/");
  if (separator == std::string::npos) {
    return {};
  }
  // A root separator stays part of the directory: "/x" lies in "/".
  return separator == 0 ? m_Path.substr(0, 1) : m_Path.substr(0, separator);
}

std::string CmFile::GetName() const {
  const size_t separator = m_Path.find_last_of("\\/");
  return separator == std::string::npos ? m_Path : m_Path.substr(separator + 1);
}

std::string CmFile::GetExtension() const {
  const size_t dot = m_Path.rfind('.');
  return dot == std::string::npos ? std::string() : m_Path.substr(dot + 1);
}

bool CmFileOS::Exists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

} // namespace NmFile
