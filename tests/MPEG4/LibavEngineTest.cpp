// The MPEG-4 Part 2 and H.263 engines against ffmpeg's own decode of clips
// that ffmpeg makes here, and their statuses on the way.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>

#include "Codecs/MCL/H263VideoDecoder.h"
#include "Codecs/MCL/MPEG4VideoDecoder.h"
#include "MPEG4/ClipSupport.h"
#include "MediaProcessing/Video/H263/VideoDecoderH263.h"
#include "MediaProcessing/Video/MPEG4/VideoDecoderMPEG4.h"
#include "support/PictureCollector.h"

using namespace NmMPEG4Test;
using NmTestSupport::CmTempDirectory;

namespace {

// What a clip of the corpus is also used for beyond the plain decode.
enum class EmAlso { Nothing, SkippingModes, Recovery, StartInsideOpenGroup };

struct SmCase {
  const char* name;
  bool mpeg4;
  const char* container;
  const char* options;
  int width;
  int height;
  int frames;
  EmAlso also = EmAlso::Nothing;
};

const SmCase kCorpus[] = {
    {"simple profile", true, "mkv", "-c:v mpeg4 -bf 0 -g 8 -q:v 5", 100, 60, 20, EmAlso::Recovery},
    {"Xvid: B, quarter-pel, global motion", true, "avi",
     "-c:v libxvid -bf 2 -flags +qpel+cgop -gmc 1 -g 9 -q:v 5", 96, 64, 24, EmAlso::SkippingModes},
    {"B pictures and quarter-pel", true, "mkv",
     "-c:v mpeg4 -bf 2 -flags +qpel+cgop -sc_threshold 1000000000 -g 10 -q:v 4", 80, 48, 20},
    {"open groups of B pictures", true, "avi", "-c:v mpeg4 -bf 2 -g 12 -q:v 4", 64, 48, 50,
     EmAlso::StartInsideOpenGroup},
    {"interlaced", true, "mkv", "-c:v mpeg4 -flags +ildct+ilme -bf 1 -g 6 -q:v 4", 96, 64, 12},
    {"H.263 sub-QCIF", false, "avi", "-c:v h263 -g 6 -q:v 5", 128, 96, 10, EmAlso::Recovery},
    {"H.263 QCIF, overlapped blocks", false, "avi", "-c:v h263 -g 6 -obmc 1 -q:v 5", 176, 144, 10},
    {"H.263 CIF", false, "avi", "-c:v h263 -g 12 -q:v 8", 352, 288, 4},
    {"H.263+ annexes I, J, D, S, K", false, "avi",
     "-c:v h263p -flags +aic+loop -umv 1 -aiv 1 -structured_slices 1 -slices 2 -g 6 -q:v 5", 160,
     112, 10},
};

using CmReference = std::vector<std::vector<uint8_t>>;

std::unique_ptr<MCL::VideoDecoder> MakeEngine(bool mpeg4) {
  return mpeg4 ? std::unique_ptr<MCL::VideoDecoder>(std::make_unique<MCL::MPEG4VideoDecoder>())
               : std::make_unique<MCL::H263VideoDecoder>();
}

// Feeds every picture of the clip, as a caller does, then flushes.
struct SmPicture {
  std::vector<uint8_t> samples;
  double time = -1.0;
  int32_t frameId = -1;
};

std::vector<SmPicture> DecodeClip(MCL::VideoDecoder& engine, const SmClip& clip) {
  NmTestSupport::CmPictureCollector stage;
  engine.SetPostProcessing(&stage);
  MCL::MediaData output;
  for (size_t i = 0; i < clip.pictures.size(); ++i) {
    MCL::MediaData input;
    input.SetBufferPointer(clip.pictures[i].data(), clip.pictures[i].size());
    input.SetDataSize(clip.pictures[i].size());
    input.SetTime(clip.times[i]);
    input.SetFrameId(static_cast<int32_t>(i));
    // Input that stays unread is offered again, as the adapter does.
    for (int calls = 0; input.GetDataSize() > 0 && calls < 16; ++calls) {
      engine.GetFrame(&input, &output);
    }
    EXPECT_EQ(input.GetDataSize(), 0u) << "picture " << i;
  }
  for (int calls = 0; calls < 64 && engine.GetFrame(nullptr, &output) == MCL::StatusOk; ++calls) {
  }
  engine.SetPostProcessing(nullptr);
  std::vector<SmPicture> pictures;
  for (size_t p = 0; p < stage.pictures.size(); ++p) {
    pictures.push_back({std::move(stage.pictures[p]), stage.times[p], stage.frameIds[p]});
  }
  return pictures;
}

std::unique_ptr<MCL::VideoDecoder> OpenEngine(bool mpeg4, uint32_t flags = 0, int threads = 1) {
  auto engine = MakeEngine(mpeg4);
  MCL::VideoDecoderParams params;
  params.numThreads = threads;
  params.flags = MCL::VideoDecoderParams::FlagBase | flags;
  EXPECT_EQ(engine->Init(&params), MCL::StatusOk);
  return engine;
}

// Where in display order a time belongs.
size_t DisplayIndex(const SmClip& clip, double time) {
  return static_cast<size_t>(std::lower_bound(clip.times.begin(), clip.times.end(), time) -
                             clip.times.begin());
}

// Keeping only intra pictures gives exactly those, each at its own place;
// dropping the pictures nothing refers to leaves the others.
void ExpectSkippingModesDropWhatTheyPromise(const SmClip& clip, const CmReference& reference) {
  ASSERT_EQ(reference.size(), clip.pictures.size());
  const size_t intra = static_cast<size_t>(std::count(clip.intra.begin(), clip.intra.end(), true));
  ASSERT_GE(intra, 2u);
  auto keyFrames = OpenEngine(true, MCL::VideoDecoderParams::FlagSyncFramesOnly);
  const std::vector<SmPicture> kept = DecodeClip(*keyFrames, clip);
  ASSERT_EQ(kept.size(), intra);
  for (const SmPicture& picture : kept) {
    ASSERT_GE(picture.frameId, 0);
    EXPECT_TRUE(clip.intra[static_cast<size_t>(picture.frameId)]) << picture.frameId;
    EXPECT_TRUE(picture.samples == reference[DisplayIndex(clip, picture.time)]) << picture.time;
  }

  // Decoding order B pictures are the ones that follow another picture
  // with a smaller time; the reduced decoder shows all but them, and each
  // picture it keeps is the full decode's picture of that record.
  auto reduced = OpenEngine(true, MCL::VideoDecoderParams::FlagReducedDecoding);
  const std::vector<SmPicture> anchors = DecodeClip(*reduced, clip);
  const std::vector<SmPicture> all = DecodeClip(*OpenEngine(true), clip);
  ASSERT_EQ(all.size(), clip.pictures.size());
  std::map<int32_t, const SmPicture*> byId;
  for (const SmPicture& picture : all) {
    byId[picture.frameId] = &picture;
  }
  for (const SmPicture& picture : anchors) {
    ASSERT_TRUE(byId.count(picture.frameId)) << picture.frameId;
    EXPECT_TRUE(byId[picture.frameId]->samples == picture.samples) << picture.frameId;
  }
  EXPECT_LE(anchors.size(), clip.pictures.size() - clip.pictures.size() / 3);
}

// After a reset a picture that refers to others is not shown; after
// garbage and bit flips in the second and third pictures, the pictures from
// the next intra picture on are ffmpeg's again.
void ExpectResetAndRecovery(bool mpeg4, const SmClip& clip, const CmReference& reference) {
  ASSERT_EQ(reference.size(), clip.pictures.size());
  auto engine = OpenEngine(mpeg4);
  ASSERT_FALSE(clip.intra[1] || clip.intra[2]);
  const SmClip predicted{
      {clip.pictures[1], clip.pictures[2]}, {false, false}, {clip.times[1], clip.times[2]}};
  DecodeClip(*engine, SmClip{{clip.pictures[0]}, {true}, {clip.times[0]}});
  ASSERT_EQ(engine->Reset(), MCL::StatusOk);
  EXPECT_TRUE(DecodeClip(*engine, predicted).empty());

  std::mt19937 random(5);
  SmClip damaged = clip;
  for (size_t i = 1; i < 3; ++i) {
    for (size_t k = 8; k < damaged.pictures[i].size(); k += 7) {
      damaged.pictures[i][k] ^= static_cast<uint8_t>(random() | 1);
    }
  }
  damaged.pictures.insert(damaged.pictures.begin() + 2, std::vector<uint8_t>(300, 0x00));
  damaged.pictures[2][3] = 0xB6;
  damaged.intra.insert(damaged.intra.begin() + 2, false);
  damaged.times.insert(damaged.times.begin() + 2, clip.times[1] + 0.001);
  const std::vector<SmPicture> pictures = DecodeClip(*OpenEngine(mpeg4), damaged);
  const auto nextIntra = static_cast<size_t>(
      std::find(clip.intra.begin() + 3, clip.intra.end(), true) - clip.intra.begin());
  size_t compared = 0;
  for (const SmPicture& picture : pictures) {
    const size_t f = DisplayIndex(clip, picture.time);
    if (f >= nextIntra && f < reference.size() && picture.time == clip.times[f]) {
      EXPECT_TRUE(picture.samples == reference[f]) << "picture " << f;
      ++compared;
    }
  }
  EXPECT_EQ(compared, reference.size() - nextIntra);
}

// Decoding that starts at the intra picture of an open group: the B pictures
// behind it that refer to the group before are dropped, and every picture
// that does come out has its own time and is ffmpeg's picture of that time.
void ExpectStartInsideAnOpenGroupKeepsTheTimes(const SmClip& clip, const CmReference& reference) {
  ASSERT_EQ(reference.size(), clip.pictures.size());
  const auto start = static_cast<size_t>(std::find(clip.intra.begin() + 1, clip.intra.end(), true) -
                                         clip.intra.begin());
  ASSERT_LT(start, clip.intra.size());
  const auto from = [start](const auto& all) {
    return std::decay_t<decltype(all)>(all.begin() + static_cast<std::ptrdiff_t>(start), all.end());
  };
  const SmClip tail{from(clip.pictures), from(clip.intra), from(clip.times)};
  const std::vector<SmPicture> pictures = DecodeClip(*OpenEngine(true), tail);
  ASSERT_GE(pictures.size(), tail.pictures.size() - 2);
  for (const SmPicture& picture : pictures) {
    const size_t f = DisplayIndex(clip, picture.time);
    ASSERT_LT(f, reference.size());
    EXPECT_TRUE(picture.samples == reference[f]) << "picture at " << f;
  }
}

// Each clip of the corpus, decoded with one and with three threads, gives
// ffmpeg's pictures to the bit, in display order, each with its own time;
// the analysers read the size from the first record and say nothing of
// data without headers.
TEST(LibavEngine, PicturesEqualFfmpegsDecodeAcrossTheCorpusAndStatusesOutsideIt) {
  for (const SmCase& c : kCorpus) {
    SCOPED_TRACE(c.name);
    CmTempDirectory dir;
    const std::string path =
        MakeClip(dir, std::string("clip.") + c.container, c.width, c.height, c.frames, c.options);
    ASSERT_FALSE(path.empty());
    const SmClip clip = Demux(path);
    for (int threads : {1, 3}) {
      SCOPED_TRACE(threads);
      const auto reference = ReferencePictures(dir, path, c.width, c.height, threads);
      ASSERT_GE(reference.size(), static_cast<size_t>(c.frames - 1));
      auto engine = OpenEngine(c.mpeg4, 0, threads);
      const std::vector<SmPicture> pictures = DecodeClip(*engine, clip);
      ASSERT_EQ(pictures.size(), reference.size());
      for (size_t f = 0; f < pictures.size(); ++f) {
        EXPECT_TRUE(pictures[f].samples == reference[f]) << "picture " << f;
        EXPECT_DOUBLE_EQ(pictures[f].time, clip.times[f]) << "picture " << f;
      }
      MCL::VideoDecoderParams info;
      ASSERT_EQ(engine->GetInfo(&info), MCL::StatusOk);
      EXPECT_EQ(info.info.width, c.width);
      EXPECT_EQ(info.info.height, c.height);
      if (threads == 1 && c.also == EmAlso::SkippingModes) {
        ExpectSkippingModesDropWhatTheyPromise(clip, reference);
      } else if (threads == 1 && c.also == EmAlso::Recovery) {
        ExpectResetAndRecovery(c.mpeg4, clip, reference);
      } else if (threads == 1 && c.also == EmAlso::StartInsideOpenGroup) {
        ExpectStartInsideAnOpenGroupKeepsTheTimes(clip, reference);
      }
    }
    const std::unique_ptr<NmMediaProcessing::ImVideoAnalyzer> analyzer =
        c.mpeg4 ? std::unique_ptr<NmMediaProcessing::ImVideoAnalyzer>(
                      std::make_unique<NmMediaProcessing::CmVideoAnalyzerMPEG4>())
                : std::make_unique<NmMediaProcessing::CmVideoAnalyzerH263>();
    NmMediaProcessing::SmVideoSize size;
    ASSERT_TRUE(analyzer->Analyze(clip.pictures[0].data(), clip.pictures[0].size(), size));
    EXPECT_EQ(size, NmMediaProcessing::SmVideoSize(c.width, c.height));
    const std::vector<uint8_t> noise(200, 0x5A);
    EXPECT_FALSE(analyzer->Analyze(noise.data(), noise.size(), size));
  }
  // Statuses outside the happy path: nothing crashes and each is told.

  for (bool mpeg4 : {true, false}) {
    SCOPED_TRACE(mpeg4 ? "MPEG-4" : "H.263");
    auto fresh = MakeEngine(mpeg4);
    MCL::MediaData output;
    EXPECT_EQ(fresh->GetFrame(nullptr, &output), MCL::StatusNotInitialised);
    EXPECT_EQ(fresh->Reset(), MCL::StatusNotInitialised);
    MCL::BaseCodecParams wrongKind;
    EXPECT_EQ(fresh->Init(&wrongKind), MCL::StatusNullPointer);
    auto engine = OpenEngine(mpeg4);
    MCL::VideoDecoderParams info;
    EXPECT_EQ(engine->GetInfo(&info), MCL::StatusNotEnoughData);
    EXPECT_EQ(engine->GetFrame(nullptr, nullptr), MCL::StatusNullPointer);
    EXPECT_EQ(engine->GetFrame(nullptr, &output), MCL::StatusNotEnoughData);
  }
}

} // namespace
