// Vector transposition: single bytes sixteen rows at a time, four-byte pixels
// as 32-bit lanes, three-byte pixels in 8 x 8 blocks one byte plane at a
// time; the borders that do not fill a block take the plain loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Codecs/Primitives/PlaneTranspose.cc"
#include <hwy/foreach_target.h> // IWYU pragma: keep
#include <hwy/highway.h>

#include <algorithm>

#include "Codecs/Primitives/PlaneTranspose.h"

HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR
using D8 = hn::Full64<uint8_t>;
using V8 = hn::Vec<D8>;

// Transposes eight rows of eight bytes by interleaving at 8, 16 and 32 bits.
HWY_INLINE void Transpose8x8(V8 (&r)[8]) {
  const hn::Full128<uint8_t> d;
  const hn::Full128<uint16_t> d16;
  const hn::Full128<uint32_t> d32;
  const D8 half;
  hn::Vec<decltype(d)> a[4];
  for (int i = 0; i < 4; ++i) {
    a[i] = hn::InterleaveLower(d, hn::ZeroExtendVector(d, r[2 * i]),
                               hn::ZeroExtendVector(d, r[2 * i + 1]));
  }
  const auto b0 = hn::InterleaveLower(d16, hn::BitCast(d16, a[0]), hn::BitCast(d16, a[1]));
  const auto b1 = hn::InterleaveUpper(d16, hn::BitCast(d16, a[0]), hn::BitCast(d16, a[1]));
  const auto b2 = hn::InterleaveLower(d16, hn::BitCast(d16, a[2]), hn::BitCast(d16, a[3]));
  const auto b3 = hn::InterleaveUpper(d16, hn::BitCast(d16, a[2]), hn::BitCast(d16, a[3]));
  const auto c0 =
      hn::BitCast(d, hn::InterleaveLower(d32, hn::BitCast(d32, b0), hn::BitCast(d32, b2)));
  const auto c1 =
      hn::BitCast(d, hn::InterleaveUpper(d32, hn::BitCast(d32, b0), hn::BitCast(d32, b2)));
  const auto c2 =
      hn::BitCast(d, hn::InterleaveLower(d32, hn::BitCast(d32, b1), hn::BitCast(d32, b3)));
  const auto c3 =
      hn::BitCast(d, hn::InterleaveUpper(d32, hn::BitCast(d32, b1), hn::BitCast(d32, b3)));
  r[0] = hn::LowerHalf(half, c0);
  r[1] = hn::UpperHalf(half, c0);
  r[2] = hn::LowerHalf(half, c1);
  r[3] = hn::UpperHalf(half, c1);
  r[4] = hn::LowerHalf(half, c2);
  r[5] = hn::UpperHalf(half, c2);
  r[6] = hn::LowerHalf(half, c3);
  r[7] = hn::UpperHalf(half, c3);
}

using D128 = hn::Full128<uint8_t>;

// Rows sr to sr + N - 1 of the source from column sc, bottom up when the
// destination's columns are mirrored.
template <size_t N, class D>
HWY_INLINE void LoadRows(D d, const uint8_t* src, size_t srcStride, size_t sr, size_t sc,
                         bool flipColumns, hn::Vec<D> (&r)[N]) {
  for (size_t j = 0; j < N; ++j) {
    const size_t row = flipColumns ? sr + N - 1 - j : sr + j;
    r[j] = hn::LoadU(d, src + row * srcStride + sc);
  }
}

// Eight source rows by Lanes(d) columns, for a remainder of eight rows, by
// interleaving at 8, 16 and 32 bits; each 64-bit half of a result is one
// destination row of eight bytes.
template <class D>
HWY_INLINE void TransposeEightRows(D d, const uint8_t* src, size_t srcStride, uint8_t* dst,
                                   size_t dstStride, size_t width, size_t height, size_t sr,
                                   size_t sc, bool flipColumns, bool flipRows) {
  const hn::Repartition<uint16_t, D> d16;
  const hn::Repartition<uint32_t, D> d32;
  hn::Vec<D> r[8];
  LoadRows(d, src, srcStride, sr, sc, flipColumns, r);
  // columns[c / 2]: columns c and c + 1 of every block, eight rows each.
  hn::Vec<D> columns[8];
  for (size_t h = 0; h < 2; ++h) {
    const auto pair = [&](size_t k) {
      return hn::BitCast(d16, h == 0 ? hn::InterleaveLower(d, r[2 * k], r[2 * k + 1])
                                     : hn::InterleaveUpper(d, r[2 * k], r[2 * k + 1]));
    };
    const auto p0 = pair(0), p1 = pair(1), p2 = pair(2), p3 = pair(3);
    const auto top0 = hn::BitCast(d32, hn::InterleaveLower(d16, p0, p1));
    const auto top1 = hn::BitCast(d32, hn::InterleaveUpper(d16, p0, p1));
    const auto bottom0 = hn::BitCast(d32, hn::InterleaveLower(d16, p2, p3));
    const auto bottom1 = hn::BitCast(d32, hn::InterleaveUpper(d16, p2, p3));
    columns[4 * h + 0] = hn::BitCast(d, hn::InterleaveLower(d32, top0, bottom0));
    columns[4 * h + 1] = hn::BitCast(d, hn::InterleaveUpper(d32, top0, bottom0));
    columns[4 * h + 2] = hn::BitCast(d, hn::InterleaveLower(d32, top1, bottom1));
    columns[4 * h + 3] = hn::BitCast(d, hn::InterleaveUpper(d32, top1, bottom1));
  }
  const size_t x = flipColumns ? height - 8 - sr : sr;
  const D128 d128;
  const hn::Full64<uint8_t> d64;
  const auto store = [&](hn::Vec<D128> v, size_t column) {
    const size_t y0 = flipRows ? width - 1 - column : column;
    const size_t y1 = flipRows ? y0 - 1 : y0 + 1;
    hn::StoreU(hn::LowerHalf(d64, v), d64, dst + y0 * dstStride + x);
    hn::StoreU(hn::UpperHalf(d64, v), d64, dst + y1 * dstStride + x);
  };
  for (size_t c = 0; c < 8; ++c) {
    if constexpr (hn::MaxLanes(D()) == 16) {
      store(columns[c], sc + 2 * c);
    } else {
      store(hn::LowerHalf(d128, columns[c]), sc + 2 * c);
      store(hn::UpperHalf(d128, columns[c]), sc + 16 + 2 * c);
    }
  }
}

// Sixteen source rows by Lanes(d) columns, by interleaving at 8, 16, 32 and
// 64 bits; each 128-bit block of a result is one destination row of sixteen
// bytes, written whole.
template <class D>
HWY_INLINE void TransposeSixteenRows(D d, const uint8_t* src, size_t srcStride, uint8_t* dst,
                                     size_t dstStride, size_t width, size_t height, size_t sr,
                                     size_t sc, bool flipColumns, bool flipRows) {
  const hn::Repartition<uint16_t, D> d16;
  const hn::Repartition<uint32_t, D> d32;
  const hn::Repartition<uint64_t, D> d64;
  hn::Vec<D> r[16];
  LoadRows(d, src, srcStride, sr, sc, flipColumns, r);
  // a[k][h]: rows 2k and 2k + 1, columns 8h to 8h + 7 as 16-bit lanes.
  hn::Vec<decltype(d16)> a[8][2];
  for (size_t k = 0; k < 8; ++k) {
    a[k][0] = hn::BitCast(d16, hn::InterleaveLower(d, r[2 * k], r[2 * k + 1]));
    a[k][1] = hn::BitCast(d16, hn::InterleaveUpper(d, r[2 * k], r[2 * k + 1]));
  }
  // b[m][q]: rows 4m to 4m + 3, columns 4q to 4q + 3 as 32-bit lanes.
  hn::Vec<decltype(d32)> b[4][4];
  for (size_t m = 0; m < 4; ++m) {
    for (size_t h = 0; h < 2; ++h) {
      b[m][2 * h] = hn::BitCast(d32, hn::InterleaveLower(d16, a[2 * m][h], a[2 * m + 1][h]));
      b[m][2 * h + 1] = hn::BitCast(d32, hn::InterleaveUpper(d16, a[2 * m][h], a[2 * m + 1][h]));
    }
  }
  // c[o][p]: rows 8o to 8o + 7, columns 2p and 2p + 1 as 64-bit lanes.
  hn::Vec<decltype(d64)> c[2][8];
  for (size_t o = 0; o < 2; ++o) {
    for (size_t q = 0; q < 4; ++q) {
      c[o][2 * q] = hn::BitCast(d64, hn::InterleaveLower(d32, b[2 * o][q], b[2 * o + 1][q]));
      c[o][2 * q + 1] = hn::BitCast(d64, hn::InterleaveUpper(d32, b[2 * o][q], b[2 * o + 1][q]));
    }
  }
  const size_t x = flipColumns ? height - 16 - sr : sr;
  const D128 d128;
  const auto store = [&](hn::Vec<decltype(d64)> column, size_t k) {
    const hn::Vec<D> bytes = hn::BitCast(d, column);
    const auto row = [&](size_t c) { return dst + (flipRows ? width - 1 - c : c) * dstStride + x; };
    if constexpr (hn::MaxLanes(D()) == 16) {
      hn::StoreU(bytes, d128, row(sc + k));
    } else {
      hn::StoreU(hn::LowerHalf(d128, bytes), d128, row(sc + k));
      hn::StoreU(hn::UpperHalf(d128, bytes), d128, row(sc + 16 + k));
    }
  };
  for (size_t p = 0; p < 8; ++p) {
    store(hn::InterleaveLower(d64, c[0][p], c[1][p]), 2 * p);
    store(hn::InterleaveUpper(d64, c[0][p], c[1][p]), 2 * p + 1);
  }
}

// Single bytes go sixteen rows at a time (eight for a remainder of eight),
// 32 columns where 256-bit vectors exist. Tiles of 64 source rows keep the
// destination lines that a tile writes in the cache until they are whole.
void TransposeBytes(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, bool flipColumns, bool flipRows) {
  constexpr size_t Tile = 64;
  const size_t blockHeight = height - height % 8;
  const size_t blockWidth = width - width % 16;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX2
  const hn::Full256<uint8_t> wide;
  const size_t wideWidth = width - width % 32;
#else
  const D128 wide;
  const size_t wideWidth = blockWidth;
#endif
  const size_t step = hn::Lanes(wide);
  const auto rows = [&](auto d, size_t sr, size_t sc) {
    if (sr + 16 <= blockHeight) {
      TransposeSixteenRows(d, src, srcStride, dst, dstStride, width, height, sr, sc, flipColumns,
                           flipRows);
    } else {
      TransposeEightRows(d, src, srcStride, dst, dstStride, width, height, sr, sc, flipColumns,
                         flipRows);
    }
  };
  for (size_t tr = 0; tr < blockHeight; tr += Tile) {
    const size_t rowEnd = std::min(tr + Tile, blockHeight);
    for (size_t sc = 0; sc < wideWidth; sc += step) {
      for (size_t sr = tr; sr < rowEnd; sr += sr + 16 <= blockHeight ? 16 : 8) {
        rows(wide, sr, sc);
      }
    }
    for (size_t sc = wideWidth; sc < blockWidth; sc += 16) {
      for (size_t sr = tr; sr < rowEnd; sr += sr + 16 <= blockHeight ? 16 : 8) {
        rows(D128(), sr, sc);
      }
    }
  }
}

// Four-byte pixels move whole: four rows of four pixels are transposed as
// 32-bit lanes by interleaving at 32 and 64 bits. The source goes in bands of
// 8 columns from top to bottom, so that the destination is written as 8
// sequential streams, which the processor combines into whole lines; each
// source line is read in two bands. With 32 streams the time depended on
// where the planes lay in memory, from half to twice that of 8 streams.
constexpr size_t Band = 8;

void TransposeWords(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, bool flipColumns, bool flipRows) {
  const hn::Full128<uint32_t> d;
  const hn::Full128<uint64_t> d64;
  const size_t blockHeight = height - height % 4;
  const size_t blockWidth = width - width % 4;
  for (size_t band = 0; band < blockWidth; band += Band) {
    const size_t bandEnd = std::min(band + Band, blockWidth);
    for (size_t sr = 0; sr < blockHeight; sr += 4) {
      for (size_t sc = band; sc < bandEnd; sc += 4) {
        hn::Vec<decltype(d)> r[4];
        for (size_t j = 0; j < 4; ++j) {
          const size_t row = flipColumns ? sr + 3 - j : sr + j;
          r[j] = hn::LoadU(d, reinterpret_cast<const uint32_t*>(src + row * srcStride) + sc);
        }
        const auto a0 = hn::BitCast(d64, hn::InterleaveLower(d, r[0], r[1]));
        const auto a1 = hn::BitCast(d64, hn::InterleaveUpper(d, r[0], r[1]));
        const auto a2 = hn::BitCast(d64, hn::InterleaveLower(d, r[2], r[3]));
        const auto a3 = hn::BitCast(d64, hn::InterleaveUpper(d, r[2], r[3]));
        const hn::Vec<decltype(d)> columns[4] = {hn::BitCast(d, hn::InterleaveLower(d64, a0, a2)),
                                                 hn::BitCast(d, hn::InterleaveUpper(d64, a0, a2)),
                                                 hn::BitCast(d, hn::InterleaveLower(d64, a1, a3)),
                                                 hn::BitCast(d, hn::InterleaveUpper(d64, a1, a3))};
        const size_t x = flipColumns ? height - 4 - sr : sr;
        for (size_t k = 0; k < 4; ++k) {
          const size_t y = flipRows ? width - 1 - (sc + k) : sc + k;
          hn::StoreU(columns[k], d, reinterpret_cast<uint32_t*>(dst + y * dstStride) + x);
        }
      }
    }
  }
}

template <size_t S> HWY_INLINE void LoadRow(const uint8_t* p, V8 (&c)[3]) {
  const D8 d;
  if constexpr (S == 1) {
    c[0] = hn::LoadU(d, p);
  } else {
    hn::LoadInterleaved3(d, p, c[0], c[1], c[2]);
  }
}

template <size_t S> HWY_INLINE void StoreRow(const V8 (&c)[3], uint8_t* p) {
  const D8 d;
  if constexpr (S == 1) {
    hn::StoreU(c[0], d, p);
  } else {
    hn::StoreInterleaved3(c[0], c[1], c[2], d, p);
  }
}

template <size_t S>
void TransposeBlocks(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                     size_t width, size_t height, bool flipColumns, bool flipRows) {
  for (size_t sr = 0; sr + 8 <= height; sr += 8) {
    for (size_t sc = 0; sc + 8 <= width; sc += 8) {
      // channel[c][j]: byte c of the eight pixels of source row j of the block.
      V8 channel[S][8];
      for (size_t j = 0; j < 8; ++j) {
        // Mirroring the destination's columns is reading the rows backwards.
        const size_t row = flipColumns ? sr + 7 - j : sr + j;
        V8 bytes[3];
        LoadRow<S>(src + row * srcStride + S * sc, bytes);
        for (size_t c = 0; c < S; ++c) {
          channel[c][j] = bytes[c];
        }
      }
      for (size_t c = 0; c < S; ++c) {
        Transpose8x8(channel[c]);
      }
      const size_t x = flipColumns ? height - 8 - sr : sr;
      for (size_t k = 0; k < 8; ++k) {
        const size_t y = flipRows ? width - 1 - (sc + k) : sc + k;
        V8 bytes[3];
        for (size_t c = 0; c < S; ++c) {
          bytes[c] = channel[c][k];
        }
        StoreRow<S>(bytes, dst + y * dstStride + S * x);
      }
    }
  }
}
#endif

void TransposePlaneImpl(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                        size_t width, size_t height, size_t pixelBytes, bool flipColumns,
                        bool flipRows) {
  size_t blockWidth = 0;
  size_t blockHeight = 0;
#if HWY_TARGET != HWY_SCALAR
  blockWidth = width - width % 8;
  blockHeight = height - height % 8;
  if (pixelBytes == 1) {
    blockWidth = width - width % 16;
    blockHeight = height - height % 8;
    TransposeBytes(src, srcStride, dst, dstStride, width, height, flipColumns, flipRows);
  } else if (pixelBytes == 3) {
    TransposeBlocks<3>(src, srcStride, dst, dstStride, width, height, flipColumns, flipRows);
  } else {
    blockWidth = width - width % 4;
    blockHeight = height - height % 4;
    TransposeWords(src, srcStride, dst, dstStride, width, height, flipColumns, flipRows);
  }
#endif
  // The right and bottom borders of the source that no block covered.
  const auto copyPixel = [&](size_t row, size_t column) {
    const size_t y = flipRows ? width - 1 - column : column;
    const size_t x = flipColumns ? height - 1 - row : row;
    for (size_t c = 0; c < pixelBytes; ++c) {
      dst[y * dstStride + x * pixelBytes + c] = src[row * srcStride + column * pixelBytes + c];
    }
  };
  for (size_t row = 0; row < blockHeight; ++row) {
    for (size_t column = blockWidth; column < width; ++column) {
      copyPixel(row, column);
    }
  }
  for (size_t row = blockHeight; row < height; ++row) {
    for (size_t column = 0; column < width; ++column) {
      copyPixel(row, column);
    }
  }
}

} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace NmPrimitives {

HWY_EXPORT(TransposePlaneImpl);

void TransposePlane(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride,
                    size_t width, size_t height, size_t pixelBytes, bool flipColumns,
                    bool flipRows) {
  HWY_DYNAMIC_DISPATCH(TransposePlaneImpl)
  (src, srcStride, dst, dstStride, width, height, pixelBytes, flipColumns, flipRows);
}

} // namespace NmPrimitives
#endif
