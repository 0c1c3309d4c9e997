#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Oracles that tests run as programs (ffmpeg and friends), and the scratch
// files that they read and write.
namespace NmTestSupport {

// A private directory that goes away with the object.
class CmTempDirectory {
public:
  CmTempDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vzk-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) {
      m_Path = pattern;
    }
  }
  ~CmTempDirectory() {
    std::error_code ignored;
    if (!m_Path.empty()) {
      std::filesystem::remove_all(m_Path, ignored);
    }
  }
  CmTempDirectory(const CmTempDirectory&) = delete;
  CmTempDirectory& operator=(const CmTempDirectory&) = delete;

  bool IsValid() const { return !m_Path.empty(); }
  std::string operator/(const std::string& name) const { return (m_Path / name).string(); }

private:
  std::filesystem::path m_Path;
};

inline bool WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs a shell command quietly; true when it exits with 0.
inline bool Run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

inline bool HaveProgram(const std::string& name) {
  return Run("command -v " + name);
}

} // namespace NmTestSupport
