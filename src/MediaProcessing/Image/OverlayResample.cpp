#include "MediaProcessing/Image/OverlayResample.h"

#include <cstring>
#include <vector>

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

namespace {
// Source index of destination sample i when d samples stand for s: the
// sample whose centre is nearest to the destination sample's centre.
uint64_t NearestIndex(uint64_t i, uint64_t s, uint64_t d) { return (2 * i + 1) * s / (2 * d); }
} // namespace

void ResizePlaneNearest(const ImImageMemoryAllocation::CmPlane& source,
                        const ImImageMemoryAllocation::CmWriteablePlane& destination) {
  if (source.width == 0 || source.height == 0 || destination.width == 0 ||
      destination.height == 0 || source.pixelStride != destination.pixelStride) {
    throw NmError::CmIntegrityError(VZK_LOCATION, "Planes cannot be resized into each other",
                                    NmError::CmIntegrityErrorCode::InvalidArgument);
  }
  const uint64_t stride = source.pixelStride;
  std::vector<uint64_t> columns(destination.width);
  for (uint64_t x = 0; x < destination.width; ++x) {
    columns[x] = NearestIndex(x, source.width, destination.width) * stride;
  }
  for (uint64_t y = 0; y < destination.height; ++y) {
    const uint8_t* from =
        source.data + NearestIndex(y, source.height, destination.height) * source.rowStride;
    uint8_t* to = destination.data + y * destination.rowStride;
    for (uint64_t x = 0; x < destination.width; ++x) {
      std::memcpy(to + x * stride, from + columns[x], stride);
    }
  }
}

void ResizeOverlayNearest(const CmImage& source, uint64_t width, uint64_t height,
                          CmImage& result) {
  if (!source.IsValid()) {
    throw NmError::CmIntegrityError(VZK_LOCATION,
                                    "Cannot resize invalid image with width and/or height of 0",
                                    NmError::CmIntegrityErrorCode::InvalidPointer);
  }
  if (source.GetWidth() == width && source.GetHeight() == height) {
    if (&result != &source) {
      result = source;
    }
    return;
  }
  CmImage scaled;
  scaled.Allocate(width, height, source.GetColorFormat());
  const ImImageMemoryAllocation& from = source.Allocator();
  ImImageMemoryAllocation& to = scaled.Allocator();
  for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
    ResizePlaneNearest(from.GetPlane(p), to.GetWriteablePlane(p));
  }
  scaled.CopyAttributes(source);
  // A stretched picture keeps its shape on screen through its pixel aspect.
  const double widthRatio = static_cast<double>(width) / static_cast<double>(source.GetWidth());
  const double heightRatio = static_cast<double>(height) / static_cast<double>(source.GetHeight());
  scaled.GetAttributes().aspectRatio *= heightRatio / widthRatio;
  result = scaled;
}

} // namespace NmMediaProcessing
