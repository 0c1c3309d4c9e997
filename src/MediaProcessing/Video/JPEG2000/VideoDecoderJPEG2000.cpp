#include "MediaProcessing/Video/JPEG2000/VideoDecoderJPEG2000.h"

#include <algorithm>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Image/ImageResize.h"
#include "MediaProcessing/Video/JPEG2000/OpenJPEG2000.h"

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
  VZK_REQUIRE(size != 0, "Invalid source data length for non-NULL source data",
              NmError::CmIntegrityErrorCode::OutOfRange);
  const std::unique_ptr<ImThirdPartyJPEG2000> codec = m_MakeCodec();
  VZK_REQUIRE(codec && codec->SetData(data, size), "Null input passed to decode",
              NmError::CmIntegrityErrorCode::OutOfRange);
  if (m_Parameters.m_ProduceImage) {
    if (!codec->DecodeImage(image)) {
      return false;
    }
    const uint64_t d = m_Parameters.m_ScaleDivisor;
    if (d > 1) {
      // Whole multiples of the divisor only, so that every target pixel
      // averages the same number of source pixels.
      const uint64_t w = image.GetWidth() < d ? 1 : image.GetWidth() / d;
      const uint64_t h = image.GetHeight() < d ? 1 : image.GetHeight() / d;
      CmImageCrop(0, 0, std::min(w * d, image.GetWidth()), std::min(h * d, image.GetHeight()))
          .Execute(image);
      CmImageResize resize(w, h, true);
      resize.SetOptions(ImImageTransformation::OptionHighQuality);
      resize.Execute(image);
    }
    image.GetAttributes().attribute0 = 1;
    image.GetAttributes().timeStamp = time;
    result.m_ImageProduced = true;
  }
  result.m_ImageId = imageId;
  return true;
}

} // namespace NmMediaProcessing
