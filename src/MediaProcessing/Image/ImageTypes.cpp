#include "MediaProcessing/Image/ImageTypes.h"

namespace NmMediaProcessing {

uint64_t GetBytesPerPixel(int32_t format) {
  switch (format) {
  case Gray:
  case YCbCr420_Planar:
  case YCbCr422_Planar:
  case YCbCr444_Planar:
    return 1;
  case RGB24:
  case BGR24:
  case RGB32:
  case BGR32:
    return 3;
  case RGBA:
  case BGRA:
    return 4;
  default:
    return 0;
  }
}

uint64_t GetPixelStride(int32_t format) {
  switch (format) {
  case Gray:
  case YCbCr420_Planar:
  case YCbCr422_Planar:
  case YCbCr444_Planar:
    return 1;
  case RGB24:
  case BGR24:
    return 3;
  case RGB32:
  case BGR32:
  case RGBA:
  case BGRA:
    return 4;
  default:
    return 0;
  }
}

SmPlaneSize GetPlaneSize(int32_t format, uint64_t index, uint64_t width, uint64_t height) {
  if (index == 0) {
    return {width, height};
  }
  switch (format) {
  case YCbCr420_Planar:
    return {(width + 1) / 2, (height + 1) / 2};
  case YCbCr422_Planar:
    return {(width + 1) / 2, height};
  default:
    return {width, height};
  }
}

Orientation Orientation::GetNormalForm() const {
  Orientation normal = *this;
  if (rotation == 2 || rotation == 3) {
    normal.rotation = rotation - 2;
    normal.flippedVertically = !flippedVertically;
    normal.flippedHorizontally = !flippedHorizontally;
  }
  return normal;
}

bool Orientation::operator==(const Orientation& other) const {
  const Orientation a = GetNormalForm();
  const Orientation b = other.GetNormalForm();
  return a.rotation == b.rotation && a.flippedVertically == b.flippedVertically &&
         a.flippedHorizontally == b.flippedHorizontally;
}

void Orientation::AddRotation(uint32_t d) {
  if (d <= 3) {
    rotation = (rotation + d) % 4;
  }
}

void Orientation::FlipVertically() {
  if (rotation == 0 || rotation == 2) {
    flippedVertically = !flippedVertically;
  } else {
    flippedHorizontally = !flippedHorizontally;
  }
}

void Orientation::FlipHorizontally() {
  if (rotation == 0 || rotation == 2) {
    flippedHorizontally = !flippedHorizontally;
  } else {
    flippedVertically = !flippedVertically;
  }
}

} // namespace NmMediaProcessing
