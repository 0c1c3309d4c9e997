#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "Codecs/H264/Deblocking.h"
#include "Codecs/H264/Marking.h"
#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/PictureOrder.h"
#include "Codecs/H264/ReferenceLists.h"
#include "Codecs/H264/SliceDecoder.h"
#include "Codecs/H264/SliceHeader.h"
#include "support/ExternalTools.h"

using namespace NmH264;
using NmTestSupport::CmTempDirectory;

namespace {

// Decodes an Annex B stream of intra pictures with the slice decoder alone
// and returns each picture's visible samples, planar, in decoding order.
std::vector<std::vector<uint8_t>> DecodeStream(const std::vector<uint8_t>& stream,
                                               bool& allDecoded) {
  std::array<std::unique_ptr<SmSequenceParameterSet>, 32> spsStore;
  std::array<std::unique_ptr<SmPictureParameterSet>, 256> ppsStore;
  std::array<const SmSequenceParameterSet*, 32> spsTable{};
  std::array<const SmPictureParameterSet*, 256> ppsTable{};
  std::vector<std::vector<uint8_t>> pictures;
  std::vector<std::unique_ptr<CmPicture>> pool;
  SmReferenceState state;
  std::vector<SmReferenceFrame>& references = state.frames;
  CmPicture* picturePointer = nullptr;
  bool isReference = false;
  bool isIdr = false;
  uint32_t nextId = 1;
  CmSliceDecoder decoder;
  CmPictureOrderCounter order;
  SmSliceHeader firstSlice;
  int32_t top = 0, bottom = 0;
  int generation = 0;
  struct SmOutput {
    int generation;
    int32_t poc;
    std::vector<uint8_t> samples;
  };
  std::vector<SmOutput> outputs;
  std::unique_ptr<SmSequenceParameterSet> current;
  uint32_t sliceNumber = 0;
  std::vector<SmSliceFilterParameters> filters(1);
  allDecoded = true;
  const auto finish = [&] {
    if (current == nullptr) {
      return;
    }
    CmPicture& picture = *picturePointer;
    DeblockPicture(picture, filters);
    filters.resize(1);
    order.Finish(firstSlice, top, bottom);
    if (isReference) {
      allDecoded = MarkReferences(state, firstSlice, &picture, current->maxNumRefFrames,
                                  current->GetMaxFrameNum()) &&
                   allDecoded;
    }
    std::vector<uint8_t> out;
    const int planes = picture.IsMonochrome() ? 1 : 3;
    for (int c = 0; c < planes; ++c) {
      const uint32_t shift = c == 0 ? 0 : 1;
      for (uint32_t y = current->cropTop >> shift;
           y < (current->GetHeight() - current->cropBottom) >> shift; ++y) {
        const uint8_t* row = picture.GetPlane(c) + y * picture.GetStride(c);
        out.insert(out.end(), row + (current->cropLeft >> shift),
                   row + ((current->GetWidth() - current->cropRight) >> shift));
      }
    }
    outputs.push_back({generation, picture.GetPoc(), std::move(out)});
  };
  size_t position = 0;
  SmNalUnit unit;
  std::vector<uint8_t> rbsp;
  while (NextAnnexBUnit(stream.data(), stream.size(), position, true, unit)) {
    ExtractPayload(unit.data + 1, unit.size - 1, rbsp);
    CmBitReader reader(rbsp.data(), rbsp.size());
    if (unit.GetType() == NalSequenceParameterSet) {
      auto sps = std::make_unique<SmSequenceParameterSet>();
      ParseSequenceParameterSet(reader, *sps);
      spsTable[sps->id] = sps.get();
      spsStore[sps->id] = std::move(sps);
    } else if (unit.GetType() == NalPictureParameterSet) {
      auto pps = std::make_unique<SmPictureParameterSet>();
      ParsePictureParameterSet(reader, spsTable.data(), *pps);
      ppsTable[pps->id] = pps.get();
      ppsStore[pps->id] = std::move(pps);
    } else if (unit.IsSlice()) {
      SmSliceHeader header;
      const SmSequenceParameterSet* sps = nullptr;
      const SmPictureParameterSet* pps = nullptr;
      if (ParseSliceHeader(reader, unit.data[0], {spsTable.data(), ppsTable.data()}, header, sps,
                           pps) != ParseOk) {
        allDecoded = false;
        continue;
      }
      if (header.firstMbInSlice == 0) {
        finish();
        current = std::make_unique<SmSequenceParameterSet>(*sps);
        // A picture that no reference holds any more is taken again.
        picturePointer = nullptr;
        for (auto& candidate : pool) {
          if (std::none_of(references.begin(), references.end(), [&](const SmReferenceFrame& r) {
                return r.picture == candidate.get();
              })) {
            picturePointer = candidate.get();
          }
        }
        if (picturePointer == nullptr) {
          pool.push_back(std::make_unique<CmPicture>());
          picturePointer = pool.back().get();
        }
        picturePointer->Allocate(sps->widthInMbs, sps->GetFrameHeightInMbs(),
                                 sps->chromaFormatIdc == 0);
        picturePointer->SetId(nextId++);
        isReference = header.IsReference();
        isIdr = header.IsIdr();
        generation += isIdr ? 1 : 0;
        firstSlice = header;
        order.Compute(*sps, header, top, bottom);
        picturePointer->SetPoc(std::min(top, bottom));
      }
      CmPicture& picture = *picturePointer;
      SmReferenceList lists[2];
      if (header.sliceType != SliceI &&
          !BuildReferenceLists(isIdr ? std::vector<SmReferenceFrame>() : references, header,
                               sps->GetMaxFrameNum(), picture.GetPoc(), lists)) {
        allDecoded = false;
        continue;
      }
      SmSliceFilterParameters filter;
      filter.disableIdc = header.disableDeblockingFilterIdc;
      filter.alphaOffset = header.sliceAlphaC0Offset;
      filter.betaOffset = header.sliceBetaOffset;
      filter.chromaQpOffset[0] = pps->chromaQpIndexOffset;
      filter.chromaQpOffset[1] = pps->secondChromaQpIndexOffset;
      filters.resize(sliceNumber + 2);
      filters[sliceNumber + 1] = filter;
      allDecoded = allDecoded && decoder.Decode(reader, header, *sps, *pps, ++sliceNumber, picture,
                                                lists) == CmSliceDecoder::Decoded;
    }
  }
  finish();
  std::stable_sort(outputs.begin(), outputs.end(), [](const SmOutput& a, const SmOutput& b) {
    return a.generation != b.generation ? a.generation < b.generation : a.poc < b.poc;
  });
  for (SmOutput& output : outputs) {
    pictures.push_back(std::move(output.samples));
  }
  return pictures;
}

} // namespace

TEST(H264Decode, PicturesEqualTheReferenceDecoder) {
  if (!NmTestSupport::HaveProgram("ffmpeg")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  struct SmCase {
    const char* size;
    const char* pixelFormat;
    const char* options;
  } cases[] = {
      {"64x48", "yuv420p", "cabac=0:8x8dct=0:keyint=1:no-deblock=1:qp=30"},
      {"64x48", "yuv420p", "cabac=0:8x8dct=0:keyint=1:qp=30"},
      {"100x60", "yuv420p", "cabac=0:keyint=1:8x8dct=1:qp=20:slices=3"},
      {"96x64", "yuv420p",
       "cabac=0:keyint=1:8x8dct=1:cqm=jvt:qp=36:chroma-qp-offset=5:deblock=3,-2"},
      {"80x48", "yuv420p", "cabac=0:keyint=1:qp=1:deblock=-3,4"},
      {"80x48", "yuv420p", "cabac=0:keyint=1:qp=51:8x8dct=1"},
      {"64x64", "gray", "cabac=0:keyint=1:qp=24:8x8dct=1"},
      // P frames: one reference, then several with every partition size.
      {"64x48", "yuv420p", "cabac=0:bframes=0:ref=1:weightp=0:qp=26"},
      {"96x64", "yuv420p", "cabac=0:bframes=0:ref=4:weightp=0:partitions=all:8x8dct=1:qp=30"},
      {"100x60", "yuv420p",
       "cabac=0:bframes=0:ref=3:weightp=0:partitions=all:8x8dct=0:slices=2:qp=22"},
      {"64x64", "gray", "cabac=0:bframes=0:ref=2:weightp=0:qp=28"},
      // Weighted prediction of P frames.
      {"96x64", "yuv420p", "cabac=0:bframes=0:ref=3:weightp=2:qp=26"},
      // B frames: spatial and temporal direct, pyramids, implicit and
      // explicit weights.
      {"176x144", "yuv420p", "cabac=0:bframes=2:b-pyramid=none:direct=spatial:weightb=0:qp=26"},
      {"96x64", "yuv420p",
       "cabac=0:bframes=3:b-pyramid=normal:direct=temporal:weightb=1:ref=4:qp=28"},
      {"100x60", "yuv420p",
       "cabac=0:bframes=3:b-pyramid=strict:direct=spatial:weightb=1:partitions=all:8x8dct=1:qp=24"},
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(std::string(c.options) + " " + c.pixelFormat);
    const std::string stream = directory / "intra.264";
    const std::string decoded = directory / "intra.yuv";
    ASSERT_TRUE(NmTestSupport::Run(std::string("ffmpeg -y -f lavfi -i testsrc2=size=") + c.size +
                                   ":rate=25 -frames:v 10 -pix_fmt " + c.pixelFormat +
                                   " -c:v libx264 -x264-params '" + c.options + "' -f h264 '" +
                                   stream + "'"));
    ASSERT_TRUE(NmTestSupport::Run("ffmpeg -y -i '" + stream + "' -f rawvideo -pix_fmt " +
                                   c.pixelFormat + " '" + decoded + "'"));
    bool allDecoded = false;
    const auto pictures = DecodeStream(NmTestSupport::ReadBytes(stream), allDecoded);
    EXPECT_TRUE(allDecoded);
    const std::vector<uint8_t> expected = NmTestSupport::ReadBytes(decoded);
    ASSERT_EQ(pictures.size(), 10u);
    const size_t frameSize = expected.size() / 10;
    for (size_t i = 0; i < pictures.size(); ++i) {
      ASSERT_EQ(pictures[i].size(), frameSize);
      const std::vector<uint8_t> reference(
          expected.begin() + static_cast<std::ptrdiff_t>(i * frameSize),
          expected.begin() + static_cast<std::ptrdiff_t>((i + 1) * frameSize));
      size_t firstDifference = 0;
      while (firstDifference < frameSize &&
             pictures[i][firstDifference] == reference[firstDifference]) {
        ++firstDifference;
      }
      EXPECT_EQ(firstDifference, frameSize) << "picture " << i;
    }
  }
}
