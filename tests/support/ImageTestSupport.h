#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/Image.h"

namespace NmImageTest {

// Runs the call and checks that it throws an integrity error with exactly this
// message and code; the location must name the function and the line.
template <typename Error = NmError::CmIntegrityError, typename Call>
void ExpectError(Call&& call, const std::string& message, uint32_t code,
                 const std::string& function = "") {
  try {
    call();
    ADD_FAILURE() << "expected \"" << message << "\"";
  } catch (const Error& error) {
    EXPECT_EQ(error.GetDescription(), message);
    EXPECT_EQ(error.GetErrorCode(), code) << message;
    if (!function.empty()) {
      EXPECT_EQ(error.GetLocation().rfind(function + " (line ", 0), 0u) << error.GetLocation();
    }
  }
}

// Fills every plane (stride gaps included) with reproducible noise.
inline void FillRandom(NmMediaProcessing::CmImage& image, uint32_t seed) {
  std::mt19937 random(seed);
  auto& allocator = image.Allocator();
  for (uint64_t i = 0; i < allocator.GetPlaneCount(); ++i) {
    const auto plane = allocator.GetWriteablePlane(i);
    for (uint64_t y = 0; y < plane.height; ++y) {
      for (uint64_t x = 0; x < plane.width * plane.pixelStride; ++x) {
        plane.data[y * plane.rowStride + x] = static_cast<uint8_t>(random());
      }
    }
  }
}

inline uint8_t Sample(const NmMediaProcessing::CmImage& image, uint64_t plane, uint64_t x,
                      uint64_t y, uint64_t channel = 0) {
  return image.Allocator().GetPlane(plane).GetPixelAddress(x, y)[channel];
}

} // namespace NmImageTest
