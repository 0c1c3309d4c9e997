#include <gtest/gtest.h>

#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;

namespace {
struct SmFound {
  bool ok;
  uint8_t* data;
  uint64_t length;
};

SmFound Find(const CmGenericByteDataMultiPacket& multi, int32_t type, uint64_t index) {
  uint8_t* data = reinterpret_cast<uint8_t*>(1);
  uint64_t length = 77;
  const bool ok = multi.FindPacket(type, index, data, length);
  return {ok, data, length};
}
} // namespace

TEST(GenericByteDataMultiPacket, FindsPacketsByTypeAndIndex) {
  const CmBytes audio = BuildAudioPacket({.sequenceNumber = 1});
  const CmBytes video1 = BuildVideoPacket({.sequenceNumber = 2});
  const CmBytes unknown = BuildVideoPacket({.type = 100});
  const CmBytes block = BuildBlock({});
  const CmBytes video2 = BuildVideoPacket({.sequenceNumber = 3, .payload = Pattern(5)});
  CmBytes bytes = BuildMultiPacket({.packets = {audio, video1, unknown, block, video2}});
  const CmGenericByteDataMultiPacket multi(bytes.data(), bytes.size());
  ASSERT_TRUE(multi.IsTypeValid());
  EXPECT_EQ(multi.GetPacketCount(), 5u);

  uint8_t* data = nullptr;
  uint64_t length = 0;
  ASSERT_TRUE(multi.GetAudioPacket(data, length));
  EXPECT_EQ(data, bytes.data() + 16);
  EXPECT_EQ(length, audio.size());
  ASSERT_TRUE(multi.GetVideoPacket(data, length));
  EXPECT_EQ(data, bytes.data() + 16 + audio.size());
  // The unknown packet and the block (not a single packet) are stepped over.
  const SmFound second = Find(multi, 16, 1);
  ASSERT_TRUE(second.ok);
  EXPECT_EQ(second.data,
            bytes.data() + 16 + audio.size() + video1.size() + unknown.size() + block.size());
  EXPECT_EQ(second.length, video2.size());
  EXPECT_TRUE(Find(multi, 100, 0).ok);
  // Not found, and indices at or beyond the packet count: null and 0.
  for (const SmFound& miss :
       {Find(multi, 16, 2), Find(multi, 16, 5), Find(multi, 32, 1), Find(multi, 5, 0)}) {
    EXPECT_FALSE(miss.ok);
    EXPECT_EQ(miss.data, nullptr);
    EXPECT_EQ(miss.length, 0u);
  }
}

TEST(GenericByteDataMultiPacket, DamagedListsYieldNothing) {
  const CmBytes video = BuildVideoPacket({});
  // The first packet claims more than the payload holds: nothing is found,
  // not even the well-formed second packet.
  CmBytes overrun = BuildVideoPacket({.totalLength = 1000});
  CmBytes bytes = BuildMultiPacket({.packetCount = 2, .packets = {overrun, video}});
  uint8_t* data = nullptr;
  uint64_t length = 0;
  EXPECT_FALSE(
      CmGenericByteDataMultiPacket(bytes.data(), bytes.size()).GetVideoPacket(data, length));
  EXPECT_EQ(data, nullptr);

  // No packets announced, or more announced than present.
  CmBytes none = BuildMultiPacket({.packetCount = 0, .packets = {video}});
  EXPECT_FALSE(CmGenericByteDataMultiPacket(none.data(), none.size()).GetVideoPacket(data, length));
  CmBytes audioOnly = BuildMultiPacket({.packetCount = 3, .packets = {BuildAudioPacket({})}});
  EXPECT_FALSE(CmGenericByteDataMultiPacket(audioOnly.data(), audioOnly.size())
                   .GetVideoPacket(data, length));

  // A packet of fewer than 6 bytes at the end of the list does not attach.
  CmBytes stub = BuildMultiPacket({.packets = {BuildAudioPacket({}), {0x00, 0x10, 0x00}}});
  EXPECT_FALSE(CmGenericByteDataMultiPacket(stub.data(), stub.size()).GetVideoPacket(data, length));

  // A packet whose declared length is 0 takes the rest of the payload.
  CmBytes rest = BuildMultiPacket({.packets = {BuildVideoPacket({.totalLength = 0})}});
  const CmGenericByteDataMultiPacket restMulti(rest.data(), rest.size());
  ASSERT_TRUE(restMulti.GetVideoPacket(data, length));
  EXPECT_EQ(length, rest.size() - 16);

  // A multi packet view over a video packet has no packets.
  CmBytes single = video;
  const CmGenericByteDataMultiPacket wrong(single.data(), single.size());
  EXPECT_EQ(wrong.GetPacketCount(), 0u);
  EXPECT_FALSE(wrong.GetVideoPacket(data, length));
}
