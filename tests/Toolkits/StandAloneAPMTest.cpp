#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/ColorMaskingOverlay.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/StandAloneAPM.h"
#include "support/ImageTestSupport.h"

using namespace NmMediaProcessing;
using NmImageTest::FillRandom;
using NmImageTest::Sample;
using NmToolkit::CmStandAloneAPM;

namespace {

CmImage Picture(ColorFormat format, SubColorFormat sub, uint32_t seed) {
  CmImage image;
  image.Allocate(8, 4, format);
  FillRandom(image, seed);
  image.GetAttributes().subColorFormat = sub;
  return image;
}

// Columns from `first` up to `end` carry maskedLuma, every other pixel is
// as it was.
void ExpectMaskedColumns(const CmImage& image, const CmImage& original, uint64_t first,
                         uint64_t end, uint8_t maskedLuma) {
  for (uint64_t y = 0; y < 4; ++y) {
    for (uint64_t x = 0; x < 8; ++x) {
      const bool masked = x >= first && x < end;
      ASSERT_EQ(Sample(image, 0, x, y), masked ? maskedLuma : Sample(original, 0, x, y))
          << x << "," << y;
    }
  }
}

TEST(StandAloneAPM, FollowsTheMaskTextAndRebuildsOnlyOnChange) {
  CmStandAloneAPM apm;
  EXPECT_FALSE(apm.HasOverlay());
  CmImage image = Picture(Gray, SubColorFormatVideoRange, 1);
  const CmImage original = Picture(Gray, SubColorFormatVideoRange, 1);
  apm.Apply(image);
  ExpectMaskedColumns(image, original, 0, 0, 0); // no mask, no change

  apm.SetMask("2x1;10");
  ASSERT_TRUE(apm.HasOverlay());
  // A copy that shares the planes keeps its pixels: painting writes into a
  // picture of its own.
  const CmImage shared(image);
  apm.Apply(image);
  ExpectMaskedColumns(image, original, 0, 4, 16); // black in video range
  ExpectMaskedColumns(shared, original, 0, 0, 0);

  const auto* overlay = apm.GetOverlay();
  apm.SetMask("2x1;10");
  EXPECT_EQ(apm.GetOverlay(), overlay) << "the same text keeps the overlay and its cached masks";
  apm.SetMask("2x1;01");
  CmImage second = Picture(Gray, SubColorFormatPlainGray, 2);
  const CmImage secondOriginal = Picture(Gray, SubColorFormatPlainGray, 2);
  apm.Apply(second);
  ExpectMaskedColumns(second, secondOriginal, 4, 8, 0); // black in plain grey

  apm.SetMask("");
  EXPECT_FALSE(apm.HasOverlay());
}

TEST(StandAloneAPM, AnUnreadableMaskRefusesPicturesUntilAGoodOneArrives) {
  std::unique_ptr<ImImageTransformation> slot;
  CmStandAloneAPM apm(slot, 255, 255, 255);
  for (const std::string& bad :
       std::vector<std::string>{"2x1;012", "1x1", "00x1;1", "garbage", std::string(200, '1')}) {
    SCOPED_TRACE(bad.substr(0, 20));
    apm.SetMask(bad);
    ASSERT_NE(slot, nullptr) << "a bad text must not leave the picture unmasked";
    EXPECT_EQ(apm.GetMaskDefinition(), nullptr);
    CmImage image = Picture(RGB24, NotApplicable, 4);
    try {
      apm.Apply(image);
      ADD_FAILURE() << "an unreadable mask must refuse the picture";
    } catch (const NmError::CmError& error) {
      EXPECT_NE(error.GetDescription().find("Privacy mask is not readable"), std::string::npos);
      EXPECT_LE(error.GetDescription().size(), 120u) << "long texts are cut short";
    }
    EXPECT_FALSE(image.IsValid()) << "nothing of the picture is left to leak";
    // The owner's own use of the slot behaves the same.
    CmImage target = Picture(RGB24, NotApplicable, 4);
    EXPECT_THROW(slot->Execute(Picture(RGB24, NotApplicable, 4), target), NmError::CmError);
    EXPECT_FALSE(target.IsValid());
  }
  apm.SetMask("1x1;1");
  ASSERT_NE(dynamic_cast<CmColorMaskingOverlay*>(slot.get()), nullptr);
  CmImage image = Picture(RGB24, NotApplicable, 5);
  slot->Execute(image);
  EXPECT_EQ(Sample(image, 0, 3, 2, 0), 255);
  EXPECT_EQ(Sample(image, 0, 3, 2, 1), 255);
  apm.SetMask("");
  EXPECT_EQ(slot, nullptr) << "no text, no transformation in the owner's slot";
}

} // namespace
