#include "MediaProcessing/Image/ImageBufferHelpers.h"

#include "Codecs/Primitives/PlaneCopy.h"
#include "Common/Error/Error.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

namespace CmImageBufferHelpers {

// The templates carry the public names so that their messages name the
// operation that the caller used.
template <typename Plane>
Plane GetCroppedPlane(const Plane& plane, const RegionOfInterest& region) {
  if (region.x < 0 || region.y < 0 || region.width < 1 || region.height < 1 ||
      static_cast<uint64_t>(region.x) + static_cast<uint64_t>(region.width) > plane.width ||
      static_cast<uint64_t>(region.y) + static_cast<uint64_t>(region.height) > plane.height) {
    throw CmIntegrityError(VZK_LOCATION, "Cropping region (ROI) is empty or outside of plane area",
                           CmIntegrityErrorCode::OutOfRange);
  }
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
    throw CmIntegrityError(VZK_LOCATION, "The image is progressive, and has no fields",
                           CmIntegrityErrorCode::InvalidPointer);
  case InterleavedTopFirst:
  case InterleavedBottomFirst:
    if (normal.rotation != 0) {
      throw CmIntegrityError(VZK_LOCATION, "Can not get an interleaved field from a rotated image",
                             CmIntegrityErrorCode::InvalidPointer);
    }
    // Stored upside down, the top field of the picture is on the odd rows.
    firstRow = normal.flippedVertically ? 1 - field : field;
    rowStride = plane.rowStride * 2;
    break;
  case SeparateTopFirst:
  case SeparateBottomFirst:
    if (normal.rotation != 0) {
      throw CmIntegrityError(VZK_LOCATION, "Can not get a separate field from a rotated image",
                             CmIntegrityErrorCode::InvalidPointer);
    }
    if (!normal.flippedVertically) {
      firstRow = field == 0 ? 0 : (height + 1) / 2;
    } else {
      firstRow = field == 0 ? height / 2 : 0;
    }
    break;
  case TopFieldOnly:
    if (field != 0) {
      throw CmIntegrityError(VZK_LOCATION, "The image does not contain a bottom field",
                             CmIntegrityErrorCode::InvalidPointer);
    }
    return plane;
  case BottomFieldOnly:
    if (field == 0) {
      throw CmIntegrityError(VZK_LOCATION, "The image does not contain a top field",
                             CmIntegrityErrorCode::InvalidPointer);
    }
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

void CopyPlaneContents(const CmPlane& source, const CmWriteablePlane& destination) {
  if (source.bytesPerPixel != destination.bytesPerPixel) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different number of bytes per pixel",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Pixel strides do not match",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.width != destination.width) {
    throw CmIntegrityError(VZK_LOCATION, "Plane widths do not match",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.height != destination.height) {
    throw CmIntegrityError(VZK_LOCATION, "Plane heights do not match",
                           CmIntegrityErrorCode::OutOfRange);
  }
  NmPrimitives::CopyPlane(source.data, source.rowStride, destination.data, destination.rowStride,
                          source.width * source.pixelStride, source.height);
}

void CopyAllocatorContents(const ImImageMemoryAllocation& source,
                           ImImageMemoryAllocation& destination) {
  if (source.GetColorFormat() != destination.GetColorFormat()) {
    throw CmIntegrityError(VZK_LOCATION, "Allocators have different formats",
                           CmIntegrityErrorCode::InvalidArgument);
  }
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    CopyPlaneContents(source.GetPlane(i), destination.GetWriteablePlane(i));
  }
}

} // namespace CmImageBufferHelpers

} // namespace NmMediaProcessing
