#include "MediaProcessing/Video/JPEG2000/VideoAnalyzerJPEG2000.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Video/JPEG2000/OpenJPEG2000.h"

namespace NmMediaProcessing {

CmVideoAnalyzerJPEG2000::CmVideoAnalyzerJPEG2000()
    : CmVideoAnalyzerJPEG2000([] { return std::make_unique<CmOpenJPEG2000>(); }) {}

CmVideoAnalyzerJPEG2000::CmVideoAnalyzerJPEG2000(
    std::function<std::unique_ptr<ImThirdPartyJPEG2000>()> makeCodec)
    : m_MakeCodec(std::move(makeCodec)) {}

bool CmVideoAnalyzerJPEG2000::Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) {
  const std::unique_ptr<ImThirdPartyJPEG2000> codec = m_MakeCodec();
  VZK_REQUIRE(codec && codec->SetData(data, size), "Null input parameters given",
              NmError::CmIntegrityErrorCode::OutOfRange);
  return codec->GetImageInfo(result.first, result.second);
}

} // namespace NmMediaProcessing
