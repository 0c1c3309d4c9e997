#include "MediaProcessing/Video/VideoDecoderJPEG2000.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Video/MissingCodecEngine.h"
#include "MediaProcessing/Video/OpenJPEG2000.h"

namespace NmMediaProcessing {

CmVideoDecoderJPEG2000::CmVideoDecoderJPEG2000()
    : CmVideoDecoderJPEG2000([] { return std::make_unique<CmOpenJPEG2000>(); }) {}

CmVideoDecoderJPEG2000::CmVideoDecoderJPEG2000(CmJPEG2000CodecMaker makeCodec)
    : m_MakeCodec(std::move(makeCodec)) {}

bool CmVideoDecoderJPEG2000::Decode(const uint8_t* data, uint64_t size, int32_t imageId,
                                    const NmTimeStamp::CmTimeStamp& time, CmImage& image,
                                    SmVideoDecodeResult& result) {
  result = SmVideoDecodeResult();
  if (data == nullptr) {
    // Nothing is ever held back, so a flush has nothing to give.
    return true;
  }
  if (size == 0) {
    throw NmError::CmIntegrityError(VZK_LOCATION,
                                    "Invalid source data length for non-NULL source data",
                                    NmError::CmIntegrityErrorCode::OutOfRange);
  }
  const std::unique_ptr<ImThirdPartyJPEG2000> codec = m_MakeCodec();
  if (!codec || !codec->SetData(data, size)) {
    throw NmError::CmIntegrityError(VZK_LOCATION, "Null input passed to decode",
                                    NmError::CmIntegrityErrorCode::OutOfRange);
  }
  if (m_Parameters.m_ProduceImage) {
    const uint32_t divisor = m_Parameters.m_ScaleDivisor;
    if (divisor > 1) {
      // Shrinking needs the high-quality resize of the image operations,
      // which this build does not have yet.
      RaiseMissingCodecEngine(VZK_LOCATION, "scaled JPEG 2000 decoding");
    }
    if (!codec->DecodeImage(image)) {
      return false;
    }
    image.GetAttributes().attribute0 = 1;
    image.GetAttributes().timeStamp = time;
    result.m_ImageProduced = true;
  }
  result.m_ImageId = imageId;
  return true;
}

} // namespace NmMediaProcessing
