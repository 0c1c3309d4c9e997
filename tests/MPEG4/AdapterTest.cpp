// The MPEG-4 and H.263 decoders of the toolkits: the MCL adapter over the
// engines, with its repeat protocol, rebuilds and resets.

#include <gtest/gtest.h>

#include "MPEG4/ClipSupport.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/H263/VideoDecoderH263.h"
#include "MediaProcessing/Video/MPEG4/VideoDecoderMPEG4.h"

using namespace NmMPEG4Test;
using namespace NmMediaProcessing;
using NmTestSupport::CmTempDirectory;

namespace {

// Records with B pictures (MPEG-4) and without (H.263), fed through the
// repeat protocol and flushed, give ffmpeg's pictures in display order, the
// H.263 ones each with the id of its own record. A change of luminance only
// rebuilds the decoder, which shows nothing until the next intra picture and
// then grey pictures. How the engines recover from damage is proven on the
// engines themselves.
TEST(MPEG4Adapter, PicturesRebuildsAndResets) {
  CmTempDirectory dir;
  const std::string h263 = MakeClip(dir, "clip.avi", 176, 144, 6, "-c:v h263 -g 3 -q:v 6");
  const std::string path = MakeClip(dir, "xvid.avi", 96, 64, 20,
                                    "-c:v libxvid -bf 2 -flags +qpel+cgop -gmc 1 -g 9 -q:v 5");
  ASSERT_FALSE(path.empty() || h263.empty());
  const SmClip clip = Demux(path);
  const auto reference = ReferencePictures(dir, path, 96, 64);
  ASSERT_GE(reference.size(), 19u);

  CmVideoDecoderMPEG4 decoder;
  CmVideoDecoderH263 h263Decoder;
  for (const bool mpeg4 : {true, false}) {
    const SmClip& c = mpeg4 ? clip : Demux(h263);
    const auto expected = mpeg4 ? reference : ReferencePictures(dir, h263, 176, 144);
    ImVideoDecoder& d = mpeg4 ? static_cast<ImVideoDecoder&>(decoder) : h263Decoder;
    std::vector<SmDecoded> pictures;
    for (size_t i = 0; i < c.pictures.size(); ++i) {
      EXPECT_TRUE(Feed(d, &c.pictures[i], static_cast<int32_t>(i), pictures)) << i;
    }
    Feed(d, nullptr, -1, pictures);
    ASSERT_EQ(pictures.size(), expected.size());
    for (size_t f = 0; f < pictures.size(); ++f) {
      EXPECT_EQ(pictures[f].format, YCbCr420_Planar);
      EXPECT_TRUE(mpeg4 || pictures[f].id == static_cast<int32_t>(f)) << f;
      EXPECT_TRUE(pictures[f].samples == expected[f]) << "picture " << f;
    }
  }

  // Luminance only from the second record on: the decoder is made again.
  const auto secondIntra = static_cast<size_t>(
      std::find(clip.intra.begin() + 1, clip.intra.end(), true) - clip.intra.begin());
  decoder.Reset();
  std::vector<SmDecoded> grey;
  Feed(decoder, &clip.pictures[0], 0, grey);
  SmVideoDecodeParameters parameters = decoder.GetParameters();
  parameters.m_LuminanceOnly = true;
  decoder.SetParameters(parameters);
  grey.clear();
  for (size_t i = 1; i < secondIntra; ++i) {
    Feed(decoder, &clip.pictures[i], static_cast<int32_t>(i), grey);
  }
  EXPECT_TRUE(grey.empty()) << "a rebuilt decoder showed a picture with no intra picture before it";
  for (size_t i = secondIntra; i < clip.pictures.size(); ++i) {
    Feed(decoder, &clip.pictures[i], static_cast<int32_t>(i), grey);
  }
  Feed(decoder, nullptr, -1, grey);
  ASSERT_FALSE(grey.empty());
  const size_t lumaSize = 96 * 64;
  for (const SmDecoded& picture : grey) {
    EXPECT_EQ(picture.format, Gray);
    ASSERT_EQ(picture.samples.size(), lumaSize);
    const bool known = std::any_of(reference.begin(), reference.end(), [&](const auto& full) {
      return std::equal(picture.samples.begin(), picture.samples.end(), full.begin());
    });
    EXPECT_TRUE(known) << "grey picture of record " << picture.id;
  }
}

} // namespace
