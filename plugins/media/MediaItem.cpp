#include "MediaItem.h"

#include <algorithm>

#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"

namespace NmMedia {

namespace {

size_t HeaderLength(const std::vector<uint8_t>& bytes) {
  using NmMediaProcessing::SmByteDataType;
  if (bytes.size() < 2) {
    return 0;
  }
  const int type = bytes[0] << 8 | bytes[1];
  const size_t header = type == SmByteDataType::AudioStreamDataPacket
                            ? NmMediaProcessing::CmGenericAudioStreamDataPacket::HeaderLength
                            : NmMediaProcessing::CmGenericVideoStreamDataPacket::HeaderLength;
  return std::min(header, bytes.size());
}

} // namespace

CmMediaItem::CmMediaItem(std::vector<uint8_t> bytes, int64_t time)
    : m_Bytes(std::move(bytes)), m_Time(time), m_HeaderLength(HeaderLength(m_Bytes)) {}

const NmToolkit::ImProperty* CmMediaItem::GetProperty(const std::string& name) const {
  const auto found = m_Properties.find(name);
  return found == m_Properties.end() ? nullptr : found->second.get();
}

void CmMediaItem::SetProperty(const std::string& name,
                              std::unique_ptr<NmToolkit::ImProperty> property) {
  m_Properties[name] = std::move(property);
}

} // namespace NmMedia
