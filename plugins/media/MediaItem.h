#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NmMedia {

// The header length of a video or an audio stream data packet, cut to the
// bytes there are.
size_t PacketHeaderLength(const std::vector<uint8_t>& bytes);

} // namespace NmMedia
