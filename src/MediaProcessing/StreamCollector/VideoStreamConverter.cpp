#include "MediaProcessing/StreamCollector/VideoStreamConverter.h"

namespace NmMediaProcessing {

CmVideoBlockPointer<CmVideoStreamConverterImpl::Count>
CmVideoStreamConverterImpl::Collect(const std::vector<SmRecordBytes>& records,
                                    const NmTimeStamp::CmTimeStamp& time, bool endTimeIsLastFrame,
                                    bool keyFramesOnly) {
  SetEndTimeIsLastFrame(endTimeIsLastFrame);
  ClearLastError();
  SetKeyFramesOnly(keyFramesOnly);
  SetExplicitTime(time);
  for (const auto& [bytes, length] : records) {
    if (bytes == nullptr || length == 0) {
      return {};
    }
    // The records are the caller's and live through the call; the
    // collector only views them.
    const CmByteDataPointer<Count> record(
        new CmGenericByteData(const_cast<uint8_t*>(bytes), length));
    if (!HandleData(record)) {
      return {};
    }
  }
  FlushGOP();
  ClearLastError();
  if (GetBlockCount() == 0) {
    return {};
  }
  CmVideoBlockPointer<Count> block = RetrieveBlock();
  // This door converts exactly one GOP.
  return GetBlockCount() == 0 ? block : CmVideoBlockPointer<Count>();
}

std::unique_ptr<CmGenericVideoByteDataBlock>
CmVideoStreamConverterImpl::Convert(const std::vector<SmRecordBytes>& records,
                                    const NmTimeStamp::CmTimeStamp& time, bool copyIfNotOwned,
                                    bool endTimeIsLastFrame, bool keyFramesOnly) {
  if (records.empty()) {
    return nullptr;
  }
  CmVideoBlockPointer<Count> block;
  try {
    block = Collect(records, time, endTimeIsLastFrame, keyFramesOnly);
  } catch (...) {
    Reset();
    throw;
  }
  Reset();
  if (!block) {
    return nullptr;
  }
  if (!block->GetOwnsBuffer() && copyIfNotOwned) {
    block = CmVideoBlockPointer<Count>(new CmGenericVideoByteDataBlock(*block));
  }
  // The caller's block takes the bytes over from the collector's.
  auto result = std::make_unique<CmGenericVideoByteDataBlock>(block->GetData(), block->GetLength());
  const bool ownsBuffer = block->GetOwnsBuffer();
  block->SetOwnsBuffer(false);
  block->SetFreeOnDestruction(false);
  result->SetFreeOnDestruction(true);
  result->SetOwnsBuffer(ownsBuffer);
  return result;
}

CmVideoStreamConverter::CmVideoStreamConverter()
    : m_Impl(std::make_unique<CmVideoStreamConverterImpl>()) {}

CmVideoStreamConverter::~CmVideoStreamConverter() = default;

std::unique_ptr<CmGenericVideoByteDataBlock>
CmVideoStreamConverter::Convert(const std::vector<SmRecordBytes>& records,
                                const NmTimeStamp::CmTimeStamp& time, bool copyIfNotOwned,
                                bool endTimeIsLastFrame, bool keyFramesOnly) {
  return m_Impl->Convert(records, time, copyIfNotOwned, endTimeIsLastFrame, keyFramesOnly);
}

} // namespace NmMediaProcessing
