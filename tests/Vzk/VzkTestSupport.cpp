#include "VzkTestSupport.h"

#include <memory>

#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "PictureConversion.h"
#include "PluginHost.h"
#include "RecordCheck.h"

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
#include <random>
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

namespace {

// The end tags of the elements that `wrapper` opens, innermost first.
std::string Closing(const std::string& wrapper) {
  std::string closing;
  for (size_t at = 0, end = 0; end != std::string::npos; at = end + 2) {
    end = wrapper.find("><", at);
    const std::string element = wrapper.substr(at, end - at);
    closing = "</" + element.substr(0, element.find(' ')) + ">" + closing;
  }
  return closing;
}

} // namespace

std::string TreeOver(const std::string& provider, const std::string& config,
                     const std::string& wrapper) {
  const std::string source = "<toolkit type='source'><provider>" + provider +
                             "</provider><config>" + config + "</config></toolkit>";
  return "<?xml version='1.0' encoding='UTF-8'?><toolkit type='source'><provider>vzk</provider>"
         "<config>" +
         (wrapper.empty() ? source : "<" + wrapper + ">" + source + Closing(wrapper)) +
         "</config></toolkit>";
}

std::string RecordingTree(const std::string& file, const std::string& wrapper) {
  return TreeOver("recording", "<recording file='" + file + "'/>", wrapper);
}

std::vector<std::vector<uint8_t>> MakeRawJPEGRecording(const std::string& path, int count,
                                                       int width, int height) {
  // ffmpeg's frames have no entropy-coded 0xFFD9, so the end-of-image marker
  // splits them.
  const std::vector<uint8_t> bytes =
      Ffmpeg("-f lavfi -i testsrc=size=" + std::to_string(width) + "x" + std::to_string(height) +
                 ":rate=25 -frames:v " + std::to_string(count) + " -q:v 5 -f mjpeg",
             path);
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

std::vector<uint8_t> Ffmpeg(const std::string& arguments, const std::string& output) {
  const std::string command = "ffmpeg -nostdin -v error -y " + arguments + " '" + output + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return ReadBytes(output);
}

std::string MakeClip(const CmScratch& scratch, const std::string& file, const std::string& options,
                     int width, int height, size_t count, const std::string& noise) {
  const std::string clip = scratch.Path(file);
  Ffmpeg("-f lavfi -i testsrc2=size=" + std::to_string(width) + "x" + std::to_string(height) +
             ":rate=25 -frames:v " + std::to_string(count) + " -vf noise=" + noise +
             " -pix_fmt yuv420p " + options,
         clip);
  return clip;
}

namespace {

CmPictures Split(const std::string& bytes, size_t at, size_t frameSize, size_t skip) {
  CmPictures pictures;
  for (; at + skip + frameSize <= bytes.size(); at += skip + frameSize) {
    pictures.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at + skip),
                          bytes.begin() + static_cast<std::ptrdiff_t>(at + skip + frameSize));
  }
  if (at != bytes.size()) {
    ADD_FAILURE() << bytes.size() - at << " bytes after the last whole picture";
  }
  return pictures;
}

} // namespace

CmPictures ReferencePictures(const CmScratch& scratch, const std::string& clip, size_t frameSize,
                             const std::string& pixelFormat) {
  const std::vector<uint8_t> bytes = Ffmpeg(
      "-threads 1 -i '" + clip + "' -fps_mode passthrough -f rawvideo -pix_fmt " + pixelFormat,
      scratch.Path("reference.yuv"));
  return Split(std::string(bytes.begin(), bytes.end()), 0, frameSize, 0);
}

std::string Import(const CmScratch& scratch, const std::string& clip) {
  const std::string recording = scratch.Path("clip.gbd");
  ExpectSuccess({"import", clip, recording});
  return recording;
}

CmPictures Y4mPictures(const std::string& path, size_t frameSize) {
  // One header line, then each picture behind its own "FRAME" line.
  const std::string stream = ReadText(path);
  if (stream.rfind("YUV4MPEG2 ", 0) != 0) {
    ADD_FAILURE() << "no y4m stream in " << path;
    return {};
  }
  const size_t header = stream.find('\n') + 1;
  for (size_t at = header; at < stream.size(); at += 6 + frameSize) {
    if (stream.compare(at, 6, "FRAME\n") != 0) {
      ADD_FAILURE() << "no FRAME line at " << at;
      return {};
    }
  }
  return Split(stream, header, frameSize, 6);
}

CmPictures RunY4m(const CmScratch& scratch, const std::string& tree, size_t frameSize,
                  bool lossesAllowed, const std::vector<std::string>& more) {
  // Each run writes into a directory of its own.
  static int runs = 0;
  const std::string name = "y4m-" + std::to_string(++runs);
  const std::string out = scratch.Path(name);
  std::vector<std::string> arguments = {
      "run", scratch.Write(name + ".xml", tree), "--format", "y4m", "--out", out};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const SmResult run = RunVzk(arguments);
  if (!lossesAllowed) {
    EXPECT_EQ(run.status, 0) << run.err;
  }
  return Y4mPictures(out + "/out.y4m", frameSize);
}

void ExpectSamePictures(const CmPictures& pictures, const CmPictures& reference) {
  ASSERT_EQ(pictures.size(), reference.size());
  for (size_t f = 0; f < pictures.size(); ++f) {
    EXPECT_TRUE(pictures[f] == reference[f]) << "picture " << f;
  }
}

std::vector<int64_t> ExpectPlaybackLandsOnReference(const std::string& treeXml,
                                                    const CmPictures& reference) {
  const size_t frames = reference.size();
  std::vector<int64_t> times(frames);
  NmVzkTool::CmPluginLibrary library(NmVzkTool::DefaultPluginPath());
  NmVzkTool::CmToolkitTree tree(library, treeXml);
  NmToolkit::ImPlaybackSourceToolkit& playback = tree.Playback();
  NmToolkit::CmPropertyNameSet supported;
  playback.Connect({}, supported, 0);
  tree.MarkConnected();
  [&] {
    ASSERT_GT(frames, 0u);
    ASSERT_EQ(playback.MoveFirst(), NmToolkit::StatusSuccess);
    for (size_t f = 0; f < frames; ++f) {
      if (f > 0) {
        ASSERT_EQ(playback.MoveNext(), NmToolkit::StatusSuccess) << f;
      }
      EXPECT_TRUE(PictureHere(playback, times[f]) == reference[f]) << "forwards, picture " << f;
      if (f > 0) {
        EXPECT_GT(times[f], times[f - 1]);
      }
    }
    EXPECT_EQ(playback.MoveNext(), NmToolkit::StatusNoItem);
    for (size_t f = frames - 1; f-- > 0;) {
      ASSERT_EQ(playback.MovePrevious(), NmToolkit::StatusSuccess) << f;
      int64_t time = 0;
      EXPECT_TRUE(PictureHere(playback, time) == reference[f]) << "backwards, picture " << f;
      EXPECT_EQ(time, times[f]);
    }
    std::vector<size_t> order(frames);
    for (size_t f = 0; f < frames; ++f) {
      order[f] = f;
    }
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    for (const size_t f : order) {
      // Exactly there, and just behind it looking back.
      const bool behind = f % 2 == 1;
      ASSERT_EQ(playback.MoveTo(behind ? times[f] + 1 : times[f],
                                behind ? NmToolkit::MoveAtOrBefore : NmToolkit::MoveAtOrAfter),
                NmToolkit::StatusSuccess);
      int64_t time = 0;
      EXPECT_TRUE(PictureHere(playback, time) == reference[f]) << "jump to picture " << f;
      EXPECT_EQ(time, times[f]);
    }
  }();
  tree.DisconnectQuietly();
  return times;
}

std::vector<SmStoredFrame> StoredFrames(const std::string& recording) {
  std::vector<uint8_t> bytes = ReadBytes(recording);
  std::vector<SmStoredFrame> frames;
  for (size_t at = 0; at < bytes.size();) {
    const uint64_t length = NmRecording::RecordLength(bytes.data() + at, bytes.size() - at);
    if (length == 0 || length > bytes.size() - at) {
      ADD_FAILURE() << "no record at " << at;
      break;
    }
    const NmMediaProcessing::CmGenericByteData record(bytes.data() + at, length);
    const NmMediaProcessing::CmRawVideoByteDataAccess access(record, false);
    frames.push_back({access.GetCodec(), access.GetSync(), access.GetInterlaced(),
                      access.GetTopFieldFirst(), access.GetTime().GetMilliseconds()});
    at += length;
  }
  return frames;
}

} // namespace NmVzkTest
