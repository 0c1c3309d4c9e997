#include "Codecs/H264/DecodingRecords.h"

namespace NmH264 {

CmDecodingRecords::CmLease CmDecodingRecords::Lend(CmPicture& picture) {
  const size_t count = size_t{picture.GetWidthInMbs()} * picture.GetHeightInMbs();
  // A shrinking picture keeps the memory for the next large one.
  if (m_Records.size() < count) {
    m_Records.resize(count);
  }
  // One word a record, not the whole record: a picture's records are
  // larger than the second-level cache, and clearing them all before
  // decoding cost a pass through memory that the decoding makes again.
  SmMacroblockInfo* records = m_Records.data();
  for (size_t k = 0; k < count; ++k) {
    records[k].slice = UntouchedSlice;
  }
  picture.LendMacroblocks(records);
  return CmLease(picture);
}

} // namespace NmH264
