// Arbitrary bytes as a recording for `vzk info`, and as a single item for the
// run's sorting of records: reading what they say must never crash, and a
// JPEG found inside must lie inside the bytes.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "PluginHost.h"
#include "RecordingInfo.h"
#include "Support/ByteReader.h"
#include "Support/MemoryFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const NmVzkTool::SmRecordFacts facts = NmVzkTool::ReadRecordFacts(data, size);
  NmFuzz::Require(facts.jpeg == nullptr ||
                  (facts.jpeg >= data && facts.jpeg + facts.jpegSize <= data + size));
  uint32_t width = 0, height = 0;
  NmVzkTool::ReadJPEGSize(data, size, width, height);

  NmFuzz::CmMemoryFile file;
  file.Append(data, size);
  NmVzkTool::SmInfoOptions options;
  options.recording = file.Path();
  options.perRecord = true;
  std::ostringstream out;
  try {
    NmVzkTool::PrintRecordingInfo(options, out);
  } catch (const NmVzkTool::CmRunError&) {
  }
  return 0;
}
