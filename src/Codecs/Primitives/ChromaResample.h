#pragma once

#include <cstddef>
#include <cstdint>

// Vertical chroma resampling between 4:2:0 and 4:2:2. Going up repeats each
// chroma row and going down averages row pairs with rounding, so that 4:2:0 to
// 4:2:2 and back is exact. The interleaved forms keep the two fields of an
// interlaced frame apart: rows of one field are only combined with rows of
// the same field.
namespace NmPrimitives {

// dstHeight rows of 4:2:2 chroma from (dstHeight + 1) / 2 rows of 4:2:0.
void Chroma420To422(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t dstHeight);
// dstHeight must be a multiple of 4: row r comes from row 2 * (r / 4) + r % 2.
void Chroma420To422Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t dstHeight);
// (srcHeight + 1) / 2 rows of 4:2:0 chroma; an odd last row is copied.
void Chroma422To420(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t srcHeight);
// srcHeight must be a multiple of 4: row q averages rows 4 * (q / 2) + q % 2
// and the row two below it.
void Chroma422To420Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t srcHeight);

// Horizontal nearest-neighbour resampling between 4:4:4 and 4:2:2 chroma:
// halving keeps the even columns (column floor(x * 2)), doubling repeats each
// column (column floor(x / 2)).
void ChromaHalveColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t dstWidth, size_t height);
void ChromaDoubleColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                         size_t dstWidth, size_t height);

namespace NmReference {
void ChromaHalveColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t dstWidth, size_t height);
void ChromaDoubleColumns(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                         size_t dstWidth, size_t height);
void Chroma420To422(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t dstHeight);
void Chroma420To422Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t dstHeight);
void Chroma422To420(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t srcHeight);
void Chroma422To420Interleaved(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                               size_t width, size_t srcHeight);
} // namespace NmReference

} // namespace NmPrimitives
