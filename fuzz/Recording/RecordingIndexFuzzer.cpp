// Arbitrary bytes as a recording file: indexing, framing and reading every
// record back must never crash, whatever the file holds.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "RecordingIndex.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int descriptor = memfd_create("recording", 0);
  if (descriptor < 0) {
    return 0;
  }
  // Written in two halves, as a growing file would be.
  const size_t half = size / 2;
  const ssize_t first = write(descriptor, data, half);
  NmRecording::CmRecordingIndex index("/proc/self/fd/" + std::to_string(descriptor));
  index.Update();
  const ssize_t second = write(descriptor, data + half, size - half);
  index.Update();
  for (const NmRecording::SmRecordEntry& entry : index.GetEntries()) {
    const std::vector<uint8_t> bytes = index.ReadRecord(entry);
    if (bytes.size() != entry.length || NmRecording::RecordLength(bytes.data(), bytes.size()) != entry.length) {
      __builtin_trap();
    }
  }
  (void)first;
  (void)second;
  close(descriptor);
  return 0;
}
