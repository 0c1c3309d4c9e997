#pragma once

// Runs the vzk program as a user would and reads what it leaves behind.

#include <cstdint>
#include <string>
#include <vector>

namespace NmVzkTest {

std::string BinaryDirectory();

struct SmResult {
  int status = -1; // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// Runs build/bin/vzk with these arguments and waits for it to end.
SmResult RunVzk(const std::vector<std::string>& arguments);

// A vzk started in the background, for tests that stop it with a signal.
class CmRunningVzk {
public:
  explicit CmRunningVzk(const std::vector<std::string>& arguments);
  ~CmRunningVzk();
  CmRunningVzk(const CmRunningVzk&) = delete;
  CmRunningVzk& operator=(const CmRunningVzk&) = delete;
  void Signal(int signal);
  SmResult Wait();

private:
  int m_Pid = -1;
  std::string m_Directory;
};

// A fresh directory under the build tree, removed with everything in it.
class CmScratch {
public:
  CmScratch();
  ~CmScratch();
  CmScratch(const CmScratch&) = delete;
  CmScratch& operator=(const CmScratch&) = delete;
  std::string Path(const std::string& name) const { return m_Path + "/" + name; }
  const std::string& GetPath() const { return m_Path; }

private:
  std::string m_Path;
};

std::vector<uint8_t> ReadBytes(const std::string& path);
std::string ReadText(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes, bool append = false);
void WriteText(const std::string& path, const std::string& text);
bool Exists(const std::string& path);
std::vector<std::string> ListDirectory(const std::string& path);

// A tree of the vzk root over another plug-in with the given <config> body.
std::string TreeOver(const std::string& provider, const std::string& config);
// A tree over the recording plug-in reading `file`.
std::string RecordingTree(const std::string& file);

// `count` JPEG frames of ffmpeg's test picture, back to back: a recording of
// raw JPEG records. Returns the frames one by one.
std::vector<std::vector<uint8_t>> MakeRawJPEGRecording(const std::string& path, int count,
                                                       int width = 64, int height = 48);

} // namespace NmVzkTest
