#pragma once

#include <cstdint>

namespace NmPrimitives {

// Natural (row-major) position of the k-th coefficient in zig-zag order. The
// 16 entries past 63 absorb a run that overshoots the block in a damaged
// stream: they all land on 63 instead of outside the block.
extern const uint8_t kJPEGNaturalOrder[64 + 16];

} // namespace NmPrimitives
