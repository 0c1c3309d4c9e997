#include <gtest/gtest.h>

#include "Codecs/Primitives/ChromaResample.h"
#include "Primitives/PrimitiveTestSupport.h"

using NmPrimitiveTest::SmTestPlane;
using namespace NmPrimitives;

VZK_TEST_ON_EVERY_TARGET(ChromaResample);

TEST_P(ChromaResample, MatchesTheReference) {
  std::mt19937& random = Random();
  for (int round = 0; round < 60; ++round) {
    const size_t width = 1 + random() % 150;
    const size_t fullHeight = 1 + random() % 14;
    const size_t interleavedHeight = 4 * (1 + random() % 4);
    SCOPED_TRACE(::testing::Message()
                 << width << " wide, " << fullHeight << " / " << interleavedHeight << " rows");
    const size_t half = (width + 1) / 2, fullRows = fullHeight, halfRows = (fullHeight + 1) / 2;
    const size_t fields = interleavedHeight, fieldsHalved = interleavedHeight / 2;
    using SmResample = void (*)(const uint8_t*, size_t, uint8_t*, size_t, size_t, size_t);
    // The column resamplers get sources without gaps: a read past the end
    // of the last row leaves the buffer.
    const struct {
      const char* what;
      SmResample reference, kernel;
      size_t sourceWidth, sourceRows, width, rows, callWidth, callRows, sourceGap;
    } cases[] = {
        {"up", NmReference::Chroma420To422, Chroma420To422, width, halfRows, width, fullRows, width,
         fullRows, 40},
        {"up interleaved", NmReference::Chroma420To422Interleaved, Chroma420To422Interleaved, width,
         fieldsHalved, width, fields, width, fields, 40},
        {"down", NmReference::Chroma422To420, Chroma422To420, width, fullRows, width, halfRows,
         width, fullRows, 40},
        {"down interleaved", NmReference::Chroma422To420Interleaved, Chroma422To420Interleaved,
         width, fields, width, fieldsHalved, width, fields, 40},
        {"halve", NmReference::ChromaHalveColumns, ChromaHalveColumns, width, fullRows, half,
         fullRows, half, fullRows, 0},
        {"double", NmReference::ChromaDoubleColumns, ChromaDoubleColumns, half, fullRows, width,
         fullRows, width, fullRows, 0},
    };
    for (const auto& c : cases) {
      const SmTestPlane source(random, c.sourceWidth, c.sourceRows, c.sourceGap);
      ExpectSameWrites(
          c.reference, c.kernel, SmTestPlane(random, c.width, c.rows),
          [&](SmResample resample, SmTestPlane& out) {
            resample(source.data(), source.stride, out.data(), out.stride, c.callWidth, c.callRows);
          },
          c.what);
    }
  }
}

TEST_P(ChromaResample, RoundTripsAndFieldSeparation) {
  std::mt19937& random = Random();
  for (const bool interleaved : {false, true}) {
    const size_t height = interleaved ? 12 : 11;
    const size_t width = 9;
    SmTestPlane chroma420(random, width, interleaved ? height / 2 : (height + 1) / 2, 0);
    SmTestPlane chroma422(random, width, height, 0);
    SmTestPlane back(random, width, chroma420.height, 0);
    if (interleaved) {
      Chroma420To422Interleaved(chroma420.data(), width, chroma422.data(), width, width, height);
      Chroma422To420Interleaved(chroma422.data(), width, back.data(), width, width, height);
    } else {
      Chroma420To422(chroma420.data(), width, chroma422.data(), width, width, height);
      Chroma422To420(chroma422.data(), width, back.data(), width, width, height);
    }
    EXPECT_TRUE(std::equal(back.bytes.begin(), back.bytes.end() - 1, chroma420.bytes.begin()))
        << interleaved;
  }
  // A top field of 0 and a bottom field of 200 never mix in the interleaved forms.
  uint8_t fields[8];
  for (int r = 0; r < 8; ++r) {
    fields[r] = r % 2 ? 200 : 0;
  }
  uint8_t halved[4];
  Chroma422To420Interleaved(fields, 1, halved, 1, 1, 8);
  EXPECT_EQ(std::vector<uint8_t>(halved, halved + 4), (std::vector<uint8_t>{0, 200, 0, 200}));
  uint8_t doubled[8];
  Chroma420To422Interleaved(halved, 1, doubled, 1, 1, 8);
  EXPECT_EQ(std::vector<uint8_t>(doubled, doubled + 8), std::vector<uint8_t>(fields, fields + 8));
  // Rounding is half up, and an odd last row stands alone.
  const uint8_t rows[3] = {1, 2, 77};
  uint8_t out[2];
  NmReference::Chroma422To420(rows, 1, out, 1, 1, 3);
  EXPECT_EQ(out[0], 2);
  EXPECT_EQ(out[1], 77);
  const uint8_t row[5] = {1, 2, 3, 4, 5};
  uint8_t half[3];
  NmReference::ChromaHalveColumns(row, 5, half, 3, 3, 1);
  EXPECT_EQ(std::vector<uint8_t>(half, half + 3), (std::vector<uint8_t>{1, 3, 5}));
  uint8_t full[5];
  NmReference::ChromaDoubleColumns(half, 3, full, 5, 5, 1);
  EXPECT_EQ(std::vector<uint8_t>(full, full + 5), (std::vector<uint8_t>{1, 1, 3, 3, 5}));
}
