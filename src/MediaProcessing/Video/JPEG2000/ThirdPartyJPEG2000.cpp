#include "MediaProcessing/Video/JPEG2000/ThirdPartyJPEG2000.h"

namespace NmMediaProcessing {

bool CmThirdPartyJPEG2000::SetData(const uint8_t* data, uint64_t size) {
  if (data == nullptr || size == 0) {
    return false;
  }
  m_Data = data;
  m_Size = size;
  return true;
}

bool CmDummyJPEG2000::GetImageInfo(uint64_t& /*width*/, uint64_t& /*height*/) {
  return false;
}

bool CmDummyJPEG2000::DecodeImage(CmImage& /*image*/) {
  return false;
}

} // namespace NmMediaProcessing
