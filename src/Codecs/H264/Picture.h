#pragma once

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "Codecs/H264/MotionRecord.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace NmH264 {

// What the neighbours of a macroblock need to know of it, and what the
// deblocking filter reads back: the full record, held only while its
// picture is decoded and filtered. Later pictures read the CmMotionRecord
// made from it.
struct SmMacroblockInfo {
  uint32_t slice = 0; // the slice number that decoded it; 0 while not decoded
  uint8_t kind = 0;   // SmMacroblockKind
  bool transform8x8 = false;
  int8_t qp = 0;
  uint8_t cbp = 0;
  // Intra prediction modes of the 4x4 blocks in raster order; 2 (DC) for
  // macroblocks that are not 4x4 or 8x8 intra coded.
  int8_t intraModes[16] = {};
  // Non-zero coefficients per 4x4 block in raster order: luma, then the
  // 2x2 blocks of each chroma component of 4:2:0.
  uint8_t totalCoeff[16] = {};
  uint8_t totalCoeffChroma[2][4] = {};
  // Motion per list: vectors per 4x4 block in raster order, reference index
  // per 8x8 block (-1 where the list is unused) and the identity of the
  // picture that index named, which deblocking and later pictures compare.
  int16_t mv[2][16][2] = {};
  int8_t refIdx[2][4] = {{-1, -1, -1, -1}, {-1, -1, -1, -1}};
  uint32_t refPicture[2][4] = {};
  // What the context modelling of CABAC reads from neighbours: the size of
  // each motion vector difference per list, 4x4 block and component (held
  // to 127, enough for its thresholds), whether the luma DC and the two
  // chroma DC blocks had coefficients (bits 0 to 2), the chroma prediction
  // mode, and which 8x8 blocks took direct prediction (all four for
  // B_Skip and B_Direct_16x16, which direct16x16 tells apart).
  uint8_t mvd[2][16][2] = {};
  uint8_t codedDc = 0;
  uint8_t chromaPredMode = 0;
  uint8_t directBlocks = 0;
  bool direct16x16 = false;
  // mb_field_decoding_flag: in a frame of field and frame macroblock pairs,
  // whether this macroblock holds every other line of its pair.
  bool field = false;
};

// Whether all sixteen vectors of one list of a macroblock are its first:
// the macroblock moves as one piece there, which prediction and the loop
// filter both take as the cheap case.
inline bool HasOneVector(const int16_t (*mv)[2]) {
#if defined(__SSE2__)
  int32_t first = 0;
  std::memcpy(&first, mv[0], sizeof first);
  const __m128i all = _mm_set1_epi32(first);
  const auto* v = reinterpret_cast<const __m128i*>(mv);
  const __m128i differ = _mm_or_si128(_mm_or_si128(_mm_xor_si128(_mm_loadu_si128(v), all),
                                                   _mm_xor_si128(_mm_loadu_si128(v + 1), all)),
                                      _mm_or_si128(_mm_xor_si128(_mm_loadu_si128(v + 2), all),
                                                   _mm_xor_si128(_mm_loadu_si128(v + 3), all)));
  return _mm_movemask_epi8(_mm_cmpeq_epi8(differ, _mm_setzero_si128())) == 0xFFFF;
#else
  uint32_t vectors[16];
  std::memcpy(vectors, mv, sizeof vectors);
  uint32_t differ = 0;
  for (const uint32_t vector : vectors) {
    differ |= vector ^ vectors[0];
  }
  return differ == 0;
#endif
}

enum SmMacroblockKind : uint8_t {
  MbI4x4 = 1,
  MbI8x8,
  MbI16x16,
  MbIPcm,
  MbInter,
  MbSkip,
};

inline bool IsIntra(uint8_t kind) {
  return kind >= MbI4x4 && kind <= MbIPcm;
}

// In a frame of macroblock pairs, the macroblock of the pair to the left
// that holds the line beside line yN of the current macroblock (top or
// bottom of its pair, field or frame), and that line in the macroblock's
// own counting; maxH is 16 for luma and 8 for 4:2:0 chroma. Lines of a
// field macroblock lie every other frame line, so beside a pair of the
// other kind the neighbour alternates or changes half way.
inline void LocateLeftInPair(bool field, bool top, bool leftField, int yN, int maxH, bool& bottom,
                             int& yM) {
  if (field == leftField) {
    bottom = !top;
    yM = yN;
  } else if (!field) {
    bottom = yN % 2 != 0;
    yM = top ? yN >> 1 : (yN + maxH) >> 1;
  } else {
    const int frameLine = 2 * yN + (top ? 0 : 1);
    bottom = frameLine >= maxH;
    yM = frameLine - (bottom ? maxH : 0);
  }
}

// A decoded picture: three planes (or one for 4:0:0) with a border around
// them, so that motion vectors pointing outside need no clamping in the
// inner loops, and what later pictures read of its motion. While it is
// decoded, the full macroblock records lent to it.
class CmPicture {
public:
  static constexpr int LumaBorder = 32;

  void Allocate(uint32_t widthInMbs, uint32_t heightInMbs, bool monochrome);

  uint8_t* GetPlane(int component) const { return m_Origin[component]; }
  ptrdiff_t GetStride(int component) const { return m_Stride[component]; }
  uint32_t GetWidthInMbs() const { return m_WidthInMbs; }
  uint32_t GetHeightInMbs() const { return m_HeightInMbs; }
  bool IsMonochrome() const { return m_Monochrome; }
  // A number that no other picture of the decoder has at the same time.
  uint32_t GetId() const { return m_Id; }
  void SetId(uint32_t id) { m_Id = id; }
  // PicOrderCnt of the frame: the smaller of its two fields' counts.
  int32_t GetPoc() const { return m_Poc; }
  void SetPoc(int32_t poc) { m_Poc = poc; }
  // The counts of a frame's two fields, which its field macroblocks weigh
  // and scale by while the fields themselves are not yet made.
  int32_t GetFieldPoc(int parity) const { return m_FieldPoc[parity]; }
  void SetFieldPocs(int32_t top, int32_t bottom) {
    m_FieldPoc[0] = top;
    m_FieldPoc[1] = bottom;
  }
  // The full records, one per macroblock in raster order, while the
  // picture is decoded and filtered; null otherwise.
  // The sample memory mapped apart from the heap by all pictures together,
  // for a count of what a decoder holds.
  static size_t GetMappedSampleBytes();
  SmMacroblockInfo* GetMacroblocks() { return m_Macroblocks; }
  const SmMacroblockInfo* GetMacroblocks() const { return m_Macroblocks; }
  void LendMacroblocks(SmMacroblockInfo* macroblocks) { m_Macroblocks = macroblocks; }
  // What direct prediction of later pictures reads, kept once the picture
  // is decoded; empty after Allocate.
  CmMotionRecord& GetMotion() { return m_Motion; }
  const CmMotionRecord& GetMotion() const { return m_Motion; }
  // Sets every sample, for pictures that stand in for missing ones.
  void Fill(uint8_t value);
  // Repeats the edge samples into the border, once the picture is decoded,
  // so that prediction from it may read there as if clamped.
  void ExtendBorders();
  // The left and right borders of luma lines [firstLine, endLine) and of the
  // chroma lines beside them, with the border above when the range starts
  // at the top and the one below when it ends at the bottom: for a picture
  // whose rows become final one after another.
  void ExtendBordersOfLines(int32_t firstLine, int32_t endLine);

  // While another thread decodes the picture, how far its lines are final,
  // borders included, so that a picture decoded beside it may predict from
  // them. A picture is complete unless BeginDecoding said otherwise, so
  // that pictures decoded on the caller's thread never wait.
  void BeginDecoding() { m_ReadyLines.store(0, std::memory_order_relaxed); }
  // Luma lines below `lines` (and the chroma lines beside them) are final.
  void PublishLines(int32_t lines);
  void MarkComplete() { PublishLines(INT32_MAX); }
  // Blocks until luma line `line` is final; a line below the picture, which
  // only its border holds, needs the whole picture.
  void WaitForLine(int32_t line) const;
  void WaitUntilComplete() const { WaitForLine(INT32_MAX - 1); }

  // A field is a picture of its own, with its own border: a field predicts
  // from fields, and its border must repeat its own edge lines, not the
  // frame's. -1 for a frame, 0 for a top field, 1 for a bottom field.
  int GetParity() const { return m_Parity; }
  // The frame's two fields, made on first use with the frame's size.
  CmPicture& GetField(int parity);
  const CmPicture* FindField(int parity) const { return m_Fields[parity].get(); }
  // The frame of a field; null for a frame.
  const CmPicture* GetFrame() const { return m_Frame; }
  CmPicture* FindField(int parity) { return m_Fields[parity].get(); }
  // Copies a decoded field into every other line of the frame, or the
  // frame's lines out into its fields, borders included.
  void WeaveField(int parity);
  void SplitIntoFields();
  // A field that never got its partner: its lines stand in for the missing
  // field's too, so that the frame shows no stale lines.
  void RepeatField(int parity);
  // Whether the frame was decoded as two fields: its own macroblock records
  // then tell nothing.
  bool IsFieldDecoded() const { return m_FieldDecoded; }
  void SetFieldDecoded(bool fieldDecoded) { m_FieldDecoded = fieldDecoded; }
  // Whether the frame is coded in macroblock pairs, each either two frame
  // or two field macroblocks; its records stay in raster order.
  bool IsMbaff() const { return m_Mbaff; }
  void SetMbaff(bool mbaff) { m_Mbaff = mbaff; }

private:
  uint32_t m_WidthInMbs = 0;
  uint32_t m_HeightInMbs = 0;
  bool m_Monochrome = false;
  uint32_t m_Id = 0;
  int32_t m_Poc = 0;
  int32_t m_FieldPoc[2] = {0, 0};
  int m_Parity = -1;
  const CmPicture* m_Frame = nullptr;
  bool m_FieldDecoded = false;
  bool m_Mbaff = false;
  std::unique_ptr<CmPicture> m_Fields[2];

public:
  // Sample memory comes from its own mapping (huge pages want an alignment
  // that the heap would pay for with a huge page of slack), or from the
  // heap where it is small: `mapped` tells which and how much.
  struct SmFreeSamples {
    SmFreeSamples() noexcept : mapped(0) {}
    explicit SmFreeSamples(size_t bytes) noexcept : mapped(bytes) {}
    void operator()(uint8_t* memory) const;
    size_t mapped;
  };

private:
  std::unique_ptr<uint8_t[], SmFreeSamples> m_Memory;
  uint8_t* m_Origin[3] = {};
  ptrdiff_t m_Stride[3] = {};
  SmMacroblockInfo* m_Macroblocks = nullptr;
  CmMotionRecord m_Motion;
  std::atomic<int32_t> m_ReadyLines{INT32_MAX};
};

// A reference picture list of a slice: its pictures (null where no picture
// fills an entry) and whether each is a long-term reference.
struct SmReferenceList {
  std::vector<const CmPicture*> pictures;
  std::vector<uint8_t> longTerm;
};

} // namespace NmH264
