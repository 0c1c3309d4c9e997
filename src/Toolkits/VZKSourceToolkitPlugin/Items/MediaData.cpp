#include "Toolkits/VZKSourceToolkitPlugin/Items/MediaData.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaProcessing/StreamCollector/VideoStreamConverter.h"

namespace NmToolkit {

using namespace NmMediaProcessing;

namespace {

// Milliseconds of a record time; a time that no stamp can hold reads as 0,
// as every other unreadable field of a record does.
template <typename Read> int64_t Milliseconds(Read read) {
  try {
    return read().GetMilliseconds();
  } catch (const NmError::CmError&) {
    return 0;
  }
}

const ImProperty* FindIn(const std::unique_ptr<CmVZKSourceToolkitProperties>& set,
                         const std::string& name) {
  return set ? set->GetProperty(name) : nullptr;
}

} // namespace

CmToolkitMediaDataSinglePacket::CmToolkitMediaDataSinglePacket(
    const uint8_t* data, size_t size, std::unique_ptr<CmVZKSourceToolkitProperties> properties)
    : m_Properties(std::move(properties)) {
  // Copying a view makes a deep copy that the packet owns.
  m_Packet = CmGenericByteDataSinglePacket(const_cast<uint8_t*>(data), size);
  // The kind of packet decides where its time stands and how long its header is.
  const auto readKind = [&](const auto& view, auto readTime) {
    m_Time = Milliseconds(readTime);
    if (view.GetPayload() != nullptr && view.GetData() != nullptr) {
      m_PayloadOffset = static_cast<size_t>(view.GetPayload() - view.GetData());
      m_PayloadSize = view.GetPayloadLength();
    }
  };
  if (m_Packet.GetType() == SmByteDataType::AudioStreamDataPacket) {
    CmGenericAudioStreamDataPacket audio(m_Packet.GetData(), m_Packet.GetLength());
    readKind(audio, [&] { return audio.GetTime(); });
  } else {
    CmGenericVideoStreamDataPacket video(m_Packet.GetData(), m_Packet.GetLength());
    readKind(video, [&] { return video.GetFrameTime(); });
  }
}

size_t CmToolkitMediaDataSinglePacket::GetDataSize() const {
  return m_Packet.GetLength();
}
const uint8_t* CmToolkitMediaDataSinglePacket::GetDataPointer() const {
  return m_Packet.GetData();
}
size_t CmToolkitMediaDataSinglePacket::GetPayloadSize() const {
  return m_PayloadSize;
}
const uint8_t* CmToolkitMediaDataSinglePacket::GetPayloadPointer() const {
  return m_PayloadSize == 0 ? nullptr : m_Packet.GetData() + m_PayloadOffset;
}
const ImProperty* CmToolkitMediaDataSinglePacket::GetProperty(const std::string& name) const {
  return FindIn(m_Properties, name);
}

CmMediaData::CmMediaData(const uint8_t* data, size_t size,
                         std::unique_ptr<CmVZKSourceToolkitProperties> properties)
    : m_Properties(std::move(properties)) {
  m_Block = CmGenericByteDataBlock(const_cast<uint8_t*>(data), size);
  m_BeginTime = Milliseconds([&] { return m_Block.GetBeginTime(); });
  m_EndTime = Milliseconds([&] { return m_Block.GetEndTime(); });
}

size_t CmMediaData::GetDataSize() const {
  return m_Block.GetLength();
}
const uint8_t* CmMediaData::GetDataPointer() const {
  return m_Block.GetData();
}
size_t CmMediaData::GetPayloadSize() const {
  return m_Block.GetPayloadLength();
}
const uint8_t* CmMediaData::GetPayloadPointer() const {
  return m_Block.GetPayload();
}
const ImProperty* CmMediaData::GetProperty(const std::string& name) const {
  return FindIn(m_Properties, name);
}

CmMediaDataVector::CmMediaDataVector(std::unique_ptr<CmVZKSourceToolkitProperties> properties)
    : m_Properties(std::move(properties)) {}

void CmMediaDataVector::AddElement(std::unique_ptr<ImMediaData> element,
                                   std::unique_ptr<CmVZKSourceToolkitProperties> properties) {
  m_Elements.push_back(std::move(element));
  m_ElementProperties.push_back(std::move(properties));
}

const CmVZKSourceToolkitProperties* CmMediaDataVector::GetElementProperties(size_t index) const {
  return index < m_ElementProperties.size() ? m_ElementProperties[index].get() : nullptr;
}

int64_t CmMediaDataVector::GetBeginTime() const {
  return m_Elements.empty() ? 0 : m_Elements.front()->GetBeginTime();
}
int64_t CmMediaDataVector::GetEndTime() const {
  return m_Elements.empty() ? 0 : m_Elements.back()->GetEndTime();
}
size_t CmMediaDataVector::GetDataSize() const {
  return m_Elements.empty() ? 0 : m_Elements.front()->GetDataSize();
}
const uint8_t* CmMediaDataVector::GetDataPointer() const {
  return m_Elements.empty() ? nullptr : m_Elements.front()->GetDataPointer();
}
size_t CmMediaDataVector::GetPayloadSize() const {
  return m_Elements.empty() ? 0 : m_Elements.front()->GetPayloadSize();
}
const uint8_t* CmMediaDataVector::GetPayloadPointer() const {
  return m_Elements.empty() ? nullptr : m_Elements.front()->GetPayloadPointer();
}
const ImProperty* CmMediaDataVector::GetProperty(const std::string& name) const {
  return FindIn(m_Properties, name);
}
const NmMediaProcessing::CmGenericByteDataBlock* CmMediaDataVector::GetBlock() const {
  if (m_Block || m_BlockFailed || m_Elements.empty()) {
    return m_Block.get();
  }
  std::vector<NmMediaProcessing::SmRecordBytes> records;
  for (const auto& element : m_Elements) {
    records.emplace_back(element->GetDataPointer(), element->GetDataSize());
  }
  try {
    // Legacy JPEG has no time of its own and takes the vector's. Frames that
    // the analysers cannot take make no block, as a null result does; neither
    // is tried again.
    m_Block = NmMediaProcessing::CmVideoStreamConverter().Convert(
        records, NmTimeStamp::CmTimeStamp::FromMilliseconds(GetBeginTime()), false, true, false);
  } catch (const NmError::CmError&) {
    m_Block.reset();
  }
  m_BlockFailed = !m_Block;
  return m_Block.get();
}

void CmMediaDataVector::GetElements(std::vector<ImMediaData*>& elements) const {
  elements.clear();
  for (const auto& element : m_Elements) {
    elements.push_back(element.get());
  }
}

std::vector<const ImData*> ElementsOf(const ImData& item) {
  std::vector<const ImData*> elements;
  if (const auto* vector = dynamic_cast<const ImMediaDataVector*>(&item)) {
    std::vector<ImMediaData*> media;
    vector->GetElements(media);
    elements.assign(media.begin(), media.end());
  } else {
    elements.push_back(&item);
  }
  return elements;
}

} // namespace NmToolkit
