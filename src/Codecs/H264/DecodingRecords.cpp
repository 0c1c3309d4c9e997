#include "Codecs/H264/DecodingRecords.h"

#include <algorithm>

namespace NmH264 {

CmDecodingRecords::CmLease CmDecodingRecords::Lend(CmPicture& picture) {
  const size_t count = size_t{picture.GetWidthInMbs()} * picture.GetHeightInMbs();
  // Filled, not assigned: a shrinking picture keeps the memory for the
  // next large one, and a record nobody decoded reads as blank.
  if (m_Records.size() < count) {
    m_Records.resize(count);
  }
  std::fill_n(m_Records.begin(), count, SmMacroblockInfo());
  picture.LendMacroblocks(m_Records.data());
  return CmLease(picture);
}

} // namespace NmH264
