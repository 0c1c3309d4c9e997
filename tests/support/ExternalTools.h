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
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
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

// Raw video cut into pictures of `frameSize` bytes; a partial one at the end
// is left out.
inline std::vector<std::vector<uint8_t>> Split(const std::vector<uint8_t>& bytes,
                                               size_t frameSize) {
  std::vector<std::vector<uint8_t>> frames;
  for (size_t at = 0; frameSize > 0 && at + frameSize <= bytes.size(); at += frameSize) {
    frames.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                        bytes.begin() + static_cast<std::ptrdiff_t>(at + frameSize));
  }
  return frames;
}

// ffmpeg's pictures of the stream at `path` (decoded by way of the file
// `decoded`), every one it outputs, none doubled, planar as raw video; none
// when ffmpeg fails. One thread unless asked: ffmpeg's frame threads race on
// some unusual streams, and an oracle must give the same answer every time.
inline std::vector<std::vector<uint8_t>>
FfmpegPictures(const std::string& path, const std::string& decoded, size_t frameSize,
               const std::string& pixelFormat = "yuv420p", const std::string& inputOptions = "",
               int threads = 1) {
  if (!Run("ffmpeg -y -v error -threads " + std::to_string(threads) + " " + inputOptions + " -i '" +
           path + "' -fps_mode passthrough -f rawvideo -pix_fmt " + pixelFormat + " '" + decoded +
           "'")) {
    return {};
  }
  return Split(ReadBytes(decoded), frameSize);
}

} // namespace NmTestSupport
