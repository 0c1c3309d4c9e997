// Arbitrary bytes as a recording file: indexing, framing and reading every
// record back must never crash, whatever the file holds.

#include <cstddef>
#include <cstdint>
#include <string>

#include "RecordingIndex.h"
#include "Support/ByteReader.h"
#include "Support/MemoryFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  NmFuzz::CmMemoryFile file;
  // Written in two halves, as a growing file would be.
  const size_t half = size / 2;
  file.Append(data, half);
  NmRecording::CmRecordingIndex index(file.Path());
  index.Update();
  file.Append(data + half, size - half);
  index.Update();
  for (const NmRecording::SmRecordEntry& entry : index.GetEntries()) {
    const std::vector<uint8_t> bytes = index.ReadRecord(entry);
    NmFuzz::Require(bytes.size() == entry.length &&
                    NmRecording::RecordLength(bytes.data(), bytes.size()) == entry.length);
  }
  return 0;
}
