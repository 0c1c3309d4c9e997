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

bool CmRawVideoByteDataAccess::InitializeBlock(const CmGenericByteData& byteData, bool lenient) {
  const CmGenericVideoByteDataBlock block(byteData.GetData(), byteData.GetLength());
  if (!block.IsTypeValid()) {
    return false;
  }
  // Each check that fails ends a strict view and is passed over by a lenient one.
  uint32_t codec = 0;
  if (!ByteDataTypeToCodec(block.GetType(), codec) && !lenient) {
    return false;
  }
  if (!block.AreTimesValid() && !lenient) {
    return false;
  }
  NmTimeStamp::CmTimeStamp time;
  if (!block.GetTimeStampForImage(0, time) && !lenient) {
    return false;
  }
  const uint32_t imageCount = block.GetImageCount();
  if (imageCount == 0 && !lenient) {
    return false;
  }
  bool interlaced = false;
  bool topFieldFirst = false;
  uint32_t layout = 0;
  uint32_t pictureFormat = 0;
  if ((!block.GetInterlacing(interlaced, topFieldFirst, layout) ||
       !block.GetPictureFormat(pictureFormat)) &&
      !lenient) {
    return false;
  }
  m_Codec = codec;
  m_Time = time;
  m_ImageCount = imageCount;
  m_Sync = true;
  m_Interlaced = interlaced;
  m_TopFieldFirst = topFieldFirst;
  m_InterlaceLayout = layout;
  m_PictureFormat = pictureFormat;
  m_DataSize = block.GetPayloadLength();
  m_Data = block.GetPayload();
  return true;
}

bool CmRawVideoByteDataAccess::InitializePacket(uint8_t* data, uint64_t size, bool lenient) {
  const CmGenericVideoStreamDataPacket packet(data, size);
  if (packet.GetType() != SmByteDataType::VideoStreamDataPacket || !packet.IsTypeValid()) {
    return false;
  }
  const bool sync = packet.GetSync();
  const uint32_t codec = packet.GetCodec();
  // Every frame of an intra-only codec decodes alone; one that says otherwise
  // is damaged.
  if (!sync && IsIntraOnlyCodec(codec) && !lenient) {
    return false;
  }
  bool interlaced = false;
  bool topFieldFirst = false;
  uint32_t layout = 0;
  uint32_t pictureFormat = 0;
  if ((!packet.GetInterlacing(interlaced, topFieldFirst, layout) ||
       !packet.GetPictureFormat(pictureFormat)) &&
      !lenient) {
    return false;
  }
  m_Interlaced = interlaced;
  m_TopFieldFirst = topFieldFirst;
  m_InterlaceLayout = layout;
  m_PictureFormat = pictureFormat;
  m_Codec = codec;
  m_Time = packet.GetFrameTime();
  m_ImageCount = 1;
  m_Sync = sync;
  m_DataSize = packet.GetPayloadLength();
  m_Data = packet.GetPayload();
  return true;
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
