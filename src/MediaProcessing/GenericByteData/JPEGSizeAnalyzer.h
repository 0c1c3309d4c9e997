#pragma once

#include <cstdint>

namespace NmMediaProcessing {

// Reads the pixel size of a JPEG image from its frame header without decoding
// it. The JPEG codec implements this; generic byte data only needs the size
// to fill in a block header.
class ImJPEGSizeAnalyzer {
public:
  virtual ~ImJPEGSizeAnalyzer() = default;
  // False when the data is no JPEG whose size can be read.
  virtual bool GetImageSize(const uint8_t* data, uint64_t size, uint32_t& width,
                            uint32_t& height) const = 0;
};

} // namespace NmMediaProcessing
