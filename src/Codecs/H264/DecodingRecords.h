#pragma once

#include <vector>

#include "Codecs/H264/Picture.h"

namespace NmH264 {

// The slice number of a record that no macroblock of the picture in decoding
// has written yet. Every macroblock that decodes clears its whole record
// first, so only the slice number has to be set before a picture: the rest
// still holds what an earlier picture left, which concealment clears for
// the records that stay untouched. Readers that look for "not decoded"
// take it like 0: it matches no slice and indexes no slice's parameters.
inline constexpr uint32_t UntouchedSlice = ~0u;

// The full macroblock records of a picture in decoding. Decoding, the loop
// filter behind it and concealment read and write them; once the picture is
// done only its motion record stays. So one set serves each picture in
// flight, reused picture after picture, instead of one per stored frame.
class CmDecodingRecords {
public:
  // For as long as it lives, the picture holds the records, each marked
  // untouched.
  class CmLease {
  public:
    CmLease(const CmLease&) = delete;
    CmLease& operator=(const CmLease&) = delete;
    ~CmLease() { m_Picture.LendMacroblocks(nullptr); }

  private:
    friend class CmDecodingRecords;
    explicit CmLease(CmPicture& picture) : m_Picture(picture) {}
    CmPicture& m_Picture;
  };

  [[nodiscard]] CmLease Lend(CmPicture& picture);

private:
  std::vector<SmMacroblockInfo> m_Records;
};

} // namespace NmH264
