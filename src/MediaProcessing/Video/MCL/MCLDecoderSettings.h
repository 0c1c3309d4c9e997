#pragma once

#include <cstdint>

#include "MediaProcessing/Video/VideoDecodeParameters.h"

namespace NmMediaProcessing {

// The flag word an MCL decoder is initialised with, from the caller's
// parameters. Bit 2 is always set.
uint32_t MakeMCLDecoderFlags(const SmVideoDecodeParameters& parameters);

// Worker threads for an MCL decoder: a count that reads as negative asks for
// the decoder's own choice (0), anything below 2 for one.
int32_t MakeMCLThreadCount(uint32_t threadCount);

// Whether a change from `before` to `after` needs a new decoder: the settings
// that go into its flag word or thread count do; scale and output do not.
bool NeedsMCLDecoderRebuild(const SmVideoDecodeParameters& before,
                            const SmVideoDecodeParameters& after);

} // namespace NmMediaProcessing
