#pragma once

#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/ImageFormBits.h"

namespace NmMediaProcessing {

// The interlacing and orientation accessors of a record kind whose flags field
// carries the image form bits: the block and the video packet. Each kind
// derives from this over its own base and names where its flags sit.
template <class Record, SmHeaderField Flags> class CmImageFormFields : public Record {
public:
  using Record::Record;

  // Without fields: false, and the outputs progressive and upright.
  bool GetInterlacing(bool& interlaced, bool& topFieldFirst, uint32_t& layout) const {
    NmThread::CmCriticalSection::CmScopedLock lock(this->m_Lock);
    interlaced = false;
    topFieldFirst = false;
    layout = 0;
    if (!this->CanAccessFields()) {
      return false;
    }
    NmImageFormBits::DecodeInterlacing(this->ReadField(Flags), interlaced, topFieldFirst, layout);
    return true;
  }

  bool SetInterlacing(bool interlaced, bool topFieldFirst, uint32_t layout) {
    NmThread::CmCriticalSection::CmScopedLock lock(this->m_Lock);
    if (!this->CanAccessFields() || layout > 3) {
      return false;
    }
    this->WriteField(Flags, NmImageFormBits::EncodeInterlacing(this->ReadField(Flags), interlaced,
                                                               topFieldFirst, layout));
    return true;
  }

  bool GetPictureFormat(uint32_t& pictureFormat) const {
    NmThread::CmCriticalSection::CmScopedLock lock(this->m_Lock);
    pictureFormat = 0;
    if (!this->CanAccessFields()) {
      return false;
    }
    pictureFormat = NmImageFormBits::DecodePictureFormat(this->ReadField(Flags));
    return true;
  }

  bool SetPictureFormat(uint32_t pictureFormat) {
    NmThread::CmCriticalSection::CmScopedLock lock(this->m_Lock);
    if (!this->CanAccessFields() || pictureFormat >= NmImageFormBits::PictureFormatCount) {
      return false;
    }
    this->WriteField(Flags,
                     NmImageFormBits::EncodePictureFormat(this->ReadField(Flags), pictureFormat));
    return true;
  }
};

} // namespace NmMediaProcessing
