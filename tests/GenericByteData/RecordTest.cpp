#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/VideoCodec.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;

TEST(GenericByteDataAttach, BufferAndDeclaredLengthBoundaries) {
  // An empty object reports the multi packet type; only IsEmpty tells.
  const CmGenericByteData empty;
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_EQ(empty.GetType(), 65264);
  EXPECT_TRUE(empty.IsMultiPacket());
  EXPECT_EQ(empty.GetPayload(), nullptr);

  // Five bytes never attach; six bytes of raw JPEG do, all of it payload.
  CmBytes jpeg5 = BuildRawJPEG(5);
  EXPECT_TRUE(CmGenericByteData(jpeg5.data(), jpeg5.size()).IsEmpty());
  CmBytes jpeg6 = BuildRawJPEG(6);
  const CmGenericByteData raw(jpeg6.data(), jpeg6.size());
  ASSERT_FALSE(raw.IsEmpty());
  EXPECT_TRUE(raw.IsRawJPEG());
  EXPECT_TRUE(raw.IsBlock());
  EXPECT_EQ(raw.GetPayload(), jpeg6.data());
  EXPECT_EQ(raw.GetPayloadLength(), 6u);
  EXPECT_EQ(raw.GetLength(), 6u);
  EXPECT_TRUE(CmGenericByteData(nullptr, 100).IsEmpty());

  // Declared length against the buffer: equal, longer buffer (tail ignored),
  // shorter buffer (refused), a record without payload (refused), and a
  // declared 0 that stands for the whole buffer.
  CmBytes video = BuildVideoPacket({.payload = Pattern(10)});
  EXPECT_EQ(CmGenericVideoStreamDataPacket(video.data(), video.size()).GetPayloadLength(), 10u);
  CmBytes longer = video;
  longer.resize(video.size() + 5);
  const CmGenericVideoStreamDataPacket tail(longer.data(), longer.size());
  EXPECT_EQ(tail.GetLength(), video.size());
  EXPECT_TRUE(CmGenericVideoStreamDataPacket(video.data(), video.size() - 1).IsEmpty());
  CmBytes headerOnly = BuildVideoPacket({.payload = {}});
  EXPECT_TRUE(CmGenericVideoStreamDataPacket(headerOnly.data(), headerOnly.size()).IsEmpty());
  CmBytes oneByte = BuildVideoPacket({.payload = {7}});
  EXPECT_EQ(CmGenericVideoStreamDataPacket(oneByte.data(), oneByte.size()).GetPayloadLength(), 1u);
  CmBytes undeclared = BuildVideoPacket({.totalLength = 0, .payload = Pattern(10)});
  EXPECT_EQ(CmGenericVideoStreamDataPacket(undeclared.data(), undeclared.size()).GetLength(),
            undeclared.size());

  // A block's payload lies behind its extension; a block needs a payload,
  // and an extension that runs past the buffer refuses the record.
  CmBytes extended = BuildBlock({.extension = Pattern(5, 0x90), .payload = Pattern(8)});
  const CmGenericByteDataBlock block(extended.data(), extended.size());
  ASSERT_FALSE(block.IsEmpty());
  EXPECT_EQ(block.GetPayload(), extended.data() + 41);
  EXPECT_EQ(block.GetPayloadLength(), 8u);
  CmBytes noPayload = BuildBlock({.payload = {}});
  EXPECT_TRUE(CmGenericByteDataBlock(noPayload.data(), noPayload.size()).IsEmpty());
  CmBytes longExtension = BuildBlock({.extensionLength = 100, .payload = Pattern(8)});
  EXPECT_TRUE(CmGenericByteDataBlock(longExtension.data(), longExtension.size()).IsEmpty());
  CmBytes shortBlock = BuildBlock({});
  EXPECT_TRUE(CmGenericByteDataBlock(shortBlock.data(), 20).IsEmpty());

  // Attaching checks no type: the fields of a foreign type are closed.
  CmBytes audio = BuildAudioPacket({.codec = 2});
  CmGenericVideoStreamDataPacket wrongView(audio.data(), audio.size());
  ASSERT_FALSE(wrongView.IsEmpty());
  EXPECT_FALSE(wrongView.IsTypeValid());
  EXPECT_EQ(wrongView.GetCodec(), 0u);
  EXPECT_FALSE(wrongView.SetCodec(10));
  EXPECT_EQ(audio[7], 2);
}

TEST(GenericByteDataTypes, ValidTypesAndHeaderLengthsPerClass) {
  const CmGenericByteData base;
  const CmGenericByteDataBlock block;
  const CmGenericByteDataSinglePacket single;
  const CmGenericVideoStreamDataPacket video;
  const CmGenericAudioStreamDataPacket audio;
  const CmGenericByteDataMultiPacket multi;
  struct {
    int32_t type;
    bool base, block, single, video, audio, multi;
  } const table[] = {
      {0, false, false, false, false, false, false},
      {1, true, true, false, false, false, false},
      {12, true, true, false, false, false, false},
      {13, false, false, false, false, false, false},
      {14, false, false, false, false, false, false},
      {15, true, true, false, false, false, false},
      {16, true, false, true, true, false, false},
      {32, true, false, true, false, true, false},
      {65023, true, false, true, false, false, false},
      {65024, false, false, false, false, false, false},
      {65264, true, false, false, false, false, true},
      {65496, true, true, false, false, false, false},
      {65535, false, false, false, false, false, false},
      {-1, false, false, false, false, false, false},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.type);
    EXPECT_EQ(base.IsValidType(row.type), row.base);
    EXPECT_EQ(block.IsValidType(row.type), row.block);
    EXPECT_EQ(single.IsValidType(row.type), row.single);
    EXPECT_EQ(video.IsValidType(row.type), row.video);
    EXPECT_EQ(audio.IsValidType(row.type), row.audio);
    EXPECT_EQ(multi.IsValidType(row.type), row.multi);
  }
  EXPECT_EQ(base.GetHeaderLength(65496), 0u);
  EXPECT_EQ(base.GetHeaderLength(15), 36u);
  EXPECT_EQ(base.GetHeaderLength(0), 6u);
  EXPECT_EQ(base.GetHeaderLength(-5), 6u);
  EXPECT_EQ(video.GetHeaderLength(16), 32u);
  EXPECT_EQ(video.GetHeaderLength(32), 6u);
  EXPECT_EQ(audio.GetHeaderLength(32), 42u);
  EXPECT_EQ(multi.GetHeaderLength(65264), 16u);
  EXPECT_EQ(multi.GetHeaderLength(16), 6u);

  EXPECT_EQ(base.GetDefaultType(), 65264);
  EXPECT_EQ(block.GetDefaultType(), 1);
  EXPECT_EQ(single.GetDefaultType(), 65264);
  EXPECT_EQ(video.GetDefaultType(), 16);
  EXPECT_EQ(audio.GetDefaultType(), 32);
  EXPECT_EQ(multi.GetDefaultType(), 65264);
  EXPECT_FALSE(base.CanAllocate());
  EXPECT_FALSE(single.CanAllocate());
  EXPECT_TRUE(block.CanAllocate() && video.CanAllocate() && audio.CanAllocate() &&
              multi.CanAllocate());

  // Single packet types without a layout of their own still attach.
  CmBytes odd = BuildVideoPacket({.type = 100});
  const CmGenericByteData unknownPacket(odd.data(), odd.size());
  EXPECT_TRUE(unknownPacket.IsPacket());
  EXPECT_TRUE(unknownPacket.IsTypeValid());
  EXPECT_EQ(unknownPacket.GetLength(), odd.size());
  PutU16(odd, 0, 13);
  EXPECT_FALSE(CmGenericByteData(odd.data(), odd.size()).IsTypeValid());
}

TEST(GenericByteDataAllocate, LayoutLimitsAndOwnership) {
  CmGenericByteData base(true);
  EXPECT_FALSE(base.Allocate(10));
  CmGenericByteDataSinglePacket single(true);
  EXPECT_FALSE(single.Allocate(10));

  CmGenericByteDataBlock block(true);
  EXPECT_FALSE(block.Allocate(0));
  ASSERT_TRUE(block.Allocate(10));
  EXPECT_EQ(block.GetLength(), 46u);
  EXPECT_EQ(block.GetType(), 1);
  const uint8_t* bytes = block.GetData();
  EXPECT_EQ(bytes[8] << 24 | bytes[9] << 16 | bytes[10] << 8 | bytes[11], 10);
  for (int i = 12; i < 36; ++i) {
    EXPECT_EQ(bytes[i], 0) << i;
  }
  // Allocating again replaces the buffer (the sanitiser sees any leak).
  ASSERT_TRUE(block.Allocate(3));
  EXPECT_EQ(block.GetLength(), 39u);

  CmGenericVideoStreamDataPacket video(true);
  ASSERT_TRUE(video.Allocate(10));
  EXPECT_EQ(video.GetData()[5], 42);
  EXPECT_EQ(video.GetHeaderLength(video.GetType()), 32u);
  CmGenericAudioStreamDataPacket audio(true);
  ASSERT_TRUE(audio.Allocate(1));
  EXPECT_EQ(audio.GetData()[5], 43);

  // Lengths that the 32-bit length fields cannot hold are refused before
  // anything is allocated.
  EXPECT_FALSE(block.Allocate(uint64_t{1} << 32));
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_FALSE(video.Allocate(0xFFFFFFFFull - 31));
  EXPECT_FALSE(video.Allocate(~uint64_t{0}));

  // Allocate leaves the ownership flag as it finds it: a view that allocates
  // does not own its new buffer until told so.
  CmBytes packet = BuildVideoPacket({});
  CmGenericVideoStreamDataPacket view(packet.data(), packet.size());
  EXPECT_FALSE(view.GetOwnsBuffer());
  ASSERT_TRUE(view.Allocate(4));
  EXPECT_FALSE(view.GetOwnsBuffer());
  view.SetOwnsBuffer(true);
  EXPECT_TRUE(view.Clear());
  EXPECT_TRUE(view.IsEmpty());
  EXPECT_EQ(CmGenericByteData().GetOwnsBuffer(), true);
}

TEST(GenericByteDataCopy, DeepCopyAssignmentCopyToAndCopyPayloadFrom) {
  CmBytes packet = BuildVideoPacket({.sequenceNumber = 9, .payload = Pattern(12)});
  const CmGenericVideoStreamDataPacket view(packet.data(), packet.size());
  CmGenericVideoStreamDataPacket copy(view);
  ASSERT_FALSE(copy.IsEmpty());
  EXPECT_NE(copy.GetData(), packet.data());
  EXPECT_TRUE(copy.GetOwnsBuffer());
  EXPECT_EQ(CmBytes(copy.GetData(), copy.GetData() + copy.GetLength()), packet);
  EXPECT_EQ(copy.GetPayloadLength(), 12u);
  ASSERT_TRUE(copy.SetSequenceNumber(10));
  EXPECT_EQ(view.GetSequenceNumber(), 9);

  // Assignment over a holding record releases it; self-assignment is a no-op.
  CmGenericVideoStreamDataPacket target(true);
  ASSERT_TRUE(target.Allocate(100));
  target = view;
  EXPECT_EQ(target.GetLength(), packet.size());
  const uint8_t* before = target.GetData();
  auto& alias = target;
  target = alias;
  EXPECT_EQ(target.GetData(), before);
  target = CmGenericVideoStreamDataPacket();
  EXPECT_TRUE(target.IsEmpty());

  // CopyTo: capacity, the record itself, and destinations inside it.
  CmBytes out(packet.size() + 4, 0xEE);
  EXPECT_FALSE(CmGenericByteData().CopyTo(out.data(), out.size()));
  EXPECT_FALSE(view.CopyTo(nullptr, out.size()));
  EXPECT_FALSE(view.CopyTo(out.data(), packet.size() - 1));
  ASSERT_TRUE(view.CopyTo(out.data(), packet.size()));
  EXPECT_EQ(CmBytes(out.begin(), out.begin() + packet.size()), packet);
  EXPECT_EQ(out[packet.size()], 0xEE);
  EXPECT_TRUE(view.CopyTo(packet.data(), packet.size()));
  EXPECT_FALSE(view.CopyTo(packet.data(), packet.size() + 1));
  EXPECT_FALSE(copy.CopyTo(copy.GetData() + 1, packet.size()));

  // CopyPayloadFrom: the whole payload or nothing, and the payload itself.
  const CmBytes fresh = Pattern(12, 0xA0);
  EXPECT_FALSE(copy.CopyPayloadFrom(fresh.data(), 13));
  EXPECT_FALSE(copy.CopyPayloadFrom(nullptr, 12));
  ASSERT_TRUE(copy.CopyPayloadFrom(fresh.data(), 12));
  EXPECT_EQ(CmBytes(copy.GetPayload(), copy.GetPayload() + 12), fresh);
  EXPECT_TRUE(copy.CopyPayloadFrom(copy.GetPayload(), 12));
  EXPECT_FALSE(copy.CopyPayloadFrom(copy.GetPayload(), 11));
  EXPECT_FALSE(copy.CopyPayloadFrom(copy.GetData(), 12));
  // A short size still fills the whole payload from the source.
  const CmBytes other = Pattern(12, 0x10);
  ASSERT_TRUE(copy.CopyPayloadFrom(other.data(), 2));
  EXPECT_EQ(CmBytes(copy.GetPayload(), copy.GetPayload() + 12), other);

  // Copies keep their class: a copy of an empty record is empty.
  const CmGenericByteDataBlock emptyBlock;
  const CmGenericByteDataBlock emptyCopy(emptyBlock);
  EXPECT_TRUE(emptyCopy.IsEmpty());
}

TEST(GenericByteDataSetType, ReinterpretsWithinTheRecordLength) {
  CmGenericVideoByteDataBlock block(true);
  EXPECT_FALSE(block.SetType(10));
  ASSERT_TRUE(block.Allocate(8));
  ASSERT_TRUE(block.SetType(10));
  EXPECT_EQ(block.GetType(), 10);
  EXPECT_EQ(block.GetPayloadLength(), 8u);
  EXPECT_EQ(block.GetData()[11], 8);
  EXPECT_FALSE(block.SetType(16));
  EXPECT_FALSE(block.SetType(13));
  EXPECT_EQ(block.GetType(), 10);

  // The base class sees a 20-byte packet with a 6-byte header; a block
  // header would not fit the record.
  CmBytes packet = BuildVideoPacket({.payload = {}});
  packet.resize(20);
  PutU32(packet, 2, 20);
  CmGenericByteData base(packet.data(), packet.size());
  ASSERT_FALSE(base.IsEmpty());
  EXPECT_EQ(base.GetPayloadLength(), 14u);
  EXPECT_FALSE(base.SetType(5));
  EXPECT_TRUE(base.SetType(17));
  EXPECT_EQ(packet[1], 17);
  EXPECT_EQ(base.GetPayloadLength(), 14u);
}

TEST(GenericByteDataLock, IsRecursiveAndExcludesOtherThreads) {
  CmGenericVideoStreamDataPacket packet(true);
  ASSERT_TRUE(packet.Allocate(4));
  packet.GetLock().Lock();
  // The holder can still call operations, which take the lock again.
  EXPECT_TRUE(packet.SetSequenceNumber(3));
  std::atomic<bool> otherGotIt{true};
  std::thread other([&] {
    otherGotIt = packet.GetLock().TryLock();
    if (otherGotIt) {
      packet.GetLock().Unlock();
    }
  });
  other.join();
  EXPECT_FALSE(otherGotIt);
  packet.GetLock().Unlock();
  std::thread after([&] { EXPECT_EQ(packet.GetSequenceNumber(), 3); });
  after.join();
}

TEST(GenericByteDataCodecTable, BlockTypesAndCodecValuesBothWays) {
  struct {
    uint32_t codec;
    int32_t type;
  } const table[] = {{1, 1}, {2, 2}, {3, 3},   {4, 4},   {5, 5},   {6, 6},   {7, 7},
                     {8, 8}, {9, 9}, {10, 10}, {12, 11}, {13, 12}, {128, 15}};
  for (const auto& row : table) {
    int32_t type = -1;
    uint32_t codec = 0;
    EXPECT_TRUE(CodecToByteDataType(row.codec, type));
    EXPECT_EQ(type, row.type);
    EXPECT_TRUE(ByteDataTypeToCodec(row.type, codec));
    EXPECT_EQ(codec, row.codec);
  }
  // Codec 11 is stored as type 4 and comes back as codec 4.
  int32_t type = 0;
  uint32_t codec = 0;
  ASSERT_TRUE(CodecToByteDataType(11, type));
  EXPECT_EQ(type, 4);
  ASSERT_TRUE(ByteDataTypeToCodec(type, codec));
  EXPECT_EQ(codec, 4u);
  ASSERT_TRUE(ByteDataTypeToCodec(65496, codec));
  EXPECT_EQ(codec, 1u);
  for (int32_t bad : {0, 13, 14, 16, 65264, -1}) {
    EXPECT_FALSE(ByteDataTypeToCodec(bad, codec)) << bad;
  }
  for (uint32_t bad : {0u, 14u, 15u, 127u, 129u}) {
    EXPECT_FALSE(CodecToByteDataType(bad, type)) << bad;
  }
  for (uint32_t value = 0; value < 300; ++value) {
    EXPECT_EQ(IsIntraOnlyCodec(value), value == 1 || value == 8) << value;
  }
}
