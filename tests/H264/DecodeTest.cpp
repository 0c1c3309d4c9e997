#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <memory>
#include <string>
#include <vector>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/SliceDecoder.h"
#include "H264/ReferenceDecoding.h"
#include "support/CabacEncoder.h"
#include "support/H264StreamWriter.h"

using namespace NmH264;
using NmTestSupport::CmTempDirectory;

namespace {

using namespace NmH264Test;

unsigned UeLength(uint32_t value) {
  return 2 * static_cast<unsigned>(std::bit_width(value + 1) - 1) + 1;
}
unsigned SeLength(int32_t value) {
  return UeLength(value > 0 ? static_cast<uint32_t>(2 * value - 1)
                            : static_cast<uint32_t>(-2 * value));
}

// Watches the decoder take the bins of each slice and encodes the same bins
// again, with the contexts of P and B slices starting from another
// cabac_init_idc; the slices it builds carry the same syntax, so any
// decoder gives the same pictures from them.
class CmInitTableTranscoder : public ImCabacObserver {
public:
  explicit CmInitTableTranscoder(uint32_t initIdc) : m_InitIdc(initIdc) {}

  void OnSliceData(const SmSliceHeader& header, const SmPictureParameterSet& pps,
                   const CmBitReader& reader) override {
    Finish();
    SmSlice slice;
    const size_t end = reader.GetPosition();
    for (size_t i = 0; i < end; ++i) {
      slice.headerBits.push_back(static_cast<uint8_t>(reader.GetData()[i / 8] >> (7 - i % 8) & 1));
    }
    slice.headerBytes.assign(reader.GetData(), reader.GetData() + (end + 7) / 8);
    const bool inter = header.sliceType == SliceP || header.sliceType == SliceB;
    if (inter) {
      // Behind cabac_init_idc come slice_qp_delta and the deblocking
      // fields; x264 has one slice group.
      size_t at = end - SeLength(header.sliceQp - pps.picInitQp);
      if (pps.deblockingFilterControlPresent) {
        at -= UeLength(header.disableDeblockingFilterIdc);
        if (header.disableDeblockingFilterIdc != 1) {
          at -= SeLength(header.sliceAlphaC0Offset / 2) + SeLength(header.sliceBetaOffset / 2);
        }
      }
      at -= UeLength(header.cabacInitIdc);
      EXPECT_EQ(header.cabacInitIdc, 0u);
      EXPECT_EQ(slice.headerBits[at], 1) << "cabac_init_idc 0 is a single 1";
      std::vector<uint8_t> code =
          m_InitIdc == 0 ? std::vector<uint8_t>{1}
                         : std::vector<uint8_t>{0, 1, static_cast<uint8_t>(m_InitIdc - 1)};
      slice.headerBits.erase(slice.headerBits.begin() + static_cast<std::ptrdiff_t>(at));
      slice.headerBits.insert(slice.headerBits.begin() + static_cast<std::ptrdiff_t>(at),
                              code.begin(), code.end());
    }
    InitialiseCabacContexts(m_Contexts, inter ? static_cast<int>(m_InitIdc) : 3, header.sliceQp);
    m_Encoder = NmTestSupport::CmCabacEncoder();
    m_Slices.push_back(std::move(slice));
    m_Open = true;
  }
  void OnDecision(int ctxIdx, int bin) override {
    m_Encoder.EncodeDecision(m_Contexts[ctxIdx], bin);
  }
  void OnBypass(int bin) override { m_Encoder.EncodeBypass(bin); }
  void OnTerminate(int bin) override { m_Encoder.EncodeTerminate(bin); }
  void OnPcm(const uint8_t* samples, size_t size) override {
    m_Encoder.AlignWithZeros();
    for (size_t i = 0; i < size; ++i) {
      m_Encoder.WriteByte(samples[i]);
    }
    m_Encoder.Restart();
  }

  // The slice NAL units in decoding order: the header bytes they began
  // with and the rebuilt payload.
  struct SmSlice {
    std::vector<uint8_t> headerBits;
    std::vector<uint8_t> headerBytes;
    std::vector<uint8_t> rbsp;
  };
  const std::vector<SmSlice>& GetSlices() {
    Finish();
    return m_Slices;
  }

private:
  void Finish() {
    if (!m_Open) {
      return;
    }
    m_Open = false;
    m_Encoder.AlignWithZeros(); // the flush ended with the stop bit
    NmTestSupport::CmBitWriter bits;
    for (const uint8_t bit : m_Slices.back().headerBits) {
      bits.PutFlag(bit != 0);
    }
    while (!bits.IsAligned()) {
      bits.PutFlag(true); // cabac_alignment_one_bit
    }
    for (const uint8_t bit : m_Encoder.GetBits()) {
      bits.PutFlag(bit != 0);
    }
    m_Slices.back().rbsp = bits.Bytes();
  }

  uint32_t m_InitIdc;
  uint8_t m_Contexts[1024] = {};
  NmTestSupport::CmCabacEncoder m_Encoder;
  std::vector<SmSlice> m_Slices;
  bool m_Open = false;
};

// An Annex B stream whose slices are replaced, in order, by the rebuilt
// ones; every other unit stays.
std::vector<uint8_t> ReplaceSlices(const std::vector<uint8_t>& stream,
                                   const std::vector<CmInitTableTranscoder::SmSlice>& slices) {
  std::vector<uint8_t> out;
  size_t position = 0, next = 0;
  SmNalUnit unit;
  while (NextAnnexBUnit(stream.data(), stream.size(), position, true, unit)) {
    out.insert(out.end(), {0, 0, 0, 1});
    if (!unit.IsSlice()) {
      out.insert(out.end(), unit.data, unit.data + unit.size);
      continue;
    }
    if (next >= slices.size()) {
      ADD_FAILURE() << "more slices in the stream than decoded";
      return {};
    }
    const auto& slice = slices[next++];
    std::vector<uint8_t> original;
    ExtractPayload(unit.data + 1, unit.size - 1, original);
    EXPECT_TRUE(
        std::equal(slice.headerBytes.begin(), slice.headerBytes.end() - 1, original.begin()))
        << "slice " << next - 1 << " is decoded out of order";
    NmTestSupport::CmH264StreamWriter escaped;
    escaped.WriteUnit(unit.data[0], slice.rbsp);
    out.insert(out.end(), escaped.Units()[0].begin(), escaped.Units()[0].end());
  }
  EXPECT_EQ(next, slices.size());
  return out;
}

} // namespace

// Each case with CAVLC and with CABAC.
TEST(H264Decode, PicturesOfBothEntropyCodersEqualTheReferenceDecoder) {
  REQUIRE_FFMPEG();
  const SmX264Clip cases[] = {
      // I slices: 4x4, 8x8 and 16x16 prediction, PCM at the lowest
      // quantisers, scaling matrices, several slices, the loop filter at its
      // offsets.
      {"64x48", "yuv420p", "8x8dct=0:keyint=1:qp=30"},
      {"100x60", "yuv420p", "keyint=1:8x8dct=1:qp=20:slices=3"},
      {"96x64", "yuv420p", "keyint=1:8x8dct=1:cqm=jvt:qp=36:chroma-qp-offset=5:deblock=3,-2"},
      {"80x48", "yuv420p", "keyint=1:qp=1:deblock=-3,4"},
      // P slices: several references with every partition size; weighted
      // prediction.
      {"96x64", "yuv420p", "bframes=0:ref=4:weightp=0:partitions=all:8x8dct=1:qp=30"},
      {"100x60", "yuv420p", "bframes=0:ref=3:weightp=0:partitions=all:8x8dct=0:slices=2:qp=22"},
      {"96x64", "yuv420p", "bframes=0:ref=3:weightp=2:qp=26"},
      // B slices: spatial and temporal direct, pyramids, implicit and
      // explicit weights; monochrome pictures of every slice type.
      {"176x144", "yuv420p", "bframes=2:b-pyramid=none:direct=spatial:weightb=0:qp=26"},
      {"96x64", "yuv420p", "bframes=3:b-pyramid=normal:direct=temporal:weightb=1:ref=4:qp=28"},
      {"100x60", "yuv420p",
       "bframes=3:b-pyramid=strict:direct=spatial:weightb=1:partitions=all:8x8dct=1:qp=24"},
      {"64x64", "gray", "bframes=2:direct=temporal:ref=2:qp=20:8x8dct=1"},
      // Many slices and references; 16 references under a B pyramid; open
      // groups; intra refresh; constrained intra; odd sizes; quantisers from
      // the lowest to the highest, with and without trellis; a picture of 720
      // lines.
      {"176x144", "yuv420p", "bframes=0:8x8dct=0:weightp=0:ref=8:slices=4:keyint=12", 24},
      {"64x48", "yuv420p", "bframes=3:b-pyramid=normal:ref=16:keyint=40:qp=30", 36},
      {"64x48", "yuv420p", "bframes=2:open-gop=1:keyint=8:min-keyint=8:scenecut=0", 24},
      {"96x64", "yuv420p", "bframes=0:keyint=8:intra-refresh=1", 20},
      {"70x50", "yuv420p", "bframes=0:intra-refresh=1:keyint=4:qp=20"},
      {"96x64", "yuv420p", "bframes=2:constrained-intra=1:open-gop=1:keyint=8:qp=20", 20},
      {"58x38", "yuv420p", "bframes=2:ref=2:qp=3:trellis=2"},
      {"80x48", "yuv420p", "bframes=1:qp=51"},
      {"80x48", "yuv420p", "bframes=2:crf=10:cqm=jvt:8x8dct=1:weightp=1"},
      {"96x80", "yuv420p", "bframes=3:b-adapt=2:b-pyramid=normal:crf=30:slices=4:ref=5"},
      {"1280x720", "yuv420p", "bframes=2:ref=2", 3},
      // Noise at a low quantiser: high frequencies in every transform, under
      // the default matrices.
      {"96x64", "yuv420p", "bframes=1:8x8dct=1:cqm=jvt:qp=8", 6, "medium", "noise=alls=40:allf=t"},
  };
  std::vector<SmX264Clip> both;
  for (const char* entropy : {"cabac=0:", "cabac=1:"}) {
    for (SmX264Clip c : cases) {
      c.options = entropy + c.options;
      both.push_back(c);
    }
  }
  // The encoder's presets span its choices of partitions, references, B
  // pictures and decisions (ultrafast turns CABAC off; it comes back on).
  for (const char* preset : {"ultrafast", "superfast", "veryfast", "faster", "fast", "medium",
                             "slow", "slower", "veryslow"}) {
    both.push_back({"112x64", "yuv420p", "cabac=1:crf=24", 12, preset});
  }
  ExpectSameAsReference(both);
}

// x264 starts the contexts of P and B slices from cabac_init_idc 0 alone.
// Its streams, encoded anew from the same bins with the contexts of idc 1 and
// 2, decode as ffmpeg decodes them: every initial value of those tables that
// the streams reach is read the way the decoder must read it. ffmpeg seeing
// the same pictures in the rebuilt stream as in the original shows that the
// rebuilding is faithful. The 8x8 contexts that the decoder lacks are
// refused.
TEST(H264Decode, CabacStreamsOfEveryInitTableEqualTheReferenceDecoder) {
  REQUIRE_FFMPEG();
  CmTempDirectory directory;
  for (const bool transform8x8 : {false, true}) {
    for (const bool interlaced : {false, true}) {
      const SmEncoded original = EncodeWithX264(
          {"96x64", "yuv420p",
           "bframes=3:b-pyramid=normal:ref=3:weightp=2:partitions=all:direct=auto:slices=2:crf=18:"
           "keyint=6:interlaced=" +
               std::to_string(interlaced ? 1 : 0) +
               ":8x8dct=" + std::to_string(transform8x8 ? 1 : 0),
           12, "medium", interlaced ? std::string(Combing) + ",noise=alls=12" : "noise=alls=12"});
      ASSERT_EQ(original.pictures.size(), 12u);
      for (const uint32_t initIdc : {0u, 1u, 2u}) {
        SCOPED_TRACE("cabac_init_idc " + std::to_string(initIdc) + " 8x8 " +
                     std::to_string(transform8x8) + " interlaced " + std::to_string(interlaced));
        // Rebuilt from the bins of the original, which decodes.
        CmInitTableTranscoder transcoder(initIdc);
        CmSliceDecoder::SetCabacObserver(&transcoder);
        const bool allDecoded = DecodeStream(original.stream).allAccepted;
        CmSliceDecoder::SetCabacObserver(nullptr);
        ASSERT_TRUE(allDecoded);
        const Bytes rebuilt = ReplaceSlices(original.stream, transcoder.GetSlices());
        if (initIdc != 0) {
          EXPECT_FALSE(rebuilt == original.stream);
        }
        const SmSupplied ours = DecodeStream(rebuilt);
        // The 8x8 blocks of cabac_init_idc 1, and those of field
        // macroblocks of cabac_init_idc 2, are refused.
        if (transform8x8 && (initIdc == 1 || (initIdc == 2 && interlaced))) {
          EXPECT_LT(ours.pictures.size(), 12u);
          EXPECT_FALSE(ours.allAccepted);
          continue;
        }
        const std::string path = directory / "rebuilt.264";
        ASSERT_TRUE(NmTestSupport::WriteBytes(path, rebuilt));
        const Frames theirs = FfmpegPictures(path, directory / "rebuilt.yuv", 96 * 64 * 3 / 2);
        EXPECT_TRUE(theirs == original.pictures);
        EXPECT_TRUE(ours.allAccepted);
        ExpectSameFrames(ours.pictures, theirs);
      }
    }
  }
}
