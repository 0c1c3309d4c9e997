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
// inside the toolkit element `wrapper` when one is named.
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

} // namespace NmVzkTest
