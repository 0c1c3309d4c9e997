#pragma once

#include <cstdint>
#include <memory>

#include "Common/Error/Error.h"

#include "Codecs/MCL/VideoProcessing.h"

namespace NmMediaProcessing {

// The post-processing stage the adapter hands to an MCL decoder: it takes each
// decoded picture into the CmImage behind the output wrapper, shrunk by the
// scale divisor and reduced to luminance when asked, or only notes its time
// when no image is wanted.
class CmSpecialMCLVideoDecoderProcessing : public MCL::VideoProcessing {
public:
  MCL::Status Init(const MCL::VideoProcessingParams& params) override;
  // input: the decoded picture, an MCL::VideoData. output: a
  // CmMCLVideoDataWrapper. -995 when either is not what it must be, -883 when
  // memory runs out, -999 on any other failure.
  MCL::Status GetFrame(MCL::MediaData* input, MCL::MediaData* output) override;

  // 0 counts as 1.
  void SetScaleDivisor(uint64_t divisor) { m_ScaleDivisor = divisor == 0 ? 1 : divisor; }
  uint64_t GetScaleDivisor() const { return m_ScaleDivisor; }
  void SetSkipOutput(bool skip) { m_SkipOutput = skip; }
  bool GetSkipOutput() const { return m_SkipOutput; }
  void SetLuminanceOnly(bool luminanceOnly) { m_LuminanceOnly = luminanceOnly; }
  bool GetLuminanceOnly() const { return m_LuminanceOnly; }
  // True once a picture has gone through since Init.
  bool IsActive() const { return m_Active; }
  // The refusal of the last picture that the caller's image could not take
  // (an odd size in an even-only format), once; null when there was none.
  std::unique_ptr<NmError::CmIntegrityError> TakeRefusal() { return std::move(m_Refusal); }

private:
  uint64_t m_ScaleDivisor = 1;
  bool m_SkipOutput = false;
  bool m_LuminanceOnly = false;
  bool m_Active = false;
  std::unique_ptr<NmError::CmIntegrityError> m_Refusal;
};

} // namespace NmMediaProcessing
