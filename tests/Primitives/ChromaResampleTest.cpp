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

TEST(ChromaResampleReference, RoundsHalfUpAndKeepsAnOddLastRow) {
  // Round trips and the separation of fields are proven with the images.
  const uint8_t rows[3] = {1, 2, 77};
  uint8_t out[2];
  NmReference::Chroma422To420(rows, 1, out, 1, 1, 3);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 2), (std::vector<uint8_t>{2, 77}));
  const uint8_t row[5] = {1, 2, 3, 4, 5};
  uint8_t half[3];
  NmReference::ChromaHalveColumns(row, 5, half, 3, 3, 1);
  EXPECT_EQ(std::vector<uint8_t>(half, half + 3), (std::vector<uint8_t>{1, 3, 5}));
  uint8_t full[5];
  NmReference::ChromaDoubleColumns(half, 3, full, 5, 5, 1);
  EXPECT_EQ(std::vector<uint8_t>(full, full + 5), (std::vector<uint8_t>{1, 1, 3, 3, 5}));
}
