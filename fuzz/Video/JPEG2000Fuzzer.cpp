// Feeds arbitrary bytes to the JPEG 2000 analyser and decoder; then, wrapped
// in a JPEG 2000 video packet and also taken as a record of their own, to the
// generic video decoder and the stream analysers. Errors of the media layer
// are allowed out (misuse, records that are no valid video, codecs without an
// engine); a picture that comes out must be whole. Anything else, and any
// fault, is a finding.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "MediaProcessing/Video/JPEG2000/VideoAnalyzerJPEG2000.h"
#include "MediaProcessing/Video/JPEG2000/VideoDecoderJPEG2000.h"
#include "MediaProcessing/Video/StreamAnalyzer.h"
#include "Support/ByteReader.h"

using namespace NmMediaProcessing;

namespace {

// A sync video packet of codec 8 around the bytes: 32-byte header, big-endian,
// with times in 2023.
std::vector<uint8_t> WrapInPacket(const uint8_t* data, size_t size) {
  std::vector<uint8_t> packet(32 + size, 0);
  const uint32_t total = static_cast<uint32_t>(packet.size());
  packet[1] = 16;
  packet[2] = static_cast<uint8_t>(total >> 24);
  packet[3] = static_cast<uint8_t>(total >> 16);
  packet[4] = static_cast<uint8_t>(total >> 8);
  packet[5] = static_cast<uint8_t>(total);
  packet[7] = 8;
  packet[11] = 0x01;
  const uint64_t time = 1700000000000ULL;
  for (int i = 0; i < 8; ++i) {
    packet[12 + i] = static_cast<uint8_t>(time >> (56 - 8 * i));
    packet[20 + i] = static_cast<uint8_t>(time >> (56 - 8 * i));
  }
  std::copy(data, data + size, packet.begin() + 32);
  return packet;
}

void DecodeRecord(std::vector<uint8_t>& bytes) {
  const CmGenericByteData record(bytes.data(), bytes.size());
  try {
    CmGenericVideoDecoder decoder;
    CmImage image;
    bool callAgain = false;
    bool gotImage = false;
    // A codec may ask to be called again; a few rounds are enough to see
    // that it stops or keeps giving whole pictures.
    for (int round = 0; round < 4; ++round) {
      if (decoder.Decode(record, image, callAgain, gotImage) && gotImage) {
        NmFuzz::Require(image.IsValid());
      }
      if (!callAgain) {
        break;
      }
    }
  } catch (const NmError::CmError&) {
  }
  try {
    CmVideoSizeKeyFrameStreamAnalyzer sizes;
    SmVideoSize videoSize;
    sizes.Analyze(record, videoSize);
  } catch (const NmError::CmError&) {
  }
  try {
    CmVideoStreamAttributesStreamAnalyzer attributes;
    SmVideoStreamAttributes result;
    attributes.Analyze(record, result);
    attributes.Analyze(record, result);
  } catch (const NmError::CmError&) {
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    CmVideoAnalyzerJPEG2000 analyzer;
    SmVideoSize videoSize;
    if (analyzer.Analyze(data, size, videoSize)) {
      NmFuzz::Require(videoSize.first > 0 && videoSize.second > 0);
    }
  } catch (const NmError::CmIntegrityError&) {
  }
  try {
    CmVideoDecoderJPEG2000 decoder;
    CmImage image;
    SmVideoDecodeResult result;
    if (decoder.Decode(data, size, 1, NmTimeStamp::CmTimeStamp(), image, result) &&
        result.m_ImageProduced) {
      NmFuzz::Require(image.IsValid());
    }
  } catch (const NmError::CmIntegrityError&) {
  }
  std::vector<uint8_t> packet = WrapInPacket(data, size);
  std::vector<uint8_t> bare(data, data + size);
  DecodeRecord(packet);
  DecodeRecord(bare);
  return 0;
}
