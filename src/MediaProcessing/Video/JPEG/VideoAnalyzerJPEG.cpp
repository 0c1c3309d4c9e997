#include "MediaProcessing/Video/JPEG/VideoAnalyzerJPEG.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/SPLError.h"
#include "MediaProcessing/Video/JPEG/VideoDecoderJPEG.h"

namespace NmMediaProcessing {

bool CmVideoAnalyzerJPEG::Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) {
  VZK_REQUIRE(data != nullptr && size != 0 && size <= 0x7FFFFFFF, "Invalid input parameters given",
              NmError::CmIntegrityErrorCode::OutOfRange);
  CMemBuffInput input;
  AttachJPEGFrame(m_Decoder, input, data, static_cast<uint32_t>(size));
  int width = 0;
  int height = 0;
  int channels = 0;
  int precision = 0;
  JColor color = JColorUnknown;
  JSampling sampling = JSamplingOther;
  const JStatus header =
      m_Decoder.ReadHeader(width, height, channels, color, sampling, precision, true);
  m_Decoder.Clean(); // the stream lives on this frame only
  if (header == JStatusOutOfMemory) {
    throw CmBadAllocation();
  }
  if (header != JStatusOk) {
    result = SmVideoSize{};
    return false;
  }
  result = SmVideoSize{static_cast<uint64_t>(width), static_cast<uint64_t>(height)};
  return true;
}

bool CmJPEGSizeAnalyzer::GetImageSize(const uint8_t* data, uint64_t size, uint32_t& width,
                                      uint32_t& height) const {
  if (data == nullptr || size == 0 || size > 0x7FFFFFFF) {
    return false;
  }
  CmVideoAnalyzerJPEG analyzer;
  SmVideoSize found;
  if (!analyzer.Analyze(data, size, found)) {
    return false;
  }
  width = static_cast<uint32_t>(found.first);
  height = static_cast<uint32_t>(found.second);
  return true;
}

} // namespace NmMediaProcessing
