#pragma once

// The loopback RTSP server of tests/Media/rtsp_test_server.py, started for a
// test and stopped behind it.

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace NmTestSupport {

class CmRtspTestServer {
public:
  // Serves test sources at /cam; with a codec ("mpeg4", "h264") and a clip,
  // that clip's video at /clip. Port 0 takes any free one. GetPort() is 0
  // when the server did not come up within the wait.
  explicit CmRtspTestServer(int port = 0, const std::string& codec = "",
                            const std::string& clip = "") {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
      return;
    }
    m_Process = fork();
    if (m_Process == 0) {
      dup2(pipeEnds[1], STDOUT_FILENO);
      close(pipeEnds[0]);
      close(pipeEnds[1]);
      const std::string service = std::to_string(port);
      if (clip.empty()) {
        execl("/usr/bin/python3", "python3", VZK_RTSP_TEST_SERVER, service.c_str(), nullptr);
      } else {
        execl("/usr/bin/python3", "python3", VZK_RTSP_TEST_SERVER, service.c_str(), codec.c_str(),
              clip.c_str(), nullptr);
      }
      _exit(127);
    }
    close(pipeEnds[1]);
    // A server that hangs before it listens must not hang the test.
    pollfd ready{pipeEnds[0], POLLIN, 0};
    FILE* output = fdopen(pipeEnds[0], "r");
    char line[256] = {};
    if (output != nullptr && poll(&ready, 1, 20000) == 1 &&
        fgets(line, sizeof line, output) != nullptr) {
      std::sscanf(line, "PORT %d", &m_Port);
    }
    if (output != nullptr) {
      fclose(output);
    }
  }
  ~CmRtspTestServer() { Kill(); }
  CmRtspTestServer(const CmRtspTestServer&) = delete;
  CmRtspTestServer& operator=(const CmRtspTestServer&) = delete;

  void Kill() {
    if (m_Process > 0) {
      kill(m_Process, SIGTERM);
      waitpid(m_Process, nullptr, 0);
      m_Process = -1;
    }
  }
  int GetPort() const { return m_Port; }

private:
  pid_t m_Process = -1;
  int m_Port = 0;
};

} // namespace NmTestSupport
