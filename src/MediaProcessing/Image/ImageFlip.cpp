#include "MediaProcessing/Image/ImageFlip.h"

#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"

namespace NmMediaProcessing {

namespace {

void FlipInto(const CmImage& source, CmImage& destination, CmImageBufferHelpers::FlipAxis axis) {
  destination.Allocate(source.GetWidth(), source.GetHeight(), source.GetColorFormat());
  const ImImageMemoryAllocation& from = source.Allocator();
  ImImageMemoryAllocation& to = destination.Allocator();
  for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
    CmImageBufferHelpers::FlipPlaneContents(from.GetPlane(p), to.GetWriteablePlane(p), axis);
  }
  destination.CopyAttributes(source);
}

} // namespace

void CmImageFlipVertically::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  if (source.GetColorFormat() == YCbCr420_Planar && source.GetHeight() % 2 == 1) {
    // An odd 4:2:0 height has a last chroma row that covers one luma row:
    // mirrored, it would no longer line up.
    CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, destination);
    CmImageBufferHelpers::FlipPlaneContents(destination.Allocator(),
                                            CmImageBufferHelpers::FlipRows);
  } else {
    FlipInto(source, destination, CmImageBufferHelpers::FlipRows);
  }
  destination.GetAttributes().orientation.FlipVertically();
}

void CmImageFlipHorizontally::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  const ColorFormat format = source.GetColorFormat();
  if ((format == YCbCr420_Planar || format == YCbCr422_Planar) && source.GetWidth() % 2 == 1) {
    CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, destination);
    CmImageBufferHelpers::FlipPlaneContents(destination.Allocator(),
                                            CmImageBufferHelpers::FlipColumns);
  } else {
    FlipInto(source, destination, CmImageBufferHelpers::FlipColumns);
  }
  destination.GetAttributes().orientation.FlipHorizontally();
}

} // namespace NmMediaProcessing
