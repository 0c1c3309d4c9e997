#pragma once

// Shared by the units of the image buffer helpers, not by their callers.

#include "MediaProcessing/Image/ImageBufferHelpers.h"

namespace NmMediaProcessing::CmImageBufferHelpers {

// The pixel layouts that the primitives know: one channel, three, three in
// four bytes, and four.
inline bool IsSupportedLayout(const CmPlane& plane) {
  return (plane.pixelStride == 1 && plane.bytesPerPixel == 1) ||
         (plane.pixelStride == 3 && plane.bytesPerPixel == 3) ||
         (plane.pixelStride == 4 && (plane.bytesPerPixel == 3 || plane.bytesPerPixel == 4));
}

} // namespace NmMediaProcessing::CmImageBufferHelpers
