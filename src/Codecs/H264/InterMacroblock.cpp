// Macroblocks of P and B slices: their syntax, motion vector prediction,
// direct prediction and weighted motion-compensated prediction.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "Codecs/H264/InterPrediction.h"
#include "Codecs/H264/Reconstruction.h"
#include "Codecs/H264/SliceDecoder.h"
#include "Codecs/Primitives/H264Prediction.h"

namespace NmH264 {

namespace {

constexpr uint8_t BlockX[16] = {0, 1, 0, 1, 2, 3, 2, 3, 0, 1, 0, 1, 2, 3, 2, 3};
constexpr uint8_t BlockY[16] = {0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 3, 3, 2, 2, 3, 3};

// Partition shapes for the directional predictions of 16x8 and 8x16.
constexpr int ShapeOther = 0, Shape16x8 = 1, Shape8x16 = 2;

// Prediction of a partition: from list 0, list 1 or both.
constexpr uint8_t PredL0 = 1, PredL1 = 2, PredBi = 3;

// B macroblock types 1 to 21 (Table 7-14): shape (0 16x16, 1 16x8, 2 8x16)
// and the prediction of each partition.
struct SmBType {
  uint8_t shape, first, second;
};
constexpr SmBType BTypes[22] = {
    {0, 0, 0},           {0, PredL0, 0},      {0, PredL1, 0},      {0, PredBi, 0},
    {1, PredL0, PredL0}, {2, PredL0, PredL0}, {1, PredL1, PredL1}, {2, PredL1, PredL1},
    {1, PredL0, PredL1}, {2, PredL0, PredL1}, {1, PredL1, PredL0}, {2, PredL1, PredL0},
    {1, PredL0, PredBi}, {2, PredL0, PredBi}, {1, PredL1, PredBi}, {2, PredL1, PredBi},
    {1, PredBi, PredL0}, {2, PredBi, PredL0}, {1, PredBi, PredL1}, {2, PredBi, PredL1},
    {1, PredBi, PredBi}, {2, PredBi, PredBi}};

// B sub-macroblock types 1 to 12 (Table 7-18): prediction and partition
// size in 4x4 blocks; 0 is direct.
struct SmBSubType {
  uint8_t prediction, width, height;
};
constexpr SmBSubType BSubTypes[13] = {
    {0, 2, 2},      {PredL0, 2, 2}, {PredL1, 2, 2}, {PredBi, 2, 2}, {PredL0, 2, 1},
    {PredL0, 1, 2}, {PredL1, 2, 1}, {PredL1, 1, 2}, {PredBi, 2, 1}, {PredBi, 1, 2},
    {PredL0, 1, 1}, {PredL1, 1, 1}, {PredBi, 1, 1}};

int Median(int a, int b, int c) {
  return std::max(std::min(a, b), std::min(std::max(a, b), c));
}

int MinPositive(int a, int b) {
  return a >= 0 && b >= 0 ? std::min(a, b) : std::max(a, b);
}

// DiffPicOrderCnt, held to the range the scaling of 8.4.1.2.3 and 8.4.2.3
// takes; damaged counts may lie anywhere in 32 bits.
int PocDistance(int32_t a, int32_t b) {
  return static_cast<int>(std::clamp<int64_t>(int64_t{a} - b, -128, 127));
}

// A vector's two components, stored apart just before, as the word the
// records keep. Read as halves: one load of the word would wait for both
// stores to land instead of taking their values on the way. The empty asm
// keeps the compiler from joining the two loads into that one.
uint32_t PackVector(const int16_t* mv) {
  uint32_t low = static_cast<uint16_t>(mv[0]);
  asm("" : "+r"(low));
  return low | static_cast<uint32_t>(static_cast<uint16_t>(mv[1])) << 16;
}

// One list's motion of a whole macroblock, the common case, in a few wide
// stores: `packed` is the vector as one word.
void StoreWholeMotion(SmMacroblockInfo& mb, int list, int refIdx, uint32_t packed,
                      uint32_t picture) {
  uint32_t vectors[16];
  std::fill_n(vectors, 16, packed);
  std::memcpy(mb.mv[list], vectors, sizeof vectors);
  std::memset(mb.refIdx[list], refIdx, sizeof mb.refIdx[list]);
  std::fill_n(mb.refPicture[list], 4, picture);
}

// The motion of one list for the 8x8 blocks of direct prediction set in
// `blocks`, whose vector is the same word throughout.
void StoreDirectMotion(SmMacroblockInfo& mb, int list, unsigned blocks, int refIdx, uint32_t vector,
                       uint32_t picture) {
  const uint32_t packed = refIdx >= 0 ? vector : 0u;
  if (blocks == 15) {
    StoreWholeMotion(mb, list, refIdx, packed, picture);
    return;
  }
  const uint64_t pair = packed | uint64_t{packed} << 32;
  for (int b8 = 0; b8 < 4; ++b8) {
    if ((blocks & (1u << b8)) != 0) {
      const int first = 2 * (b8 % 2) + 8 * (b8 / 2);
      std::memcpy(mb.mv[list][first], &pair, sizeof pair);
      std::memcpy(mb.mv[list][first + 4], &pair, sizeof pair);
      mb.refIdx[list][b8] = static_cast<int8_t>(refIdx);
      mb.refPicture[list][b8] = picture;
    }
  }
}

} // namespace

bool CmSliceDecoder::GetNeighbourMotion(uint32_t address, int list, int x, int y, int& refIdx,
                                        int16_t* mv, bool above) const {
  const SmMacroblockInfo* info = nullptr;
  int bx = x, by = y;
  if (x >= 0 && x < 4 && y >= 0) {
    if ((m_KnownBlocks & (1u << (x + 4 * y))) == 0) {
      return false; // later in decoding order
    }
    info = m_Picture->GetMacroblocks() + address;
  } else if (m_Mbaff) {
    // A neighbour above a partition is the one holding the line just above
    // it, which beside a pair of the other kind may lie in the other
    // macroblock than the block row's first line.
    const SmLocation at = Locate(address, 4 * x, 4 * y + (above ? 3 : 0), 16, 16);
    if (at.mb == nullptr) {
      return false;
    }
    info = at.mb;
    bx = at.x / 4;
    by = at.y / 4;
  } else {
    // Right of the macroblock, and not above it, nothing is decoded yet.
    info = y >= 0  ? (x < 0 ? m_InterNeighbours.left : nullptr)
           : x < 0 ? m_InterNeighbours.topLeft
           : x < 4 ? m_InterNeighbours.top
                   : m_InterNeighbours.topRight;
    if (info == nullptr) {
      return false;
    }
    bx = x & 3;
    by = y & 3;
  }
  refIdx = info->refIdx[list][(bx / 2) + 2 * (by / 2)];
  // Both components in one word, read and stored at once: callers compare
  // the vector as a word, which two stores of its halves could not forward.
  uint32_t vector = 0;
  if (refIdx >= 0) {
    std::memcpy(&vector, info->mv[list][bx + 4 * by], sizeof vector);
    // A neighbour of the other kind counts its lines and references the
    // other way: a field's index names half a frame entry, and its vertical
    // vector spans half as many frame lines.
    if (info->field != m_MbField && m_Mbaff) {
      int16_t components[2];
      std::memcpy(components, &vector, sizeof vector);
      if (m_MbField) {
        components[1] = static_cast<int16_t>(components[1] / 2);
        refIdx *= 2;
      } else {
        components[1] = static_cast<int16_t>(components[1] * 2);
        refIdx >>= 1;
      }
      std::memcpy(&vector, components, sizeof vector);
    }
  }
  std::memcpy(mv, &vector, sizeof vector);
  return true;
}

namespace {

// What motion vector prediction reads of a neighbouring block.
struct SmNeighbourMotion {
  bool available = false;
  int refIdx = -1;
  int16_t mv[2] = {0, 0};
};

// 8.4.1.3 from neighbours A, B and C (D where C is not available) of the
// partition at 4x4 block (x, y).
void PredictFromNeighbours(const SmNeighbourMotion& a, const SmNeighbourMotion& bIn,
                           const SmNeighbourMotion& cIn, int x, int y, int refIdx, int shape,
                           int16_t* mvp) {
  if (shape == Shape16x8) {
    if (y == 0 && bIn.refIdx == refIdx) {
      mvp[0] = bIn.mv[0], mvp[1] = bIn.mv[1];
      return;
    }
    if (y != 0 && a.refIdx == refIdx) {
      mvp[0] = a.mv[0], mvp[1] = a.mv[1];
      return;
    }
  } else if (shape == Shape8x16) {
    if (x == 0 && a.refIdx == refIdx) {
      mvp[0] = a.mv[0], mvp[1] = a.mv[1];
      return;
    }
    if (x != 0 && cIn.refIdx == refIdx) {
      mvp[0] = cIn.mv[0], mvp[1] = cIn.mv[1];
      return;
    }
  }
  // Taken by reference: copies of these records, written a field at a
  // time just before, would wait for the stores to land.
  const bool onlyA = !bIn.available && !cIn.available && a.available;
  const SmNeighbourMotion& b = onlyA ? a : bIn;
  const SmNeighbourMotion& c = onlyA ? a : cIn;
  const int matches = (a.refIdx == refIdx) + (b.refIdx == refIdx) + (c.refIdx == refIdx);
  if (matches == 1) {
    const int16_t* one = a.refIdx == refIdx ? a.mv : (b.refIdx == refIdx ? b.mv : c.mv);
    mvp[0] = one[0], mvp[1] = one[1];
    return;
  }
  mvp[0] = static_cast<int16_t>(Median(a.mv[0], b.mv[0], c.mv[0]));
  mvp[1] = static_cast<int16_t>(Median(a.mv[1], b.mv[1], c.mv[1]));
}

// A, B and C (D where C is not available) of the partition at 4x4 block
// (x, y), `width` blocks wide; get(x, y, neighbour, above) finds one as
// GetNeighbourMotion does. A partition as wide as a frame macroblock has
// all of them in the records `beside` it (left, above, above right, above
// left), which give them without that search.
template <class Get>
void FindNeighbours(const SmMacroblockInfo* const* beside, int list, int x, int y, int width,
                    Get&& get, SmNeighbourMotion* abc) {
  if (beside != nullptr && x == 0 && y == 0 && width == 4) {
    const auto read = [list](const SmMacroblockInfo* info, int bx, int by, SmNeighbourMotion& n) {
      n.available = info != nullptr;
      if (n.available) {
        n.refIdx = info->refIdx[list][bx / 2 + 2 * (by / 2)];
        if (n.refIdx >= 0) {
          std::memcpy(n.mv, info->mv[list][bx + 4 * by], sizeof n.mv);
        }
      }
    };
    read(beside[0], 3, 0, abc[0]);
    read(beside[1], 0, 3, abc[1]);
    read(beside[2] != nullptr ? beside[2] : beside[3], beside[2] != nullptr ? 0 : 3, 3, abc[2]);
    return;
  }
  abc[0].available = get(x - 1, y, abc[0], false);
  abc[1].available = get(x, y - 1, abc[1], true);
  abc[2].available = get(x + width, y - 1, abc[2], true);
  if (!abc[2].available) {
    abc[2].available = get(x - 1, y - 1, abc[2], true);
  }
}

} // namespace

void CmSliceDecoder::PredictMotionVector(uint32_t address, int list, int x, int y, int width,
                                         int /*height*/, int refIdx, int shape,
                                         int16_t* mvp) const {
  const SmMacroblockInfo* const beside[4] = {m_InterNeighbours.left, m_InterNeighbours.top,
                                             m_InterNeighbours.topRight, m_InterNeighbours.topLeft};
  SmNeighbourMotion abc[3];
  FindNeighbours(
      m_Mbaff ? nullptr : beside, list, x, y, width,
      [&](int nx, int ny, SmNeighbourMotion& n, bool above) {
        return GetNeighbourMotion(address, list, nx, ny, n.refIdx, n.mv, above);
      },
      abc);
  PredictFromNeighbours(abc[0], abc[1], abc[2], x, y, refIdx, shape, mvp);
}

void CmSliceDecoder::SetMotion(uint32_t address, int list, int x, int y, int width, int height,
                               int refIdx, const int16_t* mv) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  // The reference is looked up once per partition, not once per 4x4 block:
  // direct prediction calls this for every block of a macroblock.
  const int16_t vector[2] = {refIdx >= 0 ? mv[0] : int16_t{0}, refIdx >= 0 ? mv[1] : int16_t{0}};
  uint32_t packed = 0;
  std::memcpy(&packed, vector, sizeof packed);
  const uint32_t picture = refIdx >= 0 ? GetReference(list, refIdx)->GetId() : 0;
  if (width == 4 && height == 4) {
    StoreWholeMotion(mb, list, refIdx, packed, picture);
    return;
  }
  for (int j = y; j < y + height; ++j) {
    for (int i = x; i < x + width; ++i) {
      std::memcpy(mb.mv[list][i + 4 * j], &packed, sizeof packed);
    }
  }
  for (int j = y / 2; j <= (y + height - 1) / 2; ++j) {
    for (int i = x / 2; i <= (x + width - 1) / 2; ++i) {
      mb.refIdx[list][i + 2 * j] = static_cast<int8_t>(refIdx);
      mb.refPicture[list][i + 2 * j] = picture;
    }
  }
}

void CmSliceDecoder::StartInterMacroblock(uint32_t address, uint8_t kind) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  // Copied from a ready record, in 16-byte pieces: assigning a temporary
  // builds it on the stack first, and a plain copy of the record's size
  // becomes a string move that takes longer to start than to finish.
  static const SmMacroblockInfo Blank = [] {
    SmMacroblockInfo blank;
    std::fill(std::begin(blank.intraModes), std::end(blank.intraModes), int8_t{2});
    return blank;
  }();
#if defined(__SSE2__)
  if constexpr (sizeof(SmMacroblockInfo) % 16 == 0) {
    const auto* from = reinterpret_cast<const __m128i*>(&Blank);
    auto* to = reinterpret_cast<__m128i*>(&mb);
#pragma GCC unroll 32
    for (size_t k = 0; k < sizeof(SmMacroblockInfo) / 16; ++k) {
      _mm_storeu_si128(to + k, _mm_loadu_si128(from + k));
    }
  } else {
    mb = Blank;
  }
#else
  mb = Blank;
#endif
  mb.slice = m_Slice;
  mb.field = m_MbField;
  mb.kind = kind;
  // Skipped macroblocks keep the quantiser; coded ones set it with their
  // residual.
  mb.qp = static_cast<int8_t>(m_Qp);
  m_KnownBlocks = 0;
  if (!m_Mbaff) {
    const uint32_t width = m_Picture->GetWidthInMbs();
    const SmMacroblockInfo* mbs = m_Picture->GetMacroblocks();
    // The neighbours as GetNeighbours finds them, but set in place: its
    // result, written in pointer-sized pieces and copied here in wider
    // ones, would stall the forwarding of those stores every macroblock.
    uint32_t x = 0, y = 0;
    GetPosition(address, x, y);
    const auto pick = [&](bool inside, uint32_t at) {
      return inside && IsAvailable(mbs + at) ? mbs + at : nullptr;
    };
    m_InterNeighbours.left = pick(x > 0, address - 1);
    m_InterNeighbours.top = pick(y > 0, address - width);
    m_InterNeighbours.topRight = pick(y > 0 && x + 1 < width, address - width + 1);
    m_InterNeighbours.topLeft = pick(y > 0 && x > 0, address - width - 1);
    // The next macroblock's record and the one above right of it, which
    // its motion prediction reads, have long left the caches: they are
    // asked for now, a macroblock ahead.
    const size_t count = size_t{width} * m_Picture->GetHeightInMbs();
    const auto prefetch = [](const SmMacroblockInfo* record, int write) {
      const auto* bytes = reinterpret_cast<const char*>(record);
      for (size_t offset = 0; offset < sizeof(SmMacroblockInfo); offset += 64) {
        if (write != 0) {
          __builtin_prefetch(bytes + offset, 1);
        } else {
          __builtin_prefetch(bytes + offset, 0);
        }
      }
    };
    if (address + 1 < count) {
      prefetch(mbs + address + 1, 1);
    }
    if (address + 2 >= width && address + 2 - width < count) {
      prefetch(mbs + address + 2 - width, 0);
    }
  }
}

void CmSliceDecoder::MarkKnown(int x, int y, int width, int height) {
  for (int j = y; j < y + height; ++j) {
    for (int i = x; i < x + width; ++i) {
      m_KnownBlocks = static_cast<uint16_t>(m_KnownBlocks | (1u << (i + 4 * j)));
    }
  }
}

void CmSliceDecoder::DecodeSkippedMacroblock(uint32_t address) {
  StartInterMacroblock(address, MbSkip);
  // P_Skip: reference 0 and a zero vector when a neighbour above or to the
  // left is missing or stands still on reference 0, else the prediction.
  // Outside a frame of pairs A and B lie in the records to the left and
  // above, and in a still scene decide alone, without C.
  int16_t mv[2] = {0, 0};
  if (!m_Mbaff) {
    const auto still = [](const SmMacroblockInfo* info, int b8, int block) {
      uint32_t vector = 0;
      std::memcpy(&vector, info->mv[0][block], sizeof vector);
      return info->refIdx[0][b8] == 0 && vector == 0;
    };
    const SmMacroblockInfo* a = m_InterNeighbours.left;
    const SmMacroblockInfo* b = m_InterNeighbours.top;
    if (a == nullptr || b == nullptr || still(a, 1, 3) || still(b, 2, 12)) {
      SetMotion(address, 0, 0, 0, 4, 4, 0, mv);
      PredictInter(address);
      return;
    }
  }
  // A and B, once read, serve the prediction too.
  const SmMacroblockInfo* const beside[4] = {m_InterNeighbours.left, m_InterNeighbours.top,
                                             m_InterNeighbours.topRight, m_InterNeighbours.topLeft};
  SmNeighbourMotion abc[3];
  FindNeighbours(
      m_Mbaff ? nullptr : beside, 0, 0, 0, 4,
      [&](int nx, int ny, SmNeighbourMotion& n, bool above) {
        return GetNeighbourMotion(address, 0, nx, ny, n.refIdx, n.mv, above);
      },
      abc);
  const SmNeighbourMotion& a = abc[0];
  const SmNeighbourMotion& b = abc[1];
  if (a.available && b.available && !(a.refIdx == 0 && a.mv[0] == 0 && a.mv[1] == 0) &&
      !(b.refIdx == 0 && b.mv[0] == 0 && b.mv[1] == 0)) {
    PredictFromNeighbours(a, b, abc[2], 0, 0, 0, ShapeOther, mv);
  }
  SetMotion(address, 0, 0, 0, 4, 4, 0, mv);
  PredictInter(address);
}

bool CmSliceDecoder::DecodeBSkippedMacroblock(uint32_t address) {
  StartInterMacroblock(address, MbSkip);
  m_Picture->GetMacroblocks()[address].directBlocks = 15;
  if (!PredictDirect(address, 15)) {
    return false;
  }
  PredictInter(address);
  return true;
}

bool CmSliceDecoder::PredictDirect(uint32_t address, unsigned mask) {
  const SmReferenceList& list1 = m_Lists[1];
  if (list1.pictures.empty() || list1.pictures[0] == nullptr) {
    return false;
  }
  const CmPicture& list1First = *list1.pictures[0];
  // Where the co-located motion lies (8.4.1.2.1): in the first picture of
  // list 1 when it was coded the way the current macroblock is; for field
  // lines whose reference was decoded as frame lines, in the frame
  // macroblocks that cover them, whose vectors count frame lines; for frame
  // lines whose reference was decoded as fields, in the field nearer in
  // order, whose vectors count field lines. In a frame of macroblock pairs
  // that holds for each pair by the kinds of the two pairs.
  enum { OneToOne, FrameToField, FieldToFrame } vertical = OneToOne;
  const CmPicture* colPicture = &list1First;
  const uint32_t width = m_Picture->GetWidthInMbs();
  uint32_t mbx = 0, row = 0;
  GetPosition(address, mbx, row);
  // The co-located macroblock (one to one, field to frame) or the top of
  // the co-located frame pair (frame to field), and for field to frame
  // which half of the field macroblock the current one covers.
  uint32_t colBase = address;
  int colHalf = 0;
  const auto nearerField = [&](const CmPicture& frame) -> int {
    const CmPicture* top = frame.FindField(0);
    const CmPicture* bottom = frame.FindField(1);
    if (top == nullptr || bottom == nullptr) {
      return -1;
    }
    const int32_t current = m_Picture->GetPoc();
    return std::abs(top->GetPoc() - current) < std::abs(bottom->GetPoc() - current) ? 0 : 1;
  };
  if (m_Picture->GetParity() >= 0 && !list1First.IsFieldDecoded()) {
    colPicture = list1First.GetFrame();
    if (colPicture == nullptr) {
      return false;
    }
    colBase = 2 * width * row + mbx;
    vertical = FrameToField;
    if (colPicture->IsMbaff() && colPicture->GetMotion().IsField(colBase)) {
      vertical = OneToOne;
      colBase += static_cast<uint32_t>(m_Picture->GetParity()) * width;
    }
  } else if (m_Picture->GetParity() < 0 && list1First.IsFieldDecoded()) {
    const int parity = m_MbField ? GetCurrentParity() : nearerField(list1First);
    if (parity < 0) {
      return false;
    }
    colPicture = list1First.FindField(parity);
    colBase = width * (row / 2) + mbx;
    colHalf = static_cast<int>(row % 2);
    vertical = m_MbField ? OneToOne : FieldToFrame;
  } else if (m_Mbaff) {
    const uint32_t pairTop = 2 * width * (row / 2) + mbx;
    const bool colField = list1First.IsMbaff() && list1First.GetMotion().IsField(pairTop);
    if (m_MbField && !colField) {
      vertical = FrameToField;
      colBase = pairTop;
    } else if (!m_MbField && colField) {
      const int parity = nearerField(list1First);
      if (parity < 0) {
        return false;
      }
      vertical = FieldToFrame;
      colBase = pairTop + static_cast<uint32_t>(parity) * width;
      colHalf = static_cast<int>(row % 2);
    }
  }
  if (colPicture == nullptr || colPicture->GetWidthInMbs() != width) {
    return false;
  }
  // A picture decoding beside this one keeps its motion row by row before
  // its lines are final.
  colPicture->WaitForLine(static_cast<int32_t>(colBase / width + 2) * 16);
  const uint32_t colCount = width * colPicture->GetHeightInMbs();
  const bool inference = m_Sps->direct8x8Inference;
  // The co-located motion of 4x4 block (x, y): with direct_8x8_inference
  // that of the corner block of its 8x8 block; between frame and field, in
  // the macroblock of the pair or of the other field's row that covers the
  // same lines.
  const CmMotionRecord& colMotionRecord = colPicture->GetMotion();
  const auto colMotion = [&](int x, int y) {
    const int xCol = inference ? (x / 2) * 3 : x;
    const int yCol = inference ? (y / 2) * 12 : 4 * y; // luma lines
    uint32_t colAddress = colBase;
    int yM = yCol;
    if (vertical == FrameToField) {
      colAddress = colBase + width * static_cast<uint32_t>(yCol / 8);
      yM = (2 * yCol) % 16;
    } else if (vertical == FieldToFrame) {
      yM = 8 * colHalf + 4 * (yCol / 8);
    }
    return colAddress < colCount ? colMotionRecord.Read(colAddress, xCol, yM / 4)
                                 : CmMotionRecord::SmColocated();
  };
  // Each 4x4 block of the chosen 8x8 blocks with its co-located motion,
  // given as a square of size blocks. With direct_8x8_inference all four
  // blocks of an 8x8 block share the co-located corner block, so the
  // 8x8 block is derived once.
  const int size = inference ? 2 : 1;
  const auto eachBlock = [&](auto&& use) {
    for (int b8 = 0; b8 < 4; ++b8) {
      if ((mask & (1u << b8)) == 0) {
        continue;
      }
      for (int j = 0; j < 2; j += size) {
        for (int i = 0; i < 2; i += size) {
          const int x = 2 * (b8 % 2) + i, y = 2 * (b8 / 2) + j;
          const CmMotionRecord::SmColocated col = colMotion(x, y);
          if (!use(x, y, col.refIdx, col.mv, col.picture)) {
            return false;
          }
        }
      }
    }
    return true;
  };
  if (m_Header->directSpatialMvPred) {
    // One reference per list for the whole macroblock, from the neighbours
    // of a 16x16 partition; the vectors as predicted for it, or zero where
    // the co-located block stands still.
    // The neighbours lie outside the macroblock, so the motion read for the
    // references also gives the vector predictions of the 16x16 partition.
    int refIdx[2];
    int16_t mvp[2][2] = {};
    SmNeighbourMotion neighbours[2][3];
    const SmMacroblockInfo* const beside[4] = {m_InterNeighbours.left, m_InterNeighbours.top,
                                               m_InterNeighbours.topRight,
                                               m_InterNeighbours.topLeft};
    for (int list = 0; list < 2; ++list) {
      SmNeighbourMotion* abc = neighbours[list];
      FindNeighbours(
          m_Mbaff ? nullptr : beside, list, 0, 0, 4,
          [&](int nx, int ny, SmNeighbourMotion& n, bool above) {
            return GetNeighbourMotion(address, list, nx, ny, n.refIdx, n.mv, above);
          },
          abc);
      refIdx[list] = MinPositive(abc[0].refIdx, MinPositive(abc[1].refIdx, abc[2].refIdx));
    }
    const bool zero = refIdx[0] < 0 && refIdx[1] < 0;
    if (zero) {
      refIdx[0] = refIdx[1] = 0;
    }
    for (int list = 0; list < 2; ++list) {
      if (!zero && refIdx[list] >= 0) {
        PredictFromNeighbours(neighbours[list][0], neighbours[list][1], neighbours[list][2], 0, 0,
                              refIdx[list], ShapeOther, mvp[list]);
      }
    }
    const bool colShortTerm = list1.longTerm[0] == 0;
    // Each list's vector as one word, and the picture its index names,
    // made once for the macroblock: built in registers, since halves
    // stored apart and read back as a word would stall their forwarding.
    uint32_t moving[2] = {0, 0};
    uint32_t pictures[2] = {0, 0};
    for (int list = 0; list < 2; ++list) {
      if (refIdx[list] >= 0) {
        pictures[list] = GetReference(list, refIdx[list])->GetId();
        if (!zero) {
          moving[list] = PackVector(mvp[list]);
        }
      }
    }
    SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
    const auto setBlocks = [&](unsigned blocks, bool colZero) {
      for (int list = 0; list < 2; ++list) {
        StoreDirectMotion(mb, list, blocks, refIdx[list],
                          refIdx[list] == 0 && colZero ? 0u : moving[list], pictures[list]);
      }
    };
    // The co-located block matters only to a list that takes index 0 with
    // a vector other than zero; elsewhere all blocks move alike.
    const auto movesOnFirst = [&](int list) {
      return refIdx[list] == 0 && (mvp[list][0] != 0 || mvp[list][1] != 0);
    };
    if (zero || !colShortTerm || (!movesOnFirst(0) && !movesOnFirst(1))) {
      setBlocks(mask, false);
      return true;
    }
    const auto isColZero = [](int colRef, const int16_t* colMv) {
      return colRef == 0 && std::abs(colMv[0]) <= 1 && std::abs(colMv[1]) <= 1;
    };
    if (inference) {
      // One co-located block per 8x8 block; where all four agree, one
      // store for the macroblock.
      unsigned still = 0;
      if (vertical == OneToOne) {
        still = colBase < colCount ? colMotionRecord.StillCorners(colBase) : 0u;
      } else {
        for (int b8 = 0; b8 < 4; ++b8) {
          const CmMotionRecord::SmColocated col = colMotion(2 * (b8 % 2), 2 * (b8 / 2));
          still |= isColZero(col.refIdx, col.mv) ? 1u << b8 : 0u;
        }
      }
      if ((still & mask) != 0) {
        setBlocks(still & mask, true);
      }
      if ((~still & mask) != 0) {
        setBlocks(~still & mask, false);
      }
      return true;
    }
    return eachBlock([&](int x, int y, int colRef, const int16_t* colMv, uint32_t) {
      const bool colZero = isColZero(colRef, colMv);
      for (int list = 0; list < 2; ++list) {
        int16_t mv[2] = {0, 0};
        if (refIdx[list] >= 0 && !(refIdx[list] == 0 && colZero)) {
          mv[0] = mvp[list][0];
          mv[1] = mvp[list][1];
        }
        SetMotion(address, list, x, y, size, size, refIdx[list], mv);
      }
      return true;
    });
  }
  // Temporal: each block follows the co-located block's motion, scaled by
  // the distances in picture order; a field macroblock's, by those of its
  // own field and the reference fields.
  const int32_t currentPoc = GetCurrentPoc();
  const CmPicture* pic1 = GetReference(1, 0);
  if (pic1 == nullptr) {
    return false;
  }
  const int shift = m_MbField ? 1 : 0;
  // Neighbouring blocks mostly refer to the same picture: the last search
  // and the last scale are kept.
  uint32_t lastColPic = 0;
  int lastFound = -1;
  int lastScaled = -1, lastScale = 0;
  bool lastCopied = false;
  return eachBlock([&](int x, int y, int colRef, const int16_t* colMv, uint32_t colPic) {
    int refIdx0 = 0;
    if (colRef >= 0 && lastFound >= 0 && colPic == lastColPic) {
      refIdx0 = lastFound;
    } else if (colRef >= 0) {
      // The lowest index of list 0 that names the picture the
      // co-located block referred to.
      // Between frame and field, the field of the same parity of the frame
      // referred to, or the frame of the field referred to.
      refIdx0 = -1;
      const auto names = [&](const CmPicture* candidate) {
        if (candidate == nullptr) {
          return false;
        }
        if (vertical == FrameToField) {
          return candidate->GetFrame() != nullptr && candidate->GetFrame()->GetId() == colPic &&
                 candidate->GetParity() == GetCurrentParity();
        }
        if (vertical == FieldToFrame) {
          const CmPicture* top = candidate->FindField(0);
          const CmPicture* bottom = candidate->FindField(1);
          return (top != nullptr && top->GetId() == colPic) ||
                 (bottom != nullptr && bottom->GetId() == colPic);
        }
        return candidate->GetId() == colPic;
      };
      const int candidates = static_cast<int>(m_Lists[0].pictures.size()) << shift;
      for (int k = 0; k < candidates; ++k) {
        if (names(GetReference(0, k))) {
          refIdx0 = k;
          break;
        }
      }
      if (refIdx0 < 0) {
        return false;
      }
      lastColPic = colPic;
      lastFound = refIdx0;
    }
    if (GetReference(0, refIdx0) == nullptr) {
      return false;
    }
    const CmPicture& pic0 = *GetReference(0, refIdx0);
    // The co-located vector in the current picture's lines.
    const int16_t mvCol[2] = {colMv[0],
                              static_cast<int16_t>(vertical == FrameToField   ? colMv[1] / 2
                                                   : vertical == FieldToFrame ? colMv[1] * 2
                                                                              : colMv[1])};
    colMv = mvCol;
    int16_t mv0[2], mv1[2];
    if (refIdx0 != lastScaled) {
      const int tb = PocDistance(currentPoc, pic0.GetPoc());
      const int td = PocDistance(pic1->GetPoc(), pic0.GetPoc());
      lastScaled = refIdx0;
      lastCopied = m_Lists[0].longTerm[static_cast<size_t>(refIdx0 >> shift)] != 0 || td == 0;
      if (!lastCopied) {
        const int tx = (16384 + std::abs(td / 2)) / td;
        lastScale = std::clamp((tb * tx + 32) >> 6, -1024, 1023);
      }
    }
    if (lastCopied) {
      mv0[0] = colMv[0], mv0[1] = colMv[1];
      mv1[0] = mv1[1] = 0;
    } else {
      const int scale = lastScale;
      for (int c = 0; c < 2; ++c) {
        mv0[c] = static_cast<int16_t>((scale * colMv[c] + 128) >> 8);
        mv1[c] = static_cast<int16_t>(mv0[c] - colMv[c]);
      }
    }
    SetMotion(address, 0, x, y, size, size, refIdx0, mv0);
    SetMotion(address, 1, x, y, size, size, 0, mv1);
    return true;
  });
}

bool CmSliceDecoder::DecodeInterMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address) {
  StartInterMacroblock(address, MbInter);
  const uint32_t references = GetActiveReferences(0);
  // An index beyond the list, or to an entry that no picture fills, is
  // damage.
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  // The index read is kept at once: the contexts of the indices after it
  // look at it.
  const auto readRef = [this, &reader, references, &mb](int x, int y, int w, int h) -> int {
    const uint32_t value = ReadRefIdx(reader, 0, x, y);
    if (value >= references || GetReference(0, static_cast<int>(value)) == nullptr) {
      return -1;
    }
    for (int j = y; j < y + h; j += 2) {
      for (int i = x; i < x + w; i += 2) {
        mb.refIdx[0][i / 2 + 2 * (j / 2)] = static_cast<int8_t>(value);
      }
    }
    return static_cast<int>(value);
  };
  bool allSubBlocks8x8 = true;
  if (mbType <= 2) {
    // 16x16, 16x8 or 8x16: all reference indices, then all differences.
    const int parts = mbType == 0 ? 1 : 2;
    const int w = mbType == 2 ? 2 : 4, h = mbType == 1 ? 2 : 4;
    int refs[2];
    for (int p = 0; p < parts; ++p) {
      refs[p] = readRef(mbType == 2 ? 2 * p : 0, mbType == 1 ? 2 * p : 0, w, h);
      if (refs[p] < 0) {
        return false;
      }
    }
    for (int p = 0; p < parts; ++p) {
      const int x = mbType == 2 ? 2 * p : 0, y = mbType == 1 ? 2 * p : 0;
      int16_t mvp[2];
      PredictMotionVector(address, 0, x, y, w, h, refs[p],
                          mbType == 1 ? Shape16x8 : (mbType == 2 ? Shape8x16 : ShapeOther), mvp);
      const int32_t dx = ReadMvd(reader, 0, 0, x, y);
      const int32_t dy = ReadMvd(reader, 0, 1, x, y);
      SetMvd(0, x, y, w, h, dx, dy);
      const int16_t mv[2] = {static_cast<int16_t>(mvp[0] + dx), static_cast<int16_t>(mvp[1] + dy)};
      SetMotion(address, 0, x, y, w, h, refs[p], mv);
      MarkKnown(x, y, w, h);
    }
  } else {
    // P_8x8 and P_8x8ref0: a sub-type per 8x8 block, then the references,
    // then the differences of the partitions.
    uint32_t subTypes[4];
    for (uint32_t& type : subTypes) {
      type = ReadSubMbType(reader);
      if (type > 3) {
        return false;
      }
      allSubBlocks8x8 = allSubBlocks8x8 && type == 0;
    }
    int refs[4] = {0, 0, 0, 0};
    for (int b8 = 0; b8 < 4; ++b8) {
      int& ref = refs[b8];
      // P_8x8ref0 takes reference 0 without saying so.
      ref = mbType == 3 ? readRef(2 * (b8 % 2), 2 * (b8 / 2), 2, 2) : 0;
      if (ref < 0 || GetReference(0, ref) == nullptr) {
        return false;
      }
    }
    for (int b8 = 0; b8 < 4; ++b8) {
      const int x0 = 2 * (b8 % 2), y0 = 2 * (b8 / 2);
      const int w = subTypes[b8] == 0 || subTypes[b8] == 1 ? 2 : 1;
      const int h = subTypes[b8] == 0 || subTypes[b8] == 2 ? 2 : 1;
      for (int y = y0; y < y0 + 2; y += h) {
        for (int x = x0; x < x0 + 2; x += w) {
          int16_t mvp[2];
          PredictMotionVector(address, 0, x, y, w, h, refs[b8], ShapeOther, mvp);
          const int32_t dx = ReadMvd(reader, 0, 0, x, y);
          const int32_t dy = ReadMvd(reader, 0, 1, x, y);
          SetMvd(0, x, y, w, h, dx, dy);
          const int16_t mv[2] = {static_cast<int16_t>(mvp[0] + dx),
                                 static_cast<int16_t>(mvp[1] + dy)};
          SetMotion(address, 0, x, y, w, h, refs[b8], mv);
          MarkKnown(x, y, w, h);
        }
      }
    }
  }
  return ReadInterResidualAndReconstruct(reader, address, allSubBlocks8x8);
}

bool CmSliceDecoder::DecodeBMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address) {
  StartInterMacroblock(address, MbInter);
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  const auto readRef = [this, &reader, &mb](int list, int x, int y, int w, int h) -> int {
    const uint32_t references = GetActiveReferences(list);
    const uint32_t value = ReadRefIdx(reader, list, x, y);
    if (value >= references || GetReference(list, static_cast<int>(value)) == nullptr) {
      return -1;
    }
    for (int j = y; j < y + h; j += 2) {
      for (int i = x; i < x + w; i += 2) {
        mb.refIdx[list][i / 2 + 2 * (j / 2)] = static_cast<int8_t>(value);
      }
    }
    return static_cast<int>(value);
  };
  if (mbType == 0) {
    // B_Direct_16x16.
    mb.directBlocks = 15;
    mb.direct16x16 = true;
    if (!PredictDirect(address, 15)) {
      return false;
    }
    return ReadInterResidualAndReconstruct(reader, address, m_Sps->direct8x8Inference);
  }
  if (mbType <= 21) {
    const SmBType& type = BTypes[mbType];
    const int parts = type.shape == 0 ? 1 : 2;
    const int w = type.shape == 2 ? 2 : 4, h = type.shape == 1 ? 2 : 4;
    const uint8_t predictions[2] = {type.first, type.second};
    int refs[2][2] = {{-1, -1}, {-1, -1}};
    for (int list = 0; list < 2; ++list) {
      for (int p = 0; p < parts; ++p) {
        if ((predictions[p] & (1 << list)) != 0) {
          refs[list][p] =
              readRef(list, type.shape == 2 ? 2 * p : 0, type.shape == 1 ? 2 * p : 0, w, h);
          if (refs[list][p] < 0) {
            return false;
          }
        }
      }
    }
    // Vectors of list 0 for all partitions, then of list 1; each partition's
    // prediction sees the partitions before it in its list.
    int16_t mvs[2][2][2] = {};
    for (int list = 0; list < 2; ++list) {
      m_KnownBlocks = 0;
      for (int p = 0; p < parts; ++p) {
        const int x = type.shape == 2 ? 2 * p : 0, y = type.shape == 1 ? 2 * p : 0;
        if (refs[list][p] >= 0) {
          int16_t mvp[2];
          PredictMotionVector(
              address, list, x, y, w, h, refs[list][p],
              type.shape == 1 ? Shape16x8 : (type.shape == 2 ? Shape8x16 : ShapeOther), mvp);
          const int32_t dx = ReadMvd(reader, list, 0, x, y);
          const int32_t dy = ReadMvd(reader, list, 1, x, y);
          SetMvd(list, x, y, w, h, dx, dy);
          mvs[list][p][0] = static_cast<int16_t>(mvp[0] + dx);
          mvs[list][p][1] = static_cast<int16_t>(mvp[1] + dy);
        }
        SetMotion(address, list, x, y, w, h, refs[list][p], mvs[list][p]);
        MarkKnown(x, y, w, h);
      }
    }
    m_KnownBlocks = 0xFFFF;
    return ReadInterResidualAndReconstruct(reader, address, true);
  }
  // B_8x8.
  uint32_t subTypes[4];
  bool allSubBlocks8x8 = true;
  for (int b8 = 0; b8 < 4; ++b8) {
    uint32_t& type = subTypes[b8];
    type = ReadSubMbType(reader);
    if (type > 12) {
      return false;
    }
    mb.directBlocks = static_cast<uint8_t>(mb.directBlocks | (type == 0 ? 1 << b8 : 0));
    allSubBlocks8x8 =
        allSubBlocks8x8 && (type == 0 ? m_Sps->direct8x8Inference
                                      : BSubTypes[type].width == 2 && BSubTypes[type].height == 2);
  }
  int refs[2][4] = {{-1, -1, -1, -1}, {-1, -1, -1, -1}};
  for (int list = 0; list < 2; ++list) {
    for (int b8 = 0; b8 < 4; ++b8) {
      if (subTypes[b8] != 0 && (BSubTypes[subTypes[b8]].prediction & (1 << list)) != 0) {
        refs[list][b8] = readRef(list, 2 * (b8 % 2), 2 * (b8 / 2), 2, 2);
        if (refs[list][b8] < 0) {
          return false;
        }
      }
    }
  }
  // Direct 8x8 blocks take their motion first: their prediction reads only
  // the neighbours of the whole macroblock.
  unsigned directMask = 0;
  for (int b8 = 0; b8 < 4; ++b8) {
    directMask |= subTypes[b8] == 0 ? 1u << b8 : 0u;
  }
  if (directMask != 0 && !PredictDirect(address, directMask)) {
    return false;
  }
  for (int list = 0; list < 2; ++list) {
    m_KnownBlocks = 0;
    for (int b8 = 0; b8 < 4; ++b8) {
      const int x0 = 2 * (b8 % 2), y0 = 2 * (b8 / 2);
      if (subTypes[b8] == 0) {
        MarkKnown(x0, y0, 2, 2);
        continue;
      }
      const SmBSubType& sub = BSubTypes[subTypes[b8]];
      for (int y = y0; y < y0 + 2; y += sub.height) {
        for (int x = x0; x < x0 + 2; x += sub.width) {
          int16_t mv[2] = {0, 0};
          if (refs[list][b8] >= 0) {
            int16_t mvp[2];
            PredictMotionVector(address, list, x, y, sub.width, sub.height, refs[list][b8],
                                ShapeOther, mvp);
            const int32_t dx = ReadMvd(reader, list, 0, x, y);
            const int32_t dy = ReadMvd(reader, list, 1, x, y);
            SetMvd(list, x, y, sub.width, sub.height, dx, dy);
            mv[0] = static_cast<int16_t>(mvp[0] + dx);
            mv[1] = static_cast<int16_t>(mvp[1] + dy);
          }
          SetMotion(address, list, x, y, sub.width, sub.height, refs[list][b8], mv);
          MarkKnown(x, y, sub.width, sub.height);
        }
      }
    }
  }
  m_KnownBlocks = 0xFFFF;
  return ReadInterResidualAndReconstruct(reader, address, allSubBlocks8x8);
}

bool CmSliceDecoder::ReadInterResidualAndReconstruct(CmBitReader& reader, uint32_t address,
                                                     bool allowTransform8x8) {
  SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  const int coded = ReadCbp(reader, false);
  if (coded < 0) {
    return false;
  }
  const uint8_t cbp = static_cast<uint8_t>(coded);
  mb.cbp = cbp;
  if ((cbp & 15) != 0 && m_Pps->transform8x8Mode && allowTransform8x8) {
    mb.transform8x8 = ReadTransform8x8Flag(reader);
  }
  if (cbp != 0) {
    int32_t delta = 0;
    if (!ReadQpDelta(reader, delta)) {
      return false;
    }
    m_Qp = (m_Qp + delta + 52) % 52;
  }
  mb.qp = static_cast<int8_t>(m_Qp);
  if (!ReadResidualAny(reader, address, false, cbp) || IsOverrun(reader)) {
    return false;
  }
  PredictInter(address);
  const ptrdiff_t stride = GetMbStride(0);
  uint8_t* luma = GetSamples(address, 0);
  if (mb.transform8x8) {
    for (int b8 = 0; b8 < 4; ++b8) {
      if ((cbp & (1 << b8)) != 0) {
        AddLumaResidual8x8(b8, luma + 8 * (b8 / 2) * stride + 8 * (b8 % 2), stride, 1, mb.qp);
      }
    }
  } else {
    for (int blk = 0; blk < 16; ++blk) {
      if (mb.totalCoeff[BlockX[blk] + 4 * BlockY[blk]] != 0) {
        AddLumaResidual4x4(blk, luma + 4 * BlockY[blk] * stride + 4 * BlockX[blk], stride, 3,
                           mb.qp);
      }
    }
  }
  if (m_Sps->GetChromaArrayType() == 1) {
    AddChromaResidual(address, false);
  }
  return true;
}

void CmSliceDecoder::GetWeights(int refIdx0, int refIdx1, int component, int& w0, int& w1, int& o0,
                                int& o1, int& logWD, bool& weighted) const {
  w0 = w1 = 1;
  o0 = o1 = 0;
  logWD = 0;
  weighted = false;
  const bool p = m_Header->sliceType == SliceP;
  if (p ? m_Pps->weightedPred : m_Pps->weightedBipredIdc == 1) {
    weighted = true;
    logWD = component == 0 ? static_cast<int>(m_Header->lumaLog2WeightDenom)
                           : static_cast<int>(m_Header->chromaLog2WeightDenom);
    // A field macroblock weighs both fields of a frame entry alike.
    const int shift = m_MbField ? 1 : 0;
    if (refIdx0 >= 0) {
      const SmPredictionWeight& w = m_Header->weights[0][static_cast<size_t>(refIdx0 >> shift)];
      w0 = w.weight[component];
      o0 = w.offset[component];
    }
    if (refIdx1 >= 0) {
      const SmPredictionWeight& w = m_Header->weights[1][static_cast<size_t>(refIdx1 >> shift)];
      w1 = w.weight[component];
      o1 = w.offset[component];
    }
    return;
  }
  if (!p && m_Pps->weightedBipredIdc == 2 && refIdx0 >= 0 && refIdx1 >= 0) {
    weighted = true;
    logWD = 5;
    GetImplicitWeights(refIdx0, refIdx1, w0, w1);
  }
}

void CmSliceDecoder::GetImplicitWeights(int refIdx0, int refIdx1, int& w0, int& w1) const {
  // Frame macroblocks of a slice share the current count, so each pair of
  // indices is derived once per slice; a field macroblock's count depends
  // on its parity.
  SmImplicitWeight* cached = nullptr;
  if (!m_MbField && refIdx0 < 32 && refIdx1 < 32) {
    cached = &m_ImplicitWeights[refIdx0][refIdx1];
    if (cached->stamp == m_WeightStamp) {
      w0 = cached->w0;
      w1 = cached->w1;
      return;
    }
  }
  ComputeImplicitWeights(refIdx0, refIdx1, w0, w1);
  if (cached != nullptr) {
    *cached = {m_WeightStamp, static_cast<int16_t>(w0), static_cast<int16_t>(w1)};
  }
}

void CmSliceDecoder::ComputeImplicitWeights(int refIdx0, int refIdx1, int& w0, int& w1) const {
  // Implicit weights from the distances in picture order (8.4.2.3.1).
  w0 = w1 = 32;
  const int shift = m_MbField ? 1 : 0;
  const size_t i0 = static_cast<size_t>(refIdx0 >> shift),
               i1 = static_cast<size_t>(refIdx1 >> shift);
  const int32_t poc0 = GetReference(0, refIdx0)->GetPoc();
  const int32_t poc1 = GetReference(1, refIdx1)->GetPoc();
  const int tb = PocDistance(GetCurrentPoc(), poc0);
  const int td = PocDistance(poc1, poc0);
  if (td == 0 || m_Lists[0].longTerm[i0] != 0 || m_Lists[1].longTerm[i1] != 0) {
    return;
  }
  const int tx = (16384 + std::abs(td / 2)) / td;
  const int scale = std::clamp((tb * tx + 32) >> 6, -1024, 1023);
  if ((scale >> 2) < -64 || (scale >> 2) > 128) {
    return;
  }
  w0 = 64 - (scale >> 2);
  w1 = scale >> 2;
}

void CmSliceDecoder::PrepareWeights() {
  const bool p = m_Header->sliceType == SliceP;
  m_Weighting = (p ? m_Pps->weightedPred : m_Pps->weightedBipredIdc == 1) ? WeightExplicit
                : !p && m_Pps->weightedBipredIdc == 2                     ? WeightImplicit
                                                                          : WeightNone;
  if (++m_WeightStamp == 0) {
    // After four billion slices the stamps come round: forget them all.
    for (auto& row : m_ImplicitWeights) {
      std::fill(std::begin(row), std::end(row), SmImplicitWeight{});
    }
    m_WeightStamp = 1;
  }
  const int logWD[3] = {static_cast<int>(m_Header->lumaLog2WeightDenom),
                        static_cast<int>(m_Header->chromaLog2WeightDenom),
                        static_cast<int>(m_Header->chromaLog2WeightDenom)};
  for (int list = 0; list < 2; ++list) {
    for (size_t entry = 0; entry < 32; ++entry) {
      const SmPredictionWeight& w = m_Header->weights[list][entry];
      bool unit = true;
      for (int c = 0; c < 3; ++c) {
        unit = unit && logWD[c] < 16 && w.weight[c] == 1 << logWD[c] && w.offset[c] == 0;
      }
      m_UnitWeight[list][entry] = unit;
    }
  }
}

// Weights of one and offsets of zero (what a reference without weights of
// its own gets) give exactly the plain prediction or average, which need no
// buffers.
bool CmSliceDecoder::IsUnitWeight(const int* refs, int w0, int w1, int o0, int o1, int logWD) {
  const int unit = 1 << logWD;
  return (refs[0] < 0 || (w0 == unit && o0 == 0)) && (refs[1] < 0 || (w1 == unit && o1 == 0));
}

namespace {

// A field's chroma lies a quarter sample lower in a bottom field than in a
// top one: between fields of opposite parity the vector shifts.
int ChromaShift(int parity, const CmPicture& reference) {
  return parity >= 0 && reference.GetParity() >= 0 ? 2 * (parity - reference.GetParity()) : 0;
}

} // namespace

void CmSliceDecoder::PredictInter(uint32_t address) {
  const SmMacroblockInfo& mb = m_Picture->GetMacroblocks()[address];
  uint32_t column = 0, mbRow = 0;
  GetPosition(address, column, mbRow);
  const int row = static_cast<int>(mbRow);
  SmInterTarget target;
  target.mb = &mb;
  target.x = static_cast<int>(column) * 16;
  // A field macroblock's lines are those of its pair in the field's own
  // counting.
  target.y = (m_MbField ? row / 2 : row) * 16;
  target.lumaStride = GetMbStride(0);
  target.chroma = m_Sps->GetChromaArrayType() == 1;
  target.parity = GetCurrentParity();
  // A field macroblock starts on the first or second line of its pair.
  const int pairLine = m_MbField ? (row & ~1) : row, fieldLine = m_MbField ? (row & 1) : 0;
  target.samples[0] =
      m_Picture->GetPlane(0) + (pairLine * 16 + fieldLine) * m_Picture->GetStride(0) + target.x;
  if (target.chroma) {
    target.chromaStride = GetMbStride(1);
    const ptrdiff_t offset = (pairLine * 8 + fieldLine) * m_Picture->GetStride(1) + target.x / 2;
    target.samples[1] = m_Picture->GetPlane(1) + offset;
    target.samples[2] = m_Picture->GetPlane(2) + offset;
  }
  PrefetchForWriting(*m_Picture, target.x, target.y);
  // Both lists: a bi-predicted macroblock reads two pictures.
  const CmPicture* references[2] = {nullptr, nullptr};
  for (int list = 0; list < 2; ++list) {
    if (mb.refIdx[list][0] >= 0) {
      references[list] = GetReference(list, mb.refIdx[list][0]);
      PrefetchAhead(*references[list], target.x, target.y, mb.mv[list][0][0], mb.mv[list][0][1]);
    }
  }
  // Blocks of 4x4 with the same motion are predicted as one: the whole
  // macroblock, each 8x8 block, or each 4x4 block. A list's vectors count
  // only where the list is used.
  bool whole = true;
  for (int list = 0; list < 2 && whole; ++list) {
    const int8_t* refs = mb.refIdx[list];
    whole = refs[1] == refs[0] && refs[2] == refs[0] && refs[3] == refs[0] &&
            (refs[0] < 0 || HasOneVector(mb.mv[list]));
  }
  if (whole && references[0] != nullptr && mb.refIdx[1][0] < 0 &&
      (m_Weighting != WeightExplicit || m_UnitWeight[0][mb.refIdx[0][0] >> (m_MbField ? 1 : 0)])) {
    // One vector of list 0 without weights, most macroblocks of P slices:
    // the reference looked up once, the samples straight into the picture.
    const CmPicture& reference = *references[0];
    const int16_t* mv = mb.mv[0][0];
    reference.WaitForLine(target.y + (mv[1] >> 2) + 16 + 3);
    PredictLuma(reference, target.x, target.y, mv[0], mv[1], 16, 16, target.samples[0],
                target.lumaStride);
    if (target.chroma) {
      PredictChromaPair(reference, target.x / 2, target.y / 2, mv[0],
                        mv[1] + ChromaShift(target.parity, reference), 8, 8, target.samples[1],
                        target.samples[2], target.chromaStride);
    }
    return;
  }
  if (whole) {
    PredictBlock(target, 0, 0, 16, 16);
    return;
  }
  for (int b8 = 0; b8 < 4; ++b8) {
    const int x = 2 * (b8 % 2), y = 2 * (b8 / 2);
    const int first = x + 4 * y;
    bool same = true;
    for (int list = 0; list < 2; ++list) {
      uint32_t v[6];
      std::memcpy(v, mb.mv[list][first], sizeof v);
      same = same && (mb.refIdx[list][b8] < 0 || (v[1] == v[0] && v[4] == v[0] && v[5] == v[0]));
    }
    if (same) {
      PredictBlock(target, x, y, 8, 8);
      continue;
    }
    for (int j = y; j < y + 2; ++j) {
      for (int i = x; i < x + 2; ++i) {
        PredictBlock(target, i, j, 4, 4);
      }
    }
  }
}

namespace {

// What a block's prediction reads of each list: the reference, null where
// the list is not used, and the vector.
struct SmBlockMotion {
  const CmPicture* references[2];
  const int16_t* mvs[2];

  bool Both() const { return references[0] != nullptr && references[1] != nullptr; }
  int Single() const { return references[0] != nullptr ? 0 : 1; }
};

// The weights of one plane, and whether they change the prediction at all.
struct SmPlaneWeights {
  int w0 = 1, w1 = 1, o0 = 0, o1 = 0, logWD = 0;
  bool weighted = false;
};

[[gnu::always_inline]] inline void PredictLumaFrom(const SmBlockMotion& motion, int list, int px,
                                                   int py, int width, int height, uint8_t* out,
                                                   ptrdiff_t outStride,
                                                   const uint8_t* other = nullptr) {
  const CmPicture& reference = *motion.references[list];
  const int16_t* mv = motion.mvs[list];
  // A reference decoding beside this picture: its lines that the
  // interpolation reads, and the chroma lines beside them, which are
  // predicted after the luma, must be final.
  reference.WaitForLine(py + (mv[1] >> 2) + height + 3);
  PredictLuma(reference, px, py, mv[0], mv[1], width, height, out, outStride, other, width);
}

[[gnu::always_inline]] inline void
PredictChromaFrom(const SmBlockMotion& motion, int list, int parity, int px, int py, int width,
                  int height, uint8_t* outCb, uint8_t* outCr, ptrdiff_t outStride,
                  const uint8_t* otherCb = nullptr, const uint8_t* otherCr = nullptr) {
  const CmPicture& reference = *motion.references[list];
  const int16_t* mv = motion.mvs[list];
  PredictChromaPair(reference, px, py, mv[0], mv[1] + ChromaShift(parity, reference), width, height,
                    outCb, outCr, outStride, otherCb, otherCr, width);
}

// Luma without weights: one list straight into the picture, or the first
// list beside it and the second averaged with it on the way in. The
// picture's lines are new to the cache here, and reading them back would
// wait for their way from memory.
[[gnu::always_inline]] inline void PredictPlainLuma(const SmBlockMotion& motion, int px, int py,
                                                    int width, int height, uint8_t* dst,
                                                    ptrdiff_t stride) {
  if (!motion.Both()) {
    PredictLumaFrom(motion, motion.Single(), px, py, width, height, dst, stride);
    return;
  }
  uint8_t first[16 * 16];
  PredictLumaFrom(motion, 0, px, py, width, height, first, width);
  PredictLumaFrom(motion, 1, px, py, width, height, dst, stride, first);
}

// Both chroma planes without weights, as PredictPlainLuma.
[[gnu::always_inline]] inline void PredictPlainChroma(const SmBlockMotion& motion, int parity,
                                                      int px, int py, int width, int height,
                                                      uint8_t* const* dsts, ptrdiff_t stride) {
  if (!motion.Both()) {
    PredictChromaFrom(motion, motion.Single(), parity, px, py, width, height, dsts[0], dsts[1],
                      stride);
    return;
  }
  uint8_t first[2][8 * 8];
  PredictChromaFrom(motion, 0, parity, px, py, width, height, first[0], first[1], width);
  PredictChromaFrom(motion, 1, parity, px, py, width, height, dsts[0], dsts[1], stride, first[0],
                    first[1]);
}

// The final samples of one plane from the predictions of the lists used
// (each `width` a row), weighted as q says.
void CombinePredictions(const SmBlockMotion& motion, const uint8_t* first, const uint8_t* second,
                        const SmPlaneWeights& q, uint8_t* dst, ptrdiff_t stride, int width,
                        int height) {
  const int single = motion.Single();
  const uint8_t* one = single == 0 ? first : second;
  if (motion.Both() && q.weighted) {
    NmPrimitives::H264WeightBi(first, width, second, width, dst, stride, width, height, q.logWD,
                               q.w0, q.w1, (q.o0 + q.o1 + 1) >> 1);
  } else if (motion.Both()) {
    NmPrimitives::H264Average(first, width, second, width, dst, stride, width, height);
  } else if (q.weighted) {
    NmPrimitives::H264Weight(one, width, dst, stride, width, height, q.logWD,
                             single == 0 ? q.w0 : q.w1, single == 0 ? q.o0 : q.o1);
  } else {
    for (int j = 0; j < height; ++j) {
      std::memcpy(dst + j * stride, one + j * width, static_cast<size_t>(width));
    }
  }
}

} // namespace

void CmSliceDecoder::PredictBlock(const SmInterTarget& target, int bx, int by, int width,
                                  int height) {
  const SmMacroblockInfo& mb = *target.mb;
  const int b8 = bx / 2 + 2 * (by / 2);
  const int refs[2] = {mb.refIdx[0][b8], mb.refIdx[1][b8]};
  // Whether the weights, if any, leave the prediction as it is: decided
  // from the tables of the slice, without deriving a weight.
  bool plain = true;
  if (m_Weighting == WeightExplicit) {
    const int shift = m_MbField ? 1 : 0;
    plain = (refs[0] < 0 || m_UnitWeight[0][refs[0] >> shift]) &&
            (refs[1] < 0 || m_UnitWeight[1][refs[1] >> shift]);
  } else if (m_Weighting == WeightImplicit && refs[0] >= 0 && refs[1] >= 0) {
    int w0 = 0, w1 = 0;
    GetImplicitWeights(refs[0], refs[1], w0, w1);
    plain = w0 == 32 && w1 == 32;
  }
  if (!plain) {
    PredictWeightedBlock(target, bx, by, width, height);
    return;
  }
  const SmBlockMotion motion = {{GetReference(0, refs[0]), GetReference(1, refs[1])},
                                {mb.mv[0][bx + 4 * by], mb.mv[1][bx + 4 * by]}};
  const ptrdiff_t stride = target.lumaStride;
  PredictPlainLuma(motion, target.x + 4 * bx, target.y + 4 * by, width, height,
                   target.samples[0] + 4 * by * stride + 4 * bx, stride);
  if (!target.chroma) {
    return;
  }
  const ptrdiff_t chromaStride = target.chromaStride;
  const ptrdiff_t offset = 2 * by * chromaStride + 2 * bx;
  uint8_t* const dsts[2] = {target.samples[1] + offset, target.samples[2] + offset};
  PredictPlainChroma(motion, target.parity, target.x / 2 + 2 * bx, target.y / 2 + 2 * by, width / 2,
                     height / 2, dsts, chromaStride);
}

void CmSliceDecoder::PredictWeightedBlock(const SmInterTarget& target, int bx, int by, int width,
                                          int height) {
  const SmMacroblockInfo& mb = *target.mb;
  const int b8 = bx / 2 + 2 * (by / 2);
  const int refs[2] = {mb.refIdx[0][b8], mb.refIdx[1][b8]};
  const SmBlockMotion motion = {{GetReference(0, refs[0]), GetReference(1, refs[1])},
                                {mb.mv[0][bx + 4 * by], mb.mv[1][bx + 4 * by]}};
  const auto weightsOf = [&](int component) {
    SmPlaneWeights q;
    GetWeights(refs[0], refs[1], component, q.w0, q.w1, q.o0, q.o1, q.logWD, q.weighted);
    q.weighted = q.weighted && !IsUnitWeight(refs, q.w0, q.w1, q.o0, q.o1, q.logWD);
    return q;
  };
  // A plane whose weights leave it as it is takes the plain prediction.
  const SmPlaneWeights luma = weightsOf(0);
  const int px = target.x + 4 * bx, py = target.y + 4 * by;
  const ptrdiff_t stride = target.lumaStride;
  uint8_t* dst = target.samples[0] + 4 * by * stride + 4 * bx;
  if (luma.weighted) {
    uint8_t predictions[2][16 * 16];
    for (int list = 0; list < 2; ++list) {
      if (refs[list] >= 0) {
        PredictLumaFrom(motion, list, px, py, width, height, predictions[list], width);
      }
    }
    CombinePredictions(motion, predictions[0], predictions[1], luma, dst, stride, width, height);
  } else {
    PredictPlainLuma(motion, px, py, width, height, dst, stride);
  }
  if (!target.chroma) {
    return;
  }
  // Implicit weights are those of luma for chroma too, and cost a division:
  // they are derived once per block. Explicit ones may differ between the
  // planes.
  const bool implicit = m_Header->sliceType == SliceB && m_Pps->weightedBipredIdc == 2;
  const SmPlaneWeights chroma[2] = {implicit ? luma : weightsOf(1), implicit ? luma : weightsOf(2)};
  const int w = width / 2, h = height / 2;
  const int cx = target.x / 2 + 2 * bx, cy = target.y / 2 + 2 * by;
  const ptrdiff_t chromaStride = target.chromaStride;
  const ptrdiff_t offset = 2 * by * chromaStride + 2 * bx;
  uint8_t* const dsts[2] = {target.samples[1] + offset, target.samples[2] + offset};
  const int parity = target.parity;
  if (!chroma[0].weighted && !chroma[1].weighted) {
    PredictPlainChroma(motion, parity, cx, cy, w, h, dsts, chromaStride);
    return;
  }
  // Both planes through one kernel call each list, then weighted plane by
  // plane.
  uint8_t predictions[2][2][8 * 8]; // list, plane
  for (int list = 0; list < 2; ++list) {
    if (refs[list] >= 0) {
      PredictChromaFrom(motion, list, parity, cx, cy, w, h, predictions[list][0],
                        predictions[list][1], w);
    }
  }
  for (int plane = 0; plane < 2; ++plane) {
    CombinePredictions(motion, predictions[0][plane], predictions[1][plane], chroma[plane],
                       dsts[plane], chromaStride, w, h);
  }
}

} // namespace NmH264
