#pragma once

#include "Common/CountedPtr/CountedPtr.h"
#include "MediaProcessing/StreamCollector/VideoGOPLimiter.h"

namespace NmMediaProcessing {

// The collector as the converter uses it: on one thread, with the limits of
// the block header.
struct SmVideoStreamConverterTraits {
  static constexpr const char* Name = "struct NmMediaProcessing::SmVideoStreamConverterTraits";
  using ReferenceCount = NmCountedPtr::CmUnserializedReferenceCount;
  using Limits = CmVideoBlockGOPLimits;
};

} // namespace NmMediaProcessing
