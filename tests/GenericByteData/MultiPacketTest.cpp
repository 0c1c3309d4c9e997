#include <gtest/gtest.h>

#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;

namespace {
using SmFound = std::tuple<bool, const uint8_t*, uint64_t>;
const SmFound Missing(false, nullptr, 0);

SmFound Find(const CmGenericByteDataMultiPacket& multi, int32_t type, uint64_t index) {
  uint8_t* data = reinterpret_cast<uint8_t*>(1);
  uint64_t length = 77;
  const bool ok = multi.FindPacket(type, index, data, length);
  return {ok, data, length};
}

// The first video packet of a multi packet over the bytes.
SmFound FirstVideo(CmBytes& bytes) {
  uint8_t* data = reinterpret_cast<uint8_t*>(1);
  uint64_t length = 77;
  const bool ok =
      CmGenericByteDataMultiPacket(bytes.data(), bytes.size()).GetVideoPacket(data, length);
  return {ok, data, length};
}
} // namespace

TEST(GenericByteDataMultiPacket, FindsPacketsByTypeAndIndexAndNothingInDamagedLists) {
  const CmBytes audio = BuildAudioPacket({.sequenceNumber = 1});
  const CmBytes video1 = BuildVideoPacket({.sequenceNumber = 2});
  const CmBytes unknown = BuildVideoPacket({.type = 100});
  const CmBytes block = BuildBlock({});
  const CmBytes video2 = BuildVideoPacket({.sequenceNumber = 3, .payload = Pattern(5)});
  CmBytes bytes = BuildMultiPacket({.packets = {audio, video1, unknown, block, video2}});
  const CmGenericByteDataMultiPacket multi(bytes.data(), bytes.size());
  ASSERT_TRUE(multi.IsTypeValid());
  EXPECT_EQ(multi.GetPacketCount(), 5u);

  const uint8_t* const first = bytes.data() + 16;
  uint8_t* data = nullptr;
  uint64_t length = 0;
  EXPECT_TRUE(multi.GetAudioPacket(data, length) && data == first && length == audio.size());
  EXPECT_EQ(FirstVideo(bytes), SmFound(true, first + audio.size(), video1.size()));
  // The unknown packet and the block (not a single packet) are stepped over.
  EXPECT_EQ(Find(multi, 16, 1),
            SmFound(true, first + audio.size() + video1.size() + unknown.size() + block.size(),
                    video2.size()));
  EXPECT_TRUE(std::get<0>(Find(multi, 100, 0)));
  // Not found, and indices at or beyond the packet count: null and 0.
  for (const SmFound& miss :
       {Find(multi, 16, 2), Find(multi, 16, 5), Find(multi, 32, 1), Find(multi, 5, 0)}) {
    EXPECT_EQ(miss, Missing);
  }

  const CmBytes video = BuildVideoPacket({});
  // The first packet claims more than the payload holds: nothing is found,
  // not even the well-formed second packet.
  CmBytes overrun = BuildVideoPacket({.totalLength = 1000});
  CmBytes damaged = BuildMultiPacket({.packetCount = 2, .packets = {overrun, video}});
  EXPECT_EQ(FirstVideo(damaged), Missing);

  // No packets announced, or more announced than present.
  CmBytes none = BuildMultiPacket({.packetCount = 0, .packets = {video}});
  EXPECT_EQ(FirstVideo(none), Missing);

  // A packet of fewer than 6 bytes at the end of the list does not attach.
  CmBytes stub = BuildMultiPacket({.packets = {BuildAudioPacket({}), {0x00, 0x10, 0x00}}});
  EXPECT_EQ(FirstVideo(stub), Missing);

  // A packet whose declared length is 0 takes the rest of the payload.
  CmBytes rest = BuildMultiPacket({.packets = {BuildVideoPacket({.totalLength = 0})}});
  EXPECT_EQ(FirstVideo(rest), SmFound(true, rest.data() + 16, rest.size() - 16));

  // A multi packet view over a video packet has no packets.
  CmBytes single = video;
  EXPECT_EQ(CmGenericByteDataMultiPacket(single.data(), single.size()).GetPacketCount(), 0u);
  EXPECT_EQ(FirstVideo(single), Missing);
}
