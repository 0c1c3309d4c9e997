#pragma once

#include <cstdint>

#include "MediaProcessing/Image/Image.h"

namespace NmMediaProcessing {

// Nearest-neighbour scaling with pixel centres aligned, for overlays and
// masks: it only ever repeats or drops samples, so a colour key and a mask
// value survive it exactly. Chroma planes of 4:2:0 and 4:2:2 take the sizes
// that belong to the target size. The same size gives a shared copy. The pixel aspect ratio
// changes with the stretch, so the picture keeps its shape on screen.
void ResizeOverlayNearest(const CmImage& source, uint64_t width, uint64_t height,
                          CmImage& result);

// The same on single planes of any pixel stride.
void ResizePlaneNearest(const ImImageMemoryAllocation::CmPlane& source,
                        const ImImageMemoryAllocation::CmWriteablePlane& destination);

} // namespace NmMediaProcessing
