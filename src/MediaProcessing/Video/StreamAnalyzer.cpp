#include "MediaProcessing/Video/StreamAnalyzer.h"

#include <algorithm>
#include <string>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

void RaiseNullStreamAnalyzerInput(const char* traitsName, const char* operation, const char* file,
                                  int line) {
  const std::string function = std::string("bool NmMediaProcessing::CmStreamAnalyzer<") +
                               traitsName + ">::" + operation + "()";
  throw NmError::CmIntegrityError(NmError::MakeLocation(function.c_str(), file, line),
                                  "Null input parameters given",
                                  NmError::CmIntegrityErrorCode::OutOfRange);
}

bool CmVideoStreamAttributesAnalyzer::Analyze(const CmGenericByteData& byteData,
                                              SmVideoStreamAttributes& result) {
  if (byteData.IsRawJPEG()) {
    // A raw JPEG has no header of its own; as a one-image block it has the
    // attributes that every raw JPEG has.
    CmGenericVideoByteDataBlock block(true);
    if (!block.Allocate(byteData.GetLength()) || !block.SetType(1) ||
        !block.CopyPayloadFrom(byteData.GetData(), byteData.GetLength()) ||
        !block.SetImageCount(1)) {
      return false;
    }
    return AnalyzeBlock(block, result);
  }
  if (byteData.IsBlock()) {
    return AnalyzeBlock(byteData, result);
  }
  bool isVideo = false;
  if (byteData.IsMultiPacket()) {
    uint8_t* packet = nullptr;
    uint64_t length = 0;
    const CmGenericByteDataMultiPacket multiPacket(byteData.GetData(), byteData.GetLength());
    isVideo = multiPacket.GetVideoPacket(packet, length);
  } else {
    isVideo = byteData.GetType() == SmByteDataType::VideoStreamDataPacket;
  }
  if (!isVideo) {
    return false;
  }
  SmByteDataSequenceResult sequence;
  if (!m_Sequence.Analyze(byteData, sequence)) {
    return false;
  }
  if (sequence.m_Status == SmByteDataSequenceResult::SequenceTimeWarp && !sequence.m_Sync) {
    // Time ran backwards into a frame that depends on others: nothing known
    // about the stream holds any more.
    m_State = SmVideoStreamAttributes();
    return false;
  }
  return ReadAttributes(byteData, sequence.m_Status != SmByteDataSequenceResult::SequenceSyncLost,
                        result);
}

bool CmVideoStreamAttributesAnalyzer::AnalyzeBlock(const CmGenericByteData& byteData,
                                                   SmVideoStreamAttributes& result) {
  // A block starts its own sequence: nothing to compare with.
  return ReadAttributes(byteData, false, result);
}

bool CmVideoStreamAttributesAnalyzer::ReadAttributes(const CmGenericByteData& byteData,
                                                     bool compare,
                                                     SmVideoStreamAttributes& result) {
  const CmRawVideoByteDataAccess view(byteData, false);
  if (!view.IsValid()) {
    m_State = SmVideoStreamAttributes();
    return false;
  }
  SmVideoStreamAttributes attributes;
  attributes.m_Codec = view.GetCodec();
  attributes.m_Interlaced = view.GetInterlaced();
  attributes.m_TopFieldFirst = view.GetTopFieldFirst();
  attributes.m_InterlaceLayout = view.GetInterlaceLayout();
  attributes.m_PictureFormat = view.GetPictureFormat();
  if (!attributes.m_Interlaced &&
      (attributes.m_TopFieldFirst || attributes.m_InterlaceLayout != 0)) {
    attributes.m_Status = SmVideoStreamAttributes::AttributesContradictory;
  } else if (compare && !view.GetSync()) {
    const SmVideoStreamAttributes& last = m_State;
    if (attributes.m_Codec != last.m_Codec || attributes.m_PictureFormat != last.m_PictureFormat ||
        attributes.m_Interlaced != last.m_Interlaced ||
        attributes.m_TopFieldFirst != last.m_TopFieldFirst) {
      attributes.m_Status = SmVideoStreamAttributes::AttributesChangedInSequence;
    } else if (attributes.m_Interlaced && attributes.m_InterlaceLayout != last.m_InterlaceLayout) {
      // Layout 2 is read as interleaved, so it goes with 0.
      const uint32_t low = std::min(attributes.m_InterlaceLayout, last.m_InterlaceLayout);
      const uint32_t high = std::max(attributes.m_InterlaceLayout, last.m_InterlaceLayout);
      if (low == 0 && high == 2) {
        attributes.m_InterlaceLayout = 2;
      } else {
        attributes.m_Status = SmVideoStreamAttributes::AttributesChangedInSequence;
      }
    }
  }
  m_State = attributes;
  result = attributes;
  return true;
}

ImVideoAnalyzer& CmVideoSizeKeyFrameAnalyzer::AnalyzerFor(uint32_t codec) {
  if (!m_Analyzer || codec != m_Codec) {
    const std::unique_ptr<ImVideoFactory> factory = CmVideoFactory::CreateFromCodec(codec);
    std::unique_ptr<ImVideoAnalyzer> analyzer(factory->CreateAnalyzer());
    VZK_REQUIRE(analyzer, "No analyzer for codec", NmError::CmIntegrityErrorCode::InvalidPointer);
    m_Analyzer = std::move(analyzer);
    m_Codec = codec;
  }
  return *m_Analyzer;
}

bool CmVideoSizeKeyFrameAnalyzer::Analyze(const CmGenericByteData& byteData, SmVideoSize& result) {
  // Lenient: a record whose times are damaged still tells its codec and size.
  const CmRawVideoByteDataAccess view(byteData, true);
  if (view.GetCodec() == 0 || view.GetData() == nullptr || view.GetDataSize() == 0) {
    return false;
  }
  return AnalyzerFor(view.GetCodec()).Analyze(view.GetData(), view.GetDataSize(), result);
}

bool CmVideoSizeKeyFrameAnalyzer::AnalyzeRawData(uint32_t codec, const uint8_t* data, uint64_t size,
                                                 SmVideoSize& result) {
  if (codec == 0) {
    return false;
  }
  return AnalyzerFor(codec).Analyze(data, size, result);
}

} // namespace NmMediaProcessing
