#include "VzkTestSupport.h"

#include <memory>

#include "PictureConversion.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

extern char** environ;

namespace NmVzkTest {

std::string BinaryDirectory() {
  const char* build = std::getenv("VZK_BUILD_DIR");
  return std::string(build ? build : ".") + "/bin";
}

CmScratch::CmScratch() : m_Path(BinaryDirectory() + "/../vzk-test-XXXXXX") {
  if (mkdtemp(m_Path.data()) == nullptr) {
    throw std::runtime_error("cannot make a scratch directory");
  }
}

CmScratch::~CmScratch() {
  std::error_code ignored; // leftovers in the build tree do no harm
  std::filesystem::remove_all(m_Path, ignored);
}

namespace {

// Starts vzk with its output going to files in `directory`.
pid_t Spawn(const std::vector<std::string>& arguments, const std::string& directory) {
  const std::string outPath = directory + "/stdout";
  const std::string errPath = directory + "/stderr";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0644);
  posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0644);
  const std::string program = BinaryDirectory() + "/vzk";
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  pid_t child = -1;
  if (posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
    child = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  return child;
}

SmResult Reap(pid_t child, const std::string& directory) {
  SmResult result;
  if (child < 0) {
    result.err = "cannot start vzk";
    return result;
  }
  int status = 0;
  waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = ReadText(directory + "/stdout");
  result.err = ReadText(directory + "/stderr");
  return result;
}

} // namespace

SmResult RunVzk(const std::vector<std::string>& arguments) {
  CmScratch scratch;
  return Reap(Spawn(arguments, scratch.GetPath()), scratch.GetPath());
}

SmResult ExpectRun(const std::vector<std::string>& arguments, int status, const std::string& told) {
  SmResult result = RunVzk(arguments);
  EXPECT_EQ(result.status, status) << result.err;
  EXPECT_NE(result.err.find(told), std::string::npos) << result.err;
  return result;
}

std::string CmScratch::Write(const std::string& name, const std::string& text) const {
  WriteText(Path(name), text);
  return Path(name);
}

CmRunningVzk::CmRunningVzk(const std::vector<std::string>& arguments)
    : m_Pid(Spawn(arguments, m_Directory.GetPath())) {}

CmRunningVzk::~CmRunningVzk() {
  if (m_Pid > 0) {
    kill(m_Pid, SIGKILL);
    waitpid(m_Pid, nullptr, 0);
  }
}

void CmRunningVzk::Signal(int signal) {
  if (m_Pid > 0) {
    kill(m_Pid, signal);
  }
}

SmResult CmRunningVzk::Wait() {
  const SmResult result = Reap(m_Pid, m_Directory.GetPath());
  m_Pid = -1;
  return result;
}

std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {});
}

std::string ReadText(const std::string& path) {
  const std::vector<uint8_t> bytes = ReadBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes, bool append) {
  std::ofstream file(path, std::ios::binary | (append ? std::ios::app : std::ios::trunc));
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
}

bool Exists(const std::string& path) {
  return std::filesystem::exists(path);
}

std::vector<std::string> ListDirectory(const std::string& path) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(path, missing)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string TreeOver(const std::string& provider, const std::string& config,
                     const std::string& wrapper) {
  const std::string source = "<toolkit type='source'><provider>" + provider +
                             "</provider><config>" + config + "</config></toolkit>";
  return "<?xml version='1.0' encoding='UTF-8'?><toolkit type='source'><provider>vzk</provider>"
         "<config>" +
         (wrapper.empty() ? source : "<" + wrapper + ">" + source + "</" + wrapper + ">") +
         "</config></toolkit>";
}

std::string RecordingTree(const std::string& file, const std::string& wrapper) {
  return TreeOver("recording", "<recording file='" + file + "'/>", wrapper);
}

std::vector<std::vector<uint8_t>> MakeRawJPEGRecording(const std::string& path, int count,
                                                       int width, int height) {
  const std::string command =
      "ffmpeg -nostdin -v error -y -f lavfi -i testsrc=size=" + std::to_string(width) + "x" +
      std::to_string(height) + ":rate=25 -frames:v " + std::to_string(count) +
      " -q:v 5 -f mjpeg '" + path + "'";
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("ffmpeg could not make " + path);
  }
  // ffmpeg's frames have no entropy-coded 0xFFD9, so the end-of-image marker
  // splits them.
  const std::vector<uint8_t> bytes = ReadBytes(path);
  std::vector<std::vector<uint8_t>> frames;
  size_t start = 0;
  for (size_t i = 0; i + 1 < bytes.size(); ++i) {
    if (bytes[i] == 0xFF && bytes[i + 1] == 0xD9) {
      frames.emplace_back(bytes.begin() + start, bytes.begin() + i + 2);
      start = i + 2;
      ++i;
    }
  }
  return frames;
}

std::vector<uint8_t> PictureHere(NmToolkit::ImPlaybackSourceToolkit& playback, int64_t& time) {
  NmToolkit::ImData* raw = nullptr;
  const uint32_t status = playback.GetData(&raw);
  const std::unique_ptr<NmToolkit::ImData> item(raw);
  const auto* image = dynamic_cast<const NmToolkit::ImImage*>(item.get());
  if (status != NmToolkit::StatusSuccess || image == nullptr) {
    return {};
  }
  time = item->GetBeginTime();
  std::vector<uint8_t> bytes;
  for (const NmVzkTool::SmPlaneCopy& plane : NmVzkTool::CopyPlanes(*image)) {
    bytes.insert(bytes.end(), plane.bytes.begin(), plane.bytes.end());
  }
  return bytes;
}

} // namespace NmVzkTest
