#include "Codecs/H264/MotionRecord.h"

#include <algorithm>

#include "Codecs/H264/Picture.h"

namespace NmH264 {

uint8_t CmMotionRecord::Code(int refIdx, uint32_t picture) {
  if (refIdx < 0) {
    return 0;
  }
  auto found = std::find(m_Pictures.begin(), m_Pictures.end(), picture);
  if (found == m_Pictures.end()) {
    if (m_Pictures.size() >= TableBits) {
      return 0;
    }
    found = m_Pictures.insert(m_Pictures.end(), picture);
  }
  const auto index = static_cast<uint8_t>(found - m_Pictures.begin() + 1);
  return static_cast<uint8_t>(index | (refIdx == 0 ? FirstEntry : 0));
}

void CmMotionRecord::Store(const SmMacroblockInfo* macroblocks, uint32_t count, bool mbaff,
                           SmLayout layout) {
  Begin(count, layout);
  if (mbaff) {
    m_Field.resize(count);
    for (uint32_t address = 0; address < count; ++address) {
      m_Field[address] = macroblocks[address].field ? 1 : 0;
    }
  }
  if (!StoreRange(macroblocks, 0, count)) {
    // Every block reads as standing still without a reference all the same.
    m_Count = 0;
    std::vector<uint8_t>().swap(m_References);
    std::vector<SmVector>().swap(m_Vectors);
  }
}

void CmMotionRecord::Begin(uint32_t count, SmLayout layout) {
  m_Layout = layout;
  m_Count = count;
  m_Pictures.clear();
  // Never moved while the picture is decoded, so that pictures decoding
  // beside it may read the entries made so far.
  m_Pictures.reserve(TableBits);
  std::vector<uint8_t>().swap(m_Field);
  m_References.resize(size_t{count} * 4);
  m_Vectors.resize(size_t{count} * VectorsPerMacroblock());
}

bool CmMotionRecord::StoreRange(const SmMacroblockInfo* macroblocks, uint32_t first, uint32_t end) {
  const int perMb = VectorsPerMacroblock();
  // The blocks whose vectors are kept, in the order VectorIndex counts.
  int keptX[16], keptY[16];
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) {
      const bool kept = m_Layout == SmLayout::All ||
                        ((x == 0 || x == 3) && (m_Layout == SmLayout::Columns || y == 0 || y == 3));
      if (kept) {
        keptX[VectorIndex(x, y)] = x;
        keptY[VectorIndex(x, y)] = y;
      }
    }
  }
  bool anyMotion = false;
  uint8_t* references = m_References.data() + size_t{first} * 4;
  SmVector* vectors = m_Vectors.data() + size_t{first} * perMb;
  // The last picture coded, since neighbouring blocks mostly name the same.
  uint32_t lastPicture = 0;
  int lastRefIdx = -1;
  uint8_t lastCode = 0;
  for (uint32_t address = first; address < end; ++address, references += 4, vectors += perMb) {
    const SmMacroblockInfo& mb = macroblocks[address];
    if (IsIntra(mb.kind)) {
      std::fill_n(references, 4, uint8_t{0});
      std::fill_n(vectors, perMb, SmVector{0, 0});
      continue;
    }
    int list[4];
    for (int b8 = 0; b8 < 4; ++b8) {
      list[b8] = mb.refIdx[0][b8] >= 0 ? 0 : 1;
      const int refIdx = mb.refIdx[list[b8]][b8];
      const uint32_t picture = mb.refPicture[list[b8]][b8];
      if (refIdx >= 0 &&
          (lastRefIdx < 0 || (refIdx == 0) != (lastRefIdx == 0) || picture != lastPicture)) {
        lastCode = Code(refIdx, picture);
        lastRefIdx = refIdx;
        lastPicture = picture;
      }
      references[b8] = refIdx >= 0 ? lastCode : uint8_t{0};
      anyMotion = anyMotion || refIdx >= 0;
    }
    // The vector of the list chosen for the block's 8x8 block, even where
    // that list is unused: temporal prediction scales it all the same.
    for (int k = 0; k < perMb; ++k) {
      const int block = keptX[k] + 4 * keptY[k];
      const int16_t* mv = mb.mv[list[keptX[k] / 2 + 2 * (keptY[k] / 2)]][block];
      vectors[k] = SmVector{mv[0], mv[1]};
      anyMotion = anyMotion || mv[0] != 0 || mv[1] != 0;
    }
  }
  return anyMotion;
}

void CmMotionRecord::Release() {
  m_Count = 0;
  std::vector<uint8_t>().swap(m_References);
  std::vector<SmVector>().swap(m_Vectors);
  std::vector<uint32_t>().swap(m_Pictures);
  std::vector<uint8_t>().swap(m_Field);
}

} // namespace NmH264
