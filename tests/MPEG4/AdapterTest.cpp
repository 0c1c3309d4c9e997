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

// Records with B pictures, fed through the repeat protocol and flushed, give
// ffmpeg's pictures in display order. A change of luminance only rebuilds the
// decoder, which shows nothing until the next intra picture and then grey
// pictures; garbage fails its own record and the next intra picture is
// right again.
TEST(MPEG4Adapter, PicturesRebuildsAndResets) {
  CmTempDirectory dir;
  const std::string path = MakeClip(dir, "clip.avi", 96, 64, 20,
                                    "-c:v libxvid -bf 2 -flags +qpel+cgop -gmc 1 -g 9 -q:v 5");
  ASSERT_FALSE(path.empty());
  const SmClip clip = Demux(path);
  const auto reference = ReferencePictures(dir, path, 96, 64);
  ASSERT_GE(reference.size(), 19u);

  CmVideoDecoderMPEG4 decoder;
  std::vector<SmDecoded> pictures;
  for (size_t i = 0; i < clip.pictures.size(); ++i) {
    EXPECT_TRUE(Feed(decoder, &clip.pictures[i], static_cast<int32_t>(i), pictures)) << i;
  }
  Feed(decoder, nullptr, -1, pictures);
  ASSERT_EQ(pictures.size(), reference.size());
  for (size_t f = 0; f < pictures.size(); ++f) {
    EXPECT_EQ(pictures[f].format, YCbCr420_Planar);
    EXPECT_TRUE(pictures[f].samples == reference[f]) << "picture " << f;
  }

  // Luminance only from the second record on: the decoder is made again.
  size_t secondIntra = 1;
  while (!clip.intra[secondIntra]) {
    ++secondIntra;
  }
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

  // Garbage between the records: its own record fails or shows nothing;
  // from the next intra picture the pictures are ffmpeg's.
  CmVideoDecoderMPEG4 damaged;
  std::vector<SmDecoded> after;
  const std::vector<uint8_t> garbage = {0x00, 0x00, 0x01, 0xB6, 0xFF, 0x13, 0x77, 0x00, 0x42, 0x9A};
  Feed(damaged, &clip.pictures[0], 0, after);
  Feed(damaged, &garbage, 100, after);
  after.clear();
  for (size_t i = secondIntra; i < clip.pictures.size(); ++i) {
    Feed(damaged, &clip.pictures[i], static_cast<int32_t>(i), after);
  }
  Feed(damaged, nullptr, -1, after);
  // Pictures held from before the garbage may come first; the last ones are
  // those of the records from the intra picture on.
  const size_t tail = reference.size() - secondIntra;
  ASSERT_GE(after.size(), tail);
  for (size_t k = 0; k < tail; ++k) {
    EXPECT_TRUE(after[after.size() - tail + k].samples == reference[secondIntra + k])
        << "picture " << secondIntra + k << " after the garbage";
  }
}

// H.263 through its adapter: ffmpeg's pictures, each with the id of its own
// record.
TEST(MPEG4Adapter, H263PicturesCarryTheirRecordIds) {
  CmTempDirectory dir;
  const std::string path = MakeClip(dir, "clip.avi", 176, 144, 6, "-c:v h263 -g 3 -q:v 6");
  ASSERT_FALSE(path.empty());
  const SmClip clip = Demux(path);
  const auto reference = ReferencePictures(dir, path, 176, 144);
  CmVideoDecoderH263 decoder;
  std::vector<SmDecoded> pictures;
  for (size_t i = 0; i < clip.pictures.size(); ++i) {
    EXPECT_TRUE(Feed(decoder, &clip.pictures[i], static_cast<int32_t>(i), pictures));
  }
  Feed(decoder, nullptr, -1, pictures);
  ASSERT_EQ(pictures.size(), reference.size());
  for (size_t f = 0; f < pictures.size(); ++f) {
    EXPECT_EQ(pictures[f].id, static_cast<int32_t>(f));
    EXPECT_TRUE(pictures[f].samples == reference[f]) << "picture " << f;
  }
}

} // namespace
