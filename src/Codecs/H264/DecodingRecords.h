#pragma once

#include <vector>

#include "Codecs/H264/Picture.h"

namespace NmH264 {

// The full macroblock records of a picture in decoding. Decoding, the loop
// filter behind it and concealment read and write them; once the picture is
// done only its motion record stays. So one set serves each picture in
// flight, reused picture after picture, instead of one per stored frame.
class CmDecodingRecords {
public:
  // For as long as it lives, the picture holds the records, cleared.
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
