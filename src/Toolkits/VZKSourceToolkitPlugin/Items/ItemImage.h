#pragma once

#include <cstdint>

#include "MediaProcessing/Image/Image.h"
#include "vzk/Data.h"

namespace NmToolkit {

// The picture of an item, whoever made it: a CmImageData of this library
// shares its image; a picture from another plug-in is copied, since its
// planes live only as long as the item and the item goes once processed.
// Throws NmError::CmError for a picture whose planes do not describe an image
// of its format and size.
//
// Pictures of other plug-ins carry no range: grey and YCbCr are taken as
// video range, which is what decoded video is.
NmMediaProcessing::CmImage ImageOfItem(const ImImage& item);

// A configuration number as a count: truncated, and anything negative, not a
// number or beyond 32 bits becomes OutOfRangeCount, which every size check
// of the transformations refuses.
inline constexpr uint64_t OutOfRangeCount = uint64_t{1} << 32;
uint64_t ConfigurationCount(double value);

} // namespace NmToolkit
