#include "MediaProcessing/Video/JPEG/VideoDecoderJPEG.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Image/SPLError.h"
#include "MediaProcessing/JPEG/MemBuffInput.h"

namespace NmMediaProcessing {

void AttachJPEGFrame(CJPEGDecoder& decoder, CMemBuffInput& input, const uint8_t* data,
                     uint32_t size) {
  decoder.Clean();
  VZK_REQUIRE(input.Open(data, size) == JStatusOk, "Error opening JPEG decoder data input",
              NmError::CmIntegrityErrorCode::InvalidPointer);
  const JStatus source = decoder.SetSource(&input);
  if (source == JStatusOutOfMemory) {
    throw CmBadAllocation();
  }
  VZK_REQUIRE(source == JStatusOk, "Error setting JPEG decoder data source",
              NmError::CmIntegrityErrorCode::InvalidPointer);
}

void CmVideoDecoderJPEG::SetParameters(const SmVideoDecodeParameters& parameters) {
  m_Parameters = parameters;
  m_DecodingEnabled = parameters.m_ProduceImage;
  m_GrayOnly = parameters.m_LuminanceOnly;
  // The reduced transforms exist for 1/2, 1/4 and 1/8: other divisors take the
  // largest of these that does not exceed them.
  const uint32_t divisor = parameters.m_ScaleDivisor;
  m_ScaleDenominator = divisor >= 8 ? 8 : divisor >= 4 ? 4 : divisor >= 2 ? 2 : 1;
}

bool CmVideoDecoderJPEG::Decode(const uint8_t* data, uint64_t size, int32_t imageId,
                                const NmTimeStamp::CmTimeStamp& time, CmImage& image,
                                SmVideoDecodeResult& result) {
  result = SmVideoDecodeResult();
  if (data == nullptr) {
    return true; // every frame leaves at once: nothing is held to flush
  }
  VZK_REQUIRE(size != 0 && size < 0x80000000u,
              "Invalid source data length for non-NULL source data",
              NmError::CmIntegrityErrorCode::OutOfRange);
  if (!m_DecodingEnabled) {
    result.m_ImageId = imageId;
    return true;
  }
  return DecodeUsingJPEGView(data, static_cast<uint32_t>(size), imageId, time, image, result);
}

bool CmVideoDecoderJPEG::DecodeUsingJPEGView(const uint8_t* data, uint32_t size, int32_t imageId,
                                             const NmTimeStamp::CmTimeStamp& time, CmImage& image,
                                             SmVideoDecodeResult& result) {
  CMemBuffInput input;
  AttachJPEGFrame(m_Decoder, input, data, size);
  int width = 0;
  int height = 0;
  int channels = 0;
  int precision = 0;
  JColor color = JColorUnknown;
  JSampling sampling = JSamplingOther;
  const JStatus header =
      m_Decoder.ReadHeader(width, height, channels, color, sampling, precision, false);
  if (header == JStatusOutOfMemory) {
    throw CmBadAllocation();
  }
  if (header != JStatusOk || color < JColorGray || color > JColorYCbCr ||
      (sampling != JSampling444 && sampling != JSampling422 && sampling != JSampling420)) {
    return false;
  }

  // Decode whole macroblocks of 16 and cut the padding off afterwards.
  uint64_t paddedWidth = (static_cast<uint64_t>(width) + 15) / 16 * 16;
  uint64_t paddedHeight = (static_cast<uint64_t>(height) + 15) / 16 * 16;
  uint64_t padX = paddedWidth - width;
  uint64_t padY = paddedHeight - height;
  const bool padded = padX != 0 || padY != 0;
  int scale = 0;
  if (m_ScaleDenominator > 1) {
    const uint64_t d = m_ScaleDenominator;
    paddedWidth /= d;
    paddedHeight /= d;
    padX = (padX + d - 1) / d;
    padY = (padY + d - 1) / d;
    scale = d == 2 ? 1 : d == 4 ? 2 : 3;
  }
  paddedWidth = paddedWidth == 0 ? 1 : paddedWidth;
  paddedHeight = paddedHeight == 0 ? 1 : paddedHeight;

  ColorFormat format = RGB24;
  if (m_GrayOnly || color == JColorGray) {
    format = Gray;
  } else if (color == JColorBGR) {
    format = BGR24;
  } else if (color == JColorYCbCr) {
    format = sampling == JSampling420   ? YCbCr420_Planar
             : sampling == JSampling422 ? YCbCr422_Planar
                                        : YCbCr444_Planar;
  }
  image.ReleaseIfShared();
  image.Allocate(paddedWidth, paddedHeight, format);
  if (format == RGB24 || format == BGR24) {
    return false; // RGB-coded frames are not decoded
  }

  JStatus destination = JStatusOk;
  const auto w = static_cast<uint32_t>(paddedWidth);
  const auto h = static_cast<uint32_t>(paddedHeight);
  if (format == Gray) {
    const auto plane = image.Allocator().GetWriteablePlane(0);
    destination = m_Decoder.SetDestination(plane.data, static_cast<uint32_t>(plane.rowStride), w, h,
                                           1, JColorGray, JSampling444, 8, scale);
  } else {
    uint8_t* planes[4] = {};
    uint32_t steps[4] = {};
    for (int p = 0; p < 3; ++p) {
      const auto plane = image.Allocator().GetWriteablePlane(static_cast<uint64_t>(p));
      planes[p] = plane.data;
      steps[p] = static_cast<uint32_t>(plane.rowStride);
    }
    destination = m_Decoder.SetDestination(planes, steps, w, h, 3, JColorYCbCr, sampling, 8, scale);
  }
  VZK_REQUIRE(destination == JStatusOk, "Error setting JPEG decoder destination",
              NmError::CmIntegrityErrorCode::InvalidPointer);
  const JStatus data_ = m_Decoder.ReadData();
  if (data_ == JStatusOutOfMemory) {
    throw CmBadAllocation();
  }
  // A frame that ends early keeps what was decoded of it.
  if (data_ != JStatusOk && data_ != JStatusEndOfData) {
    return false;
  }
  if (padded) {
    if (padX >= paddedWidth) {
      padX = paddedWidth - 1;
    }
    if (padY >= paddedHeight) {
      padY = paddedHeight - 1;
    }
    CmImageCrop(0, 0, paddedWidth - padX, paddedHeight - padY).Execute(image);
  }
  CmStandardImageAttributes attributes;
  attributes.timeStamp = time;
  attributes.attribute0 = 1;
  attributes.subColorFormat = SubColorFormatFullRange;
  attributes.aspectRatio = m_Decoder.GetFrameAspect();
  image.GetAttributes() = attributes;
  result.m_ImageId = imageId;
  result.m_ImageProduced = true;
  return true;
}

} // namespace NmMediaProcessing
