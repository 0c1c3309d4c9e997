#pragma once

#include <cstddef>
#include <cstdint>

// Resizing of 8-bit planes of one, three or four bytes a pixel, as a vertical
// pass into a row of 32-bit sums followed by a horizontal pass. Each mode is a
// table of source taps and weights per output row and column; the tables are
// built by one plain routine, so the vector and plain versions agree to the
// bit. Source position of output pixel x is (x + 0.5) * source / target - 0.5.
namespace NmPrimitives {

enum SmResizeMode : int32_t {
  ResizeNearest = 1,     // the source pixel whose area holds the output's centre
  ResizeLinear = 2,      // two taps each way at the output's centre
  ResizeSuperSample = 8, // the area average of the source pixels under the output
  ResizeLanczos = 16,    // Lanczos with three lobes, stretched when shrinking
};

// Statuses in the manner of a signal primitives library.
constexpr int32_t ResizeOk = 0;
constexpr int32_t ResizeNullPointer = -8;
constexpr int32_t ResizeBadSize = -6;
constexpr int32_t ResizeBadMode = -13;
constexpr int32_t ResizeScratchTooSmall = -11;

// Bytes of scratch that ResizePlane needs for this geometry; 0 for a bad mode.
size_t GetResizeScratchSize(size_t srcWidth, size_t srcHeight, size_t dstWidth, size_t dstHeight,
                            size_t pixelBytes, SmResizeMode mode);

// The part of the full dstWidth x dstHeight result that one call writes:
// columns left up to (not including) right of rows top up to bottom.
struct SmResizeWindow {
  size_t left, top, right, bottom;

  static SmResizeWindow Whole(size_t width, size_t height) { return {0, 0, width, height}; }
  static SmResizeWindow Rows(size_t width, size_t top, size_t bottom) {
    return {0, top, width, bottom};
  }
};

// Writes the window of the full dstWidth x dstHeight result; dst points at
// the window's first pixel. A window reads the source around it as the whole
// would, so windows join without seams, and a small window of a huge result
// costs only its own pixels.
int32_t ResizePlane(const uint8_t* src, size_t srcStride, size_t srcWidth, size_t srcHeight,
                    uint8_t* dst, size_t dstStride, size_t dstWidth, size_t dstHeight,
                    size_t pixelBytes, SmResizeMode mode, uint8_t* scratch, size_t scratchSize,
                    const SmResizeWindow& window);

namespace NmReference {
int32_t ResizePlane(const uint8_t* src, size_t srcStride, size_t srcWidth, size_t srcHeight,
                    uint8_t* dst, size_t dstStride, size_t dstWidth, size_t dstHeight,
                    size_t pixelBytes, SmResizeMode mode, uint8_t* scratch, size_t scratchSize,
                    const SmResizeWindow& window);
} // namespace NmReference

// The filter tables, shared by both versions.
namespace NmResizeTables {

constexpr int WeightBits = 14;

// For each output index i: taps source indices first[i] .. first[i] + taps - 1
// with weights[i * taps + k], which sum to 1 << WeightBits.
struct SmAxis {
  size_t taps;
  int32_t* first;
  int32_t* weights;
};

struct SmLayout {
  SmAxis vertical;    // per output row of the whole result
  SmAxis horizontal;  // per output byte of the window: first is a byte index into row
  size_t rowOrigin;   // the first source byte that the window's taps read
  size_t rowBytes;    // how many source bytes from there they read
  size_t outputBytes; // bytes of one window row
  int32_t* row;       // the vertical pass's result, one value per source byte read
  // Room for a vector version's own arrangement of the horizontal weights:
  // 16 bits each, per output byte the taps rounded up to a multiple of 8.
  int16_t* packed;
};

// Taps a row of the packed horizontal weights holds.
size_t GetPackedTapCount(size_t taps);

size_t GetTapCount(size_t srcLength, size_t dstLength, SmResizeMode mode);
size_t GetScratchSize(size_t srcWidth, size_t srcHeight, size_t dstWidth, size_t dstHeight,
                      size_t pixelBytes, SmResizeMode mode);
// Carves the tables out of scratch and fills them; false when it is too small.
bool Build(size_t srcWidth, size_t srcHeight, size_t dstWidth, size_t dstHeight, size_t pixelBytes,
           SmResizeMode mode, const SmResizeWindow& window, uint8_t* scratch, size_t scratchSize,
           SmLayout& layout);
int32_t Check(const uint8_t* src, size_t srcWidth, size_t srcHeight, const uint8_t* dst,
              size_t dstWidth, size_t dstHeight, size_t pixelBytes, SmResizeMode mode,
              const uint8_t* scratch, const SmResizeWindow& window);

} // namespace NmResizeTables

} // namespace NmPrimitives
