#pragma once

#include <functional>
#include <memory>

#include "MediaProcessing/Video/JPEG2000/ThirdPartyJPEG2000.h"
#include "MediaProcessing/Video/VideoAnalyzer.h"

namespace NmMediaProcessing {

// The picture size of a JPEG 2000 frame, from its header alone.
class CmVideoAnalyzerJPEG2000 : public ImVideoAnalyzer {
public:
  // Reads with OpenJPEG.
  CmVideoAnalyzerJPEG2000();
  explicit CmVideoAnalyzerJPEG2000(
      std::function<std::unique_ptr<ImThirdPartyJPEG2000>()> makeCodec);

  // Raises an integrity error (code 3) for empty data.
  bool Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) override;

private:
  std::function<std::unique_ptr<ImThirdPartyJPEG2000>()> m_MakeCodec;
};

} // namespace NmMediaProcessing
