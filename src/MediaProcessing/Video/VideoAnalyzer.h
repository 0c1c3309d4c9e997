#pragma once

#include <cstdint>
#include <utility>

namespace NmMediaProcessing {

// Width and height of a stream's images.
using SmVideoSize = std::pair<uint64_t, uint64_t>;

// Reads facts of a stream from a sync frame's data without decoding it.
class ImVideoAnalyzer {
public:
  virtual ~ImVideoAnalyzer() = default;
  // False when the data does not tell.
  virtual bool Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) = 0;
};

} // namespace NmMediaProcessing
