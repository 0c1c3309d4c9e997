#pragma once

#include <cstdint>

namespace NmMediaProcessing {

// The image form bits (interlacing and orientation) sit at the same positions
// in the 32-bit flags of a block and the 16-bit flags of a video packet.
namespace NmImageFormBits {

inline constexpr uint32_t Interlaced = 1u << 4;
inline constexpr uint32_t TopFieldFirst = 1u << 5;
inline constexpr uint32_t InterlaceLayoutShift = 6;
inline constexpr uint32_t InterlaceLayoutMask = 3u << InterlaceLayoutShift;
inline constexpr uint32_t InterlaceMask = Interlaced | TopFieldFirst | InterlaceLayoutMask;
inline constexpr uint32_t FlippedVertically = 1u << 8;
inline constexpr uint32_t FlippedHorizontally = 1u << 9;
inline constexpr uint32_t RotatedQuarterTurn = 1u << 10;
inline constexpr uint32_t PictureFormatMask =
    FlippedVertically | FlippedHorizontally | RotatedQuarterTurn;

// InterlaceLayout values that writers produce; 2 is read as interleaved.
inline constexpr uint32_t LayoutInterleaved = 0;
inline constexpr uint32_t LayoutSeparate = 1;
inline constexpr uint32_t LayoutSingleField = 3;

inline constexpr uint32_t PictureFormatCount = 16;

// Replaces the interlace bits of flags. Progressive clears them all.
uint32_t EncodeInterlacing(uint32_t flags, bool interlaced, bool topFieldFirst, uint32_t layout);
void DecodeInterlacing(uint32_t flags, bool& interlaced, bool& topFieldFirst, uint32_t& layout);

// Replaces the orientation bits of flags with those of a picture format code
// 0 to 15. Half and three-quarter turns fold into their normal form first,
// so several codes share the same bits.
uint32_t EncodePictureFormat(uint32_t flags, uint32_t pictureFormat);
// The smallest code with the orientation of the bits.
uint32_t DecodePictureFormat(uint32_t flags);

// The image attributes' interlacing numbers (0 progressive, 1/2 interleaved
// top/bottom first, 3/4 separate fields top/bottom first, 5/6 top/bottom field
// only) against the bits. InterlacingToBits refuses numbers above 6.
bool InterlacingToBits(uint32_t interlacing, bool& interlaced, bool& topFieldFirst,
                       uint32_t& layout);
uint32_t BitsToInterlacing(bool interlaced, bool topFieldFirst, uint32_t layout);

} // namespace NmImageFormBits
} // namespace NmMediaProcessing
