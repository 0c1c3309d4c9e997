#include "Codecs/H264/InterPrediction.h"

#include <algorithm>
#include <cstring>

namespace NmH264 {

namespace {

constexpr int MostBlock = 16;
// The samples a luma block's filters read around it: two before, three after.
constexpr int Span = MostBlock + 5;

uint8_t Clip(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

int Tap(const uint8_t* s, ptrdiff_t step) {
  return s[-2 * step] - 5 * s[-step] + 20 * s[0] + 20 * s[step] - 5 * s[2 * step] + s[3 * step];
}

int TapWide(const int* s, ptrdiff_t step) {
  return s[-2 * step] - 5 * s[-step] + 20 * s[0] + 20 * s[step] - 5 * s[2 * step] + s[3 * step];
}

// Where the block's samples, with the filters' margins, can be read: in the
// plane itself when they fall inside its border (edges repeated there after
// decoding), else from a copy with the edges repeated per sample.
const uint8_t* GetSource(const uint8_t* plane, ptrdiff_t stride, int pictureWidth,
                         int pictureHeight, int border, int x0, int y0, int width, int height,
                         uint8_t* copy, ptrdiff_t& sourceStride) {
  if (x0 - 2 >= -border && y0 - 2 >= -border && x0 + width + 3 <= pictureWidth + border &&
      y0 + height + 3 <= pictureHeight + border) {
    sourceStride = stride;
    return plane + y0 * stride + x0;
  }
  for (int j = -2; j < height + 3; ++j) {
    const int sy = std::clamp(y0 + j, 0, pictureHeight - 1);
    for (int i = -2; i < width + 3; ++i) {
      const int sx = std::clamp(x0 + i, 0, pictureWidth - 1);
      copy[(j + 2) * Span + i + 2] = plane[sy * stride + sx];
    }
  }
  sourceStride = Span;
  return copy + 2 * Span + 2;
}

} // namespace

void PredictLuma(const CmPicture& reference, int x, int y, int mvx, int mvy, int width, int height,
                 uint8_t* dst, ptrdiff_t dstStride) {
  const int x0 = x + (mvx >> 2), y0 = y + (mvy >> 2);
  const int fx = mvx & 3, fy = mvy & 3;
  uint8_t copy[Span * Span];
  ptrdiff_t s = 0;
  const uint8_t* src = GetSource(reference.GetPlane(0), reference.GetStride(0),
                                 static_cast<int>(reference.GetWidthInMbs() * 16),
                                 static_cast<int>(reference.GetHeightInMbs() * 16),
                                 CmPicture::LumaBorder, x0, y0, width, height, copy, s);
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

void PredictChroma(const CmPicture& reference, int component, int x, int y, int mvx, int mvy,
                   int width, int height, uint8_t* dst, ptrdiff_t dstStride) {
  const int x0 = x + (mvx >> 3), y0 = y + (mvy >> 3);
  const int fx = mvx & 7, fy = mvy & 7;
  uint8_t copy[Span * Span];
  ptrdiff_t s = 0;
  const uint8_t* src = GetSource(reference.GetPlane(component), reference.GetStride(component),
                                 static_cast<int>(reference.GetWidthInMbs() * 8),
                                 static_cast<int>(reference.GetHeightInMbs() * 8),
                                 CmPicture::LumaBorder / 2, x0, y0, width, height, copy, s);
  const int a = (8 - fx) * (8 - fy), bw = fx * (8 - fy), c = (8 - fx) * fy, d = fx * fy;
  for (int j = 0; j < height; ++j) {
    const uint8_t* row = src + j * s;
    for (int i = 0; i < width; ++i) {
      dst[j * dstStride + i] = static_cast<uint8_t>(
          (a * row[i] + bw * row[i + 1] + c * row[s + i] + d * row[s + i + 1] + 32) >> 6);
    }
  }
}

} // namespace NmH264
