// Feeds arbitrary bytes to the JPEG 2000 analyser and decoder, bare and
// wrapped in a video packet through the generic decoder and the stream
// analysers. Integrity errors are the only exceptions allowed out (misuse
// and records that are no valid video); a picture that comes out must be
// whole. Anything else, and any fault, is a finding.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "MediaProcessing/Video/StreamAnalyzer.h"
#include "MediaProcessing/Video/VideoAnalyzerJPEG2000.h"
#include "MediaProcessing/Video/VideoDecoderJPEG2000.h"

using namespace NmMediaProcessing;

namespace {

void Check(bool condition) {
  if (!condition) {
    __builtin_trap();
  }
}

// A video packet of codec 8 around the bytes: 32-byte header, big-endian.
std::vector<uint8_t> WrapInPacket(const uint8_t* data, size_t size) {
  std::vector<uint8_t> packet(32 + size, 0);
  const uint32_t total = static_cast<uint32_t>(packet.size());
  packet[1] = 16;
  packet[2] = total >> 24;
  packet[3] = total >> 16;
  packet[4] = total >> 8;
  packet[5] = total;
  packet[7] = 8;
  // sync flag, and a frame time in 2023
  packet[10] = 0x00;
  packet[11] = 0x01;
  const uint64_t time = 1700000000000ULL;
  for (int i = 0; i < 8; ++i) {
    packet[12 + i] = static_cast<uint8_t>(time >> (56 - 8 * i));
    packet[20 + i] = static_cast<uint8_t>(time >> (56 - 8 * i));
  }
  std::copy(data, data + size, packet.begin() + 32);
  return packet;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    CmVideoAnalyzerJPEG2000 analyzer;
    SmVideoSize videoSize;
    if (analyzer.Analyze(data, size, videoSize)) {
      Check(videoSize.first > 0 && videoSize.second > 0);
    }
  } catch (const NmError::CmIntegrityError&) {
  }
  try {
    CmVideoDecoderJPEG2000 decoder;
    CmImage image;
    SmVideoDecodeResult result;
    if (decoder.Decode(data, size, 1, NmTimeStamp::CmTimeStamp(), image, result) &&
        result.m_ImageProduced) {
      Check(image.IsValid());
    }
  } catch (const NmError::CmIntegrityError&) {
  }
  std::vector<uint8_t> packet = WrapInPacket(data, size);
  const CmGenericByteData record(packet.data(), packet.size());
  try {
    CmGenericVideoDecoder decoder;
    CmImage image;
    bool callAgain = false;
    bool gotImage = false;
    if (decoder.Decode(record, image, callAgain, gotImage) && gotImage) {
      Check(image.IsValid());
    }
  } catch (const NmError::CmIntegrityError&) {
  }
  try {
    CmVideoSizeKeyFrameStreamAnalyzer sizes;
    SmVideoSize videoSize;
    sizes.Analyze(record, videoSize);
    CmVideoStreamAttributesStreamAnalyzer attributes;
    SmVideoStreamAttributes result;
    attributes.Analyze(record, result);
  } catch (const NmError::CmIntegrityError&) {
  }
  return 0;
}
