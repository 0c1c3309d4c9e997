#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMediaProcessing {

CmRawVideoByteDataAccess::CmRawVideoByteDataAccess(const CmGenericByteData& byteData, bool lenient)
    : m_Lenient(lenient) {
  Initialize(byteData, lenient);
}

void CmRawVideoByteDataAccess::Initialize(const CmGenericByteData& byteData) {
  Initialize(byteData, false);
}

void CmRawVideoByteDataAccess::Reset() {
  *this = CmRawVideoByteDataAccess();
}

void CmRawVideoByteDataAccess::Initialize(const CmGenericByteData& byteData, bool lenient) {
  Reset();
  m_Lenient = lenient;
  // The raw record is known even when the view turns out invalid.
  m_RawData = byteData.GetData();
  m_RawSize = byteData.GetLength();
  if (byteData.IsEmpty()) {
    return;
  }
  if (byteData.IsRawJPEG()) {
    m_Data = m_RawData;
    m_DataSize = m_RawSize;
    m_Codec = SmVideoCodec::JPEG;
    // A raw JPEG carries no time; the moment of viewing stands in for it.
    m_Time.SetCurrentTime();
    m_ImageCount = 1;
    m_Sync = true;
    return;
  }
  if (byteData.IsBlock()) {
    InitializeBlock(byteData, lenient);
    return;
  }
  if (byteData.IsMultiPacket()) {
    const CmGenericByteDataMultiPacket multiPacket(byteData.GetData(), byteData.GetLength());
    uint8_t* packet = nullptr;
    uint64_t packetLength = 0;
    if (multiPacket.GetVideoPacket(packet, packetLength)) {
      InitializePacket(packet, packetLength, lenient);
    }
    return;
  }
  if (byteData.IsPacket()) {
    InitializePacket(byteData.GetData(), byteData.GetLength(), lenient);
  }
}

template <class Record>
bool CmRawVideoByteDataAccess::ReadImageForm(const Record& record, SmImageForm& form) {
  return record.GetInterlacing(form.interlaced, form.topFieldFirst, form.layout) &&
         record.GetPictureFormat(form.pictureFormat);
}

bool CmRawVideoByteDataAccess::Take(const SmVideoFacts& facts, const CmGenericByteData& record) {
  m_Codec = facts.codec;
  m_Time = facts.time;
  m_ImageCount = facts.imageCount;
  m_Sync = facts.sync;
  m_Form = facts.form;
  m_DataSize = record.GetPayloadLength();
  m_Data = record.GetPayload();
  return true;
}

bool CmRawVideoByteDataAccess::InitializeBlock(const CmGenericByteData& byteData, bool lenient) {
  const CmGenericVideoByteDataBlock block(byteData.GetData(), byteData.GetLength());
  if (!block.IsTypeValid()) {
    return false;
  }
  // Each check that fails ends a strict view and is passed over by a lenient one.
  SmVideoFacts facts;
  facts.sync = true;
  if (!ByteDataTypeToCodec(block.GetType(), facts.codec) && !lenient) {
    return false;
  }
  if (!block.AreTimesValid() && !lenient) {
    return false;
  }
  if (!block.GetTimeStampForImage(0, facts.time) && !lenient) {
    return false;
  }
  facts.imageCount = block.GetImageCount();
  if (facts.imageCount == 0 && !lenient) {
    return false;
  }
  if (!ReadImageForm(block, facts.form) && !lenient) {
    return false;
  }
  return Take(facts, block);
}

bool CmRawVideoByteDataAccess::InitializePacket(uint8_t* data, uint64_t size, bool lenient) {
  const CmGenericVideoStreamDataPacket packet(data, size);
  if (packet.GetType() != SmByteDataType::VideoStreamDataPacket || !packet.IsTypeValid()) {
    return false;
  }
  SmVideoFacts facts;
  facts.sync = packet.GetSync();
  facts.codec = packet.GetCodec();
  // Every frame of an intra-only codec decodes alone; one that says otherwise
  // is damaged.
  if (!facts.sync && IsIntraOnlyCodec(facts.codec) && !lenient) {
    return false;
  }
  if (!ReadImageForm(packet, facts.form) && !lenient) {
    return false;
  }
  facts.time = packet.GetFrameTime();
  facts.imageCount = 1;
  return Take(facts, packet);
}

bool CmRawVideoByteDataAccess::GetTimeStampForImage(uint64_t index,
                                                    NmTimeStamp::CmTimeStamp& timeOut) const {
  VZK_REQUIRE(index < m_ImageCount, "Invalid image index",
              NmError::CmIntegrityErrorCode::InvalidArgument);
  if (index == 0) {
    timeOut = m_Time;
    return true;
  }
  // Only a block holds more than one image.
  const CmGenericVideoByteDataBlock block(const_cast<uint8_t*>(m_RawData), m_RawSize);
  return block.GetTimeStampForImage(index, timeOut);
}

} // namespace NmMediaProcessing
