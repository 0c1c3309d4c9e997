#include "MediaProcessing/GenericByteData/ImageFormBits.h"

namespace NmMediaProcessing::NmImageFormBits {

namespace {

struct SmOrientation {
  uint32_t quarterTurns;
  bool flippedVertically;
  bool flippedHorizontally;
};

// The orientation that each picture format code stands for.
constexpr SmOrientation Orientations[PictureFormatCount] = {
    {0, false, false}, {0, true, false},  {0, false, true},  {0, true, true},
    {1, false, false}, {2, false, false}, {3, false, false}, {1, true, false},
    {2, true, false},  {3, true, false},  {1, false, true},  {2, false, true},
    {3, false, true},  {1, true, true},   {2, true, true},   {3, true, true},
};

// Indexed by the bits (vertically, horizontally, rotated) read as a number
// with vertically as the lowest bit.
constexpr uint32_t CanonicalCodes[8] = {0, 1, 2, 3, 4, 7, 10, 13};

} // namespace

uint32_t EncodeInterlacing(uint32_t flags, bool interlaced, bool topFieldFirst, uint32_t layout) {
  flags &= ~InterlaceMask;
  if (interlaced) {
    flags |= Interlaced | ((layout << InterlaceLayoutShift) & InterlaceLayoutMask);
    if (topFieldFirst) {
      flags |= TopFieldFirst;
    }
  }
  return flags;
}

void DecodeInterlacing(uint32_t flags, bool& interlaced, bool& topFieldFirst, uint32_t& layout) {
  interlaced = (flags & Interlaced) != 0;
  topFieldFirst = (flags & TopFieldFirst) != 0;
  layout = (flags & InterlaceLayoutMask) >> InterlaceLayoutShift;
}

uint32_t EncodePictureFormat(uint32_t flags, uint32_t pictureFormat) {
  SmOrientation o = Orientations[pictureFormat % PictureFormatCount];
  // Only a quarter turn fits the wire: a half turn equals both flips.
  if (o.quarterTurns >= 2) {
    o.quarterTurns -= 2;
    o.flippedVertically = !o.flippedVertically;
    o.flippedHorizontally = !o.flippedHorizontally;
  }
  flags &= ~PictureFormatMask;
  if (o.flippedVertically) {
    flags |= FlippedVertically;
  }
  if (o.flippedHorizontally) {
    flags |= FlippedHorizontally;
  }
  if (o.quarterTurns == 1) {
    flags |= RotatedQuarterTurn;
  }
  return flags;
}

uint32_t DecodePictureFormat(uint32_t flags) {
  const uint32_t index = ((flags & FlippedVertically) ? 1u : 0u) |
                         ((flags & FlippedHorizontally) ? 2u : 0u) |
                         ((flags & RotatedQuarterTurn) ? 4u : 0u);
  return CanonicalCodes[index];
}

bool InterlacingToBits(uint32_t interlacing, bool& interlaced, bool& topFieldFirst,
                       uint32_t& layout) {
  if (interlacing > 6) {
    return false;
  }
  interlaced = interlacing != 0;
  topFieldFirst = interlacing % 2 == 1;
  layout = 0;
  if (interlacing == 3 || interlacing == 4) {
    layout = LayoutSeparate;
  } else if (interlacing == 5 || interlacing == 6) {
    layout = LayoutSingleField;
  }
  return true;
}

uint32_t BitsToInterlacing(bool interlaced, bool topFieldFirst, uint32_t layout) {
  if (!interlaced) {
    return 0;
  }
  const uint32_t bottom = topFieldFirst ? 0 : 1;
  switch (layout) {
  case LayoutSeparate:
    return 3 + bottom;
  case LayoutSingleField:
    return 5 + bottom;
  default:
    return 1 + bottom;
  }
}

} // namespace NmMediaProcessing::NmImageFormBits
