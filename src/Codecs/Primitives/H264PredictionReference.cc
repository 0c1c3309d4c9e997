#include <algorithm>

#include "Codecs/Primitives/H264Prediction.h"

namespace NmPrimitives::NmReference {

namespace {

uint8_t Clip(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

} // namespace

void H264Average(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                 uint8_t* dst, ptrdiff_t dstStride, int width, int height) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      dst[y * dstStride + x] =
          static_cast<uint8_t>((a[y * aStride + x] + b[y * bStride + x] + 1) >> 1);
    }
  }
}

void H264Weight(const uint8_t* a, ptrdiff_t aStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                int height, int logWD, int weight, int offset) {
  const int round = logWD >= 1 ? 1 << (logWD - 1) : 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      dst[y * dstStride + x] = Clip(((a[y * aStride + x] * weight + round) >> logWD) + offset);
    }
  }
}

void H264WeightBi(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                  uint8_t* dst, ptrdiff_t dstStride, int width, int height, int logWD, int weightA,
                  int weightB, int offset) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      dst[y * dstStride + x] =
          Clip(((a[y * aStride + x] * weightA + b[y * bStride + x] * weightB + (1 << logWD)) >>
                (logWD + 1)) +
               offset);
    }
  }
}

} // namespace NmPrimitives::NmReference
