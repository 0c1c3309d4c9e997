#include "JpegPicture.h"

#include <cstring>

#include "PictureConversion.h"
#include "PluginHost.h"

#if __has_include("MediaProcessing/JPEG/SimpleJPEGEncoder.h")
#include "Common/Error/Error.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/JPEG/SimpleJPEGEncoder.h"
#define VZK_HAS_JPEG_ENCODER 1
#endif

using namespace NmToolkit;

namespace NmVzkTool {

#ifdef VZK_HAS_JPEG_ENCODER

struct CmJpegPictureEncoder::SmState {
  NmMediaProcessing::CmSimpleJPEGEncoder encoder;
};

bool CmJpegPictureEncoder::IsAvailable() {
  return true;
}

CmJpegPictureEncoder::CmJpegPictureEncoder() : m_State(std::make_unique<SmState>()) {}

std::vector<uint8_t> CmJpegPictureEncoder::Encode(const ImImage& image, uint32_t quality) {
  using namespace NmMediaProcessing;
  // Planes in picture order: separate fields are woven back, as in every
  // other output, so the picture reads as interleaved from here on.
  const std::vector<SmPlaneCopy> planes = CopyPlanes(image);
  try {
    CmImage picture;
    picture.Allocate(image.GetWidth(), image.GetHeight(),
                     static_cast<ColorFormat>(image.GetColorFormat()));
    for (size_t index = 0; index < planes.size(); ++index) {
      const SmPlaneCopy& plane = planes[index];
      const auto target = picture.Allocator().GetWriteablePlane(index);
      const uint64_t rowBytes = uint64_t{plane.width} * plane.pixelStride;
      for (uint32_t row = 0; row < plane.height; ++row) {
        std::memcpy(target.data + row * target.rowStride, plane.bytes.data() + row * rowBytes,
                    rowBytes);
      }
    }
    CmStandardImageAttributes& attributes = picture.GetAttributes();
    const uint32_t interlacing = image.GetInterlacing();
    attributes.interlacing = static_cast<Interlacing>(interlacing == 3   ? 1
                                                      : interlacing == 4 ? 2
                                                      : interlacing > 6  ? 0
                                                                         : interlacing);
    attributes.aspectRatio = image.GetPixelAspectRatio();
    const uint32_t format = image.GetColorFormat();
    if (format == FormatGray || (format >= FormatYCbCr420 && format <= FormatYCbCr444)) {
      attributes.subColorFormat = SubColorFormatFullRange;
    }
    const uint8_t* data = nullptr;
    uint64_t size = 0;
    if (!m_State->encoder.Encode(picture, quality, data, size, true) || data == nullptr) {
      throw CmPictureError("The JPEG encoder refused the " + std::to_string(image.GetWidth()) +
                           "x" + std::to_string(image.GetHeight()) + " " + ColorFormatName(format) +
                           " picture.");
    }
    return std::vector<uint8_t>(data, data + size);
  } catch (const NmError::CmError& error) {
    throw CmPictureError("The JPEG encoder failed: " + error.GetDescription());
  }
}

#else

struct CmJpegPictureEncoder::SmState {};

bool CmJpegPictureEncoder::IsAvailable() {
  return false;
}

CmJpegPictureEncoder::CmJpegPictureEncoder() = default;

std::vector<uint8_t> CmJpegPictureEncoder::Encode(const ImImage&, uint32_t) {
  throw CmRunError("Pictures cannot be written as JPEG: this build of vzk has no JPEG encoder "
                   "yet. Use --format png or y4m.");
}

#endif

CmJpegPictureEncoder::~CmJpegPictureEncoder() = default;

} // namespace NmVzkTool
