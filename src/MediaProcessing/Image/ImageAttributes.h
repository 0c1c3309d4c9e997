#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/Image/ImageTypes.h"

namespace NmMediaProcessing {

// Extended attributes that travel with an image; the image owns and clones them.
class ImImageAttributes {
public:
  virtual ~ImImageAttributes() = default;
  virtual ImImageAttributes* Clone() const = 0;
};

class CmStandardImageAttributes : public ImImageAttributes {
public:
  CmStandardImageAttributes* Clone() const override { return new CmStandardImageAttributes(*this); }

  NmTimeStamp::CmTimeStamp timeStamp;
  uint32_t attribute0 = 0; // carried and copied, no meaning here
  Interlacing interlacing = Progressive;
  uint32_t attribute1 = 0;
  Orientation orientation;
  uint32_t attribute2 = 0;
  SubColorFormat subColorFormat = NotApplicable;
  double aspectRatio = 1.0; // width of a pixel over its height
  uint64_t attribute3 = 0;
};

} // namespace NmMediaProcessing
