#pragma once

#include <cstddef>
#include <cstdint>

// Conversions between packed RGB and planar YCbCr in fixed point with
// coefficients of 15 fraction bits, so that the vector and the plain versions
// agree to the bit and both stay within one step of the exact equations.
namespace NmPrimitives {

// The equations, by the numbers of the sub-colour formats that select them.
enum SmYCbCrMatrix : int32_t {
  YCbCrJfif = 1,        // JFIF: full range, the rounded published constants
  YCbCrVideoRange = 2,  // ITU-R BT.601, luma 16..235, chroma 16..240
  YCbCrBt601Full = 3,   // ITU-R BT.601 coefficients at full range, unrounded
};

enum SmChromaLayout : int32_t {
  Chroma444 = 0, // one chroma sample a pixel
  Chroma422 = 1, // one for two pixels of a row
  Chroma420 = 2, // one for a square of two by two
};

// Byte layout of a packed pixel: 3 or 4 bytes, red or blue first. A four-byte
// pixel gets 255 in its fourth byte.
struct SmPackedLayout {
  size_t pixelBytes;
  bool blueFirst;
};

struct SmYCbCrSource {
  const uint8_t* y;
  size_t yStride;
  const uint8_t* cb;
  size_t cbStride;
  const uint8_t* cr;
  size_t crStride;
};

// cb and cr may both be null: then only luma is written.
struct SmYCbCrDestination {
  uint8_t* y;
  size_t yStride;
  uint8_t* cb;
  size_t cbStride;
  uint8_t* cr;
  size_t crStride;
};

// Chroma is taken by nearest neighbour: the sample that covers the pixel.
void YCbCrToRgb(const SmYCbCrSource& source, SmChromaLayout chroma, uint8_t* dst,
                size_t dstStride, SmPackedLayout layout, size_t width, size_t height,
                SmYCbCrMatrix matrix);
// A chroma sample is the equation applied to the mean colour of the pixels
// that it covers; at odd right and bottom edges that is one or two pixels.
void RgbToYCbCr(const uint8_t* src, size_t srcStride, SmPackedLayout layout,
                const SmYCbCrDestination& destination, SmChromaLayout chroma, size_t width,
                size_t height, SmYCbCrMatrix matrix);

namespace NmReference {
void YCbCrToRgb(const SmYCbCrSource& source, SmChromaLayout chroma, uint8_t* dst,
                size_t dstStride, SmPackedLayout layout, size_t width, size_t height,
                SmYCbCrMatrix matrix);
void RgbToYCbCr(const uint8_t* src, size_t srcStride, SmPackedLayout layout,
                const SmYCbCrDestination& destination, SmChromaLayout chroma, size_t width,
                size_t height, SmYCbCrMatrix matrix);
} // namespace NmReference

} // namespace NmPrimitives
