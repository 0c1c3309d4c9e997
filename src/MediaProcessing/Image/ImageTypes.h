#pragma once

#include <cstdint>

namespace NmMediaProcessing {

// The numbers are shared with configuration and with every codec, so they are
// fixed; -1 marks an allocator that holds nothing yet.
enum ColorFormat : int32_t {
  ColorFormatNone = -1,
  Gray = 0,
  RGB24 = 1,
  BGR24 = 2,
  RGB32 = 3,
  BGR32 = 4,
  YCbCr420_Planar = 5,
  YCbCr422_Planar = 6,
  YCbCr444_Planar = 7,
  RGBA = 8,
  BGRA = 9,
};

enum SubColorFormat : uint32_t {
  NotApplicable = 0,
  SubColorFormatFullRange = 1,
  SubColorFormatVideoRange = 2,
  SubColorFormatPlainGray = 3,
};

enum Interlacing : uint32_t {
  Progressive = 0,
  InterleavedTopFirst = 1,
  InterleavedBottomFirst = 2,
  SeparateTopFirst = 3,
  SeparateBottomFirst = 4,
  TopFieldOnly = 5,
  BottomFieldOnly = 6,
};

// True for the values 0 to 9; anything else is refused by the code that switches on it.
inline bool IsKnownColorFormat(int32_t format) {
  return format >= 0 && format <= static_cast<int32_t>(BGRA);
}
inline bool IsMultiPlaneFormat(int32_t format) {
  return format == YCbCr420_Planar || format == YCbCr422_Planar || format == YCbCr444_Planar;
}
inline uint64_t GetPlaneCount(int32_t format) {
  return IsMultiPlaneFormat(format) ? 3 : 1;
}

// Meaningful bytes of a pixel; RGB32 and BGR32 carry a fourth byte that is not
// part of the value. Unknown formats give 0.
uint64_t GetBytesPerPixel(int32_t format);
// Distance between neighbouring pixels of a row in memory. Unknown formats give 0.
uint64_t GetPixelStride(int32_t format);

struct SmPlaneSize {
  uint64_t width;
  uint64_t height;
};
// Size of plane `index` of an image of width x height in `format`: chroma planes
// of the subsampled formats round up.
SmPlaneSize GetPlaneSize(int32_t format, uint64_t index, uint64_t width, uint64_t height);

// How the stored pixels relate to the picture that is to be shown.
struct Orientation {
  uint32_t rotation = 0; // quarter turns clockwise
  bool flippedVertically = false;
  bool flippedHorizontally = false;

  // A half turn equals a mirror in both axes, so rotations 2 and 3 fold onto 0
  // and 1 with both flags inverted; comparisons work on this form.
  Orientation GetNormalForm() const;
  bool operator==(const Orientation& other) const;
  bool operator!=(const Orientation& other) const { return !(*this == other); }
  // Adds d quarter turns for d in 0..3; other values leave the rotation alone.
  void AddRotation(uint32_t d);
  // Mirrors in picture space land on the stored flag that the rotation maps them to.
  void FlipVertically();
  void FlipHorizontally();
};

} // namespace NmMediaProcessing
