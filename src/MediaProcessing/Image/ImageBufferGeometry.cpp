// Operations that move samples to other places: mirroring, transposition and
// resizing.
#include "Codecs/Primitives/PlaneFlip.h"
#include "Codecs/Primitives/PlaneTranspose.h"
#include "Codecs/Primitives/Resize.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageBufferLayout.h"
#include "MediaProcessing/Image/SPLError.h"

namespace NmMediaProcessing::CmImageBufferHelpers {

using Code = NmError::CmIntegrityErrorCode;

namespace {

NmPrimitives::SmFlipAxis ToPrimitiveAxis(FlipAxis axis) {
  switch (axis) {
  case FlipRows:
    return NmPrimitives::FlipRows;
  case FlipColumns:
    return NmPrimitives::FlipColumns;
  default:
    return NmPrimitives::FlipBoth;
  }
}

NmPrimitives::SmResizeMode ToPrimitiveMode(ResizeMode mode, bool superSampling) {
  return static_cast<NmPrimitives::SmResizeMode>(superSampling ? ResizeSuperSampling : mode);
}

void ResizePlane(const CmPlane& source, const CmWriteablePlane& destination,
                 const SmResizeTarget& target, ResizeMode mode, bool superSampling, uint8_t* buffer,
                 uint64_t bufferSize) {
  VZK_REQUIRE(
      target.left <= target.fullWidth && destination.width <= target.fullWidth - target.left &&
          target.top <= target.fullHeight && destination.height <= target.fullHeight - target.top,
      "Clipping region is outside plane", Code::OutOfRange);
  ThrowStatus(NmPrimitives::ResizePlane(
      source.data, source.rowStride, source.width, source.height, destination.data,
      destination.rowStride, target.fullWidth, target.fullHeight, source.pixelStride,
      ToPrimitiveMode(mode, superSampling), buffer, bufferSize,
      {target.left, target.top, target.left + destination.width, target.top + destination.height}));
}

void CheckResizeLayout(const CmPlane& source, const CmWriteablePlane& destination,
                       bool superSampling) {
  VZK_REQUIRE(source.bytesPerPixel == destination.bytesPerPixel,
              "Planes have different number of bytes per pixel", Code::OutOfRange);
  VZK_REQUIRE(source.pixelStride == destination.pixelStride, "Planes have different pixel strides",
              Code::OutOfRange);
  VZK_REQUIRE(IsSupportedLayout(source),
              superSampling ? "Resizing (super sampling) is not supported for the given pixel "
                              "stride"
                            : "Resizing is not supported for the given pixel stride",
              Code::InvalidPointer);
}

} // namespace

void FlipPlaneContents(const CmPlane& source, const CmWriteablePlane& destination, FlipAxis axis) {
  VZK_REQUIRE(source.width == destination.width && source.height == destination.height,
              "Source and destination planes must have the same dimensions for mirroring",
              Code::InvalidPointer);
  VZK_REQUIRE(IsSupportedLayout(destination) && source.pixelStride == destination.pixelStride,
              "Mirroring is not supported for the given pixel stride", Code::InvalidPointer);
  // The fourth byte of a three-in-four pixel travels with its pixel.
  NmPrimitives::FlipPlane(source.data, source.rowStride, destination.data, destination.rowStride,
                          source.width, source.height, source.pixelStride, ToPrimitiveAxis(axis));
}

void FlipPlaneContents(ImImageMemoryAllocation& allocator, FlipAxis axis) {
  for (uint64_t i = 0; i < allocator.GetPlaneCount(); ++i) {
    VZK_REQUIRE(IsSupportedLayout(allocator.GetPlane(i)),
                "Mirroring is not supported for the given pixel stride", Code::InvalidPointer);
  }
  for (uint64_t i = 0; i < allocator.GetPlaneCount(); ++i) {
    const CmPlane view = allocator.GetPlane(i);
    FlipAxis planeAxis = axis;
    // A single row has nothing to turn over top to bottom, a single column
    // nothing left to right.
    if (view.height == 1) {
      if (axis == FlipRows) {
        continue;
      }
      planeAxis = FlipColumns;
    } else if (view.width == 1) {
      if (axis == FlipColumns) {
        continue;
      }
      planeAxis = FlipRows;
    }
    const CmWriteablePlane plane = allocator.GetWriteablePlane(i);
    NmPrimitives::FlipPlaneInPlace(plane.data, plane.rowStride, plane.width, plane.height,
                                   plane.pixelStride, ToPrimitiveAxis(planeAxis));
  }
}

void Transpose(const CmPlane& source, const CmWriteablePlane& destination, bool flipColumns,
               bool flipRows) {
  VZK_REQUIRE(source.bytesPerPixel == destination.bytesPerPixel,
              "Planes have different number of bytes per pixel", Code::OutOfRange);
  VZK_REQUIRE(source.pixelStride == destination.pixelStride, "Planes have different pixel strides",
              Code::OutOfRange);
  VZK_REQUIRE(destination.width == source.height && destination.height == source.width,
              "Planes have incompatible dimensions", Code::OutOfRange);
  VZK_REQUIRE(IsSupportedLayout(source),
              "Transposition is not supported for the given pixel stride", Code::InvalidPointer);
  // The fourth byte of a three-in-four pixel travels with its pixel.
  NmPrimitives::TransposePlane(source.data, source.rowStride, destination.data,
                               destination.rowStride, source.width, source.height,
                               source.pixelStride, flipColumns, flipRows);
}

void GetResizeBufferSize(const CmPlane& source, const CmPlane& destination, uint32_t planeCount,
                         ResizeMode mode, bool superSampling, uint64_t& size) {
  // The planes of one image share the buffer one after the other, so the
  // largest need is the need of all; chroma planes are never larger than luma.
  size = NmPrimitives::GetResizeScratchSize(source.width, source.height, destination.width,
                                            destination.height, source.pixelStride,
                                            ToPrimitiveMode(mode, superSampling));
  (void)planeCount;
}

void Resize(const CmPlane& source, const CmWriteablePlane& destination, ResizeMode mode,
            bool superSampling, uint8_t* buffer, uint64_t bufferSize) {
  CheckResizeLayout(source, destination, superSampling);
  ResizePlane(source, destination, {destination.width, destination.height, 0, 0}, mode,
              superSampling, buffer, bufferSize);
}

void ResizeWindow(const CmPlane& source, const CmWriteablePlane& destination,
                  const SmResizeTarget& target, ResizeMode mode, bool superSampling,
                  uint8_t* buffer, uint64_t bufferSize) {
  CheckResizeLayout(source, destination, superSampling);
  ResizePlane(source, destination, target, mode, superSampling, buffer, bufferSize);
}

void ResizeMultiplePlanes(const ImImageMemoryAllocation& source,
                          ImImageMemoryAllocation& destination, ResizeMode mode, bool superSampling,
                          uint8_t* buffer, uint64_t bufferSize) {
  const ColorFormat format = source.GetColorFormat();
  VZK_REQUIRE(format == destination.GetColorFormat(), "Images have different color formats",
              Code::InvalidArgument);
  VZK_REQUIRE(format == Gray || IsMultiPlaneFormat(format),
              "Images are not in a planar color format", Code::InvalidArgument);
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    const CmPlane from = source.GetPlane(i);
    VZK_REQUIRE(IsSupportedLayout(from) && from.pixelStride == 1,
                superSampling ? "Resizing (super sampling) is not supported for the given "
                                "planar format"
                              : "Resizing is not supported for the given planar format",
                Code::InvalidPointer);
  }
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    const CmWriteablePlane to = destination.GetWriteablePlane(i);
    ResizePlane(source.GetPlane(i), to, {to.width, to.height, 0, 0}, mode, superSampling, buffer,
                bufferSize);
  }
}

} // namespace NmMediaProcessing::CmImageBufferHelpers
