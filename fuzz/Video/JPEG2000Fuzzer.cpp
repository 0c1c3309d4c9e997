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
#include "support/GenericByteDataBuilder.h"

using namespace NmMediaProcessing;

namespace {

void DecodeRecord(std::vector<uint8_t>& bytes) {
  const CmGenericByteData record(bytes.data(), bytes.size());
  NmFuzz::Tolerate<NmError::CmError>([&] {
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
  });
  NmFuzz::Tolerate<NmError::CmError>([&] {
    SmVideoSize videoSize;
    CmVideoSizeKeyFrameStreamAnalyzer().Analyze(record, videoSize);
  });
  NmFuzz::Tolerate<NmError::CmError>([&] {
    CmVideoStreamAttributesStreamAnalyzer attributes;
    SmVideoStreamAttributes result;
    attributes.Analyze(record, result);
    attributes.Analyze(record, result);
  });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  NmFuzz::Tolerate<NmError::CmIntegrityError>([&] {
    SmVideoSize videoSize;
    if (CmVideoAnalyzerJPEG2000().Analyze(data, size, videoSize)) {
      NmFuzz::Require(videoSize.first > 0 && videoSize.second > 0);
    }
  });
  NmFuzz::Tolerate<NmError::CmIntegrityError>([&] {
    CmImage image;
    SmVideoDecodeResult result;
    if (CmVideoDecoderJPEG2000().Decode(data, size, 1, NmTimeStamp::CmTimeStamp(), image, result) &&
        result.m_ImageProduced) {
      NmFuzz::Require(image.IsValid());
    }
  });
  // Wrapped in a sync video packet of codec 8, and taken as a record of its own.
  const uint64_t time = 1700000000000ULL;
  std::vector<uint8_t> packet = NmTestSupport::BuildVideoPacket(
      {.codec = 8, .syncTime = time, .frameTime = time, .payload = {data, data + size}});
  std::vector<uint8_t> bare(data, data + size);
  DecodeRecord(packet);
  DecodeRecord(bare);
  return 0;
}
