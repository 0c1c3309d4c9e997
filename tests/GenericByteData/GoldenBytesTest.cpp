#include <gtest/gtest.h>

#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "TestTimes.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using NmTestSupport::CmBytes;

// The wire layout written out by hand, byte by byte, so that neither the
// classes nor the test builder can drift from it unnoticed.
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

TEST(GenericByteDataGoldenBytes, SettersWriteTheWireLayout) {
  CmGenericVideoByteDataBlock block(true);
  ASSERT_TRUE(block.Allocate(4));
  ASSERT_TRUE(block.SetType(10));
  EXPECT_TRUE(block.SetBeginTime(Ms(Base)));
  EXPECT_TRUE(block.SetEndTime(Ms(Base + 4000)));
  EXPECT_TRUE(block.SetImageWidth(640));
  EXPECT_TRUE(block.SetImageHeight(480));
  EXPECT_TRUE(block.SetComponentCount(3));
  EXPECT_TRUE(block.SetImageCount(5));
  EXPECT_TRUE(block.SetEndTimeExclusive(false));
  EXPECT_TRUE(block.SetInterlacing(true, true, 1));
  EXPECT_TRUE(block.SetPictureFormat(7));
  const CmBytes payload = {0xDE, 0xAD, 0xBE, 0xEF};
  EXPECT_TRUE(block.CopyPayloadFrom(payload.data(), payload.size()));
  EXPECT_EQ(Bytes(block), GoldenBlock);

  CmGenericVideoStreamDataPacket video(true);
  ASSERT_TRUE(video.Allocate(3));
  EXPECT_TRUE(video.SetCodec(10));
  EXPECT_TRUE(video.SetSequenceNumber(0x1234));
  EXPECT_TRUE(video.SetSync(true));
  EXPECT_TRUE(video.SetPictureFormat(5));
  EXPECT_TRUE(video.SetSyncTime(Ms(Base)));
  EXPECT_TRUE(video.SetFrameTime(Ms(Base + 40)));
  const CmBytes framePayload = {1, 2, 3};
  EXPECT_TRUE(video.CopyPayloadFrom(framePayload.data(), 3));
  EXPECT_EQ(Bytes(video), GoldenVideoPacket);

  CmGenericAudioStreamDataPacket audio(true);
  ASSERT_TRUE(audio.Allocate(2));
  EXPECT_TRUE(audio.SetCodec(17));
  EXPECT_TRUE(audio.SetSequenceNumber(0xFFFF));
  EXPECT_TRUE(audio.SetTime(Ms(Base)));
  EXPECT_TRUE(audio.SetSampleCount(1024));
  EXPECT_TRUE(audio.SetChannelCount(2));
  EXPECT_TRUE(audio.SetBitsPerSample(16));
  EXPECT_TRUE(audio.SetSamplingFrequency(48000));
  EXPECT_TRUE(audio.SetCodecOption(0xABCD));
  const CmBytes audioPayload = {0x55, 0x66};
  EXPECT_TRUE(audio.CopyPayloadFrom(audioPayload.data(), 2));
  EXPECT_EQ(Bytes(audio), GoldenAudioPacket);
}

TEST(GenericByteDataGoldenBytes, HandWrittenRecordsReadBackFieldByField) {
  CmBytes blockBytes = GoldenBlock;
  const CmGenericVideoByteDataBlock block(blockBytes.data(), blockBytes.size());
  ASSERT_TRUE(block.IsTypeValid());
  EXPECT_EQ(block.GetType(), 10);
  EXPECT_EQ(block.GetPayloadLength(), 4u);
  EXPECT_EQ(block.GetPayload(), blockBytes.data() + 36);
  EXPECT_EQ(block.GetBeginTime(), Ms(Base));
  EXPECT_EQ(block.GetEndTime(), Ms(Base + 4000));
  EXPECT_EQ(block.GetImageWidth(), 640u);
  EXPECT_EQ(block.GetImageHeight(), 480u);
  EXPECT_EQ(block.GetImageCount(), 5u);
  EXPECT_FALSE(block.IsEndTimeExclusive());
  bool interlaced = false;
  bool topFieldFirst = false;
  uint32_t layout = 9;
  ASSERT_TRUE(block.GetInterlacing(interlaced, topFieldFirst, layout));
  EXPECT_TRUE(interlaced);
  EXPECT_TRUE(topFieldFirst);
  EXPECT_EQ(layout, 1u);
  uint32_t pictureFormat = 99;
  ASSERT_TRUE(block.GetPictureFormat(pictureFormat));
  EXPECT_EQ(pictureFormat, 7u);

  CmBytes videoBytes = GoldenVideoPacket;
  const CmGenericVideoStreamDataPacket video(videoBytes.data(), videoBytes.size());
  ASSERT_TRUE(video.IsTypeValid());
  EXPECT_EQ(video.GetLength(), 35u);
  EXPECT_EQ(video.GetPayloadLength(), 3u);
  EXPECT_EQ(video.GetCodec(), 10u);
  EXPECT_EQ(video.GetSequenceNumber(), 0x1234);
  EXPECT_EQ(video.GetPreviousSequenceNumber(), 0x1233);
  EXPECT_TRUE(video.GetSync());
  EXPECT_EQ(video.GetSyncTime(), Ms(Base));
  EXPECT_EQ(video.GetFrameTime(), Ms(Base + 40));
  ASSERT_TRUE(video.GetPictureFormat(pictureFormat));
  EXPECT_EQ(pictureFormat, 3u); // format 5 folds onto the bits of 3
  ASSERT_TRUE(video.GetInterlacing(interlaced, topFieldFirst, layout));
  EXPECT_FALSE(interlaced);

  CmBytes audioBytes = GoldenAudioPacket;
  const CmGenericAudioStreamDataPacket audio(audioBytes.data(), audioBytes.size());
  ASSERT_TRUE(audio.IsTypeValid());
  EXPECT_EQ(audio.GetPayloadLength(), 2u);
  EXPECT_EQ(audio.GetCodec(), 17u);
  EXPECT_EQ(audio.GetSequenceNumber(), 0xFFFF);
  EXPECT_EQ(audio.GetPreviousSequenceNumber(), 0xFFFE);
  EXPECT_EQ(audio.GetTime(), Ms(Base));
  EXPECT_EQ(audio.GetSampleCount(), 1024u);
  EXPECT_EQ(audio.GetChannelCount(), 2u);
  EXPECT_EQ(audio.GetBitsPerSample(), 16u);
  EXPECT_EQ(audio.GetSamplingFrequency(), 48000u);
  EXPECT_EQ(audio.GetCodecOption(), 0xABCDu);

  // The test builder must agree with the hand-written bytes too.
  EXPECT_EQ(NmTestSupport::BuildBlock({.type = 10,
                                       .imageForm = {.interlaced = true,
                                                     .topFieldFirst = true,
                                                     .layout = 1,
                                                     .flippedVertically = true,
                                                     .rotatedQuarterTurn = true},
                                       .beginTime = Base,
                                       .endTime = Base + 4000,
                                       .width = 640,
                                       .height = 480,
                                       .imageCount = 5,
                                       .payload = {0xDE, 0xAD, 0xBE, 0xEF}}),
            GoldenBlock);
  EXPECT_EQ(NmTestSupport::BuildVideoPacket(
                {.sequenceNumber = 0x1234,
                 .imageForm = {.flippedVertically = true, .flippedHorizontally = true},
                 .syncTime = Base,
                 .frameTime = Base + 40,
                 .payload = {1, 2, 3}}),
            GoldenVideoPacket);
  EXPECT_EQ(NmTestSupport::BuildAudioPacket({.codec = 17,
                                             .sequenceNumber = 0xFFFF,
                                             .time = Base,
                                             .sampleCount = 1024,
                                             .channelCount = 2,
                                             .bitsPerSample = 16,
                                             .samplingFrequency = 48000,
                                             .codecOption = 0xABCD,
                                             .payload = {0x55, 0x66}}),
            GoldenAudioPacket);

  const CmBytes goldenMulti = {0xFE, 0xF0, 0x00, 0x00, 0x00, 0x33, 0x00, 0x01,
                               0,    0,    0,    0,    0,    0,    0,    0};
  CmBytes multiBytes = goldenMulti;
  multiBytes.insert(multiBytes.end(), GoldenVideoPacket.begin(), GoldenVideoPacket.end());
  const CmGenericByteDataMultiPacket multi(multiBytes.data(), multiBytes.size());
  ASSERT_TRUE(multi.IsTypeValid());
  EXPECT_EQ(multi.GetPacketCount(), 1u);
  uint8_t* packet = nullptr;
  uint64_t packetLength = 0;
  ASSERT_TRUE(multi.GetVideoPacket(packet, packetLength));
  EXPECT_EQ(packet, multiBytes.data() + 16);
  EXPECT_EQ(packetLength, GoldenVideoPacket.size());
}

TEST(GenericByteDataFieldSetters, RangeChecksRefuseAndWriteNothing) {
  CmGenericAudioStreamDataPacket audio(true);
  ASSERT_TRUE(audio.Allocate(2));
  const CmBytes before = Bytes(audio);
  EXPECT_FALSE(audio.SetSampleCount(1));
  EXPECT_FALSE(audio.SetSampleCount(0));
  EXPECT_FALSE(audio.SetChannelCount(0));
  EXPECT_FALSE(audio.SetChannelCount(256));
  EXPECT_FALSE(audio.SetBitsPerSample(0));
  EXPECT_FALSE(audio.SetBitsPerSample(256));
  EXPECT_FALSE(audio.SetSamplingFrequency(1));
  EXPECT_FALSE(audio.SetCodecOption(0x10000));
  for (uint32_t codec : {0u, 13u, 15u, 21u, 0x10011u}) {
    EXPECT_FALSE(audio.SetCodec(codec)) << codec;
  }
  EXPECT_EQ(Bytes(audio), before);
  EXPECT_TRUE(audio.SetSampleCount(2));
  EXPECT_TRUE(audio.SetChannelCount(255));
  EXPECT_TRUE(audio.SetBitsPerSample(1));
  EXPECT_TRUE(audio.SetSamplingFrequency(2));
  for (uint32_t codec : {1u, 12u, 16u, 20u}) {
    EXPECT_TRUE(audio.SetCodec(codec)) << codec;
    EXPECT_EQ(audio.GetCodec(), codec);
  }

  CmGenericVideoStreamDataPacket video(true);
  ASSERT_TRUE(video.Allocate(2));
  for (uint32_t codec : {0u, 14u, 127u, 129u, 0x1000Au}) {
    EXPECT_FALSE(video.SetCodec(codec)) << codec;
  }
  EXPECT_FALSE(video.SetPictureFormat(16));
  EXPECT_FALSE(video.SetInterlacing(true, false, 4));
  for (uint32_t codec : {1u, 13u, 128u}) {
    EXPECT_TRUE(video.SetCodec(codec)) << codec;
    EXPECT_EQ(video.GetCodec(), codec);
  }
  // Codec getters give 0 for values on the wire outside their tables.
  video.GetData()[6] = 0;
  video.GetData()[7] = 14;
  EXPECT_EQ(video.GetCodec(), 0u);
  audio.GetData()[7] = 13;
  EXPECT_EQ(audio.GetCodec(), 0u);

  CmGenericByteDataBlock block(true);
  ASSERT_TRUE(block.Allocate(2));
  EXPECT_FALSE(block.SetImageWidth(65536));
  EXPECT_FALSE(block.SetImageHeight(70000));
  EXPECT_FALSE(block.SetImageCount(65536));
  EXPECT_FALSE(block.SetComponentCount(65536));
  EXPECT_TRUE(block.SetImageWidth(65535));
  EXPECT_EQ(block.GetImageWidth(), 65535u);

  // Getters and setters of an empty record give 0, false and wire time 0.
  CmGenericVideoStreamDataPacket empty;
  EXPECT_FALSE(empty.SetSequenceNumber(1));
  EXPECT_EQ(empty.GetSequenceNumber(), 0);
  EXPECT_EQ(empty.GetPreviousSequenceNumber(), 0);
  EXPECT_EQ(empty.GetFrameTime(), Ms(0));
  EXPECT_FALSE(empty.GetSync());
  CmGenericByteDataBlock emptyBlock;
  EXPECT_EQ(emptyBlock.GetBeginTime(), Ms(0));
  EXPECT_FALSE(emptyBlock.AreTimesValid());
  EXPECT_FALSE(emptyBlock.IsEndTimeExclusive());
}
