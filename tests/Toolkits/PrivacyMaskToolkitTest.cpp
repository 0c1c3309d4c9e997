#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Common/Xerces/Xerces.h"
#include "PicturePattern.h"
#include "Toolkits/TransformTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/ApplyPrivacyMask.h"

using namespace NmToolkit;
using namespace NmToolkitTest;
using NmTestPictures::PatternByte;

namespace {

constexpr uint8_t VideoBlack = 16;

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
    // The root answers from the request alone; the toolkit's own answer is
    // what a caller that holds it directly sees.
    const auto document = NmXerces::CmXmlWrapper::LoadXml(
        "<apply_privacy_mask>" + PicturesToolkit(pictures) + "</apply_privacy_mask>");
    CmApplyPrivacyMask toolkit(document->GetDocumentElement());
    CmPropertyNameSet supported;
    toolkit.Connect(requested, supported, 0);
    EXPECT_EQ(supported, requested) << "the toolkit fetches the mask for itself";
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
