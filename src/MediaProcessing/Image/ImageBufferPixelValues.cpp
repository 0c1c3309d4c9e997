// Operations on the values of pixels where they stand: channel order, colour
// keys, comparisons and bitwise logic.
#include "Codecs/Primitives/PlaneCopy.h"
#include "Codecs/Primitives/PlaneLogic.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageBufferLayout.h"

namespace NmMediaProcessing::CmImageBufferHelpers {

using Code = NmError::CmIntegrityErrorCode;

namespace {

bool IsRedFirst(ColorFormat format) {
  return format == RGB24 || format == RGB32 || format == RGBA;
}
bool IsBlueFirst(ColorFormat format) {
  return format == BGR24 || format == BGR32 || format == BGRA;
}

ColorFormat WithOtherChannelOrder(ColorFormat format) {
  switch (format) {
  case RGB24:
    return BGR24;
  case BGR24:
    return RGB24;
  case RGB32:
    return BGR32;
  case BGR32:
    return RGB32;
  case RGBA:
    return BGRA;
  case BGRA:
    return RGBA;
  default:
    return ColorFormatNone;
  }
}

void SwapPlaneChannels(const CmPlane& source, const CmWriteablePlane& destination) {
  if (source.pixelStride == 3) {
    NmPrimitives::SwapChannels3(source.data, source.rowStride, destination.data,
                                destination.rowStride, source.width, source.height);
  } else {
    NmPrimitives::SwapChannels4(source.data, source.rowStride, destination.data,
                                destination.rowStride, source.width, source.height);
  }
}

} // namespace

void SwapChannels(ImImageMemoryAllocation& allocator) {
  const ColorFormat swapped = WithOtherChannelOrder(allocator.GetColorFormat());
  VZK_REQUIRE(swapped != ColorFormatNone, "Unable to swap color channels in the given format",
              Code::InvalidPointer);
  const CmWriteablePlane plane = allocator.GetWriteablePlane(0);
  SwapPlaneChannels(plane, plane);
  allocator.ReinterpretFormat(swapped);
}

void SwapChannels(const ImImageMemoryAllocation& source, ImImageMemoryAllocation& destination) {
  const CmPlane from = source.GetPlane(0);
  const CmPlane to = destination.GetPlane(0);
  VZK_REQUIRE(from.width == to.width && from.height == to.height,
              "Unable to swap color channels between the given allocator dimensions",
              Code::InvalidPointer);
  const ColorFormat sourceFormat = source.GetColorFormat();
  const ColorFormat targetFormat = destination.GetColorFormat();
  VZK_REQUIRE((IsRedFirst(sourceFormat) && IsBlueFirst(targetFormat)) ||
                  (IsBlueFirst(sourceFormat) && IsRedFirst(targetFormat)),
              "Unable to swap color channels between the given formats", Code::InvalidPointer);
  const CmWriteablePlane target = destination.GetWriteablePlane(0);
  if (from.pixelStride == target.pixelStride) {
    SwapPlaneChannels(from, target);
  } else if (target.pixelStride == 4) {
    // Widened first, then swapped in place; an added fourth byte is opaque.
    NmPrimitives::Copy3To4(from.data, from.rowStride, target.data, target.rowStride, from.width,
                           from.height, 255);
    SwapPlaneChannels(target, target);
  } else {
    NmPrimitives::Copy4To3(from.data, from.rowStride, target.data, target.rowStride, from.width,
                           from.height);
    SwapPlaneChannels(target, target);
  }
}

void ColorKeyOverlay(const CmPlane& overlay, uint8_t keyR, uint8_t keyG, uint8_t keyB, uint8_t keyA,
                     const CmPlane& background, const CmWriteablePlane& destination) {
  VZK_REQUIRE(overlay.bytesPerPixel == background.bytesPerPixel &&
                  overlay.bytesPerPixel == destination.bytesPerPixel,
              "Planes have different number of bytes per pixel", Code::OutOfRange);
  VZK_REQUIRE(overlay.pixelStride == background.pixelStride &&
                  overlay.pixelStride == destination.pixelStride,
              "Planes have different pixel strides", Code::OutOfRange);
  VZK_REQUIRE(overlay.width == background.width && overlay.width == destination.width &&
                  overlay.height == background.height && overlay.height == destination.height,
              "Planes have different dimensions", Code::OutOfRange);
  VZK_REQUIRE(IsSupportedLayout(destination),
              "Colour key overlay is not supported for the given pixel stride",
              Code::InvalidPointer);
  const uint8_t key[4] = {keyR, keyG, keyB, keyA};
  NmPrimitives::ColorKeyOverlay(overlay.data, overlay.rowStride, key, background.data,
                                background.rowStride, destination.data, destination.rowStride,
                                overlay.width, overlay.height, overlay.pixelStride,
                                overlay.bytesPerPixel);
}

void Compare(const CmPlane& source, uint8_t c0, uint8_t c1, uint8_t c2, uint8_t c3,
             CompareOperation operation, const CmWriteablePlane& destination) {
  VZK_REQUIRE(source.width == destination.width && source.height == destination.height,
              "Planes have different dimensions", Code::OutOfRange);
  VZK_REQUIRE(destination.pixelStride == 1, "Destination plane must be monochrome",
              Code::OutOfRange);
  VZK_REQUIRE(IsSupportedLayout(source),
              "Colour comparison is not supported for the given pixel stride",
              Code::InvalidPointer);
  VZK_REQUIRE(operation == CompareEqual, "Only the equality comparison is available",
              Code::NotImplemented);
  const uint8_t values[4] = {c0, c1, c2, c3};
  NmPrimitives::CompareEqual(source.data, source.rowStride, values, destination.data,
                             destination.rowStride, source.width, source.height, source.pixelStride,
                             source.bytesPerPixel);
}

// The bitwise operations work byte by byte, whatever the pixels hold.
void BitwiseOrPlaneContents(const CmPlane& source, const CmWriteablePlane& destination) {
  VZK_REQUIRE(source.pixelStride == destination.pixelStride, "Planes have different pixel strides",
              Code::OutOfRange);
  VZK_REQUIRE(source.width == destination.width && source.height == destination.height,
              "Planes have different dimensions", Code::OutOfRange);
  NmPrimitives::BitwiseOr(source.data, source.rowStride, destination.data, destination.rowStride,
                          source.width * source.pixelStride, source.height);
}

void BitwiseAndPlaneContents(const CmPlane& source, const CmWriteablePlane& destination) {
  VZK_REQUIRE(source.pixelStride == destination.pixelStride, "Planes have different pixel strides",
              Code::OutOfRange);
  VZK_REQUIRE(source.width == destination.width && source.height == destination.height,
              "Planes have different dimensions", Code::OutOfRange);
  NmPrimitives::BitwiseAnd(source.data, source.rowStride, destination.data, destination.rowStride,
                           source.width * source.pixelStride, source.height);
}

void BitwiseNotPlaneContents(const CmWriteablePlane& plane) {
  NmPrimitives::BitwiseNot(plane.data, plane.rowStride, plane.width * plane.pixelStride,
                           plane.height);
}

} // namespace NmMediaProcessing::CmImageBufferHelpers
