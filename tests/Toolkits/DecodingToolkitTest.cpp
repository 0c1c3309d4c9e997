#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"

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

enum class Form { RawJPEG, Block, Packet, MultiPacket };

// One scripted item holding a JPEG picture in the given form.
std::string JPEGItem(Form form, int picture, const std::string& inner = "",
                     const CmBytes* replacement = nullptr) {
  const CmBytes jpeg = replacement ? *replacement : NmTestSupport::FlatJPEG(LevelOf(picture));
  const uint64_t t = static_cast<uint64_t>(TimeOf(picture));
  CmBytes record;
  switch (form) {
  case Form::RawJPEG:
    record = jpeg;
    break;
  case Form::Block:
    record = NmTestSupport::BuildBlock({.type = 1,
                                        .beginTime = t,
                                        .endTime = t,
                                        .width = 48,
                                        .height = 32,
                                        .imageCount = 1,
                                        .payload = jpeg});
    break;
  case Form::Packet:
    record = NmTestSupport::BuildVideoPacket(
        {.codec = 1, .sync = true, .syncTime = t, .frameTime = t, .payload = jpeg});
    break;
  case Form::MultiPacket:
    // The sound of the moment first: the picture is the first video packet.
    record = NmTestSupport::BuildMultiPacket(
        {.packets = {
             NmTestSupport::BuildAudioPacket({.time = t}),
             NmTestSupport::BuildVideoPacket(
                 {.codec = 1, .sync = true, .syncTime = t, .frameTime = t, .payload = jpeg}),
             NmTestSupport::BuildVideoPacket({.codec = 1,
                                              .sync = true,
                                              .syncTime = t + 1,
                                              .frameTime = t + 1,
                                              .payload = NmTestSupport::FlatJPEG(0)})}});
    break;
  }
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

struct SmPicture {
  uint32_t status = StatusNoItem;
  int64_t time = 0;
  int luma = -1;
  std::unique_ptr<ImData> item;
};

SmPicture Fetch(ImPlaybackSourceToolkit& toolkit) {
  SmPicture out;
  ImData* raw = nullptr;
  out.status = toolkit.GetData(&raw);
  out.item.reset(raw);
  if (auto* image = dynamic_cast<CmImageData*>(raw); image && image->GetImage().IsValid()) {
    out.time = image->GetBeginTime();
    out.luma = NmTestSupport::MiddleLuma(image->GetImage());
  }
  return out;
}

// The picture a move selects among pictures 0 .. PictureCount - 1.
std::optional<int> Expected(int64_t t, SmMoveMode mode) {
  std::optional<int> out;
  for (int i = 0; i < PictureCount; ++i) {
    const int64_t f = TimeOf(i);
    const bool take = mode == MoveAfter       ? f > t && !out
                      : mode == MoveAtOrAfter ? f >= t && !out
                      : mode == MoveBefore    ? f < t
                      : mode == MoveAtOrBefore
                          ? f <= t
                          : !out || std::llabs(f - t) <= std::llabs(TimeOf(*out) - t);
    if (take) {
      out = i;
    }
  }
  return out;
}

int64_t TimeProperty(const ImData& item, const std::string& name) {
  const auto* property = dynamic_cast<const ImUTCTimeProperty*>(item.GetProperty(name));
  return property ? property->GetValue() : -1;
}

std::string StringProperty(const ImData& item, const std::string& name) {
  const auto* property = dynamic_cast<const ImStringProperty*>(item.GetProperty(name));
  return property ? property->GetValue() : "absent";
}

size_t Count(const std::string& text, const std::string& word) {
  size_t count = 0;
  for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    ++count;
  }
  return count;
}

} // namespace

// Every move lands on the right picture in every form, at the ends, between
// pictures and beyond both ends; a failed move keeps the picture there was.
TEST(VideoDecoderToolkit, MovesLandOnTheRightPicture) {
  for (const Form form : {Form::RawJPEG, Form::Block, Form::Packet, Form::MultiPacket}) {
    SCOPED_TRACE(static_cast<int>(form));
    CmVZKSourceToolkit root(Decoder(Pictures(form)).c_str());
    ASSERT_TRUE(root.IsConfigured());
    root.Connect(0);
    EXPECT_EQ(Fetch(root).status, StatusNoItem) << "nothing before the first move";

    ASSERT_EQ(root.MoveFirst(), StatusSuccess);
    SmPicture picture = Fetch(root);
    ASSERT_EQ(picture.status, StatusSuccess);
    EXPECT_EQ(picture.time, TimeOf(0));
    EXPECT_NEAR(picture.luma, LevelOf(0), 3);
    for (int i = 1; i < PictureCount; ++i) {
      ASSERT_EQ(root.MoveNext(), StatusSuccess) << i;
      picture = Fetch(root);
      EXPECT_EQ(picture.time, TimeOf(i));
      EXPECT_NEAR(picture.luma, LevelOf(i), 3);
    }
    EXPECT_EQ(root.MoveNext(), StatusNoItem);
    EXPECT_EQ(Fetch(root).time, TimeOf(PictureCount - 1)) << "a failed move keeps the picture";
    for (int i = PictureCount - 2; i >= 0; --i) {
      ASSERT_EQ(root.MovePrevious(), StatusSuccess) << i;
      EXPECT_EQ(Fetch(root).time, TimeOf(i));
    }
    EXPECT_EQ(root.MovePrevious(), StatusNoItem);
    ASSERT_EQ(root.MoveLast(), StatusSuccess);
    EXPECT_EQ(Fetch(root).time, TimeOf(PictureCount - 1));

    for (const SmMoveMode mode :
         {MoveClosest, MoveBefore, MoveAtOrBefore, MoveAfter, MoveAtOrAfter}) {
      std::vector<int64_t> probes{T0 - 1000, T0 - 1, TimeOf(PictureCount - 1) + 1,
                                  TimeOf(PictureCount - 1) + 1000};
      for (int i = 0; i < PictureCount; ++i) {
        probes.insert(probes.end(), {TimeOf(i), TimeOf(i) + 1, TimeOf(i) + 20, TimeOf(i) + 21});
      }
      for (const int64_t t : probes) {
        SCOPED_TRACE(testing::Message() << "mode " << mode << " at T0+" << t - T0);
        const int64_t before = Fetch(root).time;
        const std::optional<int> expected = Expected(t, mode);
        ASSERT_EQ(root.MoveTo(t, mode), expected ? StatusSuccess : StatusNoItem);
        picture = Fetch(root);
        ASSERT_EQ(picture.status, StatusSuccess);
        if (expected) {
          EXPECT_EQ(picture.time, TimeOf(*expected));
          EXPECT_NEAR(picture.luma, LevelOf(*expected), 3);
        } else {
          EXPECT_EQ(picture.time, before);
        }
      }
    }
  }
}

// Stepping back and forth next to the picture shown decodes from what is at
// hand: no call reaches the source.
TEST(VideoDecoderToolkit, SteppingAroundThePictureMakesNoUpstreamCall) {
  ScriptedJournal journal(BinaryDirectory());
  ASSERT_TRUE(journal.IsOpen());
  CmVZKSourceToolkit root(Decoder(Pictures(Form::Packet)).c_str());
  CmPropertyNameSet supported;
  root.Connect({"Next_Begin_Time", "Prev_Begin_Time"}, supported, 0);
  ASSERT_EQ(root.MoveTo(TimeOf(2), MoveAtOrAfter), StatusSuccess);
  ASSERT_EQ(Fetch(root).time, TimeOf(2));
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
    ASSERT_EQ(root.MoveNext(), StatusSuccess);
    ASSERT_EQ(Fetch(root).time, TimeOf(i));
  }
  EXPECT_LE(Count(journal.Text(), "GetData"), 2u * (PictureCount - 3)) << journal.Text();
}

TEST(VideoDecoderToolkit, PropertiesOfEachPicture) {
  const std::string items =
      JPEGItem(Form::Packet, 0,
               "<property name='Sequence_Number' value='100'/>"
               "<property name='Privacy_Mask' value='2x1;10'/>") +
      JPEGItem(Form::Packet, 1, "<property name='Sequence_Number' value='101'/>") +
      JPEGItem(Form::Packet, 2, "<property name='Sequence_Number' value='102'/>");
  CmVZKSourceToolkit root(Decoder(items).c_str());
  CmPropertyNameSet supported;
  root.Connect({"Sequence_Number", "Prev_Begin_Time", "Prev_End_Time", "Next_Begin_Time",
                "Next_End_Time", "Transcoded", "Custom"},
               supported, 0);
  EXPECT_EQ(supported, (CmPropertyNameSet{"Sequence_Number", "Prev_Begin_Time", "Prev_End_Time",
                                          "Next_Begin_Time", "Next_End_Time", "Transcoded"}))
      << "the mask is fetched for the decoder only";

  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  SmPicture first = Fetch(root);
  ASSERT_TRUE(first.item);
  EXPECT_EQ(StringProperty(*first.item, "Sequence_Number"), "100");
  EXPECT_EQ(first.item->GetProperty("Privacy_Mask"), nullptr);
  EXPECT_EQ(TimeProperty(*first.item, "Prev_Begin_Time"), -1) << "nothing before the first";
  EXPECT_EQ(TimeProperty(*first.item, "Next_Begin_Time"), TimeOf(1));
  EXPECT_EQ(TimeProperty(*first.item, "Next_End_Time"), TimeOf(1));
  const auto* transcoded =
      dynamic_cast<const ImBooleanProperty*>(first.item->GetProperty("Transcoded"));
  ASSERT_NE(transcoded, nullptr);
  EXPECT_TRUE(transcoded->GetValue());

  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  SmPicture middle = Fetch(root);
  EXPECT_EQ(StringProperty(*middle.item, "Sequence_Number"), "101");
  EXPECT_EQ(TimeProperty(*middle.item, "Prev_Begin_Time"), TimeOf(0));
  EXPECT_EQ(TimeProperty(*middle.item, "Prev_End_Time"), TimeOf(0));
  EXPECT_EQ(TimeProperty(*middle.item, "Next_Begin_Time"), TimeOf(2));

  ASSERT_EQ(root.MoveLast(), StatusSuccess);
  SmPicture last = Fetch(root);
  EXPECT_EQ(StringProperty(*last.item, "Sequence_Number"), "102");
  EXPECT_EQ(TimeProperty(*last.item, "Next_Begin_Time"), -1) << "nothing after the last";
  EXPECT_EQ(TimeProperty(*last.item, "Prev_Begin_Time"), TimeOf(1));
}

// Damaged records never crash: a picture that cannot be decoded is no
// picture, and the ones around it still come.
TEST(VideoDecoderToolkit, DamagedRecordsGiveNoPicture) {
  const CmBytes truncated = [] {
    CmBytes jpeg = NmTestSupport::FlatJPEG(LevelOf(1));
    jpeg.resize(jpeg.size() / 3);
    return jpeg;
  }();
  const CmBytes garbage = NmTestSupport::Pattern(200, 7);
  const std::string items = JPEGItem(Form::Packet, 0) + JPEGItem(Form::Packet, 1, "", &garbage) +
                            "<item begin='" + std::to_string(TimeOf(2)) + "' payload='junk'/>" +
                            JPEGItem(Form::Block, 3, "", &truncated) + JPEGItem(Form::Packet, 4);
  CmVZKSourceToolkit root(Decoder(items).c_str());
  root.Connect(0);
  for (const int64_t t : {TimeOf(1), TimeOf(2), TimeOf(3)}) {
    SCOPED_TRACE(t - T0);
    root.MoveTo(t, MoveAtOrAfter);
    SmPicture picture = Fetch(root);
    // Whatever comes, it is a real picture of a real record or nothing.
    if (picture.status == StatusSuccess && picture.luma >= 0) {
      EXPECT_TRUE(picture.time == TimeOf(0) || picture.time == TimeOf(3) ||
                  picture.time == TimeOf(4))
          << picture.time - T0;
    }
  }
  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  EXPECT_EQ(Fetch(root).time, TimeOf(0));
  ASSERT_EQ(root.MoveTo(TimeOf(4), MoveAtOrBefore), StatusSuccess);
  EXPECT_EQ(Fetch(root).time, TimeOf(4));
}

// An item that holds no video at all is stepped over in both directions.
TEST(VideoDecoderToolkit, ItemsWithoutVideoAreSteppedOver) {
  const std::string items = JPEGItem(Form::Packet, 0) + "<item begin='" +
                            std::to_string(TimeOf(1)) + "' payload='junk'/>" +
                            JPEGItem(Form::Packet, 2);
  CmVZKSourceToolkit root(Decoder(items).c_str());
  root.Connect(0);
  ASSERT_EQ(root.MoveTo(TimeOf(0), MoveAfter), StatusSuccess);
  EXPECT_EQ(Fetch(root).time, TimeOf(2));
  ASSERT_EQ(root.MoveTo(TimeOf(2), MoveBefore), StatusSuccess);
  EXPECT_EQ(Fetch(root).time, TimeOf(0));
  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  EXPECT_EQ(Fetch(root).time, TimeOf(2));
}

TEST(VideoDecoderToolkit, LiveDecodesTheStreamAsItComes) {
  const CmBytes garbage = NmTestSupport::Pattern(100, 3);
  const std::string items = JPEGItem(Form::Packet, 0) + JPEGItem(Form::RawJPEG, 1) +
                            "<item kind='outofband' begin='5' payload='note'/>" +
                            JPEGItem(Form::Packet, 2, "", &garbage) + JPEGItem(Form::Block, 3);
  CmVZKSourceToolkit root(Decoder(items).c_str());
  CmPropertyNameSet supported;
  root.Connect({"Transcoded"}, supported, 0);
  root.StartLiveStream();
  ImData* raw = nullptr;
  ASSERT_EQ(root.GetLiveData(&raw, 1000), StatusSuccess);
  std::unique_ptr<ImData> item(raw);
  auto* image = dynamic_cast<CmImageData*>(item.get());
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->GetBeginTime(), TimeOf(0));
  EXPECT_NEAR(NmTestSupport::MiddleLuma(image->GetImage()), LevelOf(0), 3);
  EXPECT_NE(item->GetProperty("Transcoded"), nullptr);

  ASSERT_EQ(root.GetLiveData(&raw, 1000), StatusSuccess);
  item.reset(raw);
  image = dynamic_cast<CmImageData*>(item.get());
  ASSERT_NE(image, nullptr);
  EXPECT_NEAR(NmTestSupport::MiddleLuma(image->GetImage()), LevelOf(1), 3) << "a raw JPEG";

  ASSERT_EQ(root.GetLiveData(&raw, 1000), StatusSuccess);
  item.reset(raw);
  EXPECT_NE(dynamic_cast<ImOutOfBandData*>(item.get()), nullptr) << "passed on as it is";

  EXPECT_EQ(root.GetLiveData(&raw, 1000), StatusNoItem) << "a record that does not decode";
  EXPECT_EQ(raw, nullptr);

  ASSERT_EQ(root.GetLiveData(&raw, 1000), StatusSuccess);
  item.reset(raw);
  image = dynamic_cast<CmImageData*>(item.get());
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->GetBeginTime(), TimeOf(3));
  EXPECT_EQ(root.GetLiveData(&raw, 0), StatusNoItem) << "the stream has ended";

  EXPECT_THROW(root.MoveFirst(), ImInvalidOperationError);
  root.StopLiveStream();
  EXPECT_EQ(root.MoveFirst(), StatusSuccess);
}

TEST(VideoDecoderToolkit, OutputKeys) {
  const std::string items = JPEGItem(Form::Packet, 2);
  {
    CmVZKSourceToolkit root(Decoder(items, "luminance_only='true'").c_str());
    root.Connect(0);
    ASSERT_EQ(root.MoveFirst(), StatusSuccess);
    SmPicture picture = Fetch(root);
    auto* image = dynamic_cast<CmImageData*>(picture.item.get());
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->GetImage().GetColorFormat(), NmMediaProcessing::Gray);
    EXPECT_NEAR(picture.luma, LevelOf(2), 3);
  }
  {
    CmVZKSourceToolkit root(
        Decoder(items, "luminance_only='yes' flipped_vertically='true' apply_privacy_mask='false'")
            .c_str());
    CmPropertyNameSet supported;
    root.Connect({"Privacy_Mask"}, supported, 0);
    EXPECT_EQ(supported.count("Privacy_Mask"), 1u);
    ASSERT_EQ(root.MoveFirst(), StatusSuccess);
    SmPicture picture = Fetch(root);
    auto* image = dynamic_cast<CmImageData*>(picture.item.get());
    ASSERT_NE(image, nullptr);
    EXPECT_NE(image->GetImage().GetColorFormat(), NmMediaProcessing::Gray)
        << "only the exact text turns luminance on";
    EXPECT_TRUE(image->GetImage().GetAttributes().orientation.flippedVertically);
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
      } else {
        ASSERT_EQ(root.MoveFirst(), StatusSuccess);
      }
      for (int i = 0; i < 3; ++i) {
        ImData* raw = nullptr;
        if (live) {
          ASSERT_EQ(root.GetLiveData(&raw, 1000), StatusSuccess);
        } else {
          if (i > 0) {
            ASSERT_EQ(root.MoveNext(), StatusSuccess);
          }
          ASSERT_EQ(root.GetData(&raw), StatusSuccess);
        }
        pictures.emplace_back(raw);
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

// Each item decoded alone; moves go to the items upstream.
TEST(KeyFramesOnlyVideoDecoderToolkit, DecodesEachItemAloneWhereverTheMovesGo) {
  for (const Form form : {Form::RawJPEG, Form::Block, Form::Packet, Form::MultiPacket}) {
    SCOPED_TRACE(static_cast<int>(form));
    CmVZKSourceToolkit root(Decoder(Pictures(form), "", "key_frames_only_video_decoder").c_str());
    ASSERT_TRUE(root.IsConfigured());
    CmPropertyNameSet supported;
    root.Connect({"Sequence_Number", "Prev_Begin_Time", "Next_End_Time"}, supported, 0);
    ASSERT_EQ(root.MoveFirst(), StatusSuccess);
    SmPicture picture = Fetch(root);
    ASSERT_EQ(picture.status, StatusSuccess);
    EXPECT_NEAR(picture.luma, LevelOf(0), 3);
    EXPECT_EQ(TimeProperty(*picture.item, "Prev_Begin_Time"), -1);
    EXPECT_EQ(TimeProperty(*picture.item, "Next_End_Time"), TimeOf(1));
    EXPECT_EQ(StringProperty(*picture.item, "Sequence_Number"), "100");
    for (int i = 1; i < PictureCount; ++i) {
      ASSERT_EQ(root.MoveNext(), StatusSuccess);
      picture = Fetch(root);
      EXPECT_NEAR(picture.luma, LevelOf(i), 3) << i;
      EXPECT_EQ(TimeProperty(*picture.item, "Prev_Begin_Time"), TimeOf(i - 1));
      EXPECT_EQ(TimeProperty(*picture.item, "Next_End_Time"),
                i + 1 < PictureCount ? TimeOf(i + 1) : -1);
    }
    EXPECT_EQ(root.MoveNext(), StatusNoItem);

    // The item times of raw JPEG are the source's; the others carry their own.
    for (const SmMoveMode mode :
         {MoveClosest, MoveBefore, MoveAtOrBefore, MoveAfter, MoveAtOrAfter}) {
      for (const int64_t t : {T0 - 5, TimeOf(2), TimeOf(2) + 15, TimeOf(2) + 25, TimeOf(5) + 5}) {
        SCOPED_TRACE(testing::Message() << "mode " << mode << " at T0+" << t - T0);
        const std::optional<int> expected = Expected(t, mode);
        ASSERT_EQ(root.MoveTo(t, mode), expected ? StatusSuccess : StatusNoItem);
        if (expected) {
          EXPECT_NEAR(Fetch(root).luma, LevelOf(*expected), 3);
        }
      }
    }
    // Nothing begins before the earliest time, and everything at or after it.
    const int64_t earliest = std::numeric_limits<int64_t>::min();
    EXPECT_EQ(root.MoveTo(earliest, MoveBefore), StatusNoItem);
    ASSERT_EQ(root.MoveTo(earliest, MoveAtOrAfter), StatusSuccess);
    EXPECT_NEAR(Fetch(root).luma, LevelOf(0), 3);
  }
}

TEST(KeyFramesOnlyVideoDecoderToolkit, LiveAndDamagedItems) {
  const CmBytes garbage = NmTestSupport::Pattern(100, 3);
  const std::string items = JPEGItem(Form::Packet, 0) + JPEGItem(Form::Packet, 1, "", &garbage) +
                            JPEGItem(Form::Block, 2);
  CmVZKSourceToolkit root(Decoder(items, "", "key_frames_only_video_decoder").c_str());
  root.Connect(0);
  ASSERT_EQ(root.MoveTo(TimeOf(1), MoveAtOrBefore), StatusSuccess);
  EXPECT_EQ(Fetch(root).status, StatusNoItem) << "a record that does not decode";
  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  EXPECT_NEAR(Fetch(root).luma, LevelOf(2), 3);

  root.StartLiveStream();
  std::vector<int> lumas;
  for (int i = 0; i < 3; ++i) {
    ImData* raw = nullptr;
    ASSERT_EQ(root.GetLiveData(&raw, 100), StatusSuccess);
    std::unique_ptr<ImData> item(raw);
    auto* image = dynamic_cast<CmImageData*>(item.get());
    ASSERT_NE(image, nullptr);
    lumas.push_back(image->GetImage().IsValid() ? NmTestSupport::MiddleLuma(image->GetImage())
                                                : -1);
  }
  EXPECT_NEAR(lumas[0], LevelOf(0), 3);
  EXPECT_EQ(lumas[1], -1) << "an empty picture for what does not decode";
  EXPECT_NEAR(lumas[2], LevelOf(2), 3);
}

// Items that meet the conditions go on as they are stored; the others are
// decoded.
TEST(ConditionalVideoDecoderToolkit, DecodesOnlyWhatFailsTheConditions) {
  const std::string items =
      JPEGItem(Form::Packet, 0) +
      JPEGItem(Form::Packet, 1, "<property name='Privacy_Mask' value='2x1;10'/>") +
      JPEGItem(Form::Block, 2) + "<item begin='" + std::to_string(TimeOf(3)) + "' payload_hex='" +
      Hex(NmTestSupport::BuildVideoPacket({.codec = 10,
                                           .syncTime = static_cast<uint64_t>(TimeOf(3)),
                                           .frameTime = static_cast<uint64_t>(TimeOf(3))})) +
      "'/>";
  CmVZKSourceToolkit root(Decoder(items,
                                  "pass_privacy_mask='yes' pass_format='jpeg' pass_width='48' "
                                  "pass_height='32'",
                                  "conditional_video_decoder")
                              .c_str());
  ASSERT_TRUE(root.IsConfigured());
  root.Connect(0);
  EXPECT_EQ(Fetch(root).status, StatusNoItem) << "nothing before the first move";
  auto fetchKind = [&](std::string& kind) {
    SmPicture picture = Fetch(root);
    kind = picture.status != StatusSuccess                  ? "none"
           : dynamic_cast<CmImageData*>(picture.item.get()) ? "decoded"
                                                            : "stored";
    return picture;
  };
  std::string kind;
  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  fetchKind(kind);
  EXPECT_EQ(kind, "stored") << "a JPEG of the size wanted";
  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  SmPicture picture = fetchKind(kind);
  EXPECT_EQ(kind, "decoded") << "a mask to burn in";
  EXPECT_EQ(picture.time, TimeOf(1));
  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  fetchKind(kind);
  EXPECT_EQ(kind, "stored") << "a block of the size wanted";
  // H.264 is not the format wanted, but the record holds no decodable picture:
  // it goes on as stored rather than not at all.
  ASSERT_EQ(root.MoveNext(), StatusSuccess);
  fetchKind(kind);
  EXPECT_EQ(kind, "stored");
  EXPECT_EQ(root.MoveNext(), StatusNoItem);
  ASSERT_EQ(root.MoveTo(TimeOf(1), MoveAtOrBefore), StatusSuccess);
  fetchKind(kind);
  EXPECT_EQ(kind, "decoded");
  ASSERT_EQ(root.MoveLast(), StatusSuccess);
  EXPECT_EQ(Fetch(root).item->GetBeginTime(), TimeOf(3));

  EXPECT_THROW(root.StartLiveStream(), ImInvalidOperationError);
}

TEST(ConditionalVideoDecoderToolkit, SizeConditionDecodesOtherSizes) {
  CmVZKSourceToolkit root(
      Decoder(JPEGItem(Form::Packet, 0), "pass_width='640'", "conditional_video_decoder").c_str());
  root.Connect(0);
  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  SmPicture picture = Fetch(root);
  EXPECT_NE(dynamic_cast<CmImageData*>(picture.item.get()), nullptr);
  EXPECT_NEAR(picture.luma, LevelOf(0), 3);
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
  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  EXPECT_NE(Fetch(root).item, nullptr);
}

namespace {

// Width, height and luma in the middle of the one JPEG that an encoder's item
// holds, as libjpeg-turbo reads it; all -1 when there is none.
struct SmEncoded {
  int width = -1;
  int height = -1;
  int luma = -1;
};

SmEncoded EncodedPicture(const ImData* item) {
  SmEncoded out;
  const auto* vector = dynamic_cast<const ImMediaDataVector*>(item);
  std::vector<ImMediaData*> elements;
  if (vector != nullptr) {
    vector->GetElements(elements);
  }
  if (elements.size() != 1) {
    return out;
  }
  const uint8_t* jpeg = elements[0]->GetPayloadPointer();
  const auto size = static_cast<unsigned long>(elements[0]->GetPayloadSize());
  tjhandle handle = tjInitDecompress();
  int width = 0, height = 0, subsampling = 0, colourspace = 0;
  if (tjDecompressHeader3(handle, jpeg, size, &width, &height, &subsampling, &colourspace) == 0) {
    std::vector<uint8_t> gray(static_cast<size_t>(width) * height);
    if (tjDecompress2(handle, jpeg, size, gray.data(), width, 0, height, TJPF_GRAY, 0) == 0) {
      out = {width, height, gray[static_cast<size_t>(height / 2) * width + width / 2]};
    }
  }
  tjDestroy(handle);
  return out;
}

} // namespace

// The tree a host builds most: JPEG pictures out of a camera's records,
// decoded, resized and encoded again, with the size following an update key
// from the next item on.
TEST(ExampleTree, ResizedJPEGsWithTheirTimesAndAKeyThatChangesOnTheWay) {
  CmVZKSourceToolkit root(
      RootConfiguration(
          "<jpeg_encoder quality='60'><image_resize width='320' height='240' width_update_key='w'>"
          "<video_decoder luminance_only='false'>" +
          ScriptedToolkit(Pictures(Form::Packet), "Sequence_Number") +
          "</video_decoder></image_resize></jpeg_encoder>")
          .c_str());
  ASSERT_TRUE(root.IsConfigured());
  CmPropertyNameSet supported;
  root.Connect({"Sequence_Number"}, supported, 0);

  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  for (int picture = 0; picture < PictureCount; ++picture) {
    SCOPED_TRACE(picture);
    if (picture == 3) {
      root.UpdateValue("w", "160");
    }
    ImData* raw = nullptr;
    ASSERT_EQ(root.GetData(&raw), StatusSuccess);
    const std::unique_ptr<ImData> item(raw);
    EXPECT_EQ(item->GetBeginTime(), TimeOf(picture));
    EXPECT_EQ(StringProperty(*item, "Sequence_Number"), std::to_string(100 + picture));
    const SmEncoded encoded = EncodedPicture(item.get());
    EXPECT_EQ(encoded.width, picture < 3 ? 320 : 160);
    EXPECT_EQ(encoded.height, 240);
    EXPECT_NEAR(encoded.luma, LevelOf(picture), 3);
    const uint32_t moved = root.MoveNext();
    EXPECT_EQ(moved, picture + 1 < PictureCount ? StatusSuccess : StatusNoItem);
  }
  ASSERT_EQ(root.MovePrevious(), StatusSuccess);
  ImData* raw = nullptr;
  ASSERT_EQ(root.GetData(&raw), StatusSuccess);
  const std::unique_ptr<ImData> back(raw);
  EXPECT_EQ(back->GetBeginTime(), TimeOf(PictureCount - 2));
  EXPECT_EQ(EncodedPicture(back.get()).width, 160);
}

// Sequence moves go by the upstream's sequences, wherever the decoder's
// reading ahead has left the upstream, and land on a sequence's first picture.
TEST(VideoDecoderToolkit, SequenceMovesLandOnTheFirstPictureOfASequence) {
  for (const Form form : {Form::RawJPEG, Form::Packet}) {
    SCOPED_TRACE(static_cast<int>(form));
    CmVZKSourceToolkit root(Decoder(Pictures(form)).c_str());
    root.Connect(0);
    ASSERT_EQ(root.MoveFirst(), StatusSuccess);
    EXPECT_EQ(Fetch(root).time, TimeOf(0));
    ASSERT_EQ(root.MoveNextSequence(), StatusSuccess);
    SmPicture picture = Fetch(root);
    EXPECT_EQ(picture.time, TimeOf(3));
    EXPECT_NEAR(picture.luma, LevelOf(3), 3);
    EXPECT_EQ(root.MoveNextSequence(), StatusNoItem) << "the last sequence has no next one";

    ASSERT_EQ(root.MoveLast(), StatusSuccess);
    EXPECT_EQ(Fetch(root).time, TimeOf(5));
    ASSERT_EQ(root.MovePreviousSequence(), StatusSuccess);
    picture = Fetch(root);
    EXPECT_EQ(picture.time, TimeOf(0));
    EXPECT_NEAR(picture.luma, LevelOf(0), 3);
    ASSERT_EQ(root.MoveNext(), StatusSuccess);
    EXPECT_EQ(Fetch(root).time, TimeOf(1)) << "stepping on from where the sequence move landed";
  }
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

// A picture that cannot be decoded does not end playback: a move lands on it
// and says so through GetData, and the next step goes past it, in both
// directions, in every form of record, at the first and last picture too.
TEST(VideoDecoderToolkit, PlaybackPassesOverPicturesThatDoNotDecode) {
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
  // Pictures 0, 3 and 5 are bad: the first, the first of the second sequence
  // and the last.
  auto bad = [](int i) { return i == 0 || i == 3 || i == 5; };
  // Asking for the neighbours' times makes the decoder keep them decoded
  // beside the current picture, and step through them.
  for (const bool neighbours : {false, true})
    for (const Form form : {Form::RawJPEG, Form::Block, Form::Packet, Form::MultiPacket}) {
      SCOPED_TRACE(testing::Message()
                   << "form " << static_cast<int>(form) << " neighbours " << neighbours);
      std::string items;
      for (int i = 0; i < PictureCount; ++i) {
        items += JPEGItem(form, i, "", bad(i) ? (i == 3 ? &headless : &huge) : nullptr);
      }
      CmVZKSourceToolkit root(Decoder(items).c_str());
      CmPropertyNameSet supported;
      root.Connect(neighbours ? CmPropertyNameSet{"Prev_Begin_Time", "Next_Begin_Time"}
                              : CmPropertyNameSet{},
                   supported, 0);
      auto expectAt = [&](int i) {
        SmPicture picture = Fetch(root);
        if (bad(i)) {
          EXPECT_EQ(picture.status, StatusNoItem) << "picture " << i;
          EXPECT_EQ(picture.item, nullptr);
          return;
        }
        EXPECT_EQ(picture.status, StatusSuccess) << "picture " << i;
        EXPECT_EQ(picture.time, TimeOf(i));
        EXPECT_NEAR(picture.luma, LevelOf(i), 3);
        if (neighbours && picture.item) {
          // A neighbour that does not decode is a neighbour all the same.
          EXPECT_EQ(TimeProperty(*picture.item, "Prev_Begin_Time"), i > 0 ? TimeOf(i - 1) : -1);
          EXPECT_EQ(TimeProperty(*picture.item, "Next_Begin_Time"),
                    i + 1 < PictureCount ? TimeOf(i + 1) : -1);
        }
      };

      ASSERT_EQ(root.MoveFirst(), StatusSuccess);
      expectAt(0);
      for (int i = 1; i < PictureCount; ++i) {
        ASSERT_EQ(root.MoveNext(), StatusSuccess) << i;
        expectAt(i);
      }
      EXPECT_EQ(root.MoveNext(), StatusNoItem);
      expectAt(PictureCount - 1);
      for (int i = PictureCount - 2; i >= 0; --i) {
        ASSERT_EQ(root.MovePrevious(), StatusSuccess) << i;
        expectAt(i);
      }
      EXPECT_EQ(root.MovePrevious(), StatusNoItem);
      ASSERT_EQ(root.MoveNext(), StatusSuccess);
      expectAt(1);
      ASSERT_EQ(root.MoveLast(), StatusSuccess);
      expectAt(PictureCount - 1);

      // Sequences start at pictures 0 and 3, both bad.
      ASSERT_EQ(root.MoveFirst(), StatusSuccess);
      ASSERT_EQ(root.MoveNextSequence(), StatusSuccess);
      expectAt(3);
      ASSERT_EQ(root.MoveNext(), StatusSuccess);
      expectAt(4);
      ASSERT_EQ(root.MovePreviousSequence(), StatusSuccess);
      expectAt(0);
      ASSERT_EQ(root.MoveNext(), StatusSuccess);
      expectAt(1);

      for (const SmMoveMode mode :
           {MoveClosest, MoveBefore, MoveAtOrBefore, MoveAfter, MoveAtOrAfter}) {
        for (int i = 0; i < PictureCount; ++i) {
          for (const int64_t t : {TimeOf(i) - 1, TimeOf(i), TimeOf(i) + 1}) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " at T0+" << t - T0);
            const std::optional<int> expected = Expected(t, mode);
            ASSERT_EQ(root.MoveTo(t, mode), expected ? StatusSuccess : StatusNoItem);
            if (expected) {
              expectAt(*expected);
              // Stepping on from there goes to the neighbour, bad or not.
              if (*expected + 1 < PictureCount) {
                ASSERT_EQ(root.MoveNext(), StatusSuccess);
                expectAt(*expected + 1);
                ASSERT_EQ(root.MovePrevious(), StatusSuccess);
                expectAt(*expected);
              }
            }
          }
        }
      }
    }
}

// A bad picture among items that are handed on as they are stored: what
// needs no decoding goes on, a picture whose mask cannot be burnt in never
// goes out unmasked, and the steps go past both.
TEST(ConditionalVideoDecoderToolkit, UndecodablePicturesNeverGoOutUnmasked) {
  const CmBytes garbage = NmTestSupport::Pattern(300, 9);
  const std::string mask = "<property name='Privacy_Mask' value='2x1;10'/>";
  const std::string items = JPEGItem(Form::Packet, 0) + JPEGItem(Form::Packet, 1, mask, &garbage) +
                            JPEGItem(Form::Packet, 2, mask) +
                            JPEGItem(Form::Block, 3, "", &garbage) + JPEGItem(Form::Packet, 4) +
                            "<item begin='" + std::to_string(TimeOf(5)) + "' payload='junk'>" +
                            mask + "</item>";
  CmVZKSourceToolkit root(
      Decoder(items, "pass_privacy_mask='yes' pass_format='jpeg'", "conditional_video_decoder")
          .c_str());
  root.Connect(0);
  auto kindAt = [&] {
    SmPicture picture = Fetch(root);
    if (picture.status != StatusSuccess) {
      return std::string("none");
    }
    return std::string(dynamic_cast<CmImageData*>(picture.item.get()) ? "decoded" : "stored") +
           "@" + std::to_string(picture.item->GetBeginTime() - T0);
  };
  std::vector<std::string> forwards{kindAt()};
  ASSERT_EQ(root.MoveFirst(), StatusSuccess);
  forwards = {kindAt()};
  while (root.MoveNext() == StatusSuccess) {
    forwards.push_back(kindAt());
  }
  EXPECT_EQ(forwards, (std::vector<std::string>{"stored@0", "none", "decoded@80", "stored@120",
                                                "stored@160", "none"}));
  std::vector<std::string> backwards;
  ASSERT_EQ(root.MovePrevious(), StatusSuccess);
  do {
    backwards.push_back(kindAt());
  } while (root.MovePrevious() == StatusSuccess);
  EXPECT_EQ(backwards, (std::vector<std::string>{"stored@160", "stored@120", "decoded@80", "none",
                                                 "stored@0"}));
}
