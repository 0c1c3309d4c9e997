#include "Codecs/H264/InterPrediction.h"

#include <algorithm>

namespace NmH264 {

namespace {

uint8_t Clip(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

int Tap(const int* s, ptrdiff_t step) {
  return s[-2 * step] - 5 * s[-step] + 20 * s[0] + 20 * s[step] - 5 * s[2 * step] + s[3 * step];
}

} // namespace

void PredictLuma(const CmPicture& reference, int x, int y, int mvx, int mvy, int width, int height,
                 uint8_t* dst, ptrdiff_t dstStride) {
  const int pictureWidth = static_cast<int>(reference.GetWidthInMbs() * 16);
  const int pictureHeight = static_cast<int>(reference.GetHeightInMbs() * 16);
  const uint8_t* plane = reference.GetPlane(0);
  const ptrdiff_t stride = reference.GetStride(0);
  const int x0 = x + (mvx >> 2), y0 = y + (mvy >> 2);
  const int fx = mvx & 3, fy = mvy & 3;
  // The samples the filters read, with the picture's edge repeated: two to
  // the left and above, three to the right and below.
  constexpr int Margin = 2;
  const int span = 16 + 5;
  int samples[span * span];
  for (int j = 0; j < height + 5; ++j) {
    const int sy = std::clamp(y0 - Margin + j, 0, pictureHeight - 1);
    for (int i = 0; i < width + 5; ++i) {
      const int sx = std::clamp(x0 - Margin + i, 0, pictureWidth - 1);
      samples[j * span + i] = plane[sy * stride + sx];
    }
  }
  const auto g = [&](int i, int j) { return samples[(j + Margin) * span + i + Margin]; };
  const auto rawB = [&](int i, int j) {
    return Tap(&samples[(j + Margin) * span + i + Margin], 1);
  };
  const auto rawH = [&](int i, int j) {
    return Tap(&samples[(j + Margin) * span + i + Margin], span);
  };
  const auto b = [&](int i, int j) { return Clip((rawB(i, j) + 16) >> 5); };
  const auto h = [&](int i, int j) { return Clip((rawH(i, j) + 16) >> 5); };
  const auto jj = [&](int i, int j) {
    int column[6];
    for (int k = -2; k <= 3; ++k) {
      column[k + 2] = rawB(i, j + k);
    }
    return Clip((Tap(column + 2, 1) + 512) >> 10);
  };
  for (int j = 0; j < height; ++j) {
    for (int i = 0; i < width; ++i) {
      int value = 0;
      switch (fy * 4 + fx) {
      case 0:
        value = g(i, j);
        break;
      case 1:
        value = (g(i, j) + b(i, j) + 1) >> 1;
        break;
      case 2:
        value = b(i, j);
        break;
      case 3:
        value = (g(i + 1, j) + b(i, j) + 1) >> 1;
        break;
      case 4:
        value = (g(i, j) + h(i, j) + 1) >> 1;
        break;
      case 5:
        value = (b(i, j) + h(i, j) + 1) >> 1;
        break;
      case 6:
        value = (b(i, j) + jj(i, j) + 1) >> 1;
        break;
      case 7:
        value = (b(i, j) + h(i + 1, j) + 1) >> 1;
        break;
      case 8:
        value = h(i, j);
        break;
      case 9:
        value = (h(i, j) + jj(i, j) + 1) >> 1;
        break;
      case 10:
        value = jj(i, j);
        break;
      case 11:
        value = (jj(i, j) + h(i + 1, j) + 1) >> 1;
        break;
      case 12:
        value = (g(i, j + 1) + h(i, j) + 1) >> 1;
        break;
      case 13:
        value = (h(i, j) + b(i, j + 1) + 1) >> 1;
        break;
      case 14:
        value = (jj(i, j) + b(i, j + 1) + 1) >> 1;
        break;
      default:
        value = (h(i + 1, j) + b(i, j + 1) + 1) >> 1;
        break;
      }
      dst[j * dstStride + i] = static_cast<uint8_t>(value);
    }
  }
}

void PredictChroma(const CmPicture& reference, int component, int x, int y, int mvx, int mvy,
                   int width, int height, uint8_t* dst, ptrdiff_t dstStride) {
  const int pictureWidth = static_cast<int>(reference.GetWidthInMbs() * 8);
  const int pictureHeight = static_cast<int>(reference.GetHeightInMbs() * 8);
  const uint8_t* plane = reference.GetPlane(component);
  const ptrdiff_t stride = reference.GetStride(component);
  const int x0 = x + (mvx >> 3), y0 = y + (mvy >> 3);
  const int fx = mvx & 7, fy = mvy & 7;
  const auto at = [&](int i, int j) {
    return plane[std::clamp(y0 + j, 0, pictureHeight - 1) * stride +
                 std::clamp(x0 + i, 0, pictureWidth - 1)];
  };
  for (int j = 0; j < height; ++j) {
    for (int i = 0; i < width; ++i) {
      dst[j * dstStride + i] =
          static_cast<uint8_t>(((8 - fx) * (8 - fy) * at(i, j) + fx * (8 - fy) * at(i + 1, j) +
                                (8 - fx) * fy * at(i, j + 1) + fx * fy * at(i + 1, j + 1) + 32) >>
                               6);
    }
  }
}

} // namespace NmH264
