// Pieces of the 16-bit fixed-point DCTs that the forward and the inverse
// transform share, compiled into each Highway target of the unit that
// includes this file. One block lies in each 128 bits of a vector, its rows
// (or columns) in eight vectors.
#if defined(VZK_JPEG_DCT_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VZK_JPEG_DCT_INL_H_
#undef VZK_JPEG_DCT_INL_H_
#else
#define VZK_JPEG_DCT_INL_H_
#endif

#include <hwy/highway.h>

#include <type_traits>
#include <utility>

#if HWY_TARGET != HWY_SCALAR
HWY_BEFORE_NAMESPACE();
namespace NmPrimitives {
namespace HWY_NAMESPACE {
namespace NmDCT {
namespace hn = hwy::HWY_NAMESPACE;

// The 1-D transforms are scaled by 2 sqrt(2), which gives the DC term weight 1
// and makes the 2-D result 8 times that of T.81. Constants carry 13 fraction
// bits.
constexpr int kConstantBits = 13;
// round(sqrt(2) cos(k pi / 16) 2^13).
constexpr int16_t kK1 = 11363;
constexpr int16_t kK2 = 10703;
constexpr int16_t kK3 = 9633;
constexpr int16_t kK4 = 8192;
constexpr int16_t kK5 = 6436;
constexpr int16_t kK6 = 4433;
constexpr int16_t kK7 = 2260;

// f(0) .. f(kCount - 1) written out: arrays of vectors stay in registers
// only when no loop runs over them.
template <int kCount, class F, int... kIndex>
HWY_INLINE void RepeatIndexed(F&& f, std::integer_sequence<int, kIndex...>) {
  (f(std::integral_constant<int, kIndex>{}), ...);
}
template <int kCount, class F> HWY_INLINE void Repeat(F&& f) {
  RepeatIndexed<kCount>(f, std::make_integer_sequence<int, kCount>{});
}

// A vector of (a, b) pairs for MulPairs.
template <class D16> HWY_INLINE hn::Vec<D16> PairConstant(D16 d16, int16_t a, int16_t b) {
  const hn::Repartition<int32_t, D16> d32;
  const uint32_t pair =
      static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16 | static_cast<uint16_t>(a);
  return hn::BitCast(d16, hn::Set(d32, static_cast<int32_t>(pair)));
}

// x[2i] * c[2i] + x[2i + 1] * c[2i + 1] in 32-bit lanes.
template <class D32, class V16> HWY_INLINE hn::Vec<D32> MulPairs(D32 d32, V16 x, V16 c) {
  auto odd = hn::Zero(d32);
  const auto even = hn::ReorderWidenMulAccumulate(d32, x, c, hn::Zero(d32), odd);
  return hn::RearrangeToOddPlusEven(even, odd);
}

// 8 x 8 transposition within each 128-bit block.
template <class D16> HWY_INLINE void Transpose8x8(D16 d16, hn::Vec<D16>* x) {
  const hn::Repartition<int32_t, D16> d32;
  const hn::Repartition<int64_t, D16> d64;
  hn::Vec<D16> t[8];
  Repeat<4>([&](auto i) HWY_ATTR {
    t[2 * i] = hn::InterleaveLower(d16, x[2 * i], x[2 * i + 1]);
    t[2 * i + 1] = hn::InterleaveUpper(d16, x[2 * i], x[2 * i + 1]);
  });
  hn::Vec<decltype(d32)> u[8];
  Repeat<2>([&](auto half) HWY_ATTR {
    constexpr int h = 4 * half;
    u[h + 0] = hn::InterleaveLower(d32, hn::BitCast(d32, t[h]), hn::BitCast(d32, t[h + 2]));
    u[h + 1] = hn::InterleaveUpper(d32, hn::BitCast(d32, t[h]), hn::BitCast(d32, t[h + 2]));
    u[h + 2] = hn::InterleaveLower(d32, hn::BitCast(d32, t[h + 1]), hn::BitCast(d32, t[h + 3]));
    u[h + 3] = hn::InterleaveUpper(d32, hn::BitCast(d32, t[h + 1]), hn::BitCast(d32, t[h + 3]));
  });
  Repeat<4>([&](auto i) HWY_ATTR {
    x[2 * i] = hn::BitCast(
        d16, hn::InterleaveLower(d64, hn::BitCast(d64, u[i]), hn::BitCast(d64, u[i + 4])));
    x[2 * i + 1] = hn::BitCast(
        d16, hn::InterleaveUpper(d64, hn::BitCast(d64, u[i]), hn::BitCast(d64, u[i + 4])));
  });
}

} // namespace NmDCT
} // namespace HWY_NAMESPACE
} // namespace NmPrimitives
HWY_AFTER_NAMESPACE();
#endif

#endif
