#pragma once

// Runs the vzk program as a user would and reads what it leaves behind.

#include <cstdint>
#include <string>
#include <vector>

#include "vzk/Toolkit.h"

namespace NmVzkTest {

std::string BinaryDirectory();

struct SmResult {
  int status = -1; // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// Runs build/bin/vzk with these arguments and waits for it to end.
SmResult RunVzk(const std::vector<std::string>& arguments);

// Runs vzk and checks its exit status and that its standard error holds `told`.
SmResult ExpectRun(const std::vector<std::string>& arguments, int status, const std::string& told);
inline SmResult ExpectSuccess(const std::vector<std::string>& arguments) {
  return ExpectRun(arguments, 0, "");
}

// A fresh directory under the build tree, removed with everything in it.
class CmScratch {
public:
  CmScratch();
  ~CmScratch();
  CmScratch(const CmScratch&) = delete;
  CmScratch& operator=(const CmScratch&) = delete;
  std::string Path(const std::string& name) const { return m_Path + "/" + name; }
  const std::string& GetPath() const { return m_Path; }
  // Writes `text` into the file `name` of the directory and gives its path.
  std::string Write(const std::string& name, const std::string& text) const;

private:
  std::string m_Path;
};

// A vzk started in the background, for tests that stop it with a signal.
class CmRunningVzk {
public:
  explicit CmRunningVzk(const std::vector<std::string>& arguments);
  ~CmRunningVzk();
  void Signal(int signal);
  SmResult Wait();

private:
  CmScratch m_Directory;
  int m_Pid = -1;
};

std::vector<uint8_t> ReadBytes(const std::string& path);
std::string ReadText(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes, bool append = false);
void WriteText(const std::string& path, const std::string& text);
bool Exists(const std::string& path);
std::vector<std::string> ListDirectory(const std::string& path);

// A tree of the vzk root over another plug-in with the given <config> body,
// inside the toolkit elements `wrapper` opens when it names any, such as
// "video_decoder deinterlacing_filter='none'><synthetic_live".
std::string TreeOver(const std::string& provider, const std::string& config,
                     const std::string& wrapper = "");
// A tree over the recording plug-in reading `file`.
std::string RecordingTree(const std::string& file, const std::string& wrapper = "");

// The picture where a playback move landed, as the bytes of its planes one
// after the other, and its time; empty when there is none.
std::vector<uint8_t> PictureHere(NmToolkit::ImPlaybackSourceToolkit& playback, int64_t& time);

// `count` JPEG frames of ffmpeg's test picture, back to back: a recording of
// raw JPEG records. Returns the frames one by one.
std::vector<std::vector<uint8_t>> MakeRawJPEGRecording(const std::string& path, int count,
                                                       int width = 64, int height = 48);

using CmPictures = std::vector<std::vector<uint8_t>>;

// Runs ffmpeg with these arguments, writing `output`, and gives what it wrote.
std::vector<uint8_t> Ffmpeg(const std::string& arguments, const std::string& output);

// `count` pictures of ffmpeg's noisy test picture at this size, in the
// encoder and container that `options` and the file name choose.
std::string MakeClip(const CmScratch& scratch, const std::string& file, const std::string& options,
                     int width, int height, size_t count,
                     const std::string& noise = "alls=16:allf=t");

// ffmpeg's decode of the clip on one thread, every picture as it comes.
CmPictures ReferencePictures(const CmScratch& scratch, const std::string& clip, size_t frameSize,
                             const std::string& pixelFormat = "yuv420p");

// `vzk import` of the clip into "clip.gbd" of the scratch directory.
std::string Import(const CmScratch& scratch, const std::string& clip);

// The pictures of a YUV4MPEG2 file of pictures of `frameSize` bytes; a
// stream that is not whole pictures is a failure.
CmPictures Y4mPictures(const std::string& path, size_t frameSize);

// The pictures that `vzk run --format y4m` writes for a tree, with more
// arguments after these. The run must succeed unless `lossesAllowed`.
CmPictures RunY4m(const CmScratch& scratch, const std::string& tree, size_t frameSize,
                  bool lossesAllowed = false, const std::vector<std::string>& more = {});

// Every picture equal, naming the first that is not.
void ExpectSamePictures(const CmPictures& pictures, const CmPictures& reference);

// Plays the tree forwards, backwards and by jumps exactly onto and just
// behind each picture; every move must land on the reference picture of
// that place. Gives the times of the pictures.
std::vector<int64_t> ExpectPlaybackLandsOnReference(const std::string& tree,
                                                    const CmPictures& reference);

// What a record of a recording says of its frame.
struct SmStoredFrame {
  uint32_t codec = 0;
  bool sync = false;
  bool interlaced = false;
  bool topFieldFirst = false;
  int64_t time = 0;
};
std::vector<SmStoredFrame> StoredFrames(const std::string& recording);

} // namespace NmVzkTest
