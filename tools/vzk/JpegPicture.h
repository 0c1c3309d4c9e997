#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vzk/Data.h"

namespace NmVzkTool {

// Encodes pictures as JPEG with the toolkit's own encoder. Builds without
// the encoder say so through IsAvailable, and Encode then refuses in words.
class CmJpegPictureEncoder {
public:
  static bool IsAvailable();

  CmJpegPictureEncoder();
  ~CmJpegPictureEncoder();
  CmJpegPictureEncoder(const CmJpegPictureEncoder&) = delete;
  CmJpegPictureEncoder& operator=(const CmJpegPictureEncoder&) = delete;

  // The JPEG of the picture; YCbCr and gray are taken as full range, as JPEG
  // codes them. Throws CmPictureError when the picture cannot be encoded,
  // CmRunError when there is no encoder.
  std::vector<uint8_t> Encode(const NmToolkit::ImImage& image, uint32_t quality);

private:
  struct SmState;
  std::unique_ptr<SmState> m_State;
};

} // namespace NmVzkTool
