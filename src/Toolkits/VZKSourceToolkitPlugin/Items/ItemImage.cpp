#include "Toolkits/VZKSourceToolkitPlugin/Items/ItemImage.h"

#include <cmath>
#include <cstring>
#include <string>

#include "Common/Error/Error.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"

namespace NmToolkit {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
using namespace NmMediaProcessing;

namespace {

[[noreturn]] void Refuse(const std::string& location, const std::string& what) {
  throw CmIntegrityError(location, "Picture of the source is not usable: " + what,
                         CmIntegrityErrorCode::InvalidArgument);
}

} // namespace

CmImage ImageOfItem(const ImImage& item) {
  if (const auto* own = dynamic_cast<const CmImageData*>(&item)) {
    return own->GetImage();
  }
  const uint32_t formatNumber = item.GetColorFormat();
  if (formatNumber > static_cast<uint32_t>(BGRA)) {
    Refuse(VZK_LOCATION, "unknown colour format " + std::to_string(formatNumber));
  }
  const auto format = static_cast<ColorFormat>(formatNumber);
  const uint64_t width = item.GetWidth();
  const uint64_t height = item.GetHeight();
  if (width == 0 || height == 0) {
    Refuse(VZK_LOCATION, "no pixels");
  }
  if (item.GetInterlacing() > static_cast<uint32_t>(BottomFieldOnly)) {
    Refuse(VZK_LOCATION, "unknown interlacing " + std::to_string(item.GetInterlacing()));
  }

  CmImage image;
  image.Allocate(width, height, format);
  auto& allocator = image.Allocator();
  for (uint32_t p = 0; p < allocator.GetPlaneCount(); ++p) {
    const auto target = allocator.GetWriteablePlane(p);
    const uint8_t* data = item.GetPlanePointer(p);
    const uint64_t rowBytes = target.width * target.pixelStride;
    const uint64_t stride = item.GetPlaneStride(p);
    if (data == nullptr || item.GetPlaneWidth(p) != target.width ||
        item.GetPlaneHeight(p) != target.height || stride < rowBytes) {
      Refuse(VZK_LOCATION, "plane " + std::to_string(p) + " does not fit its size and format");
    }
    for (uint64_t y = 0; y < target.height; ++y) {
      std::memcpy(target.data + y * target.rowStride, data + y * stride, rowBytes);
    }
  }

  CmStandardImageAttributes& attributes = image.GetAttributes();
  attributes.timeStamp = NmTimeStamp::CmTimeStamp::FromMilliseconds(item.GetBeginTime());
  attributes.interlacing = static_cast<Interlacing>(item.GetInterlacing());
  const double aspect = item.GetPixelAspectRatio();
  attributes.aspectRatio = std::isfinite(aspect) && aspect > 0.0 ? aspect : 1.0;
  const bool packed = format != Gray && !IsMultiPlaneFormat(format);
  attributes.subColorFormat = packed ? NotApplicable : SubColorFormatVideoRange;
  return image;
}

uint64_t ConfigurationCount(double value) {
  if (!(value >= 0.0) || value >= static_cast<double>(OutOfRangeCount)) {
    return OutOfRangeCount;
  }
  return static_cast<uint64_t>(value);
}

} // namespace NmToolkit
