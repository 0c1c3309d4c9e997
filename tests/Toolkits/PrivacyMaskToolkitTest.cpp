#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PicturePattern.h"
#include "Toolkits/TransformTestSupport.h"

using namespace NmToolkit;
using namespace NmToolkitTest;
using NmTestPictures::PatternByte;

namespace {

constexpr uint8_t VideoBlack = 16;
constexpr uint8_t NoColour = 128;

// A fixed mask blackens its cells in the picture's own layout and range.
// That a mask covers whole chroma samples, at odd sizes too, is the
// overlay's to prove.
TEST(PrivacyMaskToolkit, FixedMaskBlackensItsCellsInEveryLayout) {
  for (uint32_t format : {5u, 6u, 7u}) {
    for (const auto& [width, height] :
         std::vector<std::pair<uint32_t, uint32_t>>{{16, 8}, {7, 5}, {1, 1}}) {
      SCOPED_TRACE(std::to_string(format) + " " + std::to_string(width) + "x" +
                   std::to_string(height));
      const SmPicture picture{format, width, height, 1000, width + height, 3};
      CmTransformChain chain("apply_privacy_mask mask='2x1;10'", {picture});
      const auto item = chain.Fetch();
      ASSERT_EQ(Size(item), std::to_string(width) + "x" + std::to_string(height));
      EXPECT_EQ(Byte(AsImage(item), 0, 0, height - 1), VideoBlack);
      EXPECT_EQ(Byte(AsImage(item), 1, 0, 0), NoColour);
      EXPECT_EQ(Byte(AsImage(item), 2, 0, 0), NoColour);
      if (width > 1) {
        const uint32_t x = width - 1, y = height - 1;
        EXPECT_EQ(Byte(AsImage(item), 0, x, y), PatternByte(picture.seed, 0, x, y));
      }
    }
  }
  // Packed pictures take black as it is.
  CmTransformChain chain("apply_privacy_mask mask='2x1;01'", {{2, 8, 2, 1000, 1, 1}});
  const auto item = chain.Fetch();
  for (uint32_t x = 0; x < 8 * 3; ++x) {
    EXPECT_EQ(Byte(AsImage(item), 0, x, 1), x < 12 ? PatternByte(1, 0, x, 1) : 0) << x;
  }
}

TEST(PrivacyMaskToolkit, MasksFollowTheItemsWhenNoneIsFixed) {
  const SmPicture base{5, 8, 4, 1000, 1};
  auto at = [&](int64_t time, uint32_t seed) {
    SmPicture picture = base;
    picture.time = time;
    picture.seed = seed;
    return picture;
  };
  const std::vector<SmPicture> pictures = {WithMask(at(1000, 1), "2x1;10"),
                                           WithMask(at(1040, 2), "2x1;01"),
                                           at(1080, 3),
                                           WithMask(at(1120, 4), "2x1;1x"),
                                           WithMask(at(1160, 5), ""),
                                           WithMask(at(1200, 6), "2x1;01")};
  for (const bool hostWantsMask : {false, true}) {
    SCOPED_TRACE(hostWantsMask ? "mask requested" : "mask not requested");
    const CmPropertyNameSet requested = hostWantsMask
                                            ? CmPropertyNameSet{"Privacy_Mask", "Sequence_Number"}
                                            : CmPropertyNameSet{"Sequence_Number"};
    CmTransformChain chain("apply_privacy_mask", pictures, requested);
    EXPECT_EQ(chain.Supported().count("Privacy_Mask"), hostWantsMask ? 1u : 0u)
        << "the toolkit fetches the mask for itself";
    const auto expectMask = [&](const std::unique_ptr<ImData>& item, const SmPicture& picture,
                                bool left, bool right) {
      ASSERT_EQ(Size(item), "8x4");
      EXPECT_EQ(Byte(AsImage(item), 0, 0, 0) == VideoBlack,
                left || PatternByte(picture.seed, 0, 0, 0) == VideoBlack);
      EXPECT_EQ(Byte(AsImage(item), 0, 7, 3) == VideoBlack,
                right || PatternByte(picture.seed, 0, 7, 3) == VideoBlack);
      EXPECT_EQ(StringProperty(*item, "Privacy_Mask"),
                hostWantsMask && picture.hasMask ? picture.mask : "absent");
    };
    expectMask(chain.Fetch(), pictures[0], true, false);
    expectMask(chain.Fetch(false), pictures[1], false, true);
    expectMask(chain.Fetch(false), pictures[2], false, false);
    // A mask nobody can read hides the whole picture.
    auto item = chain.Fetch(false);
    EXPECT_EQ(Size(item), "0x0");
    EXPECT_EQ(item->GetBeginTime(), 1120);
    EXPECT_EQ(StringProperty(*item, "Sequence_Number"), "4");
    expectMask(chain.Fetch(false), pictures[4], false, false);
    expectMask(chain.Fetch(false), pictures[5], false, true);
  }
}

TEST(PrivacyMaskToolkit, AFixedMaskBeatsTheItemsAndFollowsItsUpdateKey) {
  const SmPicture picture = WithMask({0, 8, 4, 1000, 1}, "2x1;10");
  const std::vector<SmPicture> pictures(3, picture);
  CmTransformChain chain("apply_privacy_mask mask='2x1;01' mask_update_key='m'", pictures,
                         {"Privacy_Mask"});
  auto item = chain.Fetch();
  EXPECT_EQ(Byte(AsImage(item), 0, 0, 0), PatternByte(1, 0, 0, 0));
  EXPECT_EQ(Byte(AsImage(item), 0, 7, 0), VideoBlack);
  EXPECT_EQ(StringProperty(*item, "Privacy_Mask"), "2x1;10") << "passed on as asked for";

  chain.Root().UpdateValue("m", "1x2;1;0");
  item = chain.Fetch(false);
  EXPECT_EQ(Byte(AsImage(item), 0, 7, 0), VideoBlack);
  EXPECT_EQ(Byte(AsImage(item), 0, 7, 3), PatternByte(1, 0, 7, 3));

  chain.Root().UpdateValue("m", "");
  item = chain.Fetch(false);
  EXPECT_EQ(ChangedBytes(AsImage(item), picture), 0u) << "an empty fixed mask hides nothing";

  CmTransformChain off("apply_privacy_mask mask='1x1;1' enable='false'", {picture});
  EXPECT_EQ(ChangedBytes(AsImage(off.Fetch()), picture), 0u);
}

} // namespace
