#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "AACLoasWrapper.h"
#include "DecodeOrderTimes.h"
#include "H264AnnexBConverter.h"
#include "H264FieldReader.h"
#include "JPEGTableCompleter.h"
#include "MediaProcessing/GenericByteData/AudioCodec.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaRecordBuilder.h"
#include "PictureCodingType.h"
#include "support/H264StreamWriter.h"

using namespace NmMedia;
using Bytes = std::vector<uint8_t>;

namespace {

// Parameter sets and slices whose first bytes are all the converter reads.
const Bytes Sps = {0x67, 0x42, 0xC0, 0x1E, 0xDA, 0x02, 0x80};  // id 0
const Bytes Sps1 = {0x67, 0x42, 0xC0, 0x1E, 0x4D, 0x02, 0x80}; // id 1
const Bytes Pps = {0x68, 0xCE, 0x3C, 0x80};                    // id 0
const Bytes Idr = {0x65, 0x88, 0x84, 0x00, 0x33};
const Bytes Slice = {0x41, 0x9A, 0x02, 0x04};
const Bytes Aud = {0x09, 0xF0};

Bytes AnnexB(const std::vector<Bytes>& nals) {
  Bytes out;
  for (const Bytes& nal : nals) {
    out.insert(out.end(), {0, 0, 0, 1});
    out.insert(out.end(), nal.begin(), nal.end());
  }
  return out;
}

Bytes LengthPrefixed(const std::vector<Bytes>& nals, size_t width) {
  Bytes out;
  for (const Bytes& nal : nals) {
    for (size_t i = width; i-- > 0;) {
      out.push_back(static_cast<uint8_t>(nal.size() >> (8 * i)));
    }
    out.insert(out.end(), nal.begin(), nal.end());
  }
  return out;
}

Bytes AvcC(size_t lengthSize, const std::vector<Bytes>& sps, const std::vector<Bytes>& pps) {
  Bytes out = {1,
               0x42,
               0xC0,
               0x1E,
               static_cast<uint8_t>(0xFC | (lengthSize - 1)),
               static_cast<uint8_t>(0xE0 | sps.size())};
  const Bytes spsList = LengthPrefixed(sps, 2);
  const Bytes ppsList = LengthPrefixed(pps, 2);
  out.insert(out.end(), spsList.begin(), spsList.end());
  out.push_back(static_cast<uint8_t>(pps.size()));
  out.insert(out.end(), ppsList.begin(), ppsList.end());
  return out;
}

Bytes Convert(CmH264AnnexBConverter& converter, const Bytes& packet, bool key,
              bool* idr = nullptr) {
  Bytes out;
  bool containsIdr = false;
  if (!converter.Convert(packet.data(), packet.size(), key, out, containsIdr)) {
    return {0xEE};
  }
  if (idr) {
    *idr = containsIdr;
  }
  return out;
}

// Reads a LOAS frame the way ISO/IEC 14496-3 lays it out, independently of
// the writer, for the subset the writer produces.
struct SmLoasReading {
  bool valid = false;
  Bytes specificConfig;
  Bytes payload;
};

SmLoasReading ReadLoas(const Bytes& frame) {
  SmLoasReading reading;
  size_t position = 0;
  const auto bits = [&](unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i, ++position) {
      const size_t at = std::min(position, frame.size() * 8 - 1); // overrun shows at the end
      value = value << 1 | ((frame[at / 8] >> (7 - at % 8)) & 1);
    }
    return value;
  };
  const auto latmValue = [&] { return bits(8 * (bits(2) + 1)); };
  if (bits(11) != 0x2B7 || bits(13) + 3 != frame.size() || bits(1) != 0 || bits(1) != 1 ||
      bits(1) != 0) {
    return reading;
  }
  latmValue(); // taraBufferFullness
  if (bits(1) != 1 || bits(6) != 0 || bits(4) != 0 || bits(3) != 0) {
    return reading;
  }
  for (uint32_t i = latmValue() / 8; i > 0; --i) {
    reading.specificConfig.push_back(static_cast<uint8_t>(bits(8)));
  }
  if (bits(3) != 0 || (bits(8), bits(1) != 0) || bits(1) != 0) {
    return reading;
  }
  uint32_t length = 0;
  for (uint32_t part = 255; part == 255; length += part) {
    part = bits(8);
  }
  for (uint32_t i = 0; i < length; ++i) {
    reading.payload.push_back(static_cast<uint8_t>(bits(8)));
  }
  // Only alignment may follow.
  reading.valid = position <= frame.size() * 8 && frame.size() * 8 - position < 8;
  return reading;
}

Bytes Adts(const Bytes& raw, bool crc, uint32_t profile = 1, uint32_t frequencyIndex = 4,
           uint32_t channels = 2, uint32_t rawBlocks = 0) {
  const size_t header = crc ? 9 : 7;
  const size_t length = header + raw.size();
  Bytes out = {0xFF,
               static_cast<uint8_t>(0xF0 | (crc ? 0 : 1)),
               static_cast<uint8_t>(profile << 6 | frequencyIndex << 2 | channels >> 2),
               static_cast<uint8_t>((channels & 3) << 6 | length >> 11),
               static_cast<uint8_t>(length >> 3),
               static_cast<uint8_t>((length & 7) << 5 | 0x1F),
               static_cast<uint8_t>(0xFC | rawBlocks)};
  if (crc) {
    out.insert(out.end(), {0x12, 0x34});
  }
  out.insert(out.end(), raw.begin(), raw.end());
  return out;
}

Bytes Filler(size_t size) {
  Bytes out(size);
  for (size_t i = 0; i < size; ++i) {
    out[i] = static_cast<uint8_t>(i * 7 + 3);
  }
  return out;
}

} // namespace

TEST(MediaH264AnnexB, LengthPrefixedBecomesAnnexBWithParameterSetsBeforeSyncFrames) {
  for (const size_t width : {1u, 2u, 4u}) {
    CmH264AnnexBConverter converter;
    ASSERT_TRUE(
        converter.Configure(AvcC(width, {Sps}, {Pps}).data(), AvcC(width, {Sps}, {Pps}).size()));
    EXPECT_EQ(converter.GetLengthSize(), width);
    bool idr = false;
    EXPECT_EQ(Convert(converter, LengthPrefixed({Idr}, width), true, &idr),
              AnnexB({Sps, Pps, Idr}));
    EXPECT_TRUE(idr);
    EXPECT_EQ(Convert(converter, LengthPrefixed({Slice}, width), false, &idr), AnnexB({Slice}));
    EXPECT_FALSE(idr);
  }

  CmH264AnnexBConverter converter;
  const Bytes config = AvcC(4, {Sps}, {Pps});
  ASSERT_TRUE(converter.Configure(config.data(), config.size()));
  // An IDR makes a frame sync even when the container did not say so; a key
  // frame without IDR (a recovery point) gets the parameter sets too.
  EXPECT_EQ(Convert(converter, LengthPrefixed({Idr}, 4), false), AnnexB({Sps, Pps, Idr}));
  EXPECT_EQ(Convert(converter, LengthPrefixed({Slice}, 4), true), AnnexB({Sps, Pps, Slice}));
  // The delimiter stays first; sets the packet carries are not repeated, and
  // a new set replaces the stored one of its id for later frames.
  const Bytes newPps = {0x68, 0xCE, 0x38, 0x80};
  EXPECT_EQ(Convert(converter, LengthPrefixed({Aud, newPps, Idr}, 4), true),
            AnnexB({Aud, Sps, newPps, Idr}));
  EXPECT_EQ(Convert(converter, LengthPrefixed({Idr}, 4), true), AnnexB({Sps, newPps, Idr}));
  // A set of another id adds to what goes in front.
  EXPECT_EQ(Convert(converter, LengthPrefixed({Sps1, Slice}, 4), false), AnnexB({Sps1, Slice}));
  EXPECT_EQ(Convert(converter, LengthPrefixed({Idr}, 4), true), AnnexB({Sps, Sps1, newPps, Idr}));
  EXPECT_EQ(converter.GetParameterSetCount(), 3u);
  // Zero-length units are dropped; a length past the end refuses the packet.
  EXPECT_EQ(Convert(converter, Bytes{0, 0, 0, 0, 0, 0, 0, 4, 0x41, 1, 2, 3}, false),
            AnnexB({Bytes{0x41, 1, 2, 3}}));
  EXPECT_EQ(Convert(converter, Bytes{0, 0, 0, 9, 0x41, 1, 2}, false), Bytes{0xEE});
  EXPECT_EQ(Convert(converter, Bytes{0, 0, 0}, false), Bytes{0xEE});
  EXPECT_EQ(Convert(converter, Bytes{}, false), Bytes{0xEE});
  // A muxer that wrote Annex B despite its configuration is understood.
  EXPECT_EQ(Convert(converter, AnnexB({Slice}), false), AnnexB({Slice}));
}

TEST(MediaH264AnnexB, AnnexBInputAndDamagedConfigurations) {
  CmH264AnnexBConverter converter;
  const Bytes config = AnnexB({Sps, Pps});
  ASSERT_TRUE(converter.Configure(config.data(), config.size()));
  EXPECT_EQ(converter.GetLengthSize(), 0u);
  // Three-byte start codes, trailing zeros and leading zeros are all framing.
  Bytes packet = {0, 0, 0, 0, 1};
  packet.insert(packet.end(), Idr.begin(), Idr.end());
  packet.insert(packet.end(), {0, 0, 0, 1});
  packet.insert(packet.end(), Slice.begin(), Slice.end());
  packet.insert(packet.end(), {0, 0});
  EXPECT_EQ(Convert(converter, packet, true), AnnexB({Sps, Pps, Idr, Slice}));
  EXPECT_EQ(Convert(converter, Bytes{1, 0, 0, 1, 0x41, 5}, false), Bytes{0xEE})
      << "bytes before the first start code";
  EXPECT_EQ(Convert(converter, Bytes{0x41, 5, 6}, false), Bytes{0xEE}) << "no start code";

  // A converter without configuration learns the sets from the stream.
  CmH264AnnexBConverter learner;
  ASSERT_TRUE(learner.Configure(nullptr, 0));
  EXPECT_EQ(Convert(learner, AnnexB({Idr}), true), AnnexB({Idr}));
  EXPECT_EQ(Convert(learner, AnnexB({Sps, Pps, Idr}), true), AnnexB({Sps, Pps, Idr}));
  EXPECT_EQ(Convert(learner, AnnexB({Idr}), true), AnnexB({Sps, Pps, Idr}));
  // A set whose id cannot be read is passed on but not remembered.
  CmH264AnnexBConverter damaged;
  const Bytes shortSps = {0x67, 0x42, 0xC0};
  EXPECT_EQ(Convert(damaged, AnnexB({shortSps, Idr}), true), AnnexB({shortSps, Idr}));
  EXPECT_EQ(damaged.GetParameterSetCount(), 0u);

  const Bytes good = AvcC(4, {Sps}, {Pps});
  for (size_t cut = 1; cut < good.size(); ++cut) {
    CmH264AnnexBConverter truncated;
    EXPECT_FALSE(truncated.Configure(good.data(), cut)) << cut;
  }
  Bytes threeByteLengths = good;
  threeByteLengths[4] = 0xFE;
  EXPECT_FALSE(converter.Configure(threeByteLengths.data(), threeByteLengths.size()));
  Bytes emptySet = AvcC(4, {Bytes{}}, {Pps});
  EXPECT_FALSE(converter.Configure(emptySet.data(), emptySet.size()));
}

TEST(MediaAACLoas, RawFramesWrapWithTheirConfigurationAtEveryLengthBoundary) {
  const Bytes config = {0x12, 0x10}; // AAC LC, 44100 Hz, stereo
  CmAACLoasWrapper wrapper;
  ASSERT_TRUE(wrapper.Configure(config.data(), config.size()));
  EXPECT_EQ(wrapper.GetConfig().samplingFrequency, 44100u);
  for (const size_t size : {1u, 254u, 255u, 256u, 509u, 510u, 511u, 6000u}) {
    Bytes out;
    ASSERT_TRUE(wrapper.Wrap(Filler(size).data(), size, out)) << size;
    EXPECT_TRUE(IsLoasFrame(out.data(), out.size()));
    const SmLoasReading reading = ReadLoas(out);
    EXPECT_TRUE(reading.valid) << size;
    EXPECT_EQ(reading.specificConfig, config);
    EXPECT_EQ(reading.payload, Filler(size));
  }
  // The 13-bit length of a LOAS frame bounds the frame.
  Bytes out;
  EXPECT_FALSE(wrapper.Wrap(Filler(8191).data(), 8191, out));
  EXPECT_TRUE(out.empty());
  EXPECT_FALSE(wrapper.Wrap(nullptr, 0, out));

  // Frames that are LOAS already pass unchanged.
  ASSERT_TRUE(wrapper.Wrap(Filler(100).data(), 100, out));
  const Bytes loas = out;
  ASSERT_TRUE(wrapper.Wrap(loas.data(), loas.size(), out));
  EXPECT_EQ(out, loas);
  EXPECT_FALSE(IsLoasFrame(loas.data(), loas.size() - 1));

  // Without any configuration a raw frame cannot be wrapped.
  CmAACLoasWrapper unconfigured;
  ASSERT_TRUE(unconfigured.Configure(nullptr, 0));
  EXPECT_FALSE(unconfigured.Wrap(Filler(100).data(), 100, out));
  EXPECT_FALSE(unconfigured.Configure(Bytes{0x12}.data(), 1)) << "cut short";
  EXPECT_FALSE(unconfigured.Configure(Bytes{0x16, 0x90}.data(), 2)) << "reserved index 13";
}

TEST(MediaAACLoas, AdtsHeadersAndAudioSpecificConfigVariants) {
  CmAACLoasWrapper wrapper;
  ASSERT_TRUE(wrapper.Configure(nullptr, 0));
  for (const bool crc : {false, true}) {
    const Bytes frame = Adts(Filler(300), crc, 1, 3, 1);
    Bytes out;
    ASSERT_TRUE(wrapper.Wrap(frame.data(), frame.size(), out));
    const SmLoasReading reading = ReadLoas(out);
    ASSERT_TRUE(reading.valid);
    // LC at 48000 Hz, mono: object type 2, index 3, channels 1.
    EXPECT_EQ(reading.specificConfig, (Bytes{0x11, 0x88}));
    EXPECT_EQ(reading.payload, Filler(300));
    EXPECT_EQ(wrapper.GetConfig().samplingFrequency, 48000u);
  }
  Bytes out;
  const Bytes twoBlocks = Adts(Filler(50), false, 1, 3, 1, 1);
  EXPECT_FALSE(wrapper.Wrap(twoBlocks.data(), twoBlocks.size(), out));
  const Bytes reserved = Adts(Filler(50), false, 1, 13, 1);
  EXPECT_FALSE(wrapper.Wrap(reserved.data(), reserved.size(), out));
  const Bytes programConfig = Adts(Filler(50), false, 1, 3, 0);
  EXPECT_FALSE(wrapper.Wrap(programConfig.data(), programConfig.size(), out));
  // A header whose length disagrees with the packet is no ADTS frame, and
  // without a configuration nothing else can be done with it.
  Bytes longer = Adts(Filler(50), false);
  longer.push_back(0);
  EXPECT_FALSE(wrapper.Wrap(longer.data(), longer.size(), out));
  SmAACConfig config;
  // HE-AAC: object type 5, 24000 Hz core, stereo, 48000 Hz extension, core LC.
  ASSERT_TRUE(ParseAudioSpecificConfig(Bytes{0x2B, 0x11, 0x8A, 0x00}.data(), 4, config));
  EXPECT_TRUE(config.sbr);
  EXPECT_EQ(config.objectType, 2u);
  EXPECT_EQ(config.samplingFrequency, 24000u);
  EXPECT_EQ(config.extensionSamplingFrequency, 48000u);
  // An escaped object type (31 + 6 bits) and an explicit 24-bit frequency.
  ASSERT_TRUE(
      ParseAudioSpecificConfig(Bytes{0xF8, 0x1E, 0x00, 0x3E, 0x80, 0x20}.data(), 6, config));
  EXPECT_EQ(config.objectType, 32u);
  EXPECT_EQ(config.samplingFrequency, 8000u);
  EXPECT_EQ(config.channelConfiguration, 1u);
  EXPECT_FALSE(ParseAudioSpecificConfig(Bytes{0x00, 0x10}.data(), 2, config)) << "object type 0";
  EXPECT_FALSE(ParseAudioSpecificConfig(Bytes{0x2B, 0x11}.data(), 2, config)) << "cut in extension";
}

TEST(MediaRecordBuilder, VideoRecordsCarryNumbersSyncAndSyncTimes) {
  SmMediaStreamFormat format;
  format.codec = 10;
  format.payload = SmMediaStreamFormat::H264;
  CmMediaRecordBuilder builder(format);
  const Bytes config = AvcC(4, {Sps}, {Pps});
  ASSERT_TRUE(builder.Configure(config.data(), config.size()));

  const auto build = [&builder](const Bytes& payload, bool key, int64_t time, Bytes& record) {
    SmRecordInfo info;
    SmMediaPacket packet{payload.data(), payload.size(), key, time, 0};
    return builder.Build(packet, record, info) ? info.sequenceNumber : -1;
  };
  // Sync, codec, frame time, sync time and number of the record built.
  Bytes record;
  const auto facts = [&record] {
    NmMediaProcessing::CmGenericVideoStreamDataPacket packet(record.data(), record.size());
    return std::to_string(packet.GetSync()) + "/" + std::to_string(packet.GetCodec()) + "/" +
           std::to_string(packet.GetFrameTime().GetMilliseconds()) + "/" +
           std::to_string(packet.GetSyncTime().GetMilliseconds()) + "/" +
           std::to_string(packet.GetSequenceNumber());
  };
  // A frame before any sync frame has no sync time to name.
  EXPECT_EQ(build(LengthPrefixed({Slice}, 4), false, 999, record), 0);
  EXPECT_EQ(facts(), "0/10/999/0/0");
  EXPECT_EQ(build(LengthPrefixed({Idr}, 4), false, 1000, record), 1);
  EXPECT_EQ(facts(), "1/10/1000/1000/1");
  EXPECT_EQ(Bytes(record.begin() + 32, record.end()), AnnexB({Sps, Pps, Idr}));
  EXPECT_EQ(build(Bytes{0, 0, 0, 9}, false, 1040, record), -1) << "damaged: nothing counted";
  EXPECT_TRUE(record.empty());
  EXPECT_EQ(build(LengthPrefixed({Slice}, 4), false, 1040, record), 2);
  EXPECT_EQ(facts(), "0/10/1040/1000/2");
  // Times before 1970 are held at the epoch; numbers wrap at 16 bits.
  for (int i = 3; i < 65536; ++i) {
    build(LengthPrefixed({Slice}, 4), false, -5, record);
  }
  EXPECT_EQ(facts(), "0/10/0/1000/65535");
  EXPECT_EQ(build(LengthPrefixed({Slice}, 4), false, 2000, record), 0);
  // A key frame of the container that holds no IDR is no place to start; a
  // recovery point is, with frames to recover (intra refresh) or without,
  // behind a message of another kind and an escaped byte.
  EXPECT_EQ(build(LengthPrefixed({Slice}, 4), true, 2040, record), 1);
  EXPECT_EQ(facts(), "0/10/2040/1000/1");
  const Bytes refresh = {0x06, 0x06, 0x01, 0x71, 0x80};
  const Bytes clean = {0x06, 0x05, 0x03, 0x00, 0x00, 0x03, 0x01, 0x06, 0x01, 0x90, 0x80};
  EXPECT_EQ(CmH264AnnexBConverter::RecoveryFrameCount(refresh.data(), refresh.size()), 2u);
  EXPECT_EQ(CmH264AnnexBConverter::RecoveryFrameCount(clean.data(), clean.size()), 0u);
  EXPECT_EQ(CmH264AnnexBConverter::RecoveryFrameCount(clean.data(), 6), std::nullopt);
  EXPECT_EQ(build(LengthPrefixed({refresh, Slice}, 4), false, 2080, record), 2);
  EXPECT_EQ(facts(), "1/10/2080/2080/2");
  EXPECT_EQ(build(LengthPrefixed({clean, Slice}, 4), false, 2120, record), 3);
  EXPECT_EQ(facts(), "1/10/2120/2120/3");

  SmMediaStreamFormat jpeg;
  jpeg.codec = 1;
  jpeg.intraOnly = true;
  CmMediaRecordBuilder intra(jpeg);
  const Bytes picture = {0xFF, 0xD8, 1, 2, 0xFF, 0xD9};
  SmRecordInfo info;
  ASSERT_TRUE(intra.Build({picture.data(), picture.size(), false, 5000, 0}, record, info));
  EXPECT_TRUE(info.sync) << "every intra-only frame is a sync frame";
}

// Presentation times in decoding order become rising times: the n-th frame
// takes the n-th smallest, as soon as the declared reordering allows.
TEST(MediaDecodeOrderTimes, FramesTakeTheSortedTimesInTheirOwnOrder) {
  const auto run = [](CmDecodeOrderTimes& order, const std::vector<int64_t>& pushed) {
    std::vector<int64_t> out;
    for (const int64_t time : pushed) {
      order.Push(time);
      while (order.IsReady(false)) {
        out.push_back(order.Pop());
      }
    }
    while (order.IsReady(true)) {
      out.push_back(order.Pop());
    }
    return out;
  };
  // A B pyramid (I P B B B) as x264 stores it, declared two deep.
  CmDecodeOrderTimes pyramid(2);
  pyramid.Push(0);
  pyramid.Push(160);
  EXPECT_FALSE(pyramid.IsReady(false)) << "the next frames may still undercut";
  EXPECT_TRUE(pyramid.IsReady(true));
  EXPECT_EQ(run(pyramid, {80, 40, 120, 320, 240, 200, 280}),
            (std::vector<int64_t>{0, 40, 80, 120, 160, 200, 240, 280, 320}));
  // Declared without reordering: the frame that came too late takes the next
  // millisecond, and the window widens so the next group comes out right.
  CmDecodeOrderTimes undeclared(0);
  EXPECT_EQ(run(undeclared, {0, 80, 40, 160, 120, 240, 200}),
            (std::vector<int64_t>{0, 80, 81, 120, 160, 200, 240}));
  EXPECT_EQ(undeclared.GetWindow(), 1u);
  // A jump of the clock starts a run that waits for the one before.
  CmDecodeOrderTimes jumps(2);
  EXPECT_EQ(run(jumps, {1000, 1080, 1040, 0, 80, 40, 60000, 59960}),
            (std::vector<int64_t>{1000, 1040, 1080, 0, 40, 80, 59960, 60000}));
  EXPECT_EQ(CmDecodeOrderTimes(100).GetWindow(), CmDecodeOrderTimes::MostReordering);
  // A first frame without a time (libavformat over RTP) waits for the window
  // after it and is shown one frame before the earliest of them; alone, it
  // follows the frame before.
  for (const size_t window : {1u, 2u}) {
    CmDecodeOrderTimes untimed(window);
    untimed.PushUntimed(40);
    untimed.Push(160);
    EXPECT_FALSE(untimed.IsReady(false));
    EXPECT_EQ(run(untimed, {80, 120, 320, 200, 240}),
              (std::vector<int64_t>{40, 80, 120, 160, 200, 240, 320}))
        << window;
  }
  CmDecodeOrderTimes last(1);
  last.Push(0);
  last.PushUntimed(40);
  EXPECT_EQ(run(last, {}), (std::vector<int64_t>{0, 40}));
}

TEST(MediaRecordBuilder, AudioRecordsCountSamplesAndNormalisePCM) {
  using NmMediaProcessing::CmGenericAudioStreamDataPacket;
  const auto audio = [](uint32_t codec, SmMediaStreamFormat::Payload payload, uint32_t channels,
                        uint32_t bits) {
    SmMediaStreamFormat format;
    format.kind = SmMediaStreamFormat::Audio;
    format.codec = codec;
    format.payload = payload;
    format.channels = channels;
    format.samplingFrequency = 48000;
    format.bitsPerSample = format.bitsPerCodedSample = bits;
    return format;
  };
  using NmMediaProcessing::SmAudioCodec;
  CmMediaRecordBuilder swap(audio(SmAudioCodec::PCM, SmMediaStreamFormat::PCMSwap16, 2, 16));
  Bytes record;
  SmRecordInfo info;
  const Bytes bigEndian = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x11};
  ASSERT_TRUE(swap.Build({bigEndian.data(), bigEndian.size(), true, 7000, 999}, record, info));
  CmGenericAudioStreamDataPacket packet(record.data(), record.size());
  EXPECT_EQ(Bytes(packet.GetPayload(), packet.GetPayload() + packet.GetPayloadLength()),
            (Bytes{0x34, 0x12, 0x78, 0x56, 0xBC, 0x9A, 0xF0, 0xDE}))
      << "a half sample at the end is dropped";
  EXPECT_EQ(packet.GetSampleCount(), 2u) << "the bytes count, not the container's duration";
  EXPECT_EQ(packet.GetChannelCount(), 2u);
  EXPECT_EQ(packet.GetSamplingFrequency(), 48000u);
  EXPECT_EQ(packet.GetTime().GetMilliseconds(), 7000);
  EXPECT_FALSE(info.sync);
  const Bytes half = {0x12};
  EXPECT_FALSE(swap.Build({half.data(), half.size(), true, 7000, 0}, record, info));

  CmMediaRecordBuilder signed8(audio(SmAudioCodec::PCM, SmMediaStreamFormat::PCMSigned8, 1, 8));
  const Bytes samples = {0x00, 0x7F, 0x80, 0xFF};
  ASSERT_TRUE(signed8.Build({samples.data(), samples.size(), true, 0, 0}, record, info));
  CmGenericAudioStreamDataPacket unsigned8(record.data(), record.size());
  EXPECT_EQ(Bytes(unsigned8.GetPayload(), unsigned8.GetPayload() + 4),
            (Bytes{0x80, 0xFF, 0x00, 0x7F}));

  SmMediaStreamFormat aac = audio(SmAudioCodec::AACLoas, SmMediaStreamFormat::AAC, 2, 16);
  aac.bitsPerCodedSample = 0;
  aac.frameSamples = 1024;
  CmMediaRecordBuilder heAac(aac);
  const Bytes heConfig = {0x2B, 0x11, 0x8A, 0x00};
  ASSERT_TRUE(heAac.Configure(heConfig.data(), heConfig.size()));
  const Bytes raw = Filler(40);
  ASSERT_TRUE(heAac.Build({raw.data(), raw.size(), true, 0, 2048}, record, info));
  CmGenericAudioStreamDataPacket wrapped(record.data(), record.size());
  EXPECT_EQ(wrapped.GetCodecOption(), uint32_t{NmMediaProcessing::SmAACProfile::HighEfficiency});
  EXPECT_EQ(wrapped.GetSampleCount(), 2048u);
  EXPECT_EQ(wrapped.GetBitsPerSample(), 16u);
  EXPECT_TRUE(IsLoasFrame(wrapped.GetPayload(), wrapped.GetPayloadLength()));
  CmMediaRecordBuilder plain(aac);
  ASSERT_TRUE(plain.Configure(nullptr, 0));
  EXPECT_FALSE(plain.Build({raw.data(), raw.size(), true, 0, 0}, record, info))
      << "raw frames without any configuration";
  EXPECT_FALSE(plain.Configure(Bytes{0x00}.data(), 1));
}

TEST(MediaJPEGTables, FramesWithoutHuffmanTablesGetTheStandardOnes) {
  // SOI, a comment, a baseline frame header, then the scan.
  const Bytes head = {0xFF, 0xD8, 0xFF, 0xFE, 0x00, 0x04, 'h', 'i', 0xFF, 0xFF, 0xC0,
                      0x00, 0x0B, 8,    0,    16,   0,    16,  1,   1,    0x11, 0};
  const Bytes scan = {0xFF, 0xDA, 0x00, 0x08, 1, 1, 0x00, 0, 63, 0, 0x12, 0x34, 0xFF, 0xD9};
  Bytes frame = head;
  frame.insert(frame.end(), scan.begin(), scan.end());
  Bytes out;
  ASSERT_TRUE(CompleteJPEGHuffmanTables(frame.data(), frame.size(), out));
  ASSERT_EQ(out.size(), frame.size() + 420);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + static_cast<ptrdiff_t>(head.size())), head);
  EXPECT_EQ(Bytes(out.end() - static_cast<ptrdiff_t>(scan.size()), out.end()), scan);
  // One DHT segment of 418 bytes; that its tables are the standard ones shows
  // where the source plug-in's frames decode like the originals.
  EXPECT_EQ(Bytes(out.begin() + 22, out.begin() + 27), (Bytes{0xFF, 0xC4, 0x01, 0xA2, 0x00}));

  // A frame that has its tables stays as it is.
  Bytes withTables = out;
  EXPECT_FALSE(CompleteJPEGHuffmanTables(withTables.data(), withTables.size(), out));
  EXPECT_TRUE(out.empty());
  // Progressive and arithmetic-coded frames are left alone.
  for (const uint8_t marker : {0xC2, 0xC9}) {
    Bytes other = frame;
    other[10] = marker;
    EXPECT_FALSE(CompleteJPEGHuffmanTables(other.data(), other.size(), out)) << int(marker);
  }
  // Cut anywhere before the scan, or with a segment running past the end.
  for (size_t cut = 0; cut < head.size() + 2; ++cut) {
    EXPECT_FALSE(CompleteJPEGHuffmanTables(frame.data(), cut, out)) << cut;
  }
  Bytes overlong = frame;
  overlong[11] = 0xFF;
  EXPECT_FALSE(CompleteJPEGHuffmanTables(overlong.data(), overlong.size(), out));
  Bytes noImage = {0x00, 0xD8, 0xFF, 0xDA};
  EXPECT_FALSE(CompleteJPEGHuffmanTables(noImage.data(), noImage.size(), out));
}

TEST(MediaPictureCodingType, H263HeaderAndMPEG4Plane) {
  // PSC, TR 5, PTYPE "10" + three flags, QCIF (2), then the coding type.
  const auto header = [](uint32_t codingBits, unsigned codingWidth, uint32_t format) {
    uint64_t bits = 0x20;      // 22-bit start code
    bits = bits << 8 | 5;      // temporal reference
    bits = bits << 2 | 2;      // "1", "0"
    bits = bits << 3 | 0;      // split screen, document camera, freeze release
    bits = bits << 3 | format; // source format
    bits = bits << codingWidth | codingBits;
    const unsigned total = 38 + codingWidth;
    bits <<= 64 - total;
    Bytes out;
    for (unsigned i = 0; i < (total + 7) / 8; ++i) {
      out.push_back(static_cast<uint8_t>(bits >> (56 - 8 * i)));
    }
    return out;
  };
  // PLUSPTYPE (format 7) without the optional part (UFEP 0), then the picture
  // type: 000 intra, 001 inter; with UFEP 1 the 18 optional bits come first.
  // Forbidden format 0 and a bad update mode say nothing.
  const std::pair<Bytes, std::optional<bool>> cases[] = {
      {header(0, 1, 2), true},
      {header(1, 1, 2), false},
      {header(0b000'000, 6, 7), true},
      {header(0b000'001, 6, 7), false},
      {header((uint64_t{1} << 21) | 0b001, 24, 7), false},
      {header(0b010'000, 6, 7), std::nullopt},
      {header(0, 1, 0), std::nullopt},
  };
  for (const auto& [picture, intra] : cases) {
    EXPECT_EQ(IsIntraH263Picture(picture.data(), picture.size()), intra);
  }
  // A broken start code, and every cut of the header.
  Bytes noStart = cases[0].first;
  noStart[1] = 0x01;
  EXPECT_EQ(IsIntraH263Picture(noStart.data(), noStart.size()), std::nullopt);
  for (size_t cut = 0; cut < cases[0].first.size(); ++cut) {
    EXPECT_EQ(IsIntraH263Picture(cases[0].first.data(), cut), std::nullopt) << cut;
  }

  // MPEG-4: a configuration header in front, then a plane of each coding type.
  for (const uint8_t type : {0, 1, 2, 3}) {
    const Bytes frame = {
        0, 0, 1, 0xB0, 0x01, 0, 0, 1, 0xB6, static_cast<uint8_t>(type << 6 | 0x15), 0x40};
    EXPECT_EQ(IsIntraMPEG4Picture(frame.data(), frame.size()), std::optional<bool>(type == 0));
  }
  const Bytes noPlane = {0, 0, 1, 0xB0, 0x01, 0, 0, 1, 0xB5};
  EXPECT_EQ(IsIntraMPEG4Picture(noPlane.data(), noPlane.size()), std::nullopt);
  const Bytes cut = {0, 0, 1, 0xB6};
  EXPECT_EQ(IsIntraMPEG4Picture(cut.data(), cut.size()), std::nullopt)
      << "the coding type is missing";
}

// The field reader tells the fields of a field-coded stream by parity,
// frame_num, reference and IDR, from parameter sets in the container's
// configuration (Main and High profile, frame_num of 4 and 9 bits), and
// nothing for frame pictures and for slices whose parameter sets it has not
// seen.
TEST(MediaH264FieldReader, FieldsOfAFieldCodedStream) {
  using NmTestSupport::SmWriterSlice;
  for (const bool high : {false, true}) {
    SCOPED_TRACE(high ? "High" : "Main");
    NmTestSupport::CmH264StreamWriter writer;
    NmTestSupport::SmWriterSps sps;
    sps.frameMbsOnly = false;
    sps.widthInMbs = sps.heightInMbs = 2;
    sps.log2MaxFrameNum = high ? 9 : 4;
    if (high) {
      sps.profileIdc = 100;
    }
    writer.WriteSps(sps);
    NmTestSupport::SmWriterPps pps;
    pps.transform8x8 = high;
    writer.WritePps(pps);
    const uint32_t lastFrameNum = 300 % (1u << sps.log2MaxFrameNum);
    const auto picture = [&](bool idr, uint32_t frameNum, bool bottom, bool frame) {
      SmWriterSlice slice;
      slice.idr = idr;
      slice.type = SmWriterSlice::I;
      slice.frameNum = frameNum;
      slice.field = !frame;
      slice.bottom = bottom;
      writer.WriteSlice(slice,
                        std::vector<NmTestSupport::SmWriterMacroblock>(
                            frame ? 4 : 2, NmTestSupport::SmWriterMacroblock::Filled(1, 2, 3)));
    };
    picture(true, 0, false, false);
    picture(false, 0, true, false);
    picture(false, lastFrameNum, true, false);
    picture(false, 2, false, true);
    const auto annexB = [&writer](size_t unit) {
      Bytes bytes = {0, 0, 0, 1};
      bytes.insert(bytes.end(), writer.Units()[unit].begin(), writer.Units()[unit].end());
      return bytes;
    };
    const Bytes firstField = annexB(2);
    EXPECT_FALSE(CmH264FieldReader().Read(firstField.data(), firstField.size()));
    CmH264FieldReader reader;
    Bytes sets = annexB(0);
    const Bytes pictureSet = annexB(1);
    sets.insert(sets.end(), pictureSet.begin(), pictureSet.end());
    reader.Configure(sets.data(), sets.size());
    std::vector<std::optional<CmH264FieldReader::SmField>> read;
    for (size_t unit = 2; unit < writer.Units().size(); ++unit) {
      const Bytes bytes = annexB(unit);
      read.push_back(reader.Read(bytes.data(), bytes.size()));
    }
    ASSERT_TRUE(read[0] && read[1] && read[2]);
    EXPECT_FALSE(read[3]) << "a frame picture";
    EXPECT_TRUE(read[0]->idr && !read[0]->bottom && read[0]->reference);
    EXPECT_TRUE(!read[1]->idr && read[1]->bottom && read[1]->frameNum == 0);
    EXPECT_EQ(read[2]->frameNum, lastFrameNum);
    EXPECT_TRUE(CmH264FieldReader::Completes(*read[0], *read[1]));
    EXPECT_FALSE(CmH264FieldReader::Completes(*read[1], *read[0])) << "an IDR starts a frame";
    EXPECT_FALSE(CmH264FieldReader::Completes(*read[0], *read[2])) << "another frame_num";
  }
}
