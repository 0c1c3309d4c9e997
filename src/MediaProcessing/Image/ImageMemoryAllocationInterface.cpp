#include "MediaProcessing/Image/ImageMemoryAllocationInterface.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

namespace {

template <typename Plane>
void CropPlane(Plane& plane, uint64_t x, uint64_t y, uint64_t w, uint64_t h) {
  VZK_REQUIRE(w != 0 && h != 0, "Clipping region is empty", CmIntegrityErrorCode::InvalidArgument);
  // Compared without overflow: x + w <= width.
  VZK_REQUIRE(x <= plane.width && w <= plane.width - x && y <= plane.height &&
                  h <= plane.height - y,
              "Clipping region is outside plane", CmIntegrityErrorCode::OutOfRange);
  plane.data += plane.pixelStride * x + plane.rowStride * y;
  plane.width = w;
  plane.height = h;
}

} // namespace

uint8_t* ImImageMemoryAllocation::CmWriteablePlane::GetPixelAddress(uint64_t x, uint64_t y) const {
  VZK_REQUIRE(x < width, "Argument x out of range", CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(y < height, "Argument y out of range", CmIntegrityErrorCode::InvalidArgument);
  return data + pixelStride * x + rowStride * y;
}

void ImImageMemoryAllocation::CmWriteablePlane::Crop(uint64_t x, uint64_t y, uint64_t w,
                                                     uint64_t h) {
  CropPlane(*this, x, y, w, h);
}

const uint8_t* ImImageMemoryAllocation::CmPlane::GetPixelAddress(uint64_t x, uint64_t y) const {
  VZK_REQUIRE(x < width, "Argument x out of range", CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE(y < height, "Argument y out of range", CmIntegrityErrorCode::InvalidArgument);
  return data + pixelStride * x + rowStride * y;
}

void ImImageMemoryAllocation::CmPlane::Crop(uint64_t x, uint64_t y, uint64_t w, uint64_t h) {
  CropPlane(*this, x, y, w, h);
}

uint64_t RoundUp(uint64_t value, uint64_t multiple) {
  if (multiple == 0) {
    return value;
  }
  const uint64_t remainder = value % multiple;
  return remainder == 0 ? value : value + (multiple - remainder);
}

bool MatchesAlignment(const ImImageMemoryAllocation& allocator, uint64_t alignment) {
  const uint64_t count = allocator.GetPlaneCount();
  if (count == 0) {
    return false;
  }
  if (alignment == 0) {
    return true;
  }
  for (uint64_t i = 0; i < count; ++i) {
    const ImImageMemoryAllocation::CmPlane plane = allocator.GetPlane(i);
    if (plane.rowStride != RoundUp(plane.width * plane.pixelStride, alignment)) {
      return false;
    }
  }
  return true;
}

SmCropRectangle GetChromaCropRectangle(ColorFormat format, uint64_t x, uint64_t y, uint64_t width,
                                       uint64_t height) {
  switch (format) {
  case YCbCr420_Planar:
    return {x / 2, y / 2, (width + 1) / 2, (height + 1) / 2};
  case YCbCr422_Planar:
    return {x / 2, y, (width + 1) / 2, height};
  default:
    return {x, y, width, height};
  }
}

} // namespace NmMediaProcessing
