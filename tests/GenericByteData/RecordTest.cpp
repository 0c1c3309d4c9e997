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

namespace {
// A record of class R attached to the first `size` bytes (all by default).
template <typename R = CmGenericByteData> R View(CmBytes& bytes, size_t size = SIZE_MAX) {
  return R(bytes.data(), std::min(size, bytes.size()));
}
using CmVideoView = CmGenericVideoStreamDataPacket;
} // namespace

TEST(GenericByteDataAttach, BufferAndDeclaredLengthBoundaries) {
  // An empty object reports the multi packet type; only IsEmpty tells.
  const CmGenericByteData empty;
  EXPECT_TRUE(empty.IsEmpty() && empty.IsMultiPacket());
  EXPECT_EQ(empty.GetPayload(), nullptr);

  // Five bytes never attach; six bytes of raw JPEG do, all of it payload.
  CmBytes jpeg5 = BuildRawJPEG(5);
  EXPECT_TRUE(View(jpeg5).IsEmpty());
  CmBytes jpeg6 = BuildRawJPEG(6);
  const CmGenericByteData raw = View(jpeg6);
  EXPECT_TRUE(raw.IsRawJPEG() && raw.IsBlock() && !raw.IsEmpty());
  EXPECT_EQ(raw.GetPayload(), jpeg6.data());
  EXPECT_EQ(raw.GetPayloadLength(), 6u);
  EXPECT_TRUE(CmGenericByteData(nullptr, 100).IsEmpty());

  // Declared length against the buffer: equal, longer buffer (tail ignored),
  // shorter buffer (refused), a record without payload (refused), and a
  // declared 0 that stands for the whole buffer.
  CmBytes video = BuildVideoPacket({.payload = Pattern(10)});
  EXPECT_EQ(View<CmVideoView>(video).GetPayloadLength(), 10u);
  CmBytes longer = video;
  longer.resize(video.size() + 5);
  EXPECT_EQ(View<CmVideoView>(longer).GetLength(), video.size());
  EXPECT_TRUE(View<CmVideoView>(video, video.size() - 1).IsEmpty());
  CmBytes headerOnly = BuildVideoPacket({.payload = {}});
  EXPECT_TRUE(View<CmVideoView>(headerOnly).IsEmpty());
  CmBytes oneByte = BuildVideoPacket({.payload = {7}});
  EXPECT_EQ(View<CmVideoView>(oneByte).GetPayloadLength(), 1u);
  CmBytes undeclared = BuildVideoPacket({.totalLength = 0, .payload = Pattern(10)});
  EXPECT_EQ(View<CmVideoView>(undeclared).GetLength(), undeclared.size());

  // A block's payload lies behind its extension; a block needs a payload,
  // and an extension that runs past the buffer refuses the record.
  CmBytes extended = BuildBlock({.extension = Pattern(5, 0x90), .payload = Pattern(8)});
  const auto block = View<CmGenericByteDataBlock>(extended);
  EXPECT_EQ(block.GetPayload(), extended.data() + 41);
  EXPECT_EQ(block.GetPayloadLength(), 8u);
  CmBytes noPayload = BuildBlock({.payload = {}});
  EXPECT_TRUE(View<CmGenericByteDataBlock>(noPayload).IsEmpty());
  CmBytes longExtension = BuildBlock({.extensionLength = 100, .payload = Pattern(8)});
  EXPECT_TRUE(View<CmGenericByteDataBlock>(longExtension).IsEmpty());
  CmBytes shortBlock = BuildBlock({});
  EXPECT_TRUE(View<CmGenericByteDataBlock>(shortBlock, 20).IsEmpty());

  // Attaching checks no type: the fields of a foreign type are closed.
  CmBytes audio = BuildAudioPacket({.codec = 2});
  auto wrongView = View<CmVideoView>(audio);
  EXPECT_TRUE(!wrongView.IsEmpty() && !wrongView.IsTypeValid());
  EXPECT_FALSE(wrongView.SetCodec(10));
  EXPECT_EQ(wrongView.GetCodec(), 0u);
  EXPECT_EQ(audio[7], 2);
}

TEST(GenericByteDataTypes, ValidTypesAndHeaderLengthsPerClass) {
  const CmGenericByteData base;
  const CmGenericByteDataBlock block;
  const CmGenericByteDataSinglePacket single;
  const CmGenericVideoStreamDataPacket video;
  const CmGenericAudioStreamDataPacket audio;
  const CmGenericByteDataMultiPacket multi;
  const CmGenericByteData* const classes[] = {&base, &block, &single, &video, &audio, &multi};
  // Per type, the classes that take it: base, block, single, video, audio, multi.
  const std::pair<int32_t, const char*> table[] = {
      {0, "------"},     {1, "BB----"},     {12, "BB----"},    {13, "------"},    {14, "------"},
      {15, "BB----"},    {16, "B-SV--"},    {32, "B-S-A-"},    {65023, "B-S---"}, {65024, "------"},
      {65264, "B----M"}, {65496, "BB----"}, {65535, "------"}, {-1, "------"}};
  for (const auto& [type, takes] : table) {
    for (size_t c = 0; c < 6; ++c) {
      EXPECT_EQ(classes[c]->IsValidType(type), takes[c] != '-') << type << " class " << c;
    }
  }
  const std::tuple<const CmGenericByteData*, int32_t, uint64_t> headers[] = {
      {&base, 65496, 0}, {&base, 15, 36},  {&base, 0, 6},       {&base, -5, 6}, {&video, 16, 32},
      {&video, 32, 6},   {&audio, 32, 42}, {&multi, 65264, 16}, {&multi, 16, 6}};
  for (const auto& [record, type, length] : headers) {
    EXPECT_EQ(record->GetHeaderLength(type), length) << type;
  }
  const int32_t defaults[] = {65264, 1, 65264, 16, 32, 65264};
  for (size_t c = 0; c < 6; ++c) {
    EXPECT_EQ(classes[c]->GetDefaultType(), defaults[c]) << c;
    EXPECT_EQ(classes[c]->CanAllocate(), c != 0 && c != 2) << c;
  }

  // Single packet types without a layout of their own still attach.
  CmBytes odd = BuildVideoPacket({.type = 100});
  const CmGenericByteData unknownPacket = View(odd);
  EXPECT_TRUE(unknownPacket.IsPacket() && unknownPacket.IsTypeValid());
  PutU16(odd, 0, 13);
  EXPECT_FALSE(View(odd).IsTypeValid());
}

TEST(GenericByteDataAllocate, LayoutLimitsAndOwnership) {
  CmGenericByteData base(true);
  CmGenericByteDataSinglePacket single(true);
  CmGenericByteDataBlock block(true);
  EXPECT_FALSE(base.Allocate(10) || single.Allocate(10) || block.Allocate(0));
  // The layout of what is allocated is pinned by the golden bytes.
  ASSERT_TRUE(block.Allocate(10));
  EXPECT_EQ(block.GetType(), 1);
  // Allocating again replaces the buffer (the sanitiser sees any leak).
  ASSERT_TRUE(block.Allocate(3));
  EXPECT_EQ(block.GetLength(), 39u);

  CmGenericVideoStreamDataPacket video(true);
  ASSERT_TRUE(video.Allocate(10));

  // Lengths that the 32-bit length fields cannot hold are refused before
  // anything is allocated.
  EXPECT_FALSE(block.Allocate(uint64_t{1} << 32));
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_FALSE(video.Allocate(0xFFFFFFFFull - 31) || video.Allocate(~uint64_t{0}));

  // Allocate leaves the ownership flag as it finds it: a view that allocates
  // does not own its new buffer until told so.
  CmBytes packet = BuildVideoPacket({});
  auto view = View<CmVideoView>(packet);
  ASSERT_TRUE(view.Allocate(4));
  EXPECT_FALSE(view.GetOwnsBuffer());
  view.SetOwnsBuffer(true);
  EXPECT_TRUE(view.Clear() && view.IsEmpty());
  EXPECT_TRUE(CmGenericByteData().GetOwnsBuffer());
}

TEST(GenericByteDataCopy, DeepCopyAssignmentCopyToAndCopyPayloadFrom) {
  CmBytes packet = BuildVideoPacket({.sequenceNumber = 9, .payload = Pattern(12)});
  const auto view = View<CmVideoView>(packet);
  CmVideoView copy(view);
  EXPECT_NE(copy.GetData(), packet.data());
  EXPECT_TRUE(copy.GetOwnsBuffer());
  EXPECT_EQ(CmBytes(copy.GetData(), copy.GetData() + copy.GetLength()), packet);
  ASSERT_TRUE(copy.SetSequenceNumber(10));
  EXPECT_EQ(view.GetSequenceNumber(), 9);

  // Assignment over a holding record releases it; self-assignment is a no-op.
  CmVideoView target(true);
  ASSERT_TRUE(target.Allocate(100));
  target = view;
  EXPECT_EQ(target.GetLength(), packet.size());
  const uint8_t* before = target.GetData();
  auto& alias = target;
  target = alias;
  EXPECT_EQ(target.GetData(), before);
  target = CmVideoView();
  EXPECT_TRUE(target.IsEmpty());

  // CopyTo: capacity, the record itself, and destinations inside it.
  CmBytes out(packet.size() + 4, 0xEE);
  EXPECT_FALSE(CmGenericByteData().CopyTo(out.data(), out.size()) ||
               view.CopyTo(nullptr, out.size()) || view.CopyTo(out.data(), packet.size() - 1));
  ASSERT_TRUE(view.CopyTo(out.data(), packet.size()));
  EXPECT_EQ(CmBytes(out.begin(), out.begin() + packet.size()), packet);
  EXPECT_EQ(out[packet.size()], 0xEE);
  EXPECT_TRUE(view.CopyTo(packet.data(), packet.size()));
  EXPECT_FALSE(view.CopyTo(packet.data(), packet.size() + 1) ||
               copy.CopyTo(copy.GetData() + 1, packet.size()));

  // CopyPayloadFrom: the whole payload or nothing, and the payload itself.
  const CmBytes fresh = Pattern(12, 0xA0);
  EXPECT_FALSE(copy.CopyPayloadFrom(fresh.data(), 13) || copy.CopyPayloadFrom(nullptr, 12));
  ASSERT_TRUE(copy.CopyPayloadFrom(fresh.data(), 12));
  EXPECT_EQ(CmBytes(copy.GetPayload(), copy.GetPayload() + 12), fresh);
  EXPECT_TRUE(copy.CopyPayloadFrom(copy.GetPayload(), 12));
  EXPECT_FALSE(copy.CopyPayloadFrom(copy.GetPayload(), 11) ||
               copy.CopyPayloadFrom(copy.GetData(), 12));
  // A short size still fills the whole payload from the source.
  const CmBytes other = Pattern(12, 0x10);
  ASSERT_TRUE(copy.CopyPayloadFrom(other.data(), 2));
  EXPECT_EQ(CmBytes(copy.GetPayload(), copy.GetPayload() + 12), other);

  // Copies keep their class: a copy of an empty record is empty.
  EXPECT_TRUE(CmGenericByteDataBlock(CmGenericByteDataBlock()).IsEmpty());
}

TEST(GenericByteDataSetType, ReinterpretsWithinTheRecordLength) {
  CmGenericVideoByteDataBlock block(true);
  EXPECT_FALSE(block.SetType(10));
  ASSERT_TRUE(block.Allocate(8));
  ASSERT_TRUE(block.SetType(10));
  EXPECT_EQ(block.GetData()[11], 8);
  EXPECT_FALSE(block.SetType(16) || block.SetType(13));
  EXPECT_EQ(block.GetType(), 10);

  // The base class sees a 20-byte packet with a 6-byte header; a block
  // header would not fit the record.
  CmBytes packet = BuildVideoPacket({.payload = {}});
  packet.resize(20);
  PutU32(packet, 2, 20);
  CmGenericByteData base = View(packet);
  EXPECT_EQ(base.GetPayloadLength(), 14u);
  EXPECT_FALSE(base.SetType(5));
  EXPECT_TRUE(base.SetType(17));
  EXPECT_EQ(packet[1], 17);
  EXPECT_EQ(base.GetPayloadLength(), 14u);
}

TEST(GenericByteDataLock, IsRecursiveAndExcludesOtherThreadsAndCodecTable) {
  CmVideoView packet(true);
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

  // Codecs 1 to 10 are their own types; the rest are listed.
  std::vector<std::pair<uint32_t, int32_t>> table = {{12, 11}, {13, 12}, {128, 15}};
  for (uint32_t codec = 1; codec <= 10; ++codec) {
    table.emplace_back(codec, static_cast<int32_t>(codec));
  }
  int32_t type = -1;
  uint32_t codec = 0;
  for (const auto& [wantCodec, wantType] : table) {
    EXPECT_TRUE(CodecToByteDataType(wantCodec, type) && type == wantType) << wantCodec;
    EXPECT_TRUE(ByteDataTypeToCodec(wantType, codec) && codec == wantCodec) << wantType;
  }
  // Codec 11 is stored as type 4 and comes back as codec 4; raw JPEG is codec 1.
  EXPECT_TRUE(CodecToByteDataType(11, type) && type == 4);
  EXPECT_TRUE(ByteDataTypeToCodec(65496, codec) && codec == 1);
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
