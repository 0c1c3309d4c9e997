#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"

#include "Common/Error/Error.h"

namespace NmToolkit {

using NmMediaProcessing::ImImageMemoryAllocation;

namespace {

// The host-facing accessors never throw: a plane that does not exist, or an
// image without planes, answers 0.
template <typename Read> auto OrZero(Read read) -> decltype(read()) {
  try {
    return read();
  } catch (const NmError::CmError&) {
    return {};
  }
}

} // namespace

CmImageData::CmImageData(const NmMediaProcessing::CmImage& image,
                         const CmVZKSourceToolkitProperties& properties)
    : m_Image(image), m_Properties(properties) {}

int64_t CmImageData::GetBeginTime() const {
  return m_Image.GetAttributes().timeStamp.GetMilliseconds();
}

uint32_t CmImageData::GetColorFormat() const {
  return OrZero([&] { return static_cast<uint32_t>(m_Image.GetColorFormat()); });
}

uint32_t CmImageData::GetInterlacing() const {
  return static_cast<uint32_t>(m_Image.GetAttributes().interlacing);
}

double CmImageData::GetPixelAspectRatio() const {
  return m_Image.GetAttributes().aspectRatio;
}

uint32_t CmImageData::GetWidth() const {
  return static_cast<uint32_t>(m_Image.GetWidth());
}

uint32_t CmImageData::GetHeight() const {
  return static_cast<uint32_t>(m_Image.GetHeight());
}

const uint8_t* CmImageData::GetPlanePointer(uint32_t plane) const {
  return OrZero([&]() -> const uint8_t* { return m_Image.Allocator().GetPlane(plane).data; });
}

uint32_t CmImageData::GetPlaneWidth(uint32_t plane) const {
  return OrZero([&] { return static_cast<uint32_t>(m_Image.Allocator().GetPlane(plane).width); });
}

uint32_t CmImageData::GetPlaneHeight(uint32_t plane) const {
  return OrZero([&] { return static_cast<uint32_t>(m_Image.Allocator().GetPlane(plane).height); });
}

uint32_t CmImageData::GetPlaneStride(uint32_t plane) const {
  return OrZero(
      [&] { return static_cast<uint32_t>(m_Image.Allocator().GetPlane(plane).rowStride); });
}

} // namespace NmToolkit
