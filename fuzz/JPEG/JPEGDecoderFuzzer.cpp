// Whole JPEG streams through the decoder: the header alone, then the data at
// a scale and into an output layout that the last input byte chooses, and the
// same bytes through the video decoder and analyser. Failing statuses and the
// video layer's integrity errors are expected; faults are findings.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/JPEG/JPEGDecoder.h"
#include "MediaProcessing/JPEG/MemBuffInput.h"
#include "MediaProcessing/Video/JPEG/VideoAnalyzerJPEG.h"
#include "MediaProcessing/Video/JPEG/VideoDecoderJPEG.h"
#include "Support/ByteReader.h"

namespace {

// Pictures larger than this are only parsed: the decoder accepts far more,
// but the fuzzer's memory limit does not.
constexpr uint64_t kMaximumFuzzedPixels = 1u << 20;

void DecodeDirectly(const uint8_t* data, size_t size, uint8_t choice) {
  CMemBuffInput input;
  CJPEGDecoder decoder;
  if (input.Open(data, static_cast<uint32_t>(size)) != JStatusOk ||
      decoder.SetSource(&input) != JStatusOk) {
    return;
  }
  int width = 0;
  int height = 0;
  int channels = 0;
  int precision = 0;
  JColor color = JColorUnknown;
  JSampling sampling = JSamplingOther;
  if (decoder.ReadHeader(width, height, channels, color, sampling, precision) != JStatusOk ||
      static_cast<uint64_t>(width) * height > kMaximumFuzzedPixels) {
    return;
  }
  const int scale = choice & 3;
  const uint32_t w = static_cast<uint32_t>((width + (1 << scale) - 1) >> scale);
  const uint32_t h = static_cast<uint32_t>((height + (1 << scale) - 1) >> scale);
  // Exactly sized output, so that a write past it is caught.
  switch ((choice >> 2) % 3) {
  case 0: {
    std::vector<uint8_t> planes[4];
    uint8_t* pointers[4] = {};
    uint32_t steps[4] = {};
    for (int p = 0; p < channels; ++p) {
      planes[p].resize(static_cast<size_t>(w) * h);
      pointers[p] = planes[p].data();
      steps[p] = w;
    }
    if (decoder.SetDestination(pointers, steps, w, h, channels, color, sampling, 8, scale) ==
        JStatusOk) {
      decoder.ReadData();
    }
    break;
  }
  case 1: {
    std::vector<uint8_t> gray(static_cast<size_t>(w) * h);
    if (decoder.SetDestination(gray.data(), w, w, h, 1, JColorGray, JSampling444, 8, scale) ==
        JStatusOk) {
      decoder.ReadData();
    }
    break;
  }
  default: {
    const int outChannels = color == JColorCMYK || color == JColorYCCK ? 4 : 3;
    const JColor out = outChannels == 4 ? JColorCMYK : (choice & 16) ? JColorBGR : JColorRGB;
    std::vector<uint8_t> packed(static_cast<size_t>(w) * h * outChannels);
    if (decoder.SetDestination(packed.data(), w * outChannels, w, h, outChannels, out, JSampling444,
                               8, scale) == JStatusOk) {
      decoder.ReadData();
    }
    break;
  }
  }
}

void DecodeAsVideo(const uint8_t* data, size_t size, uint8_t choice) {
  NmMediaProcessing::SmVideoSize found;
  NmFuzz::Tolerate<NmError::CmIntegrityError>([&] {
    if (!NmMediaProcessing::CmVideoAnalyzerJPEG().Analyze(data, size, found) ||
        found.first * found.second > kMaximumFuzzedPixels) {
      return;
    }
    NmMediaProcessing::CmVideoDecoderJPEG decoder;
    NmMediaProcessing::SmVideoDecodeParameters parameters;
    parameters.m_ScaleDivisor = 1u << (choice & 3);
    parameters.m_LuminanceOnly = (choice & 32) != 0;
    decoder.SetParameters(parameters);
    NmMediaProcessing::CmImage image;
    NmMediaProcessing::SmVideoDecodeResult result;
    decoder.Decode(data, size, 1, NmTimeStamp::CmTimeStamp(), image, result);
  });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  // Exactly sized, so that any read past the stream is caught.
  const std::vector<uint8_t> bytes(data, data + size);
  const uint8_t choice = bytes.back();
  DecodeDirectly(bytes.data(), bytes.size(), choice);
  DecodeAsVideo(bytes.data(), bytes.size(), choice);
  return 0;
}
