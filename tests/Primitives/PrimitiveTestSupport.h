#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <type_traits>
#include <vector>

#include "support/KernelTestSupport.h"

namespace NmPrimitiveTest {

// A plane with a random stride gap, filled with noise, gaps included: a kernel
// that writes past a row's end shows up as a difference in the gap.
struct SmTestPlane {
  SmTestPlane(std::mt19937& random, size_t rowBytes, size_t rows, size_t maximumGap = 40)
      : stride(rowBytes + random() % (maximumGap + 1)), height(rows), bytes(stride * rows + 1) {
    for (uint8_t& b : bytes) {
      b = static_cast<uint8_t>(random());
    }
  }
  uint8_t* data() { return bytes.data(); }
  const uint8_t* data() const { return bytes.data(); }
  bool operator==(const SmTestPlane&) const = default;
  friend void PrintTo(const SmTestPlane& plane, std::ostream* out) {
    *out << ::testing::PrintToString(plane.bytes);
  }
  size_t stride;
  size_t height;
  std::vector<uint8_t> bytes;
};

// Lets `call(function, outputs)` write into two copies of the outputs (a
// plane, or any comparable set of them), once with the reference and once
// with the kernel, and expects the same bytes in both, gaps included, and the
// same result when the call gives one.
template <typename Function, typename Outputs, typename Call>
void ExpectSameWrites(Function reference, Function kernel, const Outputs& outputs, Call&& call,
                      const char* what) {
  Outputs expected = outputs;
  Outputs actual = outputs;
  if constexpr (std::is_void_v<decltype(call(reference, expected))>) {
    call(reference, expected);
    call(kernel, actual);
  } else {
    const auto expectedResult = call(reference, expected);
    EXPECT_EQ(call(kernel, actual), expectedResult) << what;
  }
  EXPECT_EQ(actual, expected) << what;
}

// Runs `call(plane)` on a copy of `source`, for a kernel that works in place,
// and expects the first `rowBytes` of every row to be those of `outOfPlace`.
template <typename Call>
void ExpectSameInPlace(const SmTestPlane& source, const SmTestPlane& outOfPlace, size_t rowBytes,
                       Call&& call, const char* what) {
  SmTestPlane inPlace = source;
  call(inPlace);
  for (size_t y = 0; y < source.height; ++y) {
    EXPECT_TRUE(std::equal(inPlace.data() + y * inPlace.stride,
                           inPlace.data() + y * inPlace.stride + rowBytes,
                           outOfPlace.data() + y * outOfPlace.stride))
        << what << ", row " << y;
  }
}

} // namespace NmPrimitiveTest
