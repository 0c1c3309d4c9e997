#include <cstring>

#include "Codecs/Primitives/PlaneCopy.h"

namespace NmPrimitives::NmReference {

void CopyPlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < rowBytes; ++x) {
      dst[y * dstStride + x] = src[y * srcStride + x];
    }
  }
}

void SetPlane(uint8_t value, uint8_t* dst, size_t dstStride, size_t width, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      dst[y * dstStride + x] = value;
    }
  }
}

void SetChannel4(uint8_t value, size_t channel, uint8_t* dst, size_t dstStride, size_t width,
                 size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      dst[y * dstStride + 4 * x + channel] = value;
    }
  }
}

void Copy3To4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height, uint8_t fourth) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      const uint8_t* s = src + y * srcStride + 3 * x;
      uint8_t* d = dst + y * dstStride + 4 * x;
      d[0] = s[0];
      d[1] = s[1];
      d[2] = s[2];
      d[3] = fourth;
    }
  }
}

void Copy4To3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, size_t width,
              size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      const uint8_t* s = src + y * srcStride + 4 * x;
      uint8_t* d = dst + y * dstStride + 3 * x;
      d[0] = s[0];
      d[1] = s[1];
      d[2] = s[2];
    }
  }
}

void SwapChannels3(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      const uint8_t* s = src + y * srcStride + 3 * x;
      uint8_t* d = dst + y * dstStride + 3 * x;
      const uint8_t first = s[0];
      const uint8_t third = s[2];
      d[0] = third;
      d[1] = s[1];
      d[2] = first;
    }
  }
}

void SwapChannels4(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                   size_t width, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      const uint8_t* s = src + y * srcStride + 4 * x;
      uint8_t* d = dst + y * dstStride + 4 * x;
      const uint8_t first = s[0];
      const uint8_t third = s[2];
      d[0] = third;
      d[1] = s[1];
      d[2] = first;
      d[3] = s[3];
    }
  }
}

} // namespace NmPrimitives::NmReference
