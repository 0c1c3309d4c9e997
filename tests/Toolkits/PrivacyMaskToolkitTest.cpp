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

struct SmMaskCount {
  size_t masked = 0;
  size_t kept = 0;
};

// A YCbCr picture masked in black: every chroma sample and the luma pixels it
// covers are either all masked or all as they were, so that no colour of a
// masked pixel lives on in a neighbour's chroma. Counts chroma samples.
SmMaskCount ExpectWholeChromaSamples(const ImImage& image, const SmPicture& source) {
  SmMaskCount count;
  const uint32_t sx = image.GetColorFormat() == 7 ? 1 : 2;
  const uint32_t sy = image.GetColorFormat() == 5 ? 2 : 1;
  for (uint32_t cy = 0; cy < image.GetPlaneHeight(1); ++cy) {
    for (uint32_t cx = 0; cx < image.GetPlaneWidth(1); ++cx) {
      bool lumaKept = true;
      bool lumaMasked = true;
      for (uint32_t y = cy * sy; y < std::min(cy * sy + sy, image.GetHeight()); ++y) {
        for (uint32_t x = cx * sx; x < std::min(cx * sx + sx, image.GetWidth()); ++x) {
          lumaKept &= Byte(image, 0, x, y) == PatternByte(source.seed, 0, x, y);
          lumaMasked &= Byte(image, 0, x, y) == VideoBlack;
        }
      }
      const bool kept = lumaKept && Byte(image, 1, cx, cy) == PatternByte(source.seed, 1, cx, cy) &&
                        Byte(image, 2, cx, cy) == PatternByte(source.seed, 2, cx, cy);
      const bool masked =
          lumaMasked && Byte(image, 1, cx, cy) == NoColour && Byte(image, 2, cx, cy) == NoColour;
      EXPECT_TRUE(kept || masked) << "chroma sample " << cx << "," << cy;
      count.masked += masked && !kept;
      count.kept += kept;
    }
  }
  return count;
}

TEST(PrivacyMaskToolkit, FixedMaskCoversWholeChromaSamplesInEveryLayout) {
  for (uint32_t format : {5u, 6u, 7u}) {
    for (const auto& [width, height] :
         std::vector<std::pair<uint32_t, uint32_t>>{{16, 8}, {7, 5}, {9, 3}, {1, 1}, {33, 17}}) {
      for (const std::string mask :
           {"2x1;10", "3x2;110;001", "5x5;10000;00000;00100;00000;00001"}) {
        SCOPED_TRACE(std::to_string(format) + " " + std::to_string(width) + "x" +
                     std::to_string(height) + " " + mask);
        const SmPicture picture{format, width, height, 1000, width + height, 3};
        CmTransformChain chain("apply_privacy_mask mask='" + mask + "'", {picture});
        const auto item = chain.Fetch();
        ASSERT_EQ(Size(item), std::to_string(width) + "x" + std::to_string(height));
        const SmMaskCount count = ExpectWholeChromaSamples(AsImage(item), picture);
        EXPECT_GT(count.masked, 0u) << "the first cell is masked on any picture";
        // The top-left pixel lies in a masked cell of every mask here.
        EXPECT_EQ(Byte(AsImage(item), 0, 0, 0), VideoBlack);
        if (width >= 7) {
          EXPECT_GT(count.kept, 0u);
        }
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
      ExpectWholeChromaSamples(AsImage(item), picture);
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
