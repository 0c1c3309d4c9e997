#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
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
  size_t stride;
  size_t height;
  std::vector<uint8_t> bytes;
};

// Lets `call(function, plane)` write into two copies of one noisy plane, once
// with the reference and once with the kernel, and expects the same bytes in
// both, gaps included.
template <typename Function, typename Call>
void ExpectSameWrites(Function reference, Function kernel, const SmTestPlane& destination,
                      Call&& call, const char* what) {
  SmTestPlane expected = destination;
  SmTestPlane actual = destination;
  call(reference, expected);
  call(kernel, actual);
  EXPECT_EQ(actual.bytes, expected.bytes) << what;
}

} // namespace NmPrimitiveTest
