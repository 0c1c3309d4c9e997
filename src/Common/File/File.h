#pragma once

#include <string>

namespace NmFile {

class CmFileOS {
public:
  static bool Exists(const std::string& path);
};

// A path, with the parts that callers take apart. Both slash and backslash
// count as separators when reading; joining writes a slash.
class CmFile {
public:
  CmFile() = default;
  explicit CmFile(std::string path) : m_Path(std::move(path)) {}
  CmFile(const std::string& directory, const std::string& name);

  const std::string& GetPath() const { return m_Path; }
  std::string GetDirectory() const;
  std::string GetName() const;
  std::string GetExtension() const;
  bool Exists() const { return CmFileOS::Exists(m_Path); }

private:
  std::string m_Path;
};

} // namespace NmFile
