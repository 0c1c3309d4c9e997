#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"

namespace NmMediaProcessing {

// One read-only view of any record that carries video: raw JPEG, block,
// video packet, or the first video packet of a multi packet. It refers to the
// record's bytes and owns nothing, so it is valid as long as they are.
//
// A strict view refuses a record whose facts contradict each other; a lenient
// one keeps what can be read, so that an analysis can still get at the codec
// and the payload of a damaged record.
class CmRawVideoByteDataAccess {
public:
  CmRawVideoByteDataAccess() = default;
  CmRawVideoByteDataAccess(const CmGenericByteData& byteData, bool lenient);

  void Initialize(const CmGenericByteData& byteData);
  void Initialize(const CmGenericByteData& byteData, bool lenient);

  bool IsValid() const { return m_Data != nullptr; }

  const uint8_t* GetData() const { return m_Data; }
  uint64_t GetDataSize() const { return m_DataSize; }
  const uint8_t* GetRawData() const { return m_RawData; }
  uint64_t GetRawSize() const { return m_RawSize; }
  uint32_t GetCodec() const { return m_Codec; }
  uint32_t GetPictureFormat() const { return m_Form.pictureFormat; }
  bool GetInterlaced() const { return m_Form.interlaced; }
  bool GetTopFieldFirst() const { return m_Form.topFieldFirst; }
  uint32_t GetInterlaceLayout() const { return m_Form.layout; }
  const NmTimeStamp::CmTimeStamp& GetTime() const { return m_Time; }
  uint64_t GetImageCount() const { return m_ImageCount; }
  bool GetSync() const { return m_Sync; }
  bool IsLenient() const { return m_Lenient; }

  // Raises an integrity error for an index beyond the images of the view.
  bool GetTimeStampForImage(uint64_t index, NmTimeStamp::CmTimeStamp& timeOut) const;

private:
  // The image form bits of a block or a video packet.
  struct SmImageForm {
    bool interlaced = false;
    bool topFieldFirst = false;
    uint32_t layout = 0;
    uint32_t pictureFormat = 0;
  };
  struct SmVideoFacts {
    uint32_t codec = 0;
    NmTimeStamp::CmTimeStamp time;
    uint64_t imageCount = 0;
    bool sync = false;
    SmImageForm form;
  };

  void Reset();
  bool InitializeBlock(const CmGenericByteData& byteData, bool lenient);
  bool InitializePacket(uint8_t* data, uint64_t size, bool lenient);
  template <class Record> static bool ReadImageForm(const Record& record, SmImageForm& form);
  // Takes up a record whose checks passed (or were passed over).
  bool Take(const SmVideoFacts& facts, const CmGenericByteData& record);

  const uint8_t* m_Data = nullptr;
  uint64_t m_DataSize = 0;
  const uint8_t* m_RawData = nullptr;
  uint64_t m_RawSize = 0;
  uint32_t m_Codec = 0;
  SmImageForm m_Form;
  NmTimeStamp::CmTimeStamp m_Time;
  uint64_t m_ImageCount = 0;
  bool m_Sync = false;
  bool m_Lenient = false;
};

} // namespace NmMediaProcessing
