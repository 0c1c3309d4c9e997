#include "MediaProcessing/Image/ImageBufferHelpers.h"

#include "Codecs/Primitives/PlaneCopy.h"
#include "Codecs/Primitives/PlaneFlip.h"
#include "Codecs/Primitives/PlaneLogic.h"
#include "Codecs/Primitives/PlaneTranspose.h"
#include "Codecs/Primitives/Resize.h"
#include "Common/Error/Error.h"
#include "MediaProcessing/Image/SPLError.h"

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

namespace {

// The pixel layouts that the primitives know: one channel, three, three in
// four bytes, and four.
bool IsSupportedLayout(const CmPlane& plane) {
  return (plane.pixelStride == 1 && plane.bytesPerPixel == 1) ||
         (plane.pixelStride == 3 && plane.bytesPerPixel == 3) ||
         (plane.pixelStride == 4 && (plane.bytesPerPixel == 3 || plane.bytesPerPixel == 4));
}

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

} // namespace

void FlipPlaneContents(const CmPlane& source, const CmWriteablePlane& destination, FlipAxis axis) {
  if (source.width != destination.width || source.height != destination.height) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Source and destination planes must have the same dimensions for "
                           "mirroring",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  if (!IsSupportedLayout(destination) || source.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Mirroring is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  // The fourth byte of a three-in-four pixel travels with its pixel.
  NmPrimitives::FlipPlane(source.data, source.rowStride, destination.data, destination.rowStride,
                          source.width, source.height, source.pixelStride, ToPrimitiveAxis(axis));
}

void FlipPlaneContents(ImImageMemoryAllocation& allocator, FlipAxis axis) {
  for (uint64_t i = 0; i < allocator.GetPlaneCount(); ++i) {
    if (!IsSupportedLayout(allocator.GetPlane(i))) {
      throw CmIntegrityError(VZK_LOCATION, "Mirroring is not supported for the given pixel stride",
                             CmIntegrityErrorCode::InvalidPointer);
    }
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
  const ColorFormat format = allocator.GetColorFormat();
  const ColorFormat swapped = WithOtherChannelOrder(format);
  if (swapped == ColorFormatNone) {
    throw CmIntegrityError(VZK_LOCATION, "Unable to swap color channels in the given format",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  const CmWriteablePlane plane = allocator.GetWriteablePlane(0);
  SwapPlaneChannels(plane, plane);
  allocator.ReinterpretFormat(swapped);
}

void SwapChannels(const ImImageMemoryAllocation& source, ImImageMemoryAllocation& destination) {
  const CmPlane from = source.GetPlane(0);
  const CmPlane to = destination.GetPlane(0);
  if (from.width != to.width || from.height != to.height) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Unable to swap color channels between the given allocator dimensions",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  const ColorFormat sourceFormat = source.GetColorFormat();
  const ColorFormat targetFormat = destination.GetColorFormat();
  const bool oppositeOrder = (IsRedFirst(sourceFormat) && IsBlueFirst(targetFormat)) ||
                             (IsBlueFirst(sourceFormat) && IsRedFirst(targetFormat));
  if (!oppositeOrder) {
    throw CmIntegrityError(VZK_LOCATION, "Unable to swap color channels between the given formats",
                           CmIntegrityErrorCode::InvalidPointer);
  }
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

void CopyPlaneMasked(const CmPlane& source, const CmWriteablePlane& destination,
                     const CmPlane& mask) {
  if (source.bytesPerPixel != destination.bytesPerPixel) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different number of bytes per pixel",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Pixel strides do not match",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (mask.bytesPerPixel != source.bytesPerPixel) {
    throw CmIntegrityError(VZK_LOCATION, "Bytes per pixel do not match",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.width != destination.width || mask.width != source.width) {
    throw CmIntegrityError(VZK_LOCATION, "Plane widths do not match",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.height != destination.height || mask.height != source.height) {
    throw CmIntegrityError(VZK_LOCATION, "Plane heights do not match",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (mask.pixelStride != 1 && mask.pixelStride != source.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Cannot copy with composite plane masks",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (!IsSupportedLayout(destination)) {
    throw CmIntegrityError(VZK_LOCATION, "Masked copy is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  NmPrimitives::CopyMasked(source.data, source.rowStride, destination.data, destination.rowStride,
                           mask.data, mask.rowStride, mask.pixelStride, source.width, source.height,
                           source.pixelStride, source.bytesPerPixel);
}

void CopyAllocatorMasked(const ImImageMemoryAllocation& source,
                         ImImageMemoryAllocation& destination,
                         const ImImageMemoryAllocation& mask) {
  const ColorFormat format = source.GetColorFormat();
  if (format != destination.GetColorFormat()) {
    throw CmIntegrityError(VZK_LOCATION, "Allocators have different formats",
                           CmIntegrityErrorCode::InvalidArgument);
  }
  const bool monochrome = mask.GetPlaneCount() == 1;
  if (monochrome && (format == YCbCr420_Planar || format == YCbCr422_Planar)) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Monochrome masks cannot be used to copy subsampled formats",
                           CmIntegrityErrorCode::InvalidArgument);
  }
  if (!monochrome && mask.GetColorFormat() != format) {
    throw CmIntegrityError(
        VZK_LOCATION,
        "If a planar copy mask is specified, its color format must match the image data",
        CmIntegrityErrorCode::InvalidArgument);
  }
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    CopyPlaneMasked(source.GetPlane(i), destination.GetWriteablePlane(i),
                    mask.GetPlane(monochrome ? 0 : i));
  }
}

void SetMaskedPlanePixels(uint8_t c0, uint8_t c1, uint8_t c2, uint8_t alpha, const CmPlane& mask,
                          const CmWriteablePlane& plane) {
  if (mask.pixelStride != 1) {
    throw CmIntegrityError(VZK_LOCATION, "Mask plane has an invalid pixel stride (!= 1)",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (mask.width != plane.width || mask.height != plane.height) {
    throw CmIntegrityError(VZK_LOCATION, "Mask plane has an invalid size",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (!IsSupportedLayout(plane)) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Masked pixel value setting is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  const uint8_t values[4] = {c0, c1, c2, alpha};
  NmPrimitives::SetMaskedPixels(values, mask.data, mask.rowStride, plane.data, plane.rowStride,
                                plane.width, plane.height, plane.pixelStride, plane.bytesPerPixel);
}

void ColorKeyOverlay(const CmPlane& overlay, uint8_t keyR, uint8_t keyG, uint8_t keyB, uint8_t keyA,
                     const CmPlane& background, const CmWriteablePlane& destination) {
  if (overlay.bytesPerPixel != background.bytesPerPixel ||
      overlay.bytesPerPixel != destination.bytesPerPixel) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different number of bytes per pixel",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (overlay.pixelStride != background.pixelStride ||
      overlay.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different pixel strides",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (overlay.width != background.width || overlay.width != destination.width ||
      overlay.height != background.height || overlay.height != destination.height) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different dimensions",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (!IsSupportedLayout(destination)) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Colour key overlay is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  const uint8_t key[4] = {keyR, keyG, keyB, keyA};
  NmPrimitives::ColorKeyOverlay(overlay.data, overlay.rowStride, key, background.data,
                                background.rowStride, destination.data, destination.rowStride,
                                overlay.width, overlay.height, overlay.pixelStride,
                                overlay.bytesPerPixel);
}

void BitwiseOrPlaneContents(const CmPlane& source, const CmWriteablePlane& destination) {
  if (source.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different pixel strides",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.width != destination.width || source.height != destination.height) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different dimensions",
                           CmIntegrityErrorCode::OutOfRange);
  }
  NmPrimitives::BitwiseOr(source.data, source.rowStride, destination.data, destination.rowStride,
                          source.width * source.pixelStride, source.height);
}

void BitwiseAndPlaneContents(const CmPlane& source, const CmWriteablePlane& destination) {
  if (source.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different pixel strides",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.width != destination.width || source.height != destination.height) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different dimensions",
                           CmIntegrityErrorCode::OutOfRange);
  }
  NmPrimitives::BitwiseAnd(source.data, source.rowStride, destination.data, destination.rowStride,
                           source.width * source.pixelStride, source.height);
}

void BitwiseNotPlaneContents(const CmWriteablePlane& plane) {
  NmPrimitives::BitwiseNot(plane.data, plane.rowStride, plane.width * plane.pixelStride,
                           plane.height);
}

void Compare(const CmPlane& source, uint8_t c0, uint8_t c1, uint8_t c2, uint8_t c3,
             CompareOperation operation, const CmWriteablePlane& destination) {
  if (source.width != destination.width || source.height != destination.height) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different dimensions",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (destination.pixelStride != 1) {
    throw CmIntegrityError(VZK_LOCATION, "Destination plane must be monochrome",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (!IsSupportedLayout(source)) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Colour comparison is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  if (operation != CompareEqual) {
    throw CmIntegrityError(VZK_LOCATION, "Only the equality comparison is available",
                           CmIntegrityErrorCode::NotImplemented);
  }
  const uint8_t values[4] = {c0, c1, c2, c3};
  NmPrimitives::CompareEqual(source.data, source.rowStride, values, destination.data,
                             destination.rowStride, source.width, source.height, source.pixelStride,
                             source.bytesPerPixel);
}

void Transpose(const CmPlane& source, const CmWriteablePlane& destination, bool flipColumns,
               bool flipRows) {
  if (source.bytesPerPixel != destination.bytesPerPixel) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different number of bytes per pixel",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different pixel strides",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (destination.width != source.height || destination.height != source.width) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have incompatible dimensions",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (!IsSupportedLayout(source)) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Transposition is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  // The fourth byte of a three-in-four pixel travels with its pixel.
  NmPrimitives::TransposePlane(source.data, source.rowStride, destination.data,
                               destination.rowStride, source.width, source.height,
                               source.pixelStride, flipColumns, flipRows);
}

namespace {

NmPrimitives::SmResizeMode ToPrimitiveMode(ResizeMode mode, bool superSampling) {
  return static_cast<NmPrimitives::SmResizeMode>(superSampling ? ResizeSuperSampling : mode);
}

uint64_t GetPlaneResizeBufferSize(const CmPlane& source, const CmPlane& destination,
                                  ResizeMode mode, bool superSampling) {
  return NmPrimitives::GetResizeScratchSize(source.width, source.height, destination.width,
                                            destination.height, source.pixelStride,
                                            ToPrimitiveMode(mode, superSampling));
}

void ResizePlane(const CmPlane& source, const CmWriteablePlane& destination, ResizeMode mode,
                 bool superSampling, uint8_t* buffer, uint64_t bufferSize) {
  ThrowStatus(NmPrimitives::ResizePlane(
      source.data, source.rowStride, source.width, source.height, destination.data,
      destination.rowStride, destination.width, destination.height, source.pixelStride,
      ToPrimitiveMode(mode, superSampling), buffer, bufferSize, 0, destination.height));
}

} // namespace

void GetResizeBufferSize(const CmPlane& source, const CmPlane& destination, uint32_t planeCount,
                         ResizeMode mode, bool superSampling, uint64_t& size) {
  // The planes of one image share the buffer one after the other, so the
  // largest need is the need of all; chroma planes are never larger than luma.
  size = GetPlaneResizeBufferSize(source, destination, mode, superSampling);
  (void)planeCount;
}

void Resize(const CmPlane& source, const CmWriteablePlane& destination, ResizeMode mode,
            bool superSampling, uint8_t* buffer, uint64_t bufferSize) {
  if (source.bytesPerPixel != destination.bytesPerPixel) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different number of bytes per pixel",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (source.pixelStride != destination.pixelStride) {
    throw CmIntegrityError(VZK_LOCATION, "Planes have different pixel strides",
                           CmIntegrityErrorCode::OutOfRange);
  }
  if (!IsSupportedLayout(source)) {
    throw CmIntegrityError(VZK_LOCATION,
                           superSampling
                               ? "Resizing (super sampling) is not supported for the given pixel "
                                 "stride"
                               : "Resizing is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  ResizePlane(source, destination, mode, superSampling, buffer, bufferSize);
}

void ResizeMultiplePlanes(const ImImageMemoryAllocation& source,
                          ImImageMemoryAllocation& destination, ResizeMode mode,
                          bool superSampling, uint8_t* buffer, uint64_t bufferSize) {
  const ColorFormat format = source.GetColorFormat();
  if (format != destination.GetColorFormat()) {
    throw CmIntegrityError(VZK_LOCATION, "Images have different color formats",
                           CmIntegrityErrorCode::InvalidArgument);
  }
  if (format != Gray && !IsMultiPlaneFormat(format)) {
    throw CmIntegrityError(VZK_LOCATION, "Images are not in a planar color format",
                           CmIntegrityErrorCode::InvalidArgument);
  }
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    const CmPlane from = source.GetPlane(i);
    if (!IsSupportedLayout(from) || from.pixelStride != 1) {
      throw CmIntegrityError(VZK_LOCATION,
                             superSampling ? "Resizing (super sampling) is not supported for the "
                                             "given planar format"
                                           : "Resizing is not supported for the given planar "
                                             "format",
                             CmIntegrityErrorCode::InvalidPointer);
    }
  }
  for (uint64_t i = 0; i < source.GetPlaneCount(); ++i) {
    ResizePlane(source.GetPlane(i), destination.GetWriteablePlane(i), mode, superSampling, buffer,
                bufferSize);
  }
}

void SetAlphaChannel(ImImageMemoryAllocation& allocator, uint8_t value) {
  const ColorFormat format = allocator.GetColorFormat();
  if (format != RGBA && format != BGRA) {
    throw CmIntegrityError(VZK_LOCATION, "The given colour format doesn't have an alpha channel",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  const CmWriteablePlane plane = allocator.GetWriteablePlane(0);
  NmPrimitives::SetChannel4(value, 3, plane.data, plane.rowStride, plane.width, plane.height);
}

void SetPlane(uint8_t value, const CmWriteablePlane& plane) {
  if (plane.pixelStride != 1) {
    throw CmIntegrityError(VZK_LOCATION,
                           "Setting plane values is not supported for the given pixel stride",
                           CmIntegrityErrorCode::InvalidPointer);
  }
  NmPrimitives::SetPlane(value, plane.data, plane.rowStride, plane.width, plane.height);
}

} // namespace CmImageBufferHelpers

} // namespace NmMediaProcessing
