#include "Codecs/H264/MotionRecord.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

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
  switch (m_Layout) {
  case SmLayout::Corners:
    return StoreRangeAs<SmLayout::Corners>(macroblocks, first, end);
  case SmLayout::Columns:
    return StoreRangeAs<SmLayout::Columns>(macroblocks, first, end);
  case SmLayout::All:
    break;
  }
  return StoreRangeAs<SmLayout::All>(macroblocks, first, end);
}

template <CmMotionRecord::SmLayout Layout>
bool CmMotionRecord::StoreRangeAs(const SmMacroblockInfo* macroblocks, uint32_t first,
                                  uint32_t end) {
  // The blocks x + 4y whose vectors are kept, in the order VectorIndex
  // counts; fixed per layout, so that the copy unrolls.
  static constexpr uint8_t Kept[3][16] = {{0, 3, 12, 15},
                                          {0, 3, 4, 7, 8, 11, 12, 15},
                                          {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
  constexpr int perMb = Layout == SmLayout::All ? 16 : Layout == SmLayout::Columns ? 8 : 4;
  constexpr const uint8_t* kept = Kept[static_cast<int>(Layout)];
  constexpr uint32_t PrefetchDistance = 16;
  bool anyReference = false;
  uint32_t anyVector = 0;
  uint8_t* references = m_References.data() + size_t{first} * 4;
  SmVector* vectors = m_Vectors.data() + size_t{first} * perMb;
  // The last picture coded, since neighbouring blocks mostly name the same.
  uint32_t lastPicture = 0;
  int lastRefIdx = -1;
  uint8_t lastCode = 0;
  for (uint32_t address = first; address < end; ++address, references += 4, vectors += perMb) {
    const SmMacroblockInfo& mb = macroblocks[address];
    // A whole picture's records are read here long after they were made,
    // each in less time than memory takes to answer: the parts read of
    // the ones well ahead are asked for now.
    if (address + PrefetchDistance < end) {
      const auto* ahead = reinterpret_cast<const char*>(&macroblocks[address + PrefetchDistance]);
      constexpr size_t read = offsetof(SmMacroblockInfo, refPicture) + sizeof mb.refPicture;
      for (size_t offset = 0; offset < read; offset += 64) {
        __builtin_prefetch(ahead + offset);
      }
      __builtin_prefetch(ahead + read - 1);
    }
    if (IsIntra(mb.kind)) {
      std::memset(references, 0, 4);
      std::memset(static_cast<void*>(vectors), 0, sizeof(SmVector) * perMb);
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
      anyReference = anyReference || refIdx >= 0;
    }
    // The vector of the list chosen for the block's 8x8 block, even where
    // that list is unused: temporal prediction scales it all the same.
    for (int k = 0; k < perMb; ++k) {
      const int block = kept[k];
      uint32_t vector = 0;
      std::memcpy(&vector, mb.mv[list[(block % 4) / 2 + 2 * (block / 8)]][block], sizeof vector);
      std::memcpy(static_cast<void*>(vectors + k), &vector, sizeof vector);
      anyVector |= vector;
    }
  }
  return anyReference || anyVector != 0;
}

void CmMotionRecord::Release() {
  m_Count = 0;
  std::vector<uint8_t>().swap(m_References);
  std::vector<SmVector>().swap(m_Vectors);
  std::vector<uint32_t>().swap(m_Pictures);
  std::vector<uint8_t>().swap(m_Field);
}

} // namespace NmH264
