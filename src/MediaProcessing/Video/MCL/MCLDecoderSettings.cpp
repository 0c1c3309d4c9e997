#include "MediaProcessing/Video/MCL/MCLDecoderSettings.h"

#include "Codecs/MCL/VideoDecoderParams.h"

namespace NmMediaProcessing {

uint32_t MakeMCLDecoderFlags(const SmVideoDecodeParameters& parameters) {
  using Params = MCL::VideoDecoderParams;
  uint32_t flags = Params::FlagBase;
  if (parameters.m_LowDelay) {
    flags |= Params::FlagLowDelay;
  }
  if (parameters.m_DecodeMode == SmVideoDecodeParameters::DecodeSyncFramesOnly) {
    flags |= Params::FlagSyncFramesOnly;
  }
  if (parameters.m_DecodeMode == SmVideoDecodeParameters::DecodeReduced) {
    flags |= Params::FlagReducedDecoding;
  }
  if (parameters.m_FilterMode == 1) {
    flags |= Params::FlagFilterMode;
  }
  if (parameters.m_LuminanceOnly) {
    flags |= Params::FlagLuminanceOnly;
  }
  return flags;
}

int32_t MakeMCLThreadCount(uint32_t threadCount) {
  const auto count = static_cast<int32_t>(threadCount);
  if (count < 0) {
    return 0;
  }
  return count < 2 ? 1 : count;
}

bool NeedsMCLDecoderRebuild(const SmVideoDecodeParameters& before,
                            const SmVideoDecodeParameters& after) {
  return before.m_LowDelay != after.m_LowDelay || before.m_DecodeMode != after.m_DecodeMode ||
         before.m_FilterMode != after.m_FilterMode ||
         before.m_LuminanceOnly != after.m_LuminanceOnly ||
         before.m_ThreadCount != after.m_ThreadCount;
}

} // namespace NmMediaProcessing
