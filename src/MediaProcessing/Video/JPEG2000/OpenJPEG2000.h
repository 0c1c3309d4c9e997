#pragma once

#include <cstdint>
#include <string>

#include "MediaProcessing/Video/JPEG2000/ThirdPartyJPEG2000.h"

namespace NmMediaProcessing {

// JPEG 2000 through OpenJPEG: raw codestreams (J2K) and JP2 files. Pictures
// leave as 8-bit samples: grey, YCbCr planes when the chroma components are
// subsampled or the file says sYCC, otherwise RGB, with alpha when there is a
// fourth component. Nothing here throws: every failure is false, and the
// library's last complaint is kept for whoever wants to know why.
class CmOpenJPEG2000 : public CmThirdPartyJPEG2000 {
public:
  // Pictures beyond this many pixels are refused before anything is
  // allocated for them: a header alone must not be able to exhaust memory.
  static constexpr uint64_t MaxPixelCount = 1ULL << 26;

  bool GetImageInfo(uint64_t& width, uint64_t& height) override;
  bool DecodeImage(CmImage& image) override;

  const std::string& GetLastMessage() const { return m_LastMessage; }

private:
  std::string m_LastMessage;
};

} // namespace NmMediaProcessing
