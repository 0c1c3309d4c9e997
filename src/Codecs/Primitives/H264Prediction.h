#pragma once

#include <cstddef>
#include <cstdint>

// Combining inter predictions of H.264 into the final prediction block.
// Blocks are width x height with an even width 2 to 16 and height 1 to 16; dst may be
// the same block as a (same pointer, same stride), never a partial overlap.
namespace NmPrimitives {

// Bi-prediction without weights: (a + b + 1) >> 1.
void H264Average(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                 uint8_t* dst, ptrdiff_t dstStride, int width, int height);

// Explicit weighting of one prediction: ((a * weight + 2^(logWD - 1)) >> logWD)
// + offset, clipped; logWD 0 to 7, weight -128 to 127, offset -128 to 127.
void H264Weight(const uint8_t* a, ptrdiff_t aStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                int height, int logWD, int weight, int offset);

// Weighting of two predictions, explicit or implicit:
// ((a * weightA + b * weightB + 2^logWD) >> (logWD + 1)) + offset, clipped;
// the weights -128 to 128, offset the rounded mean of the two offsets.
void H264WeightBi(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                  uint8_t* dst, ptrdiff_t dstStride, int width, int height, int logWD, int weightA,
                  int weightB, int offset);

namespace NmReference {
void H264Average(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                 uint8_t* dst, ptrdiff_t dstStride, int width, int height);
void H264Weight(const uint8_t* a, ptrdiff_t aStride, uint8_t* dst, ptrdiff_t dstStride, int width,
                int height, int logWD, int weight, int offset);
void H264WeightBi(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t bStride,
                  uint8_t* dst, ptrdiff_t dstStride, int width, int height, int logWD, int weightA,
                  int weightB, int offset);
} // namespace NmReference

} // namespace NmPrimitives
