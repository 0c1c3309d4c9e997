#include "Codecs/Primitives/ChromaResample.h"

namespace NmPrimitives::NmReference {

namespace {
void CopyRow(const uint8_t* src, uint8_t* dst, size_t width) {
  for (size_t x = 0; x < width; ++x) {
    dst[x] = src[x];
  }
}
void AverageRows(const uint8_t* a, const uint8_t* b, uint8_t* dst, size_t width) {
  for (size_t x = 0; x < width; ++x) {
    dst[x] = static_cast<uint8_t>((a[x] + b[x] + 1) >> 1);
  }
}
} // namespace

void Chroma420To422(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t dstHeight) {
  for (size_t r = 0; r < dstHeight; ++r) {
    CopyRow(src + (r / 2) * srcStride, dst + r * dstStride, width);
  }
}

void Chroma420To422Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t dstHeight) {
  for (size_t r = 0; r < dstHeight; ++r) {
    CopyRow(src + (2 * (r / 4) + r % 2) * srcStride, dst + r * dstStride, width);
  }
}

void Chroma422To420(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t srcHeight) {
  for (size_t q = 0; q < (srcHeight + 1) / 2; ++q) {
    const uint8_t* upper = src + 2 * q * srcStride;
    if (2 * q + 1 < srcHeight) {
      AverageRows(upper, upper + srcStride, dst + q * dstStride, width);
    } else {
      CopyRow(upper, dst + q * dstStride, width);
    }
  }
}

void Chroma422To420Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t srcHeight) {
  for (size_t q = 0; q < srcHeight / 2; ++q) {
    const uint8_t* upper = src + (4 * (q / 2) + q % 2) * srcStride;
    AverageRows(upper, upper + 2 * srcStride, dst + q * dstStride, width);
  }
}

void ChromaHalveColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t dstWidth, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < dstWidth; ++x) {
      dst[y * dstStride + x] = src[y * srcStride + 2 * x];
    }
  }
}

void ChromaDoubleColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                         size_t dstWidth, size_t height) {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < dstWidth; ++x) {
      dst[y * dstStride + x] = src[y * srcStride + x / 2];
    }
  }
}

} // namespace NmPrimitives::NmReference
