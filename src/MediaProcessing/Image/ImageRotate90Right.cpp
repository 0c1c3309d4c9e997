#include "MediaProcessing/Image/ImageRotate90Right.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

void CmImageRotate90Right::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  const ColorFormat format = source.GetColorFormat();
  // 4:2:2 chroma turned would be subsampled vertically, and odd 4:2:0 sizes
  // would lose their alignment: both go through 4:4:4.
  if (format == YCbCr422_Planar ||
      (format == YCbCr420_Planar && (source.GetWidth() % 2 == 1 || source.GetHeight() % 2 == 1))) {
    CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, destination);
    Execute(destination);
    return;
  }
  VZK_REQUIRE(source.GetAttributes().interlacing == Progressive, "Cannot rotate interlaced images",
              CmIntegrityErrorCode::InvalidPointer);
  destination.Allocate(source.GetHeight(), source.GetWidth(), format);
  const ImImageMemoryAllocation& from = source.Allocator();
  ImImageMemoryAllocation& to = destination.Allocator();
  for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
    CmImageBufferHelpers::Transpose(from.GetPlane(p), to.GetWriteablePlane(p), true, false);
  }
  destination.CopyAttributes(source);
  destination.GetAttributes().orientation.AddRotation(1);
  destination.GetAttributes().aspectRatio = 1.0 / source.GetAttributes().aspectRatio;
}

} // namespace NmMediaProcessing
