#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace NmMedia {

// Whether an H.263 picture is intra coded, from its picture header (ITU-T
// H.263 5.1: PTYPE, and PLUSPTYPE for H.263 version 2). Containers often mark
// every H.263 frame a key frame, which would let a host start decoding at a
// predicted picture. Nothing when the bytes do not start with a picture header.
std::optional<bool> IsIntraH263Picture(const uint8_t* data, size_t size);

// The same for MPEG-4 part 2, from the coding type of the first video object
// plane (ISO/IEC 14496-2 6.2.5), which must also be coded; reading that flag
// needs the width of vop_time_increment, from the layer's header in the data
// or else as given. Nothing when the bytes hold no plane.
std::optional<bool> IsIntraMPEG4Picture(const uint8_t* data, size_t size,
                                        std::optional<unsigned> timeIncrementBits = {});

// The width of vop_time_increment from the first video object layer header
// in the data; nothing without one.
std::optional<unsigned> MPEG4TimeIncrementBits(const uint8_t* data, size_t size);

} // namespace NmMedia
