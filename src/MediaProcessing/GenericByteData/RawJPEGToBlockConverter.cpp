#include "MediaProcessing/GenericByteData/RawJPEGToBlockConverter.h"

#include <exception>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"

namespace NmMediaProcessing {

std::unique_ptr<CmGenericVideoByteDataBlock>
CmRawJPEGToBlockConverter::Convert(const uint8_t* data, uint64_t size,
                                   const NmTimeStamp::CmTimeStamp& time, bool readImageSize) const {
  VZK_REQUIRE(!readImageSize || m_SizeAnalyzer != nullptr,
              "No JPEG size analyser to read the image size with",
              NmError::CmIntegrityErrorCode::NotImplemented);
  constexpr uint64_t MinimumRawJPEGLength = 6;
  if (data == nullptr || size < MinimumRawJPEGLength || data[0] != 0xFF || data[1] != 0xD8) {
    return nullptr;
  }
  try {
    uint32_t width = 0;
    uint32_t height = 0;
    if (readImageSize && !m_SizeAnalyzer->GetImageSize(data, size, width, height)) {
      return nullptr;
    }
    auto block = std::make_unique<CmGenericVideoByteDataBlock>(true);
    if (!block->Allocate(size) || !block->CopyPayloadFrom(data, size) || !block->SetType(1)) {
      return nullptr;
    }
    if (readImageSize && (!block->SetImageWidth(width) || !block->SetImageHeight(height) ||
                          !block->SetComponentCount(3))) {
      return nullptr;
    }
    if (!block->SetImageCount(1) || !block->SetBeginTime(time) || !block->SetEndTime(time) ||
        !block->SetEndTimeExclusive(false) || !block->AreTimesValid()) {
      return nullptr;
    }
    return block;
  } catch (const std::exception&) {
    return nullptr;
  }
}

} // namespace NmMediaProcessing
