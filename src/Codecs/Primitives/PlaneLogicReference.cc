#include "Codecs/Primitives/PlaneLogic.h"

namespace NmPrimitives::NmReference {

void BitwiseOr(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
               size_t rowBytes, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < rowBytes; ++x) {
      dst[y * dstStride + x] |= src[y * srcStride + x];
    }
  }
}

void BitwiseAnd(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                size_t rowBytes, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < rowBytes; ++x) {
      dst[y * dstStride + x] &= src[y * srcStride + x];
    }
  }
}

void BitwiseNot(uint8_t* dst, size_t dstStride, size_t rowBytes, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < rowBytes; ++x) {
      dst[y * dstStride + x] = static_cast<uint8_t>(~dst[y * dstStride + x]);
    }
  }
}

void CopyMasked(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                const uint8_t* mask, size_t maskStride, size_t maskPixelStride, size_t width,
                size_t height, size_t pixelStride, size_t channels) {
  const bool composite = maskPixelStride == pixelStride && pixelStride != 1;
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      for (size_t c = 0; c < channels; ++c) {
        const uint8_t m = mask[y * maskStride + x * maskPixelStride + (composite ? c : 0)];
        if (m != 0) {
          dst[y * dstStride + x * pixelStride + c] = src[y * srcStride + x * pixelStride + c];
        }
      }
    }
  }
}

void SetMaskedPixels(const uint8_t value[4], const uint8_t* mask, size_t maskStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      if (mask[y * maskStride + x] != 0) {
        for (size_t c = 0; c < channels; ++c) {
          dst[y * dstStride + x * pixelStride + c] = value[c];
        }
      }
    }
  }
}

void CompareEqual(const uint8_t* src, size_t srcStride, const uint8_t value[4], uint8_t* dst,
                  size_t dstStride, size_t width, size_t height, size_t pixelStride,
                  size_t channels) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      bool equal = true;
      for (size_t c = 0; c < channels; ++c) {
        equal = equal && src[y * srcStride + x * pixelStride + c] == value[c];
      }
      dst[y * dstStride + x] = equal ? 255 : 0;
    }
  }
}

void ColorKeyOverlay(const uint8_t* overlay, size_t overlayStride, const uint8_t key[4],
                     const uint8_t* background, size_t backgroundStride, uint8_t* dst,
                     size_t dstStride, size_t width, size_t height, size_t pixelStride,
                     size_t channels) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      const uint8_t* o = overlay + y * overlayStride + x * pixelStride;
      bool keyed = true;
      for (size_t c = 0; c < channels; ++c) {
        keyed = keyed && o[c] == key[c];
      }
      const uint8_t* chosen = keyed ? background + y * backgroundStride + x * pixelStride : o;
      for (size_t c = 0; c < channels; ++c) {
        dst[y * dstStride + x * pixelStride + c] = chosen[c];
      }
    }
  }
}

} // namespace NmPrimitives::NmReference
