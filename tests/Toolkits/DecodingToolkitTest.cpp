#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Toolkits/TransformTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "support/JPEGRecords.h"
#include "support/TimeMatchOracle.h"

using namespace NmToolkit;
using namespace NmToolkitTest;
using NmTestSupport::CmBytes;

namespace {

constexpr int64_t T0 = 1700000000000;
constexpr int PictureCount = 6;

std::string Hex(const CmBytes& bytes) {
  std::string text;
  char pair[3];
  for (const uint8_t b : bytes) {
    std::snprintf(pair, sizeof pair, "%02x", b);
    text += pair;
  }
  return text;
}

uint8_t LevelOf(int picture) {
  return static_cast<uint8_t>(30 + 30 * picture);
}

int64_t TimeOf(int picture) {
  return T0 + 40 * picture;
}

using Form = NmTestSupport::SmJPEGForm;

// One scripted item holding a JPEG picture in the given form.
std::string JPEGItem(Form form, int picture, const std::string& inner = "",
                     const CmBytes* replacement = nullptr) {
  const CmBytes jpeg = replacement ? *replacement : NmTestSupport::FlatJPEG(LevelOf(picture));
  const uint64_t t = static_cast<uint64_t>(TimeOf(picture));
  const CmBytes record = NmTestSupport::JPEGRecord(form, t, jpeg);
  return "<item begin='" + std::to_string(t) + "' sequence='" + std::to_string(picture / 3) +
         "' payload_hex='" + Hex(record) + "'>" + inner + "</item>";
}

std::string Pictures(Form form) {
  std::string items;
  for (int i = 0; i < PictureCount; ++i) {
    items += JPEGItem(form, i,
                      "<property name='Sequence_Number' value='" + std::to_string(100 + i) + "'/>");
  }
  return items;
}

std::string Decoder(const std::string& items, const std::string& attributes = "",
                    const std::string& element = "video_decoder") {
  return RootConfiguration("<" + element + " " + attributes + ">" +
                           ScriptedToolkit(items, "Sequence_Number,Privacy_Mask") + "</" + element +
                           ">");
}

struct SmFetched {
  uint32_t status = StatusNoItem;
  int64_t time = 0;
  int luma = -1;
  std::unique_ptr<ImData> item;
};

SmFetched Fetched(uint32_t status, ImData* raw) {
  SmFetched out;
  out.status = status;
  out.item.reset(raw);
  if (auto* image = dynamic_cast<CmImageData*>(raw); image && image->GetImage().IsValid()) {
    out.time = image->GetBeginTime();
    out.luma = NmTestSupport::MiddleLuma(image->GetImage());
  }
  return out;
}

// The item in hand, after a move that must have succeeded.
SmFetched Fetch(ImPlaybackSourceToolkit& toolkit, uint32_t moved = StatusSuccess) {
  EXPECT_EQ(moved, StatusSuccess);
  ImData* raw = nullptr;
  const uint32_t status = toolkit.GetData(&raw);
  return Fetched(status, raw);
}

SmFetched FetchLive(ImLiveSourceToolkit& toolkit, uint32_t timeout = 1000) {
  ImData* raw = nullptr;
  const uint32_t status = toolkit.GetLiveData(&raw, timeout);
  return Fetched(status, raw);
}

// The picture a move selects among pictures 0 .. PictureCount - 1; a tie for
// the closest goes to the later one.
std::optional<int> Expected(int64_t t, SmMoveMode mode) {
  using namespace NmMediaProcessing;
  const SmTimeMatchType types[] = {TimeMatchNearest, TimeMatchBefore, TimeMatchAtOrBefore,
                                   TimeMatchAfter, TimeMatchAtOrAfter};
  std::vector<int64_t> times;
  for (int i = 0; i < PictureCount; ++i) {
    times.push_back(TimeOf(i));
  }
  const std::optional<int64_t> wanted = NmTestSupport::WantedFrame(times, types[mode], t);
  return wanted ? std::optional<int>((*wanted - T0) / 40) : std::nullopt;
}

} // namespace

// Stepping back and forth next to the picture shown decodes from what is at
// hand: no call reaches the source.
TEST(VideoDecoderToolkit, SteppingAroundThePictureMakesNoUpstreamCall) {
  ScriptedJournal journal(BinaryDirectory());
  ASSERT_TRUE(journal.IsOpen());
  CmVZKSourceToolkit root(Decoder(Pictures(Form::Packet)).c_str());
  CmPropertyNameSet supported;
  root.Connect({"Next_Begin_Time", "Prev_Begin_Time"}, supported, 0);
  ASSERT_EQ(Fetch(root, root.MoveTo(TimeOf(2), MoveAtOrAfter)).time, TimeOf(2));
  journal.Clear();
  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  ASSERT_EQ(root.MovePrevious(), StatusSuccess);
  ASSERT_EQ(root.MovePrevious(), StatusSuccess);
  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  EXPECT_EQ(journal.Text(), "") << "neighbours decoded for the properties serve the steps";
  EXPECT_EQ(Fetch(root).time, TimeOf(2));

  // Further steps go upstream, a step at a time.
  journal.Clear();
  for (int i = 3; i < PictureCount; ++i) {
    ASSERT_EQ(Fetch(root, root.MoveNext()).time, TimeOf(i));
  }
  EXPECT_LE(Count(journal.Text(), "GetData"), 2u * (PictureCount - 3)) << journal.Text();
}

// An item that holds no video at all is stepped over in both directions.
TEST(VideoDecoderToolkit, ItemsWithoutVideoAreSteppedOver) {
  const std::string items = JPEGItem(Form::Packet, 0) + "<item begin='" +
                            std::to_string(TimeOf(1)) + "' payload='junk'/>" +
                            JPEGItem(Form::Packet, 2);
  CmVZKSourceToolkit root(Decoder(items).c_str());
  root.Connect(0);
  EXPECT_EQ(Fetch(root, root.MoveTo(TimeOf(0), MoveAfter)).time, TimeOf(2));
  EXPECT_EQ(Fetch(root, root.MoveTo(TimeOf(2), MoveBefore)).time, TimeOf(0));
  EXPECT_EQ(Fetch(root, root.MoveNext()).time, TimeOf(2));
}

TEST(VideoDecoderToolkit, LiveDecodesTheStreamAsItComesAndKeyFramesOnlyEachItem) {
  const CmBytes garbage = NmTestSupport::Pattern(100, 3);
  const std::string items = JPEGItem(Form::Packet, 0) + JPEGItem(Form::Raw, 1) +
                            "<item kind='outofband' begin='5' payload='note'/>" +
                            JPEGItem(Form::Packet, 2, "", &garbage) + JPEGItem(Form::Block, 3);
  CmVZKSourceToolkit root(Decoder(items).c_str());
  root.Connect(0);
  root.StartLiveStream();
  SmFetched picture = FetchLive(root);
  ASSERT_EQ(picture.status, StatusSuccess);
  EXPECT_EQ(picture.time, TimeOf(0));
  EXPECT_NEAR(picture.luma, LevelOf(0), 3);
  EXPECT_NEAR(FetchLive(root).luma, LevelOf(1), 3) << "a raw JPEG";
  picture = FetchLive(root);
  EXPECT_NE(dynamic_cast<ImOutOfBandData*>(picture.item.get()), nullptr) << "passed on as it is";
  picture = FetchLive(root);
  EXPECT_EQ(picture.status, StatusNoItem) << "a record that does not decode";
  EXPECT_EQ(picture.item, nullptr);
  EXPECT_EQ(FetchLive(root).time, TimeOf(3));
  EXPECT_EQ(FetchLive(root, 0).status, StatusNoItem) << "the stream has ended";

  EXPECT_THROW(root.MoveFirst(), ImInvalidOperationError);
  root.StopLiveStream();
  EXPECT_EQ(root.MoveFirst(), StatusSuccess);

  // Key frames only, each item gives a picture, an empty one for what does
  // not decode.
  CmVZKSourceToolkit alone(Decoder(JPEGItem(Form::Packet, 0) +
                                       JPEGItem(Form::Packet, 1, "", &garbage) +
                                       JPEGItem(Form::Block, 2),
                                   "", "key_frames_only_video_decoder")
                               .c_str());
  alone.Connect(0);
  alone.StartLiveStream();
  for (const int i : {0, 1, 2}) {
    picture = FetchLive(alone, 100);
    ASSERT_EQ(picture.status, StatusSuccess);
    ASSERT_NE(dynamic_cast<CmImageData*>(picture.item.get()), nullptr);
    EXPECT_NEAR(picture.luma, i == 1 ? -1 : LevelOf(i), i == 1 ? 0 : 3);
  }
}

TEST(VideoDecoderToolkit, OutputKeys) {
  for (const std::string keys :
       {"luminance_only='true'", "luminance_only='yes' "
                                 "flipped_vertically='true' apply_privacy_mask='false'"}) {
    SCOPED_TRACE(keys);
    const bool exact = keys == "luminance_only='true'";
    CmVZKSourceToolkit root(
        Decoder(JPEGItem(Form::Packet, 2, "<property name='Privacy_Mask' value='2x1;00'/>"), keys)
            .c_str());
    CmPropertyNameSet supported;
    root.Connect(exact ? CmPropertyNameSet{"Transcoded", "Custom"}
                       : CmPropertyNameSet{"Privacy_Mask", "Transcoded", "Custom"},
                 supported, 0);
    const SmFetched picture = Fetch(root, root.MoveFirst());
    auto* image = dynamic_cast<CmImageData*>(picture.item.get());
    ASSERT_NE(image, nullptr);
    EXPECT_NEAR(picture.luma, LevelOf(2), 3);
    EXPECT_EQ(image->GetImage().GetColorFormat() == NmMediaProcessing::Gray, exact)
        << "only the exact text turns luminance on";
    EXPECT_EQ(image->GetImage().GetAttributes().orientation.flippedVertically, !exact);
    EXPECT_EQ(image->GetProperty("Privacy_Mask"), nullptr) << "a decoder never copies the mask";
    const auto* transcoded =
        dynamic_cast<const ImBooleanProperty*>(image->GetProperty("Transcoded"));
    ASSERT_NE(transcoded, nullptr);
    EXPECT_TRUE(transcoded->GetValue());
  }
}

namespace {

int LumaAt(const ImData* item, uint64_t x, uint64_t y) {
  const auto* image = dynamic_cast<const CmImageData*>(item);
  if (image == nullptr || !image->GetImage().IsValid()) {
    return -1;
  }
  const auto plane = image->GetImage().Allocator().GetPlane(0);
  return plane.data[y * plane.rowStride + x];
}

} // namespace

// The mask of each item is burnt into its picture, in playback and live; a
// mask text that is no mask gives no picture rather than an unmasked one.
TEST(VideoDecoderToolkit, PrivacyMaskIsBurntIn) {
  const std::string items =
      JPEGItem(Form::Packet, 3, "<property name='Privacy_Mask' value='2x1;10'/>") +
      JPEGItem(Form::Packet, 4) +
      JPEGItem(Form::Packet, 5, "<property name='Privacy_Mask' value='not a mask'/>");
  for (const bool live : {false, true}) {
    SCOPED_TRACE(live ? "live" : "playback");
    for (const bool apply : {true, false}) {
      CmVZKSourceToolkit root(Decoder(items, apply ? "" : "apply_privacy_mask='false'").c_str());
      root.Connect(0);
      std::vector<std::unique_ptr<ImData>> pictures;
      if (live) {
        root.StartLiveStream();
      }
      for (int i = 0; i < 3; ++i) {
        if (!live) {
          ASSERT_EQ(i == 0 ? root.MoveFirst() : root.MoveNext(), StatusSuccess);
        }
        SmFetched picture = live ? FetchLive(root) : Fetch(root);
        ASSERT_EQ(picture.status, StatusSuccess);
        pictures.push_back(std::move(picture.item));
      }
      if (apply) {
        EXPECT_LE(LumaAt(pictures[0].get(), 5, 16), 3) << "the left half is masked";
        EXPECT_NEAR(LumaAt(pictures[0].get(), 40, 16), LevelOf(3), 3);
        EXPECT_NEAR(LumaAt(pictures[1].get(), 5, 16), LevelOf(4), 3) << "no mask, none burnt";
        EXPECT_EQ(LumaAt(pictures[2].get(), 5, 16), -1) << "a broken mask shows nothing";
      } else {
        EXPECT_NEAR(LumaAt(pictures[0].get(), 5, 16), LevelOf(3), 3);
        EXPECT_NEAR(LumaAt(pictures[2].get(), 5, 16), LevelOf(5), 3);
      }
    }
  }
}

// Items that meet the conditions go on as they are stored; the others are
// decoded. What needs no decoding goes on even when it would not decode, a
// picture whose mask cannot be burnt in never goes out unmasked, and the steps
// go past both.
TEST(ConditionalVideoDecoderToolkit, DecodesOnlyWhatFailsTheConditionsAndNeverLeaksAMask) {
  const CmBytes garbage = NmTestSupport::Pattern(300, 9);
  const std::string mask = "<property name='Privacy_Mask' value='2x1;10'/>";
  const auto h264 =
      NmTestSupport::BuildVideoPacket({.codec = 10,
                                       .syncTime = static_cast<uint64_t>(TimeOf(3)),
                                       .frameTime = static_cast<uint64_t>(TimeOf(3))});
  const std::string items =
      JPEGItem(Form::Packet, 0) + JPEGItem(Form::Packet, 1, mask) + JPEGItem(Form::Block, 2) +
      "<item begin='" + std::to_string(TimeOf(3)) + "' payload_hex='" + Hex(h264) + "'/>" +
      JPEGItem(Form::Packet, 4, mask, &garbage) + JPEGItem(Form::Block, 5, "", &garbage) +
      "<item begin='" + std::to_string(TimeOf(6)) + "' payload='junk'>" + mask + "</item>";
  CmVZKSourceToolkit root(Decoder(items,
                                  "pass_privacy_mask='yes' pass_format='jpeg' pass_width='48' "
                                  "pass_height='32'",
                                  "conditional_video_decoder")
                              .c_str());
  ASSERT_TRUE(root.IsConfigured());
  root.Connect(0);
  auto kindAt = [&] {
    SmFetched picture = Fetch(root);
    if (picture.status != StatusSuccess) {
      return std::string("none");
    }
    return std::string(dynamic_cast<CmImageData*>(picture.item.get()) ? "decoded" : "stored") +
           "@" + std::to_string(picture.item->GetBeginTime() - T0);
  };
  EXPECT_EQ(kindAt(), "none") << "nothing before the first move";
  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  std::vector<std::string> forwards = {kindAt()};
  while (root.MoveNext() == StatusSuccess) {
    forwards.push_back(kindAt());
  }
  // H.264 is not the format wanted, but the record holds no decodable
  // picture: it goes on as stored rather than not at all.
  EXPECT_EQ(forwards, (std::vector<std::string>{"stored@0", "decoded@40", "stored@80", "stored@120",
                                                "none", "stored@200", "none"}));
  std::vector<std::string> backwards;
  while (root.MovePrevious() == StatusSuccess) {
    backwards.insert(backwards.begin(), kindAt());
  }
  forwards.pop_back();
  EXPECT_EQ(backwards, forwards);
  ASSERT_EQ(root.MoveTo(TimeOf(1), MoveAtOrBefore), StatusSuccess);
  EXPECT_EQ(kindAt(), "decoded@40");
  EXPECT_THROW(root.StartLiveStream(), ImInvalidOperationError);

  CmVZKSourceToolkit other(
      Decoder(JPEGItem(Form::Packet, 0), "pass_width='640'", "conditional_video_decoder").c_str());
  other.Connect(0);
  ASSERT_EQ(other.MoveFirst(), StatusSuccess);
  EXPECT_NEAR(Fetch(other).luma, LevelOf(0), 3) << "a picture of another size is decoded";
}

// A record whose time no time stamp can hold is no reason to fail a move.
TEST(ConditionalVideoDecoderToolkit, RecordsBeyondTimeAreDecodedOrNothing) {
  const std::string items =
      JPEGItem(Form::Packet, 0) + "<item begin='" + std::to_string(TimeOf(1)) + "' payload_hex='" +
      Hex(NmTestSupport::BuildVideoPacket(
          {.codec = 1, .syncTime = ~0ULL - 5, .frameTime = ~0ULL - 5, .payload = {1, 2, 3}})) +
      "'/>";
  CmVZKSourceToolkit root(
      Decoder(items, "pass_format='jpeg'", "conditional_video_decoder").c_str());
  root.Connect(0);
  EXPECT_NO_THROW(root.MoveTo(TimeOf(1), MoveAtOrBefore));
  EXPECT_NO_THROW(Fetch(root));
  EXPECT_NE(Fetch(root, root.MoveFirst()).item, nullptr);
}

namespace {

// A picture whose frame header claims a size far beyond what its data holds.
CmBytes ClaimingSize(CmBytes jpeg, uint16_t width, uint16_t height) {
  for (size_t i = 0; i + 8 < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
      jpeg[i + 5] = static_cast<uint8_t>(height >> 8);
      jpeg[i + 6] = static_cast<uint8_t>(height);
      jpeg[i + 7] = static_cast<uint8_t>(width >> 8);
      jpeg[i + 8] = static_cast<uint8_t>(width);
      return jpeg;
    }
  }
  ADD_FAILURE() << "no frame header";
  return jpeg;
}

} // namespace

// Every move lands on the right picture in every form of record, at the ends,
// between pictures and beyond both ends, with its properties and neighbours'
// times; a failed move
// keeps the picture there was. The key-frames-only decoder decodes each item
// alone wherever the moves go, and raw JPEG takes the source's item times. A picture that cannot be
// decoded does not end playback: a move lands on it and says so through GetData, and the next step
// goes past it, in both directions, at the first and last picture and at the start of a sequence
// too. Sequence moves land on a sequence's first picture, wherever reading
// ahead has left the upstream.
TEST(VideoDecoderToolkit, PlaybackLandsOnEveryPictureAndPassesOverThoseThatDoNotDecode) {
  const CmBytes huge = ClaimingSize(NmTestSupport::FlatJPEG(10), 65500, 65500);
  // Headers up to the frame's, then no scan: a JPEG to look at, which does not
  // decode.
  const CmBytes headless = [] {
    CmBytes jpeg = NmTestSupport::FlatJPEG(20);
    for (size_t i = 0; i + 3 < jpeg.size(); ++i) {
      if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
        jpeg.resize(i + 2 + (jpeg[i + 2] << 8 | jpeg[i + 3]));
        break;
      }
    }
    const CmBytes junk = NmTestSupport::Pattern(100, 9);
    jpeg.insert(jpeg.end(), junk.begin(), junk.end());
    return jpeg;
  }();
  const CmBytes garbage = NmTestSupport::Pattern(200, 7);
  // With damage, pictures 0, 3 and 5 are bad: the first, the first of the
  // second sequence and the last. Asking for the neighbours' times makes the
  // decoder keep them decoded beside the current picture, and step through them.
  for (const std::string element : {"video_decoder", "key_frames_only_video_decoder"})
    for (const bool damaged : {false, true})
      for (const bool neighbours : {false, true})
        for (const Form form : {Form::Raw, Form::Block, Form::Packet, Form::MultiPacket}) {
          if (damaged && element != "video_decoder") {
            continue;
          }
          SCOPED_TRACE(testing::Message()
                       << element << " form " << static_cast<int>(form) << " neighbours "
                       << neighbours << " damaged " << damaged);
          auto bad = [&](int i) { return damaged && (i == 0 || i == 3 || i == 5); };
          // Raw JPEG that is no JPEG at all is no picture, and is stepped over.
          const CmBytes* replacements[] = {
              &huge, nullptr, nullptr, &headless, nullptr, form == Form::Raw ? &huge : &garbage};
          std::string items;
          for (int i = 0; i < PictureCount; ++i) {
            items += JPEGItem(form, i,
                              "<property name='Sequence_Number' value='" + std::to_string(100 + i) +
                                  "'/>",
                              bad(i) ? replacements[i] : nullptr);
          }
          CmVZKSourceToolkit root(Decoder(items, "", element).c_str());
          ASSERT_TRUE(root.IsConfigured());
          CmPropertyNameSet supported;
          root.Connect(
              neighbours ? CmPropertyNameSet{"Sequence_Number", "Prev_Begin_Time", "Next_End_Time"}
                         : CmPropertyNameSet{},
              supported, 0);
          EXPECT_EQ(Fetch(root).status, StatusNoItem) << "nothing before the first move";
          int at = -1;
          // The picture a successful move landed on is picture i.
          auto expectAt = [&](int i, uint32_t moved = StatusSuccess) {
            ASSERT_EQ(moved, StatusSuccess) << "to picture " << i;
            at = i;
            SmFetched picture = Fetch(root);
            if (bad(i)) {
              EXPECT_EQ(picture.status, StatusNoItem) << "picture " << i;
              EXPECT_EQ(picture.item, nullptr);
              return;
            }
            EXPECT_EQ(picture.status, StatusSuccess) << "picture " << i;
            // Decoded alone, a raw JPEG has no time of its own.
            if (element == "video_decoder" || form != Form::Raw) {
              EXPECT_EQ(picture.time, TimeOf(i));
            }
            EXPECT_NEAR(picture.luma, LevelOf(i), 3);
            if (neighbours && picture.item) {
              EXPECT_EQ(StringProperty(*picture.item, "Sequence_Number"), std::to_string(100 + i));
              // A neighbour that does not decode is a neighbour all the same;
              // asking for one time of a side gives both.
              for (const char* name : {"Prev_Begin_Time", "Prev_End_Time"}) {
                EXPECT_EQ(TimeProperty(*picture.item, name), i > 0 ? TimeOf(i - 1) : -1) << name;
              }
              for (const char* name : {"Next_Begin_Time", "Next_End_Time"}) {
                EXPECT_EQ(TimeProperty(*picture.item, name),
                          i + 1 < PictureCount ? TimeOf(i + 1) : -1)
                    << name;
              }
            }
          };

          expectAt(0, root.MoveFirst());
          for (int i = 1; i < PictureCount; ++i) {
            expectAt(i, root.MoveNext());
          }
          EXPECT_EQ(root.MoveNext(), StatusNoItem);
          expectAt(PictureCount - 1);
          for (int i = PictureCount - 2; i >= 0; --i) {
            expectAt(i, root.MovePrevious());
          }
          EXPECT_EQ(root.MovePrevious(), StatusNoItem);
          expectAt(1, root.MoveNext());

          // Sequences start at pictures 0 and 3.
          ASSERT_EQ(root.MoveFirst(), StatusSuccess);
          expectAt(3, root.MoveNextSequence());
          EXPECT_EQ(root.MoveNextSequence(), StatusNoItem) << "the last sequence has no next one";
          expectAt(4, root.MoveNext());
          expectAt(0, root.MovePreviousSequence());
          expectAt(PictureCount - 1, root.MoveLast());
          expectAt(0, root.MovePreviousSequence());
          expectAt(1, root.MoveNext());

          for (const SmMoveMode mode :
               {MoveClosest, MoveBefore, MoveAtOrBefore, MoveAfter, MoveAtOrAfter}) {
            std::vector<int64_t> probes{T0 - 1000, TimeOf(PictureCount - 1) + 1000};
            for (int i = 0; i < PictureCount; ++i) {
              probes.insert(probes.end(), {TimeOf(i) - 1, TimeOf(i), TimeOf(i) + 1, TimeOf(i) + 20,
                                           TimeOf(i) + 21});
            }
            for (const int64_t t : probes) {
              SCOPED_TRACE(testing::Message() << "mode " << mode << " at T0+" << t - T0);
              const std::optional<int> expected = Expected(t, mode);
              ASSERT_EQ(root.MoveTo(t, mode), expected ? StatusSuccess : StatusNoItem);
              // Only the decoder that plays keeps the picture of a failed move.
              if (expected || element == "video_decoder") {
                expectAt(expected ? *expected : at);
              }
              // Stepping on from there goes to the neighbour, bad or not.
              if (expected && *expected + 1 < PictureCount) {
                expectAt(*expected + 1, root.MoveNext());
                expectAt(*expected, root.MovePrevious());
              }
            }
          }
          // Nothing begins before the earliest time, and everything at or
          // after it; the key-frames-only decoder hands the time on as it is.
          if (element == "key_frames_only_video_decoder") {
            const int64_t earliest = std::numeric_limits<int64_t>::min();
            EXPECT_EQ(root.MoveTo(earliest, MoveBefore), StatusNoItem);
            expectAt(0, root.MoveTo(earliest, MoveAtOrAfter));
          }
        }
}
