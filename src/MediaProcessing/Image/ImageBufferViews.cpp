// Views into planes: regions and fields, sharing the plane's samples.
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"

namespace NmMediaProcessing::CmImageBufferHelpers {

using Code = NmError::CmIntegrityErrorCode;

// The templates carry the public names so that their messages name the
// operation that the caller used.
template <typename Plane>
Plane GetCroppedPlane(const Plane& plane, const RegionOfInterest& region) {
  VZK_REQUIRE(
      region.x >= 0 && region.y >= 0 && region.width >= 1 && region.height >= 1 &&
          static_cast<uint64_t>(region.x) + static_cast<uint64_t>(region.width) <= plane.width &&
          static_cast<uint64_t>(region.y) + static_cast<uint64_t>(region.height) <= plane.height,
      "Cropping region (ROI) is empty or outside of plane area", Code::OutOfRange);
  Plane cropped = plane;
  cropped.Crop(region.x, region.y, region.width, region.height);
  return cropped;
}

template <typename Plane>
Plane GetFieldPlane(const Plane& plane, Interlacing interlacing, const Orientation& orientation,
                    uint32_t field) {
  const Orientation normal = orientation.GetNormalForm();
  const uint64_t height = plane.height;
  uint64_t firstRow = 0;
  uint64_t rowStride = plane.rowStride;
  switch (interlacing) {
  case Progressive:
    throw NmError::CmIntegrityError(VZK_LOCATION, "The image is progressive, and has no fields",
                                    Code::InvalidPointer);
  case InterleavedTopFirst:
  case InterleavedBottomFirst:
    VZK_REQUIRE(normal.rotation == 0, "Can not get an interleaved field from a rotated image",
                Code::InvalidPointer);
    // Stored upside down, picture row r is stored row H - 1 - r: the top
    // field lands on the odd rows when the height is even, but stays on the
    // even rows when it is odd. Taking 1 - field regardless would make the
    // top field of an odd picture start at row 1 with a row too many, past
    // the end of the plane.
    firstRow = normal.flippedVertically ? (height - 1 + field) % 2 : field;
    rowStride = plane.rowStride * 2;
    break;
  case SeparateTopFirst:
  case SeparateBottomFirst:
    VZK_REQUIRE(normal.rotation == 0, "Can not get a separate field from a rotated image",
                Code::InvalidPointer);
    if (!normal.flippedVertically) {
      firstRow = field == 0 ? 0 : (height + 1) / 2;
    } else {
      firstRow = field == 0 ? height / 2 : 0;
    }
    break;
  case TopFieldOnly:
    VZK_REQUIRE(field == 0, "The image does not contain a bottom field", Code::InvalidPointer);
    return plane;
  case BottomFieldOnly:
    VZK_REQUIRE(field != 0, "The image does not contain a top field", Code::InvalidPointer);
    return plane;
  default:
    return plane;
  }
  Plane view = plane;
  view.data = plane.data + firstRow * plane.rowStride;
  view.rowStride = rowStride;
  view.height = field == 0 ? (height + 1) / 2 : height / 2;
  return view;
}

RegionOfInterest GetFullRegion(const CmPlane& plane) {
  return {0, 0, static_cast<int32_t>(plane.width), static_cast<int32_t>(plane.height)};
}

SmSize GetSize(const CmPlane& plane) {
  return {static_cast<int32_t>(plane.width), static_cast<int32_t>(plane.height)};
}

CmPlane GetCroppedPlane(const CmPlane& plane, const RegionOfInterest& region) {
  return GetCroppedPlane<CmPlane>(plane, region);
}

CmWriteablePlane GetCroppedPlane(const CmWriteablePlane& plane, const RegionOfInterest& region) {
  return GetCroppedPlane<CmWriteablePlane>(plane, region);
}

CmPlane GetFieldPlane(const CmPlane& plane, Interlacing interlacing, const Orientation& orientation,
                      uint32_t field) {
  return GetFieldPlane<CmPlane>(plane, interlacing, orientation, field);
}

CmWriteablePlane GetFieldPlane(const CmWriteablePlane& plane, Interlacing interlacing,
                               const Orientation& orientation, uint32_t field) {
  return GetFieldPlane<CmWriteablePlane>(plane, interlacing, orientation, field);
}

} // namespace NmMediaProcessing::CmImageBufferHelpers
