#include "MediaProcessing/JPEG/SimpleJPEGEncoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/MediaProcessingError.h"

namespace NmMediaProcessing {

JStatus CmSimpleJPEGEncoder::CmMemoryDataOutputBuffer::Write(const void* buffer, uint32_t size,
                                                             uint32_t& bytesWritten) {
  bytesWritten = 0;
  if (buffer == nullptr) {
    return JStatusEndOfData;
  }
  if (m_Used + size > m_Capacity) {
    // A quarter more each time keeps the copying linear in the output size.
    const uint64_t growth =
        m_Capacity != 0 ? std::max<uint64_t>(m_Capacity / 4, std::max<uint64_t>(4096, 2ull * size))
                        : std::max<uint64_t>(65536, size);
    const uint64_t capacity = (m_Capacity + growth + 15) / 16 * 16;
    if (capacity > MaxCapacity) {
      return JStatusEndOfData;
    }
    std::unique_ptr<uint8_t[]> data(new (std::nothrow) uint8_t[capacity]);
    if (!data) {
      return JStatusOutOfMemory;
    }
    if (m_Used != 0) {
      std::memcpy(data.get(), m_Data.get(), m_Used);
    }
    m_Data = std::move(data);
    m_Capacity = capacity;
  }
  std::memcpy(m_Data.get() + m_Used, buffer, size);
  m_Used += size;
  bytesWritten = size;
  return JStatusOk;
}

namespace {

[[noreturn]] void Refuse(std::string location, const char* message) {
  throw CmMediaProcessingError(std::move(location), message);
}

} // namespace

bool CmSimpleJPEGEncoder::Encode(const CmImage& image, uint32_t quality, const uint8_t*& data,
                                 uint64_t& size, bool writeAspectRatio) {
  data = nullptr;
  size = 0;
  m_Output.Rewind();
  VZK_REQUIRE(quality <= 100, "Invalid value of encoding quality level (> max.)!",
              NmError::CmIntegrityErrorCode::InvalidArgument);
  if (!image.IsValid()) {
    return false;
  }
  const ColorFormat format = image.GetColorFormat();
  const bool direct = (format == Gray || format == YCbCr420_Planar || format == YCbCr422_Planar ||
                       format == YCbCr444_Planar) &&
                      image.GetAttributes().subColorFormat == SubColorFormatFullRange;
  const CmImage* source = &image;
  JColor color = JColorYCbCr;
  JSampling sampling = JSampling420;
  JStatus status = JStatusOk;
  if (direct) {
    if (format == YCbCr422_Planar || format == YCbCr444_Planar) {
      CmImageColorFormatConvert(YCbCr420_Planar).Execute(image, m_Converted);
      source = &m_Converted;
    }
    color = format == Gray ? JColorGray : JColorYCbCr;
    sampling = format == Gray ? JSampling444 : JSampling420;
    const auto& allocator = source->Allocator();
    const uint8_t* planes[3] = {};
    int steps[3] = {};
    const int count = format == Gray ? 1 : 3;
    for (int i = 0; i < count; ++i) {
      const auto plane = allocator.GetPlane(static_cast<uint64_t>(i));
      planes[i] = plane.data;
      steps[i] = static_cast<int>(plane.rowStride);
    }
    status = m_Encoder.SetSource(planes, steps, static_cast<int>(source->GetWidth()),
                                 static_cast<int>(source->GetHeight()), count, color, sampling, 8);
  } else {
    // Everything else goes through packed BGR, which also brings video-range
    // YCbCr to the full range that JPEG codes.
    if (format != RGB24 && format != BGR24) {
      CmImageColorFormatConvert(BGR24).Execute(image, m_Converted);
      source = &m_Converted;
    }
    const auto plane = source->Allocator().GetPlane(0);
    status = m_Encoder.SetSource(
        plane.data, static_cast<int>(plane.rowStride), static_cast<int>(source->GetWidth()),
        static_cast<int>(source->GetHeight()), 3,
        source->GetColorFormat() == RGB24 ? JColorRGB : JColorBGR, JSampling444, 8);
  }
  if (status != JStatusOk) {
    Refuse(VZK_LOCATION, "Setting JPEG encoder source image failed!");
  }
  if (m_Encoder.SetDestination(&m_Output) != JStatusOk) {
    Refuse(VZK_LOCATION, "Setting JPEG encoder destination buffer failed!");
  }
  if (m_Encoder.SetParams(JModeBaseline, color, sampling, 0, 0,
                          static_cast<int>(std::max<uint32_t>(quality, 1))) != JStatusOk) {
    Refuse(VZK_LOCATION, "Setting JPEG encoder parameters failed!");
  }
  if (m_Encoder.SetComment(2, "QX") != JStatusOk) {
    Refuse(VZK_LOCATION, "Setting JPEG encoder comment field failed!");
  }
  int xDensity = 1;
  int yDensity = 1;
  if (writeAspectRatio) {
    double a = image.GetAttributes().aspectRatio;
    if (!std::isfinite(a) || a <= 0) {
      a = 1.0; // no usable ratio: square pixels
    }
    if (!(a > 1.0)) {
      xDensity = 30000;
      yDensity = static_cast<int>(std::clamp(a * 30000 + 0.5, 0.0, 65535.0));
    } else {
      xDensity = static_cast<int>(std::clamp(30000 / a + 0.5, 0.0, 65535.0));
      yDensity = 30000;
    }
  }
  if (m_Encoder.WriteHeader(xDensity, yDensity) != JStatusOk ||
      m_Encoder.WriteData() != JStatusOk) {
    size = 0;
    return false;
  }
  data = m_Output.GetData();
  size = m_Output.GetUsed();
  return size > 0;
}

} // namespace NmMediaProcessing
