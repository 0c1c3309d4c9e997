#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataSinglePacket.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitProperties.h"

namespace NmToolkit {

// One frame or piece of audio as a generic byte data single packet, with the
// bytes copied in. Its time is the packet's own, read once.
class CmToolkitMediaDataSinglePacket : public ImMediaData {
public:
  // `properties` may be null.
  CmToolkitMediaDataSinglePacket(
      const uint8_t* data, size_t size,
      std::unique_ptr<CmVZKSourceToolkitProperties> properties = nullptr);

  int64_t GetBeginTime() const override { return m_Time; }
  int64_t GetEndTime() const override { return m_Time; }
  size_t GetDataSize() const override;
  const uint8_t* GetDataPointer() const override;
  const ImProperty* GetProperty(const std::string& name) const override;
  size_t GetPayloadSize() const override;
  const uint8_t* GetPayloadPointer() const override;

  const NmMediaProcessing::CmGenericByteDataSinglePacket& GetPacket() const { return m_Packet; }

private:
  NmMediaProcessing::CmGenericByteDataSinglePacket m_Packet;
  std::unique_ptr<CmVZKSourceToolkitProperties> m_Properties;
  int64_t m_Time = 0;
  size_t m_PayloadOffset = 0;
  size_t m_PayloadSize = 0;
};

// A group of pictures as a generic byte data block, with the bytes copied in.
class CmMediaData : public ImMediaData {
public:
  CmMediaData(const uint8_t* data, size_t size,
              std::unique_ptr<CmVZKSourceToolkitProperties> properties = nullptr);

  int64_t GetBeginTime() const override { return m_BeginTime; }
  int64_t GetEndTime() const override { return m_EndTime; }
  size_t GetDataSize() const override;
  const uint8_t* GetDataPointer() const override;
  const ImProperty* GetProperty(const std::string& name) const override;
  size_t GetPayloadSize() const override;
  const uint8_t* GetPayloadPointer() const override;

  const NmMediaProcessing::CmGenericByteDataBlock& GetBlock() const { return m_Block; }

private:
  NmMediaProcessing::CmGenericByteDataBlock m_Block;
  std::unique_ptr<CmVZKSourceToolkitProperties> m_Properties;
  int64_t m_BeginTime = 0;
  int64_t m_EndTime = 0;
};

// An item made of several packets or blocks. Its data operations answer for
// the first element; its times span from the first to the last.
class CmMediaDataVector : public ImMediaDataVector {
public:
  explicit CmMediaDataVector(std::unique_ptr<CmVZKSourceToolkitProperties> properties = nullptr);

  // Takes both; `properties` (may be null) are the element's own.
  void AddElement(std::unique_ptr<ImMediaData> element,
                  std::unique_ptr<CmVZKSourceToolkitProperties> properties = nullptr);
  size_t GetElementCount() const { return m_Elements.size(); }
  const CmVZKSourceToolkitProperties* GetElementProperties(size_t index) const;
  // The frames as one block, made at the first request and kept; null when
  // there are no frames or they make no single block, which is remembered.
  const NmMediaProcessing::CmGenericByteDataBlock* GetBlock() const;

  int64_t GetBeginTime() const override;
  int64_t GetEndTime() const override;
  size_t GetDataSize() const override;
  const uint8_t* GetDataPointer() const override;
  const ImProperty* GetProperty(const std::string& name) const override;
  size_t GetPayloadSize() const override;
  const uint8_t* GetPayloadPointer() const override;
  void GetElements(std::vector<ImMediaData*>& elements) const override;

private:
  std::vector<std::unique_ptr<ImMediaData>> m_Elements;
  std::unique_ptr<CmVZKSourceToolkitProperties> m_Properties;
  std::vector<std::unique_ptr<CmVZKSourceToolkitProperties>> m_ElementProperties;
  mutable std::unique_ptr<NmMediaProcessing::CmGenericVideoByteDataBlock> m_Block;
  mutable bool m_BlockFailed = false;
};

// The elements of a vector item, or the item itself: where the records of an
// item are, whichever form it came in.
std::vector<const ImData*> ElementsOf(const ImData& item);

} // namespace NmToolkit
