#pragma once

#include <cstdint>

#include "MediaProcessing/Image/ImageMemoryAllocationInterface.h"

namespace NmMediaProcessing {

namespace CmImageBufferHelpers {

using CmPlane = ImImageMemoryAllocation::CmPlane;
using CmWriteablePlane = ImImageMemoryAllocation::CmWriteablePlane;

struct RegionOfInterest {
  int32_t x = 0;
  int32_t y = 0;
  int32_t width = 0;
  int32_t height = 0;
};

RegionOfInterest GetFullRegion(const CmPlane& plane);

CmPlane GetCroppedPlane(const CmPlane& plane, const RegionOfInterest& region);
CmWriteablePlane GetCroppedPlane(const CmWriteablePlane& plane, const RegionOfInterest& region);

// A view of one field (0 top, 1 bottom) of a plane laid out by interlacing,
// taking the stored orientation into account.
CmPlane GetFieldPlane(const CmPlane& plane, Interlacing interlacing, const Orientation& orientation,
                      uint32_t field);
CmWriteablePlane GetFieldPlane(const CmWriteablePlane& plane, Interlacing interlacing,
                               const Orientation& orientation, uint32_t field);

// Copies the visible bytes of each row; stride gaps of the destination stay.
void CopyPlaneContents(const CmPlane& source, const CmWriteablePlane& destination);
void CopyAllocatorContents(const ImImageMemoryAllocation& source,
                           ImImageMemoryAllocation& destination);

} // namespace CmImageBufferHelpers

} // namespace NmMediaProcessing
