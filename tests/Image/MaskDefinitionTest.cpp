#include <gtest/gtest.h>

#include <cfenv>
#include <string>

#include "Image/ImageFixtures.h"
#include "MediaProcessing/Image/MaskRepository.h"

using namespace NmMediaProcessing;
using NmImageTest::ExpectError;
using NmImageTest::ExpectRefusals;
using NmImageTest::Sample;
using NmTimeStamp::CmTimeStamp;

namespace {

bool Parses(const std::string& text) {
  uint64_t columns = 7;
  uint64_t rows = 7;
  std::vector<uint8_t> grid(3, 1);
  const bool parsed = ParseMaskGrid(text, columns, rows, grid);
  if (!parsed) {
    // A refused text leaves nothing half-read behind.
    EXPECT_EQ(columns, 0u) << text;
    EXPECT_EQ(rows, 0u) << text;
    EXPECT_TRUE(grid.empty()) << text;
  }
  EXPECT_EQ(ParseMaskString(text) != nullptr, parsed) << text;
  return parsed;
}

std::unique_ptr<ImMaskDefinition> DefinitionOf(const std::string& text) {
  const auto repository = ParseMaskString(text);
  EXPECT_NE(repository, nullptr) << text;
  std::unique_ptr<ImMaskDefinition> mask;
  CmTimeSpan span;
  repository->GetMaskAt(CmTimeStamp::FromMilliseconds(0), false, mask, span);
  return mask;
}

} // namespace

TEST(MaskText, AcceptsExactlyTheGrammarReadsRowByRowAndAllZeroIsNoMask) {
  for (const char* text : {"0x0", "2x1;01", "3x2;010;101", "1x1;0", "10x1;0000000001"}) {
    EXPECT_TRUE(Parses(text)) << text;
  }
  // Zero on one side only, leading zeros, a missing or extra row.
  for (const char* text : {"0x1", "1x0", "1x0;", "00x1;1", "01x1;1", "1x01;1", "1x1", "0x0;",
                           "0x00", "2x1;012", "2x1;01;", "2x1;0", "2x2;01", "2x2;01;10;"}) {
    EXPECT_FALSE(Parses(text)) << text;
  }
  // Separators, case and whitespace are part of the grammar.
  for (const char* text :
       {"", "x", "2", "2x", "2X1;01", "2x1:01", "2x101", "2x1;0 1", " 2x1;01", "2x1;01 ", "2 x1;01",
        "2x1;01\n", "+2x1;01", "-1x1;1", "2x1;0a", "2x1;;0"}) {
    EXPECT_FALSE(Parses(text)) << text;
  }
  EXPECT_FALSE(Parses(std::string("2x1;0\0", 6)));
  // Four digits at most: a fifth ends the number before the "x".
  EXPECT_FALSE(Parses("10000x1;" + std::string(10000, '1')));
  EXPECT_FALSE(Parses("1x10000" + std::string(10000, ';') + std::string(10000, '1')));
  std::string wide = "9999x1;" + std::string(9999, '0');
  wide.back() = '1';
  EXPECT_TRUE(Parses(wide));
  std::string tall = "1x9999";
  for (int r = 0; r < 9999; ++r) {
    tall += r == 4321 ? ";1" : ";0";
  }
  EXPECT_TRUE(Parses(tall));
  tall.pop_back();
  EXPECT_FALSE(Parses(tall));

  uint64_t columns = 0;
  uint64_t rows = 0;
  std::vector<uint8_t> grid;
  ASSERT_TRUE(ParseMaskGrid("3x2;010;100", columns, rows, grid));
  EXPECT_EQ(rows, 2u);
  EXPECT_EQ(grid, (std::vector<uint8_t>{0, 1, 0, 1, 0, 0}));

  const auto zeros = DefinitionOf("3x2;000;000");
  EXPECT_TRUE(zeros->IsEmpty());
  EXPECT_TRUE(zeros->IsEqual(CmAllEmptyMaskDefinition()));
  EXPECT_FALSE(DefinitionOf("3x2;000;001")->IsEmpty());
}

TEST(MaskDefinition, ArgumentChecksInOrderAndEquality) {
  const CmGridBasedMaskDefinition a(2, 1, {0, 1});
  EXPECT_TRUE(a.IsEqual(CmGridBasedMaskDefinition(2, 1, {0, 1})));
  EXPECT_FALSE(a.IsEqual(CmGridBasedMaskDefinition(2, 1, {1, 0})));
  EXPECT_FALSE(a.IsEqual(CmGridBasedMaskDefinition(1, 2, {0, 1})));
  EXPECT_TRUE(a.Clone()->IsEqual(a));
  EXPECT_TRUE(CmGridBasedMaskDefinition(0, 0, {}).IsEmpty());
  EXPECT_FALSE(CmGridBasedMaskDefinition(10000, 1, std::vector<uint8_t>(10000, 1)).IsEmpty());

  const auto grid = [](uint64_t columns, uint64_t rows, std::vector<uint8_t> cells) {
    return [=] { CmGridBasedMaskDefinition(columns, rows, cells); };
  };
  const std::string zero = "Invalid mask grid dimensions (columns/rows = 0)";
  const std::string large = "Invalid mask grid dimensions (larger than allowed maximum)";
  const std::string outside = "Invalid mask positions (column/row outside of dimensions)";
  const std::string identical = "Invalid mask indications values (must not be identical)";
  const std::string base = "NmMediaProcessing::CmMaskDefinitionBase::";
  CmImage image;
  ExpectRefusals({
      {grid(0, 0, {1}), zero + " for non-empty grid vector", 3,
       "NmMediaProcessing::CmGridBasedMaskDefinition::CmGridBasedMaskDefinition"},
      {grid(0, 1, {1}), zero, 3},
      {grid(1, 0, {}), zero, 3},
      {grid(10001, 1, std::vector<uint8_t>(10001, 1)), large, 3},
      {grid(1, 10001, {}), large, 3},
      {grid(2, 2, {1, 1, 1}), "Mask grid dimensions do not match the grid vector size", 3},
      {grid(2, 2, {1, 1, 1, 1, 1}), "Mask grid dimensions do not match the grid vector size", 3},
      {[&] { a.IsMaskedAtPosition(0, 1, 0, 0); },
       "Invalid mask position dimensions (width/height = 0)", 3, base + "IsMaskedAtPosition"},
      {[&] { a.IsMaskedAtPosition(4, 4, 4, 0); }, outside, 3, base + "IsMaskedAtPosition"},
      {[&] { a.IsMaskedAtPosition(4, 4, 0, 4); }, outside, 3},
      // Argument checks hold for an empty mask too.
      {[] { CmAllEmptyMaskDefinition().IsMaskedAtPosition(2, 2, 2, 0); }, outside, 3},
      {[&] { a.CreateMaskImage(0, 4, image); }, "Invalid mask image dimensions (width/height = 0)",
       3, base + "CreateMaskImage"},
      {[&] { a.CreateMaskImage(4, 4, 9, 9, image); }, identical, 3, base + "CreateMaskImage"},
      {[&] { CmAllEmptyMaskDefinition().CreateMaskImage(4, 4, 9, 9, image); }, identical, 3},
  });
  CmAllEmptyMaskDefinition().CreateInverseMaskImage(3, 2, image);
  EXPECT_EQ(image.GetAttributes().subColorFormat, SubColorFormatPlainGray);
  EXPECT_EQ(Sample(image, 0, 2, 1), 255);
}

TEST(MaskCells, StartsPixelsAndMaskImagesAgreeAtEveryEdgeAndSize) {
  EXPECT_EQ((std::vector<uint64_t>{CellStart(100, 3, 0), CellStart(100, 3, 1), CellStart(100, 3, 2),
                                   CellStart(100, 3, 3)}),
            (std::vector<uint64_t>{0, 33, 67, 100}));
  EXPECT_EQ(CellStart(100, 0, 1), 0u);
  // Each pixel lies in the cell whose start is the last one not after it.
  for (uint64_t pixels : {1u, 2u, 3u, 7u, 10u, 33u, 100u, 101u, 352u, 720u, 1081u}) {
    for (uint64_t cells = 1; cells <= pixels && cells <= 97; ++cells) {
      for (uint64_t x = 0; x < pixels; ++x) {
        const uint64_t cell = CellOfPixel(pixels, cells, x);
        ASSERT_LT(cell, cells);
        ASSERT_LE(CellStart(pixels, cells, cell), x) << pixels << " " << cells << " " << x;
        ASSERT_GT(cell + 1 == cells ? pixels : CellStart(pixels, cells, cell + 1), x)
            << pixels << " " << cells << " " << x;
      }
    }
  }
  // The caller's rounding mode does not move an edge, and is given back.
  std::fesetround(FE_UPWARD);
  EXPECT_EQ(CellStart(100, 3, 1), 33u);
  EXPECT_EQ(CellOfPixel(100, 3, 33), 1u);
  EXPECT_EQ(std::fegetround(), FE_UPWARD);
  std::fesetround(FE_TONEAREST);

  const auto mask = DefinitionOf("5x3;10010;01001;00110");
  // Larger, equal and smaller than the grid, odd sizes included.
  for (uint64_t width : {1u, 2u, 4u, 5u, 7u, 31u, 64u}) {
    for (uint64_t height : {1u, 2u, 3u, 5u, 17u}) {
      CmImage image;
      mask->CreateMaskImage(width, height, 200, 7, image);
      ASSERT_EQ(image.GetWidth(), width);
      for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
          const bool masked = mask->IsMaskedAtPosition(width, height, x, y);
          ASSERT_EQ(Sample(image, 0, x, y), masked ? 200 : 7) << width << "x" << height;
          if (width >= 5 && height >= 3) {
            const uint64_t cell = 5 * CellOfPixel(height, 3, y) + CellOfPixel(width, 5, x);
            const char grid[] = "100100100100110";
            ASSERT_EQ(masked, grid[cell] == '1');
          }
        }
      }
    }
  }
  // A picture smaller than the grid lets no masked cell slip through.
  const auto corner = DefinitionOf("2x2;00;01");
  EXPECT_TRUE(corner->IsMaskedAtPosition(1, 1, 0, 0));
  const auto thin = DefinitionOf("9x1;000000010");
  EXPECT_TRUE(thin->IsMaskedAtPosition(2, 1, 1, 0));
  EXPECT_FALSE(thin->IsMaskedAtPosition(2, 1, 0, 0));
}

TEST(MaskRepository, SingularHoldsForAllTimeAndReportsChanges) {
  CmSingularMaskRepository repository;
  EXPECT_TRUE(repository.IsEmpty());
  std::unique_ptr<ImMaskDefinition> mask;
  CmTimeSpan span;
  const CmTimeStamp t = CmTimeStamp::FromMilliseconds(1234);
  // Nothing held: null mask for the instant, reported once.
  EXPECT_TRUE(repository.GetMaskAt(t, false, mask, span));
  EXPECT_EQ(span, (CmTimeSpan{t, t}));
  EXPECT_FALSE(repository.GetMaskAt(t, false, mask, span));
  // With the empty default: an empty definition for all time, reported once.
  EXPECT_TRUE(repository.GetMaskAt(t, true, mask, span));
  ASSERT_NE(mask, nullptr);
  EXPECT_TRUE(mask->IsEmpty());
  EXPECT_EQ(span, CmTimeSpan::AllTime());
  EXPECT_FALSE(repository.GetMaskAt(t, true, mask, span));

  const CmGridBasedMaskDefinition grid(2, 1, {1, 0});
  repository.Add(grid, CmTimeSpan{t, t});
  EXPECT_FALSE(repository.IsEmpty());
  EXPECT_TRUE(repository.GetMaskAt(t, false, mask, span));
  EXPECT_TRUE(mask->IsEqual(grid));
  EXPECT_EQ(span, CmTimeSpan::AllTime());
  EXPECT_FALSE(repository.GetMaskAt(CmTimeStamp::FromMilliseconds(-5), false, mask, span));
  // The repository keeps its own copy, and a clone is independent.
  const auto clone = repository.Clone();
  repository.Add(CmGridBasedMaskDefinition(2, 1, {0, 1}), CmTimeSpan::AllTime());
  EXPECT_TRUE(repository.GetMaskAt(t, false, mask, span));
  EXPECT_FALSE(mask->IsEqual(grid));
  EXPECT_TRUE(clone->GetMaskAt(t, false, mask, span));
  EXPECT_TRUE(mask->IsEqual(grid));

  const std::string add = "NmMediaProcessing::CmMaskRepositoryBase::Add";
  const CmTimeSpan backwards{CmTimeStamp::FromMilliseconds(2), CmTimeStamp::FromMilliseconds(1)};
  ExpectError([&] { repository.Add(grid, backwards); },
              "Invalid time span given (end before start)", 3, add);
  ExpectError([&] { repository.Remove(backwards); }, "Invalid time span given (end before start)",
              3, "NmMediaProcessing::CmMaskRepositoryBase::Remove");
  repository.Remove(CmTimeSpan{t, t});
  EXPECT_TRUE(repository.IsEmpty());
  clone->Clear();
  EXPECT_TRUE(clone->IsEmpty());
}
