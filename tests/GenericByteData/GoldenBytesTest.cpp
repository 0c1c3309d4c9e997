#include <gtest/gtest.h>

#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "TestTimes.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using NmTestSupport::CmBytes;

// The wire layout written out by hand, byte by byte, so that the classes
// cannot drift from it unnoticed.
namespace {

const CmBytes GoldenBlock = {
    0x00, 0x0A,                                     // type 10 (H.264)
    0x00, 0x00,                                     // no extension
    0x00, 0x00, 0x05, 0x72,                         // flags: see below
    0x00, 0x00, 0x00, 0x04,                         // payload length
    0x00, 0x00, 0x01, 0x74, 0x87, 0x6E, 0x80, 0x00, // begin 1600000000000 ms
    0x00, 0x00, 0x01, 0x74, 0x87, 0x6E, 0x8F, 0xA0, // end 1600000004000 ms
    0x02, 0x80,                                     // width 640
    0x01, 0xE0,                                     // height 480
    0x00, 0x03,                                     // components
    0x00, 0x05,                                     // images
    0xDE, 0xAD, 0xBE, 0xEF,                         // payload
};
// Flags 0x572: last image at end time (bit 1), interlaced (4), top field
// first (5), separate fields (layout 1 at bits 6-7), flipped vertically (8)
// and rotated a quarter turn (10), which is picture format 7.

const CmBytes GoldenVideoPacket = {
    0x00, 0x10,                                     // type 16
    0x00, 0x00, 0x00, 0x23,                         // total length 35
    0x00, 0x0A,                                     // codec 10
    0x12, 0x34,                                     // sequence number
    0x03, 0x01,                                     // sync, both flips (format 5)
    0x00, 0x00, 0x01, 0x74, 0x87, 0x6E, 0x80, 0x00, // sync time
    0x00, 0x00, 0x01, 0x74, 0x87, 0x6E, 0x80, 0x28, // frame time, 40 ms later
    0x00, 0x00, 0x00, 0x00,                         // reserved
    0x01, 0x02, 0x03,                               // payload
};

const CmBytes GoldenAudioPacket = {
    0x00, 0x20,                                                 // type 32
    0x00, 0x00, 0x00, 0x2C,                                     // total length 44
    0x00, 0x11,                                                 // codec 17 (AAC)
    0xFF, 0xFF,                                                 // sequence number
    0x00, 0x00,                                                 // reserved
    0x00, 0x00, 0x01, 0x74, 0x87, 0x6E, 0x80, 0x00,             // time
    0x00, 0x00, 0x04, 0x00,                                     // 1024 samples
    0x02,                                                       // channels
    0x10,                                                       // bits per sample
    0x00, 0x00, 0xBB, 0x80,                                     // 48000 Hz
    0xAB, 0xCD,                                                 // codec option
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // reserved
    0x55, 0x66,                                                 // payload
};

constexpr int64_t Base = 1600000000000;

CmBytes Bytes(const CmGenericByteData& record) {
  return CmBytes(record.GetData(), record.GetData() + record.GetLength());
}

} // namespace

// Each field is set on a fresh record and read from the hand-written bytes;
// at the end the fresh record must equal those bytes.
#define VZK_EXPECT_FIELD(Name, value)                                                              \
  EXPECT_TRUE(written.Set##Name(value)) << #Name;                                                  \
  EXPECT_EQ(golden.Get##Name(), value) << #Name

TEST(GenericByteDataGoldenBytes, SettersWriteAndGettersReadTheWireLayout) {
  bool interlaced = false;
  bool topFieldFirst = false;
  uint32_t layout = 9;
  uint32_t pictureFormat = 99;
  {
    CmBytes bytes = GoldenBlock;
    const CmGenericVideoByteDataBlock golden(bytes.data(), bytes.size());
    CmGenericVideoByteDataBlock written(true);
    ASSERT_TRUE(written.Allocate(4));
    VZK_EXPECT_FIELD(Type, 10);
    VZK_EXPECT_FIELD(BeginTime, Ms(Base));
    VZK_EXPECT_FIELD(EndTime, Ms(Base + 4000));
    VZK_EXPECT_FIELD(ImageWidth, 640u);
    VZK_EXPECT_FIELD(ImageHeight, 480u);
    VZK_EXPECT_FIELD(ImageCount, 5u);
    EXPECT_TRUE(written.SetComponentCount(3));
    EXPECT_TRUE(written.SetEndTimeExclusive(false));
    EXPECT_FALSE(golden.IsEndTimeExclusive());
    EXPECT_TRUE(written.SetInterlacing(true, true, 1));
    ASSERT_TRUE(golden.GetInterlacing(interlaced, topFieldFirst, layout));
    EXPECT_TRUE(interlaced && topFieldFirst && layout == 1);
    EXPECT_TRUE(written.SetPictureFormat(7));
    ASSERT_TRUE(golden.GetPictureFormat(pictureFormat));
    EXPECT_EQ(pictureFormat, 7u);
    EXPECT_EQ(golden.GetPayload(), bytes.data() + 36);
    EXPECT_TRUE(written.CopyPayloadFrom(golden.GetPayload(), 4));
    EXPECT_EQ(Bytes(written), GoldenBlock);
  }
  {
    CmBytes bytes = GoldenVideoPacket;
    const CmGenericVideoStreamDataPacket golden(bytes.data(), bytes.size());
    CmGenericVideoStreamDataPacket written(true);
    ASSERT_TRUE(written.Allocate(3));
    VZK_EXPECT_FIELD(Codec, 10u);
    VZK_EXPECT_FIELD(SequenceNumber, 0x1234);
    VZK_EXPECT_FIELD(Sync, true);
    VZK_EXPECT_FIELD(SyncTime, Ms(Base));
    VZK_EXPECT_FIELD(FrameTime, Ms(Base + 40));
    EXPECT_EQ(golden.GetPreviousSequenceNumber(), 0x1233);
    EXPECT_TRUE(written.SetPictureFormat(5));
    ASSERT_TRUE(golden.GetPictureFormat(pictureFormat));
    EXPECT_EQ(pictureFormat, 3u); // format 5 folds onto the bits of 3
    ASSERT_TRUE(golden.GetInterlacing(interlaced, topFieldFirst, layout));
    EXPECT_FALSE(interlaced);
    EXPECT_EQ(golden.GetLength(), 35u);
    EXPECT_TRUE(written.CopyPayloadFrom(golden.GetPayload(), 3));
    EXPECT_EQ(Bytes(written), GoldenVideoPacket);
  }
  CmBytes bytes = GoldenAudioPacket;
  const CmGenericAudioStreamDataPacket golden(bytes.data(), bytes.size());
  CmGenericAudioStreamDataPacket written(true);
  ASSERT_TRUE(written.Allocate(2));
  VZK_EXPECT_FIELD(Codec, 17u);
  VZK_EXPECT_FIELD(SequenceNumber, 0xFFFF);
  VZK_EXPECT_FIELD(Time, Ms(Base));
  VZK_EXPECT_FIELD(SampleCount, 1024u);
  VZK_EXPECT_FIELD(ChannelCount, 2u);
  VZK_EXPECT_FIELD(BitsPerSample, 16u);
  VZK_EXPECT_FIELD(SamplingFrequency, 48000u);
  VZK_EXPECT_FIELD(CodecOption, 0xABCDu);
  EXPECT_EQ(golden.GetPreviousSequenceNumber(), 0xFFFE);
  EXPECT_TRUE(written.CopyPayloadFrom(golden.GetPayload(), 2));
  EXPECT_EQ(Bytes(written), GoldenAudioPacket);
}

// The builder of the other tests is checked by them against these classes;
// the multi packet, which nothing here writes, is pinned through the builder
// that the multi packet tests read with these classes.
TEST(GenericByteDataGoldenBytes, MultiPacketLayoutAndRangeChecksThatWriteNothing) {
  CmBytes golden = {0xFE, 0xF0, 0x00, 0x00, 0x00, 0x33, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0};
  golden.insert(golden.end(), GoldenVideoPacket.begin(), GoldenVideoPacket.end());
  EXPECT_EQ(NmTestSupport::BuildMultiPacket({.packets = {GoldenVideoPacket}}), golden);

  CmGenericAudioStreamDataPacket audio(true);
  ASSERT_TRUE(audio.Allocate(2));
  const CmBytes before = Bytes(audio);
  EXPECT_FALSE(audio.SetSampleCount(1) || audio.SetSampleCount(0) || audio.SetChannelCount(0) ||
               audio.SetChannelCount(256) || audio.SetBitsPerSample(0) ||
               audio.SetBitsPerSample(256) || audio.SetSamplingFrequency(1) ||
               audio.SetCodecOption(0x10000));
  for (uint32_t codec : {0u, 13u, 15u, 21u, 0x10011u}) {
    EXPECT_FALSE(audio.SetCodec(codec)) << codec;
  }
  EXPECT_EQ(Bytes(audio), before);
  EXPECT_TRUE(audio.SetSampleCount(2) && audio.SetChannelCount(255) && audio.SetBitsPerSample(1) &&
              audio.SetSamplingFrequency(2));
  CmGenericVideoStreamDataPacket video(true);
  ASSERT_TRUE(video.Allocate(2));
  for (uint32_t codec : {1u, 12u, 16u, 20u}) {
    EXPECT_TRUE(audio.SetCodec(codec) && audio.GetCodec() == codec) << codec;
  }
  for (uint32_t codec : {0u, 14u, 127u, 129u, 0x1000Au}) {
    EXPECT_FALSE(video.SetCodec(codec)) << codec;
  }
  for (uint32_t codec : {1u, 13u, 128u}) {
    EXPECT_TRUE(video.SetCodec(codec) && video.GetCodec() == codec) << codec;
  }
  EXPECT_FALSE(video.SetPictureFormat(16) || video.SetInterlacing(true, false, 4));
  // Codec getters give 0 for values on the wire outside their tables.
  video.GetData()[7] = 14;
  audio.GetData()[7] = 13;
  EXPECT_EQ(video.GetCodec() + audio.GetCodec(), 0u);

  CmGenericByteDataBlock block(true);
  ASSERT_TRUE(block.Allocate(2));
  EXPECT_FALSE(block.SetImageWidth(65536) || block.SetImageHeight(70000) ||
               block.SetImageCount(65536) || block.SetComponentCount(65536));
  EXPECT_TRUE(block.SetImageWidth(65535));

  // Getters and setters of an empty record give 0, false and wire time 0.
  CmGenericVideoStreamDataPacket empty;
  EXPECT_FALSE(empty.SetSequenceNumber(1) || empty.GetSync());
  EXPECT_EQ(empty.GetSequenceNumber() + empty.GetPreviousSequenceNumber(), 0);
  EXPECT_EQ(empty.GetFrameTime(), Ms(0));
  CmGenericByteDataBlock emptyBlock;
  EXPECT_EQ(emptyBlock.GetBeginTime(), Ms(0));
  EXPECT_FALSE(emptyBlock.AreTimesValid() || emptyBlock.IsEndTimeExclusive());
}
