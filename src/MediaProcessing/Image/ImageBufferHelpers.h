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

struct SmSize {
  int32_t width = 0;
  int32_t height = 0;
};

enum FlipAxis : int32_t {
  FlipRows = 0,    // top to bottom
  FlipColumns = 1, // left to right
  FlipBoth = 2,
};

RegionOfInterest GetFullRegion(const CmPlane& plane);
SmSize GetSize(const CmPlane& plane);

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

void FlipPlaneContents(const CmPlane& source, const CmWriteablePlane& destination, FlipAxis axis);
// Mirrors every plane in place, writing through GetWriteablePlane.
void FlipPlaneContents(ImImageMemoryAllocation& allocator, FlipAxis axis);

// Exchanges the first and third channel in place and relabels the format
// (RGB24 and BGR24, RGB32 and BGR32, RGBA and BGRA).
void SwapChannels(ImImageMemoryAllocation& allocator);
// Writes the source with its first and third channel exchanged into an
// allocated destination of the same size and the opposite channel order; a
// change between three and four bytes a pixel is made on the way.
void SwapChannels(const ImImageMemoryAllocation& source, ImImageMemoryAllocation& destination);

// Copies the pixels whose mask sample is not 0. A one-byte mask selects whole
// pixels; a mask of the source's own layout selects byte by byte.
void CopyPlaneMasked(const CmPlane& source, const CmWriteablePlane& destination,
                     const CmPlane& mask);
// A one-plane mask serves every plane of a format without subsampling.
void CopyAllocatorMasked(const ImImageMemoryAllocation& source,
                         ImImageMemoryAllocation& destination, const ImImageMemoryAllocation& mask);
// Where the mask is set the pixel becomes (c0, c1, c2) and alpha for four
// channels; the values are in the plane's byte order.
void SetMaskedPlanePixels(uint8_t c0, uint8_t c1, uint8_t c2, uint8_t alpha, const CmPlane& mask,
                          const CmWriteablePlane& plane);
// The destination takes the background where the overlay pixel equals the key
// (in the planes' byte order), elsewhere the overlay.
void ColorKeyOverlay(const CmPlane& overlay, uint8_t keyR, uint8_t keyG, uint8_t keyB, uint8_t keyA,
                     const CmPlane& background, const CmWriteablePlane& destination);
void BitwiseOrPlaneContents(const CmPlane& source, const CmWriteablePlane& destination);
void BitwiseAndPlaneContents(const CmPlane& source, const CmWriteablePlane& destination);
void BitwiseNotPlaneContents(const CmWriteablePlane& plane);

// The comparison codes of the primitives; only equality is provided so far.
enum CompareOperation : int32_t {
  CompareEqual = 2,
};
// 255 in the one-byte destination where every channel of the source pixel
// compares true with its constant, else 0.
void Compare(const CmPlane& source, uint8_t c0, uint8_t c1, uint8_t c2, uint8_t c3,
             CompareOperation operation, const CmWriteablePlane& destination);

// Rows become columns; flipColumns mirrors the destination left to right and
// flipRows top to bottom in the same pass (flipColumns alone turns a quarter
// clockwise).
void Transpose(const CmPlane& source, const CmWriteablePlane& destination, bool flipColumns,
               bool flipRows);

// The interpolation codes of the resize primitives.
enum ResizeMode : int32_t {
  ResizeNearest = 1,
  ResizeLinear = 2,
  ResizeSuperSampling = 8,
  ResizeLanczos = 16,
};

// Scratch bytes that the next Resize (planeCount 1) or ResizeMultiplePlanes
// (planeCount 3) between planes of these sizes needs. superSampling selects
// mode 8 whatever mode says.
void GetResizeBufferSize(const CmPlane& source, const CmPlane& destination, uint32_t planeCount,
                         ResizeMode mode, bool superSampling, uint64_t& size);
// Resizes one plane to the destination's size; buffer holds bufferSize bytes
// of scratch, at least what GetResizeBufferSize asked for.
void Resize(const CmPlane& source, const CmWriteablePlane& destination, ResizeMode mode,
            bool superSampling, uint8_t* buffer, uint64_t bufferSize);
// Where a resize's destination lies in the whole result: a plane resized to
// fullWidth x fullHeight of which only the part from (left, top) on, as
// large as the destination, is computed and kept.
struct SmResizeTarget {
  uint64_t fullWidth, fullHeight, left, top;
};
void ResizeWindow(const CmPlane& source, const CmWriteablePlane& destination,
                  const SmResizeTarget& target, ResizeMode mode, bool superSampling,
                  uint8_t* buffer, uint64_t bufferSize);
// Resizes all planes of a planar image; each plane goes to the size of the
// destination's plane of the same index.
void ResizeMultiplePlanes(const ImImageMemoryAllocation& source,
                          ImImageMemoryAllocation& destination, ResizeMode mode, bool superSampling,
                          uint8_t* buffer, uint64_t bufferSize);

void SetAlphaChannel(ImImageMemoryAllocation& allocator, uint8_t value);
void SetPlane(uint8_t value, const CmWriteablePlane& plane);

} // namespace CmImageBufferHelpers

} // namespace NmMediaProcessing
