#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NmH264 {

struct SmMacroblockInfo;

// What later pictures read of a reference picture's macroblocks: the
// co-located motion of direct prediction, and in a frame of macroblock
// pairs which pairs are field pairs. A stored frame keeps only this; the
// full records of a picture live only while it is decoded and filtered.
//
// Direct prediction takes, per 8x8 block, list 0's motion where list 0 is
// used and list 1's otherwise, and asks of the reference index only whether
// it is none, the first or a later one, and which picture it named; so each
// 8x8 block keeps one byte, the picture as an index into a small table. Of
// the vectors only the 4x4 blocks that can be co-located are kept: with
// direct_8x8_inference the corner blocks of the macroblock in a sequence of
// frames only, the two outer columns where frames and fields meet (a field
// line can fall into any row), all sixteen without the inference.
class CmMotionRecord {
public:
  enum class SmLayout : uint8_t { Corners, Columns, All };

  // The motion of a co-located 4x4 block. refIdx is -1 for none (intra, or
  // no list used), 0 for the first entry of its list and 1 for any later
  // one; picture is the identity of the picture it named.
  struct SmColocated {
    int refIdx = -1;
    int16_t mv[2] = {0, 0};
    uint32_t picture = 0;
  };

  // Which vectors a picture coded under a sequence with these flags must
  // keep for the pictures that take it as co-located.
  static SmLayout LayoutFor(bool direct8x8Inference, bool frameMbsOnly) {
    return !direct8x8Inference ? SmLayout::All
           : frameMbsOnly      ? SmLayout::Corners
                               : SmLayout::Columns;
  }

  // Keeps what later pictures read of the records of a decoded picture,
  // in raster order. A picture without a single inter block keeps no
  // motion at all.
  void Store(const SmMacroblockInfo* macroblocks, uint32_t count, bool mbaff, SmLayout layout);
  // The same for a frame (no macroblock pairs) kept row by row while it is
  // decoded: Begin, then StoreRange for macroblocks that are final, each
  // before any other picture reads them. Gives whether the range had motion.
  void Begin(uint32_t count, SmLayout layout);
  bool StoreRange(const SmMacroblockInfo* macroblocks, uint32_t first, uint32_t end);
  // Lets the memory go: the picture is co-located for no later picture,
  // and until it is stored again every block reads as having no motion.
  void Release();

  bool IsField(uint32_t address) const { return address < m_Field.size() && m_Field[address] != 0; }
  // The motion of 4x4 block (x, y) of macroblock address. A block whose
  // vector was not kept (a sequence that broke the rules of its flags)
  // reads the kept one of its 8x8 block's outer corner.
  // Direct prediction reads it for every block, so it is inline.
  SmColocated Read(uint32_t address, int x, int y) const {
    SmColocated colocated;
    if (address >= m_Count) {
      return colocated;
    }
    const uint8_t code = m_References[size_t{address} * 4 + x / 2 + 2 * (y / 2)];
    const SmVector& mv = m_Vectors[size_t{address} * VectorsPerMacroblock() + VectorIndex(x, y)];
    colocated.mv[0] = mv.x;
    colocated.mv[1] = mv.y;
    if (code != 0) {
      colocated.refIdx = (code & FirstEntry) != 0 ? 0 : 1;
      colocated.picture = m_Pictures[(code & TableBits) - 1];
    }
    return colocated;
  }

  // Which 8x8 blocks of macroblock address (bits 0 to 3) have a corner
  // block that stands still on the first entry of its list: what spatial
  // direct prediction with direct_8x8_inference asks of a co-located
  // macroblock coded the way the current one is, all four at once.
  unsigned StillCorners(uint32_t address) const {
    if (address >= m_Count) {
      return 0;
    }
    static constexpr uint8_t Corners[3][4] = {{0, 1, 2, 3}, {0, 1, 6, 7}, {0, 3, 12, 15}};
    const uint8_t* corner = Corners[static_cast<int>(m_Layout)];
    const uint8_t* codes = m_References.data() + size_t{address} * 4;
    const SmVector* mvs = m_Vectors.data() + size_t{address} * VectorsPerMacroblock();
    unsigned still = 0;
    for (int k = 0; k < 4; ++k) {
      const SmVector mv = mvs[corner[k]];
      // -1 to 1 are the values that, raised by one, stay below three.
      const bool small =
          static_cast<unsigned>(mv.x + 1) <= 2 && static_cast<unsigned>(mv.y + 1) <= 2;
      still |= ((codes[k] & FirstEntry) != 0 && small ? 1u : 0u) << k;
    }
    return still;
  }

private:
  static constexpr uint8_t FirstEntry = 0x80;
  static constexpr uint8_t TableBits = 0x7f;
  // Index of the kept vector of each block x + 4y within its macroblock,
  // per layout.
  static constexpr uint8_t VectorIndices[3][16] = {
      {0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 3, 3, 2, 2, 3, 3},
      {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7},
      {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};

  struct SmVector {
    int16_t x, y;
  };
  int VectorIndex(int x, int y) const {
    return VectorIndices[static_cast<int>(m_Layout)][x + 4 * y];
  }
  int VectorsPerMacroblock() const {
    return m_Layout == SmLayout::All ? 16 : m_Layout == SmLayout::Columns ? 8 : 4;
  }
  template <SmLayout Layout>
  bool StoreRangeAs(const SmMacroblockInfo* macroblocks, uint32_t first, uint32_t end);
  // The table entry of a picture identity, added on first sight; 0 when
  // the table is full, which the reference lists of one picture never fill.
  uint8_t Code(int refIdx, uint32_t picture);

  SmLayout m_Layout = SmLayout::Corners;
  uint32_t m_Count = 0; // macroblocks with motion kept; 0 for none
  // Per 8x8 block: 0 for no reference, else the table index + 1 in bits 0
  // to 6 and in bit 7 whether the reference index was 0.
  std::vector<uint8_t> m_References;
  std::vector<SmVector> m_Vectors;
  std::vector<uint32_t> m_Pictures;
  std::vector<uint8_t> m_Field; // per macroblock of a frame of pairs; else empty
};

} // namespace NmH264
