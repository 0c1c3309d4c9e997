#include "Codecs/H264/DecodingRecords.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace NmH264 {

namespace {

// Writes blank records past the caches: a picture's records are larger
// than the second-level cache, so storing them through it would only evict
// what decoding needs (reference samples, the row above) in exchange for
// lines that the macroblocks fetch again much later anyway.
void FillBlank(SmMacroblockInfo* records, size_t count) {
  static const SmMacroblockInfo Blank{};
#if defined(__SSE2__)
  constexpr size_t Vectors = (sizeof(SmMacroblockInfo) + 15) / 16;
  if constexpr (sizeof(SmMacroblockInfo) % 16 == 0) {
    if (reinterpret_cast<uintptr_t>(records) % 16 == 0) {
      __m128i pattern[Vectors];
      std::memcpy(pattern, &Blank, sizeof Blank);
      auto* out = reinterpret_cast<__m128i*>(records);
      for (size_t k = 0; k < count; ++k, out += Vectors) {
        for (size_t v = 0; v < Vectors; ++v) {
          _mm_stream_si128(out + v, pattern[v]);
        }
      }
      // Streamed stores are weakly ordered: they must be seen before the
      // picture is handed to the threads that read its records.
      _mm_sfence();
      return;
    }
  }
#endif
  std::fill_n(records, count, Blank);
}

} // namespace

CmDecodingRecords::CmLease CmDecodingRecords::Lend(CmPicture& picture) {
  const size_t count = size_t{picture.GetWidthInMbs()} * picture.GetHeightInMbs();
  // Filled, not assigned: a shrinking picture keeps the memory for the
  // next large one, and a record nobody decoded reads as blank.
  if (m_Records.size() < count) {
    m_Records.resize(count);
  }
  FillBlank(m_Records.data(), count);
  picture.LendMacroblocks(m_Records.data());
  return CmLease(picture);
}

} // namespace NmH264
