#pragma once

// A source plug-in's toolkit, made by the factory and driven as a host drives
// it, for the tests of the source plug-ins.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"
#include "vzk/ToolkitError.h"

namespace NmTestSupport {

class CmSourceSession : public ::testing::Test {
protected:
  void Open(const std::string& xml) {
    Close();
    toolkit = factory.CreateInstance(xml.c_str());
    ASSERT_NE(toolkit, nullptr);
    playback = dynamic_cast<NmToolkit::ImPlaybackSourceToolkit*>(toolkit);
    live = dynamic_cast<NmToolkit::ImLiveSourceToolkit*>(toolkit);
    ASSERT_NE(playback, nullptr);
    ASSERT_NE(live, nullptr);
  }
  void Close() {
    if (toolkit != nullptr) {
      factory.DeleteInstance(toolkit);
      toolkit = nullptr;
    }
  }
  void TearDown() override { Close(); }
  // "connected", or what Connect threw.
  std::string ConnectError() {
    try {
      playback->Connect(0);
    } catch (const NmToolkit::ImToolkitError& error) {
      return error.what();
    }
    return "connected";
  }
  // Begin time of the current item, or -1.
  int64_t Current() {
    NmToolkit::ImData* raw = nullptr;
    if (playback->GetData(&raw) != NmToolkit::StatusSuccess) {
      return -1;
    }
    return std::unique_ptr<NmToolkit::ImData>(raw)->GetBeginTime();
  }
  int64_t At(int64_t time, NmToolkit::SmMoveMode mode) {
    return playback->MoveTo(time, mode) == NmToolkit::StatusSuccess ? Current() : -1;
  }
  // Begin times of every item from the first to the last.
  std::vector<int64_t> PlayedTimes() {
    std::vector<int64_t> times;
    for (uint32_t status = playback->MoveFirst(); status == NmToolkit::StatusSuccess;
         status = playback->MoveNext()) {
      times.push_back(Current());
    }
    return times;
  }
  // Begin times of what live delivers now, without waiting.
  std::vector<int64_t> Drain() {
    std::vector<int64_t> times;
    NmToolkit::ImData* raw = nullptr;
    while (live->GetLiveData(&raw, 0) == NmToolkit::StatusSuccess) {
      times.push_back(std::unique_ptr<NmToolkit::ImData>(raw)->GetBeginTime());
    }
    return times;
  }

  NmToolkit::CmToolkitFactory factory;
  NmToolkit::ImToolkit* toolkit = nullptr;
  NmToolkit::ImPlaybackSourceToolkit* playback = nullptr;
  NmToolkit::ImLiveSourceToolkit* live = nullptr;
};

// A file of its own under /tmp, removed at the end.
class CmScratchFile {
public:
  CmScratchFile() {
    char pattern[] = "/tmp/vzk-source-XXXXXX";
    close(mkstemp(pattern));
    path = pattern;
  }
  ~CmScratchFile() { std::remove(path.c_str()); }
  CmScratchFile(const CmScratchFile&) = delete;
  CmScratchFile& operator=(const CmScratchFile&) = delete;
  void Write(const std::vector<uint8_t>& bytes, bool append = false) const {
    std::ofstream file(path, std::ios::binary | (append ? std::ios::app : std::ios::trunc));
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  void Append(const std::vector<uint8_t>& bytes) const { Write(bytes, true); }
  std::string path;
};

inline std::string RecordingXml(const std::string& path, const std::string& extra = "") {
  return "<toolkit type='source'><provider>recording</provider><config><recording file='" + path +
         "' " + extra + "/></config></toolkit>";
}

} // namespace NmTestSupport
