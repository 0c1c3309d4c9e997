#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/ColorConvertFixedPoint.h"

namespace NmPrimitives::NmReference {

namespace F = NmColorFixedPoint;

namespace {

size_t ChromaColumn(SmChromaLayout chroma, size_t x) {
  return chroma == Chroma444 ? x : x / 2;
}
size_t ChromaRow(SmChromaLayout chroma, size_t y) {
  return chroma == Chroma420 ? y / 2 : y;
}

void StorePixel(const uint8_t rgb[3], SmPackedLayout layout, uint8_t* pixel) {
  pixel[0] = rgb[layout.blueFirst ? 2 : 0];
  pixel[1] = rgb[1];
  pixel[2] = rgb[layout.blueFirst ? 0 : 2];
  if (layout.pixelBytes == 4) {
    pixel[3] = 255;
  }
}

} // namespace

void YCbCrToRgb(const SmYCbCrSource& source, SmChromaLayout chroma, uint8_t* dst, size_t dstStride,
                SmPackedLayout layout, size_t width, size_t height, SmYCbCrMatrix matrix) {
  const F::SmToRgbConstants k = F::GetToRgbConstants(matrix);
  for (size_t y = 0; y < height; ++y) {
    const size_t cy = ChromaRow(chroma, y);
    for (size_t x = 0; x < width; ++x) {
      const size_t cx = ChromaColumn(chroma, x);
      uint8_t rgb[3];
      F::ToRgb(k, source.y[y * source.yStride + x], source.cb[cy * source.cbStride + cx],
               source.cr[cy * source.crStride + cx], rgb);
      StorePixel(rgb, layout, dst + y * dstStride + x * layout.pixelBytes);
    }
  }
}

void RgbToYCbCr(const uint8_t* src, size_t srcStride, SmPackedLayout layout,
                const SmYCbCrDestination& destination, SmChromaLayout chroma, size_t width,
                size_t height, SmYCbCrMatrix matrix) {
  const F::SmFromRgbConstants k = F::GetFromRgbConstants(matrix);
  const size_t red = layout.blueFirst ? 2 : 0;
  const size_t blue = layout.blueFirst ? 0 : 2;
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      const uint8_t* p = src + y * srcStride + x * layout.pixelBytes;
      destination.y[y * destination.yStride + x] = F::FromRgb(k, 0, p[red], p[1], p[blue], 0);
    }
  }
  if (destination.cb == nullptr) {
    return;
  }
  // Each chroma sample covers a block of pixels; a block cut short by the
  // picture's edge repeats its last row or column so that the sum is always
  // of two or four pixels, which keeps the shift a power of two.
  const size_t blockWidth = chroma == Chroma444 ? 1 : 2;
  const size_t blockHeight = chroma == Chroma420 ? 2 : 1;
  const int log2Pixels = chroma == Chroma444 ? 0 : chroma == Chroma422 ? 1 : 2;
  const size_t chromaWidth = (width + blockWidth - 1) / blockWidth;
  const size_t chromaHeight = (height + blockHeight - 1) / blockHeight;
  for (size_t cy = 0; cy < chromaHeight; ++cy) {
    for (size_t cx = 0; cx < chromaWidth; ++cx) {
      int32_t sum[3] = {0, 0, 0};
      for (size_t j = 0; j < blockHeight; ++j) {
        const size_t y = std::min(cy * blockHeight + j, height - 1);
        for (size_t i = 0; i < blockWidth; ++i) {
          const size_t x = std::min(cx * blockWidth + i, width - 1);
          const uint8_t* p = src + y * srcStride + x * layout.pixelBytes;
          sum[0] += p[red];
          sum[1] += p[1];
          sum[2] += p[blue];
        }
      }
      destination.cb[cy * destination.cbStride + cx] =
          F::FromRgb(k, 1, sum[0], sum[1], sum[2], log2Pixels);
      destination.cr[cy * destination.crStride + cx] =
          F::FromRgb(k, 2, sum[0], sum[1], sum[2], log2Pixels);
    }
  }
}

} // namespace NmPrimitives::NmReference
