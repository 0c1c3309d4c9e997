#include <algorithm>
#include <cstring>

#include "Codecs/Primitives/H264Interpolation.h"

namespace NmPrimitives::NmReference {

namespace {

constexpr int MostBlock = 16;

uint8_t Clip(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

int Tap(const uint8_t* s, ptrdiff_t step) {
  return s[-2 * step] - 5 * s[-step] + 20 * s[0] + 20 * s[step] - 5 * s[2 * step] + s[3 * step];
}

int TapWide(const int* s, ptrdiff_t step) {
  return s[-2 * step] - 5 * s[-step] + 20 * s[0] + 20 * s[step] - 5 * s[2 * step] + s[3 * step];
}

} // namespace

void H264InterpolateLuma(const uint8_t* src, ptrdiff_t s, uint8_t* dst, ptrdiff_t dstStride,
                         int width, int height, int fx, int fy) {
  if (fx == 0 && fy == 0) {
    for (int j = 0; j < height; ++j) {
      std::memcpy(dst + j * dstStride, src + j * s, static_cast<size_t>(width));
    }
    return;
  }
  // Half-sample planes as needed: b (horizontal) on rows 0 .. height, h
  // (vertical) on columns 0 .. width, j (centre) from the unrounded
  // horizontal sums.
  uint8_t b[(MostBlock + 1) * (MostBlock + 1)], h[(MostBlock + 1) * (MostBlock + 1)],
      jj[MostBlock * MostBlock];
  constexpr int B = MostBlock + 1;
  const bool needB = fy == 0 || fx == 2 || fx != 0;
  const bool needH = fx == 0 || fy == 2 || fy != 0;
  const bool needJ = (fx == 2 && fy != 0) || (fy == 2 && fx != 0);
  if (needB) {
    for (int j = 0; j <= height; ++j) {
      for (int i = 0; i < width; ++i) {
        b[j * B + i] = Clip((Tap(src + j * s + i, 1) + 16) >> 5);
      }
    }
  }
  if (needH) {
    for (int j = 0; j < height; ++j) {
      for (int i = 0; i <= width; ++i) {
        h[j * B + i] = Clip((Tap(src + j * s + i, s) + 16) >> 5);
      }
    }
  }
  if (needJ) {
    int rows[(MostBlock + 5) * MostBlock];
    for (int j = -2; j < height + 3; ++j) {
      for (int i = 0; i < width; ++i) {
        rows[(j + 2) * MostBlock + i] = Tap(src + j * s + i, 1);
      }
    }
    for (int j = 0; j < height; ++j) {
      for (int i = 0; i < width; ++i) {
        jj[j * MostBlock + i] =
            Clip((TapWide(&rows[(j + 2) * MostBlock + i], MostBlock) + 512) >> 10);
      }
    }
  }
  const auto g = [src, s](int i, int j) { return src[j * s + i]; };
  for (int j = 0; j < height; ++j) {
    uint8_t* out = dst + j * dstStride;
    for (int i = 0; i < width; ++i) {
      int value = 0;
      switch (fy * 4 + fx) {
      case 1:
        value = (g(i, j) + b[j * B + i] + 1) >> 1;
        break;
      case 2:
        value = b[j * B + i];
        break;
      case 3:
        value = (g(i + 1, j) + b[j * B + i] + 1) >> 1;
        break;
      case 4:
        value = (g(i, j) + h[j * B + i] + 1) >> 1;
        break;
      case 5:
        value = (b[j * B + i] + h[j * B + i] + 1) >> 1;
        break;
      case 6:
        value = (b[j * B + i] + jj[j * MostBlock + i] + 1) >> 1;
        break;
      case 7:
        value = (b[j * B + i] + h[j * B + i + 1] + 1) >> 1;
        break;
      case 8:
        value = h[j * B + i];
        break;
      case 9:
        value = (h[j * B + i] + jj[j * MostBlock + i] + 1) >> 1;
        break;
      case 10:
        value = jj[j * MostBlock + i];
        break;
      case 11:
        value = (jj[j * MostBlock + i] + h[j * B + i + 1] + 1) >> 1;
        break;
      case 12:
        value = (g(i, j + 1) + h[j * B + i] + 1) >> 1;
        break;
      case 13:
        value = (h[j * B + i] + b[(j + 1) * B + i] + 1) >> 1;
        break;
      case 14:
        value = (jj[j * MostBlock + i] + b[(j + 1) * B + i] + 1) >> 1;
        break;
      default:
        value = (h[j * B + i + 1] + b[(j + 1) * B + i] + 1) >> 1;
        break;
      }
      out[i] = static_cast<uint8_t>(value);
    }
  }
}

void H264InterpolateLumaAverage(const uint8_t* src, ptrdiff_t s, const uint8_t* other,
                                ptrdiff_t otherStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                                int height, int dx, int dy) {
  uint8_t block[MostBlock * MostBlock];
  H264InterpolateLuma(src, s, block, MostBlock, width, height, dx, dy);
  for (int j = 0; j < height; ++j) {
    for (int i = 0; i < width; ++i) {
      dst[j * dstStride + i] =
          static_cast<uint8_t>((other[j * otherStride + i] + block[j * MostBlock + i] + 1) >> 1);
    }
  }
}

void H264InterpolateChroma(const uint8_t* src, ptrdiff_t s, uint8_t* dst, ptrdiff_t dstStride,
                           int width, int height, int fx, int fy) {
  const int a = (8 - fx) * (8 - fy), bw = fx * (8 - fy), c = (8 - fx) * fy, d = fx * fy;
  for (int j = 0; j < height; ++j) {
    const uint8_t* row = src + j * s;
    for (int i = 0; i < width; ++i) {
      dst[j * dstStride + i] = static_cast<uint8_t>(
          (a * row[i] + bw * row[i + 1] + c * row[s + i] + d * row[s + i + 1] + 32) >> 6);
    }
  }
}

void H264InterpolateChromaPair(const uint8_t* srcCb, const uint8_t* srcCr, ptrdiff_t srcStride,
                               uint8_t* dstCb, uint8_t* dstCr, ptrdiff_t dstStride, int width,
                               int height, int dx, int dy) {
  H264InterpolateChroma(srcCb, srcStride, dstCb, dstStride, width, height, dx, dy);
  H264InterpolateChroma(srcCr, srcStride, dstCr, dstStride, width, height, dx, dy);
}

void H264InterpolateChromaPairAverage(const uint8_t* srcCb, const uint8_t* srcCr,
                                      ptrdiff_t srcStride, const uint8_t* otherCb,
                                      const uint8_t* otherCr, ptrdiff_t otherStride, uint8_t* dstCb,
                                      uint8_t* dstCr, ptrdiff_t dstStride, int width, int height,
                                      int dx, int dy) {
  const uint8_t* sources[2] = {srcCb, srcCr};
  const uint8_t* others[2] = {otherCb, otherCr};
  uint8_t* dsts[2] = {dstCb, dstCr};
  for (int plane = 0; plane < 2; ++plane) {
    uint8_t block[8 * 8];
    H264InterpolateChroma(sources[plane], srcStride, block, 8, width, height, dx, dy);
    for (int j = 0; j < height; ++j) {
      for (int i = 0; i < width; ++i) {
        dsts[plane][j * dstStride + i] =
            static_cast<uint8_t>((others[plane][j * otherStride + i] + block[j * 8 + i] + 1) >> 1);
      }
    }
  }
}

} // namespace NmPrimitives::NmReference
