#pragma once

#include <cstdint>

#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"

// A JPEG picture recorded in each form a recording may hold it in, for the
// tests that find pictures by time whatever their records look like.
namespace NmTestSupport {

enum class SmJPEGForm { Raw, Block, Packet, MultiPacket };

// The 48 x 32 picture `jpeg` at `time` (milliseconds) as one record.
inline CmBytes JPEGRecord(SmJPEGForm form, uint64_t time, const CmBytes& jpeg) {
  const auto packet = [](uint64_t t, const CmBytes& payload) {
    return BuildVideoPacket(
        {.codec = 1, .sync = true, .syncTime = t, .frameTime = t, .payload = payload});
  };
  switch (form) {
  case SmJPEGForm::Raw:
    return jpeg;
  case SmJPEGForm::Block:
    return BuildBlock({.type = 1,
                       .beginTime = time,
                       .endTime = time,
                       .width = 48,
                       .height = 32,
                       .imageCount = 1,
                       .payload = jpeg});
  case SmJPEGForm::Packet:
    return packet(time, jpeg);
  case SmJPEGForm::MultiPacket:
    // The sound of the moment first and another picture after it: the
    // picture is the first video packet, not the last.
    return BuildMultiPacket({.packets = {BuildAudioPacket({.time = time}), packet(time, jpeg),
                                         packet(time + 1, FlatJPEG(0))}});
  }
  return {};
}

} // namespace NmTestSupport
