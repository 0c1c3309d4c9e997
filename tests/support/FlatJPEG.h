#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/JPEG/SimpleJPEGEncoderWrapper.h"

// JPEG pictures that say which they are: each flat at its own luminance, so
// that a test knows from one decoded sample which record a picture came from.
namespace NmTestSupport {

// Bytes of a JPEG file of a 48 x 32 picture, flat at `level`, made by our encoder.
inline std::vector<uint8_t> FlatJPEG(uint8_t level) {
  using namespace NmMediaProcessing;
  CmImage image;
  image.Allocate(48, 32, YCbCr420_Planar);
  image.GetAttributes().subColorFormat = SubColorFormatFullRange;
  for (uint64_t p = 0; p < 3; ++p) {
    const auto plane = image.Allocator().GetWriteablePlane(p);
    for (uint64_t y = 0; y < plane.height; ++y) {
      std::fill_n(plane.data + y * plane.rowStride, plane.width, p == 0 ? level : 128);
    }
  }
  CmSimpleJPEGEncoderWrapper encoder;
  const auto block = encoder.Encode(image, 90);
  if (!block) {
    return {};
  }
  return std::vector<uint8_t>(block->GetPayload(), block->GetPayload() + block->GetPayloadLength());
}

// Luminance of the image's middle sample.
inline int MiddleLuma(const NmMediaProcessing::CmImage& image) {
  const auto plane = image.Allocator().GetPlane(0);
  return plane.data[(plane.height / 2) * plane.rowStride + plane.width / 2];
}

} // namespace NmTestSupport
