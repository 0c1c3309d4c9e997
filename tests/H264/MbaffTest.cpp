#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/TaskSupplier.h"
#include "H264/ReferenceDecoding.h"
#include "H264/VisibleSamples.h"
#include "support/ExternalTools.h"
#include "support/H264StreamWriter.h"

using namespace NmH264;
using NmH264Test::Combing;
using NmTestSupport::CmTempDirectory;

namespace {

struct SmDecoded {
  std::vector<std::vector<uint8_t>> pictures;
  bool allDecoded = true;
  // Whether every picture came out as an interlaced frame, and whether the
  // first said its top field came first.
  bool allInterlaced = true;
  bool topFieldFirst = false;
};

SmDecoded Decode(const std::vector<uint8_t>& stream, int32_t threads = 1) {
  MCL::SmTaskSupplierSettings settings;
  settings.threadCount = threads;
  MCL::TaskSupplier supplier(settings);
  SmDecoded decoded;
  const auto take = [&](bool force) {
    while (MCL::H264DecoderFrame* frame = supplier.GetFrameToDisplay(force)) {
      if (decoded.pictures.empty()) {
        decoded.topFieldFirst = frame->picOrderCnt[0] <= frame->picOrderCnt[1];
      }
      decoded.allInterlaced = decoded.allInterlaced && !frame->progressive;
      decoded.pictures.push_back(NmH264Test::VisibleSamples(*frame, *supplier.GetActiveSequence()));
    }
  };
  size_t position = 0;
  SmNalUnit unit;
  while (NextAnnexBUnit(stream.data(), stream.size(), position, true, unit)) {
    decoded.allDecoded = supplier.AddSource(unit.data - 3, unit.size + 3, -1.0, -1) == 0 &&
                         !supplier.TakeUnsupported() && decoded.allDecoded;
    take(false);
  }
  supplier.Flush();
  take(true);
  return decoded;
}

struct SmClip {
  const char* size;
  const char* options; // x264's, besides interlaced and the field order
  int frames;
  bool topFieldFirst = true;
};

// Encodes each clip with x264 as a frame of field and frame macroblock
// pairs, in CAVLC and in CABAC (with cabacOptions besides), and expects
// every picture to equal ffmpeg's decode, sample for sample, and to come out
// as an interlaced frame of the coded field order.
void ExpectSameAsReference(const std::vector<SmClip>& clips,
                           const std::string& cabacOptions = "cabac=1:") {
  CmTempDirectory directory;
  for (const SmClip& clip : clips) {
    for (const std::string& entropy : {std::string("cabac=0:"), cabacOptions}) {
      const std::string order = clip.topFieldFirst ? "tff" : "bff";
      const std::string options = entropy + std::string(clip.options);
      SCOPED_TRACE(std::string(clip.size) + " " + options + " " + order);
      const std::string stream = directory / "clip.264";
      const std::string reference = directory / "clip.yuv";
      // Odd lines inverted in bands that move from picture to picture make
      // x264 code field pairs there and frame pairs elsewhere, in luma and in
      // chroma. The field order x264 codes is the one its input frames carry.
      ASSERT_TRUE(NmTestSupport::Run(
          std::string("ffmpeg -y -v error -f lavfi -i testsrc2=size=") + clip.size +
          ":rate=25 -frames:v " + std::to_string(clip.frames) + " -vf \"" + Combing + ",setfield=" +
          order + "\" -pix_fmt yuv420p -c:v libx264 -x264-params 'interlaced=1:" + order +
          "=1:" + options + "' -f h264 '" + stream + "'"));
      ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -v error -threads 1 -i '" + stream +
                                     "' -f rawvideo -pix_fmt yuv420p '" + reference + "'"));
      const SmDecoded decoded = Decode(NmTestSupport::ReadBytes(stream));
      EXPECT_TRUE(decoded.allDecoded);
      EXPECT_TRUE(decoded.allInterlaced);
      EXPECT_EQ(decoded.topFieldFirst, clip.topFieldFirst);
      const std::vector<uint8_t> expected = NmTestSupport::ReadBytes(reference);
      const size_t frames = static_cast<size_t>(clip.frames);
      ASSERT_EQ(decoded.pictures.size(), frames);
      const size_t frameSize = expected.size() / frames;
      for (size_t i = 0; i < frames; ++i) {
        const std::vector<uint8_t>& picture = decoded.pictures[i];
        ASSERT_EQ(picture.size(), frameSize);
        size_t first = 0;
        while (first < frameSize && picture[first] == expected[i * frameSize + first]) {
          ++first;
        }
        EXPECT_EQ(first, frameSize) << "picture " << i << " differs first at sample " << first;
      }
      // The loop filter on a second thread follows rows of pairs.
      for (const int32_t threads : {2, 3}) {
        EXPECT_TRUE(Decode(NmTestSupport::ReadBytes(stream), threads).pictures == decoded.pictures)
            << threads << " threads";
      }
    }
  }
}

bool HaveTools() {
  return NmTestSupport::HaveProgram("ffmpeg");
}

} // namespace

// Intra pictures in CAVLC: pair addressing, the field flag, neighbours
// across pairs of either kind for prediction, coefficient counts and CABAC
// contexts, field scans and the significance maps of field macroblocks
// (4x4 and 8x8), and the loop filter over mixed edges. 80 lines are two and
// a half pairs: x264 pads to whole pairs and crops.
TEST(H264Mbaff, IntraPairsEqualTheReferenceDecoder) {
  if (!HaveTools()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ExpectSameAsReference({
      {"64x64", "keyint=1", 3},
      {"64x64", "keyint=1", 3, false},
      {"96x80", "keyint=1:8x8dct=0:slices=3", 3},
      {"96x80", "keyint=1:no-deblock=1", 2, false},
      {"80x96", "keyint=1:qp=3:deblock=2,1", 2},
      {"64x64", "keyint=1:qp=40:deblock=-2,-1", 2, false},
  });
}

// P pictures: vectors predicted from neighbours of the other kind (scaled,
// and so are the sizes of differences and indices that CABAC's contexts
// read), P_Skip, a skipped top whose bottom carries the pair's kind,
// reference fields of frame entries for field macroblocks, explicit weights
// by frame entry, and the loop filter's strengths between field and frame
// motion.
TEST(H264Mbaff, PredictedPairsEqualTheReferenceDecoder) {
  if (!HaveTools()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ExpectSameAsReference(
      {
          {"64x64", "bframes=0", 6},
          {"96x80", "bframes=0:ref=3:8x8dct=0", 6, false},
          {"96x80", "bframes=0:weightp=2:slices=3", 6},
          {"64x64", "bframes=0:ref=2:no-deblock=1:subme=7", 5, false},
          {"80x96", "bframes=0:qp=10", 4},
          // Intra macroblocks that may not predict from inter ones, beside
          // pairs of the other kind.
          {"96x80", "bframes=0:constrained-intra=1:keyint=4", 6},
          // Coarse: pairs skipped whole infer their kind, a skipped top takes
          // its coded bottom's.
          {"96x64", "bframes=0:qp=42", 8, false},
      },
      "cabac=1:8x8dct=0:");
}

// B pictures: spatial and temporal direct prediction with the co-located
// macroblock chosen by the kinds of both pairs, implicit weights by the
// distances of fields for field macroblocks, and b-pyramid.
TEST(H264Mbaff, BiPredictedPairsEqualTheReferenceDecoder) {
  if (!HaveTools()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ExpectSameAsReference(
      {
          {"64x64", "bframes=2:direct=spatial", 7},
          {"64x64", "bframes=2:direct=temporal", 7, false},
          {"96x80", "bframes=3:b-pyramid=normal:weightb=1:ref=3", 9},
          {"96x80", "bframes=2:direct=temporal:weightb=1:8x8dct=0:slices=3", 7, false},
          {"80x96", "bframes=2:qp=38:direct=spatial", 8},
      },
      "cabac=1:8x8dct=0:");
}

// Slice groups in a frame of pairs: a map unit is a pair. x264's slices of
// three pairs each (pairs 0-2, 3-5, 6-7 of a 4x2 frame) go into two slice
// groups, the middle slice into the second, through a picture parameter set
// written anew with an explicit map; the slices stay as they are and decode
// to ffmpeg's pictures of the original (ffmpeg has no slice groups of its
// own).
TEST(H264Mbaff, SliceGroupsOfPairsDecodeAsThePlainSlices) {
  if (!HaveTools()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  const std::string stream = directory / "clip.264";
  const std::string reference = directory / "clip.yuv";
  ASSERT_TRUE(NmTestSupport::Run(
      std::string("ffmpeg -y -v error -f lavfi -i testsrc2=size=64x64:rate=25 -frames:v 4 -vf \"") +
      Combing +
      ",setfield=tff\" -pix_fmt yuv420p -c:v libx264 -x264-params 'interlaced=1:cabac=0:"
      "8x8dct=0:slice-max-mbs=6:bframes=0:weightp=0' -f h264 '" +
      stream + "'"));
  ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -v error -threads 1 -i '" + stream +
                                 "' -f rawvideo -pix_fmt yuv420p '" + reference + "'"));
  const std::vector<uint8_t> bytes = NmTestSupport::ReadBytes(stream);
  std::vector<uint8_t> grouped;
  const SmSequenceParameterSet* table[32] = {};
  SmSequenceParameterSet sps;
  size_t position = 0;
  SmNalUnit unit;
  bool rewritten = false;
  while (NextAnnexBUnit(bytes.data(), bytes.size(), position, true, unit)) {
    std::vector<uint8_t> rbsp;
    ExtractPayload(unit.data + 1, unit.size - 1, rbsp);
    CmBitReader reader(rbsp.data(), rbsp.size());
    const int type = unit.data[0] & 0x1F;
    if (type == 7) {
      ASSERT_EQ(ParseSequenceParameterSet(reader, sps), ParseOk);
      table[sps.id] = &sps;
    }
    if (type != 8) {
      grouped.insert(grouped.end(), {0, 0, 1});
      grouped.insert(grouped.end(), unit.data, unit.data + unit.size);
      continue;
    }
    SmPictureParameterSet pps;
    ASSERT_EQ(ParsePictureParameterSet(reader, table, pps), ParseOk);
    ASSERT_FALSE(pps.transform8x8Mode || pps.entropyCodingMode);
    NmTestSupport::SmWriterPps written;
    written.id = pps.id;
    written.spsId = pps.spsId;
    written.bottomFieldPicOrderInFramePresent = pps.bottomFieldPicOrderInFramePresent;
    written.numRefIdxActive[0] = pps.numRefIdxActive[0];
    written.numRefIdxActive[1] = pps.numRefIdxActive[1];
    written.weightedPred = pps.weightedPred;
    written.weightedBipredIdc = pps.weightedBipredIdc;
    written.picInitQp = pps.picInitQp;
    written.chromaQpIndexOffset = pps.chromaQpIndexOffset;
    written.deblockingControl = pps.deblockingFilterControlPresent;
    written.constrainedIntraPred = pps.constrainedIntraPred;
    written.numSliceGroups = 2;
    written.mapType = 6;
    written.sliceGroupId = {0, 0, 0, 1, 1, 1, 0, 0};
    NmTestSupport::CmH264StreamWriter writer;
    writer.WritePps(written);
    const std::vector<uint8_t> rewrittenUnit = writer.AnnexB();
    grouped.insert(grouped.end(), rewrittenUnit.begin(), rewrittenUnit.end());
    rewritten = true;
  }
  ASSERT_TRUE(rewritten);
  const SmDecoded decoded = Decode(grouped);
  EXPECT_TRUE(decoded.allDecoded);
  const std::vector<uint8_t> expected = NmTestSupport::ReadBytes(reference);
  ASSERT_EQ(decoded.pictures.size(), 4u);
  const size_t frameSize = expected.size() / 4;
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_TRUE(std::equal(decoded.pictures[i].begin(), decoded.pictures[i].end(),
                           expected.begin() + static_cast<std::ptrdiff_t>(i * frameSize)))
        << "picture " << i;
  }
}

// Decoding that starts at a later IDR picture, with only the parameter sets
// of the stream's start before it, gives from there on the pictures that
// decoding from the start gives: nothing of a frame in pairs outlives it.
TEST(H264Mbaff, DecodingFromEachIdrGivesTheSamePictures) {
  if (!HaveTools()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  const std::string stream = directory / "clip.264";
  ASSERT_TRUE(NmTestSupport::Run(
      std::string(
          "ffmpeg -y -v error -f lavfi -i testsrc2=size=64x64:rate=25 -frames:v 24 -vf \"") +
      Combing +
      ",setfield=tff\" -pix_fmt yuv420p -c:v libx264 -x264-params 'interlaced=1:cabac=1:"
      "bframes=2:keyint=8:min-keyint=8:scenecut=0' -f h264 '" +
      stream + "'"));
  const std::vector<uint8_t> bytes = NmTestSupport::ReadBytes(stream);
  const SmDecoded whole = Decode(bytes);
  ASSERT_TRUE(whole.allDecoded);
  ASSERT_EQ(whole.pictures.size(), 24u);
  // The units, each behind a start code; the parameter sets; where each
  // IDR picture begins.
  std::vector<std::vector<uint8_t>> units;
  std::vector<uint8_t> parameterSets;
  std::vector<size_t> idrStarts;
  size_t position = 0;
  SmNalUnit unit;
  bool previousIdr = false;
  while (NextAnnexBUnit(bytes.data(), bytes.size(), position, true, unit)) {
    std::vector<uint8_t> framed = {0, 0, 1};
    framed.insert(framed.end(), unit.data, unit.data + unit.size);
    const int type = unit.data[0] & 0x1F;
    if (type == 7 || type == 8) {
      parameterSets.insert(parameterSets.end(), framed.begin(), framed.end());
    }
    if (type == 5 && !previousIdr) {
      idrStarts.push_back(units.size());
    }
    if (type == 1 || type == 5) {
      previousIdr = type == 5;
    }
    units.push_back(std::move(framed));
  }
  ASSERT_EQ(idrStarts.size(), 3u);
  for (size_t k = 1; k < idrStarts.size(); ++k) {
    SCOPED_TRACE("from IDR " + std::to_string(k));
    std::vector<uint8_t> tail = parameterSets;
    for (size_t u = idrStarts[k]; u < units.size(); ++u) {
      tail.insert(tail.end(), units[u].begin(), units[u].end());
    }
    const SmDecoded part = Decode(tail);
    EXPECT_TRUE(part.allDecoded);
    ASSERT_EQ(part.pictures.size(), 24 - 8 * k);
    for (size_t f = 0; f < part.pictures.size(); ++f) {
      EXPECT_TRUE(part.pictures[f] == whole.pictures[8 * k + f]) << "picture " << 8 * k + f;
    }
  }
}

// A P picture whose middle slice breaks off: the macroblocks it decoded
// before the break are its own, and the rest, the one it broke in included,
// come whole from the picture before, in the order of pairs, top before
// bottom. Cuts at several places make some break in a top macroblock.
TEST(H264Mbaff, ASliceBrokenInAPairLeavesNoMacroblockHalfDecoded) {
  if (!HaveTools()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  const std::string stream = directory / "clip.264";
  // Frame pairs throughout (x264 finds the plain pattern's lines alike),
  // one row of pairs per slice, without the loop filter so that
  // macroblocks keep their own samples.
  ASSERT_TRUE(NmTestSupport::Run(
      "ffmpeg -y -v error -f lavfi -i testsrc2=size=64x96:rate=25 -frames:v 6 -pix_fmt yuv420p "
      "-c:v libx264 -x264-params 'interlaced=1:cabac=0:bframes=0:slices=3:no-deblock=1:ref=1' "
      "-f h264 '" +
      stream + "'"));
  const std::vector<uint8_t> bytes = NmTestSupport::ReadBytes(stream);
  const SmDecoded whole = Decode(bytes);
  ASSERT_EQ(whole.pictures.size(), 6u);
  std::vector<std::vector<uint8_t>> units;
  size_t position = 0;
  SmNalUnit unit;
  while (NextAnnexBUnit(bytes.data(), bytes.size(), position, true, unit)) {
    units.emplace_back(unit.data, unit.data + unit.size);
  }
  // The middle slice of picture 3.
  size_t slices = 0, middle = 0;
  for (size_t u = 0; u < units.size(); ++u) {
    const int type = units[u][0] & 0x1F;
    if ((type == 1 || type == 5) && slices++ == 3 * 3 + 1) {
      middle = u;
    }
  }
  ASSERT_NE(middle, 0u);
  constexpr size_t Width = 64;
  // Which picture each 16x16 block of the middle row of pairs equals, in
  // the order of pairs: '3' its own, '2' the one before, '=' both (a still
  // part), '?' neither.
  const auto sources = [&](const std::vector<uint8_t>& ours) {
    std::string found;
    for (size_t pairX = 0; pairX < Width / 16; ++pairX) {
      for (size_t half = 0; half < 2; ++half) {
        std::string from;
        for (const size_t p : {size_t{3}, size_t{2}}) {
          bool same = true;
          for (size_t y = 32 + 16 * half; y < 48 + 16 * half && same; ++y) {
            const size_t at = y * Width + pairX * 16;
            same = std::equal(ours.begin() + static_cast<std::ptrdiff_t>(at),
                              ours.begin() + static_cast<std::ptrdiff_t>(at + 16),
                              whole.pictures[p].begin() + static_cast<std::ptrdiff_t>(at));
          }
          from += same ? std::string(1, static_cast<char>('0' + p)) : "";
        }
        found += from.empty() ? '?' : (from.size() == 2 ? '=' : from[0]);
      }
    }
    return found;
  };
  for (const size_t percent : {20, 35, 50, 65, 80}) {
    SCOPED_TRACE("cut at " + std::to_string(percent) + "%");
    std::vector<uint8_t> damaged;
    for (size_t u = 0; u < units.size(); ++u) {
      const size_t size = u == middle ? units[u].size() * percent / 100 : units[u].size();
      damaged.insert(damaged.end(), {0, 0, 1});
      damaged.insert(damaged.end(), units[u].begin(),
                     units[u].begin() + static_cast<std::ptrdiff_t>(size));
    }
    const SmDecoded ours = Decode(damaged);
    ASSERT_EQ(ours.pictures.size(), 6u);
    const std::string found = sources(ours.pictures[3]);
    EXPECT_EQ(found.find('?'), std::string::npos) << found;
    EXPECT_NE(found.find('2'), std::string::npos) << found;
    EXPECT_EQ(found.find('3', found.find('2')), std::string::npos) << found;
  }
}
