#include "StopSignal.h"

#include <csignal>
#include <unistd.h>

namespace NmVzkTool {
namespace {

volatile std::sig_atomic_t stopRequested = 0;

void OnStop(int signal) {
  if (stopRequested != 0) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return;
  }
  stopRequested = 1;
}

} // namespace

void InstallStopHandler() {
  struct sigaction action {};
  action.sa_handler = OnStop;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool StopRequested() {
  return stopRequested != 0;
}

void ResetStopRequest() {
  stopRequested = 0;
}

} // namespace NmVzkTool
