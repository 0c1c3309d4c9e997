#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/H264/BitReader.h"
#include "Codecs/H264/CabacDecoder.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/Picture.h"
#include "Codecs/H264/Reconstruction.h"
#include "Codecs/H264/SliceHeader.h"

namespace NmH264 {

// Sees every bin that the CABAC decoding of slices takes, with its context,
// so that a tool can encode the same syntax anew (with other initial
// contexts, say). One observer at a time, for the whole process; slices
// decoded on several threads at once interleave their calls.
class ImCabacObserver {
public:
  virtual ~ImCabacObserver() = default;
  // A slice's data begins: reader stands just behind its header.
  virtual void OnSliceData(const SmSliceHeader& header, const SmPictureParameterSet& pps,
                           const CmBitReader& reader) = 0;
  virtual void OnDecision(int ctxIdx, int bin) = 0;
  virtual void OnBypass(int bin) = 0;
  virtual void OnTerminate(int bin) = 0;
  // The samples of an I_PCM macroblock, after which the engine restarts.
  virtual void OnPcm(const uint8_t* samples, size_t size) = 0;
};

// Hears of each macroblock as soon as its samples and record are final,
// so that a loop filter on another thread can follow close behind.
class ImMacroblockProgress {
public:
  virtual ~ImMacroblockProgress() = default;
  // mbAddr counts in decoding order: pair by pair, top before bottom, in a
  // frame of macroblock pairs. A slice that breaks off later may still take
  // back the last macroblock it told of.
  virtual void OnMacroblockDone(uint32_t mbAddr) = 0;
};

// Whether the slice's entropy coding is one this decoder decodes. The
// initial contexts of 8x8 transform blocks for cabac_init_idc 1 are not in
// this decoder yet, so slices with both are refused rather than decoded
// wrongly.
inline bool IsEntropyCodingDecoded(const SmSliceHeader& header, const SmPictureParameterSet& pps) {
  return !(pps.entropyCodingMode && pps.transform8x8Mode && header.cabacInitIdc == 1 &&
           (header.sliceType == SliceP || header.sliceType == SliceB));
}

// Decodes the macroblocks of one slice into its picture: parsing (CAVLC or
// CABAC) and reconstruction, macroblock by macroblock. Both entropy coders
// sit behind the same reads of syntax elements, so that the macroblock
// semantics exist once.
class CmSliceDecoder {
public:
  enum SmResult { Decoded, Damaged, Unsupported };

  // reader stands at the slice data; sliceNumber is unique within the
  // picture and above 0. lists holds the slice's two reference picture
  // lists, each as long as its number of active references.
  // sliceGroups gives each macroblock's slice group where the picture has
  // several; null for one.
  // Null to stop observing.
  static void SetCabacObserver(ImCabacObserver* observer);
  // Null for none.
  void SetProgress(ImMacroblockProgress* progress) { m_Progress = progress; }

  SmResult Decode(CmBitReader& reader, const SmSliceHeader& header,
                  const SmSequenceParameterSet& sps, const SmPictureParameterSet& pps,
                  uint32_t sliceNumber, CmPicture& picture, const SmReferenceList* lists = nullptr,
                  const std::vector<uint8_t>* sliceGroups = nullptr);

private:
  struct SmNeighbours {
    const SmMacroblockInfo* left;     // A
    const SmMacroblockInfo* top;      // B
    const SmMacroblockInfo* topRight; // C
    const SmMacroblockInfo* topLeft;  // D
  };

  // The syntax elements that both entropy coders carry; the CAVLC reads
  // take the bits from reader, the CABAC ones from the arithmetic decoder.
  uint32_t ReadSubMbType(CmBitReader& reader);
  // ref_idx of the partition whose top left 4x4 block is (x, y).
  uint32_t ReadRefIdx(CmBitReader& reader, int list, int x, int y);
  int32_t ReadMvd(CmBitReader& reader, int list, int component, int x, int y);
  // Keeps the sizes of a partition's vector differences for the contexts
  // of the partitions after it.
  void SetMvd(int list, int x, int y, int width, int height, int32_t dx, int32_t dy);
  bool ReadTransform8x8Flag(CmBitReader& reader);
  bool ReadPrevIntraPredFlag(CmBitReader& reader);
  int ReadRemIntraPred(CmBitReader& reader);
  uint32_t ReadChromaPredMode(CmBitReader& reader);
  // coded_block_pattern; -1 for a code that names none.
  int ReadCbp(CmBitReader& reader, bool intra);
  // False for a difference outside the range of the quantiser.
  bool ReadQpDelta(CmBitReader& reader, int32_t& delta);
  bool ReadResidualAny(CmBitReader& reader, uint32_t address, bool intra16x16, uint8_t cbp);
  bool IsOverrun(const CmBitReader& reader) const {
    return m_UseCabac ? m_Cabac.IsOverrun() : reader.IsOverrun();
  }

  // CABAC only.
  SmResult DecodeCabacSlice(CmBitReader& reader, uint32_t count,
                            const std::vector<uint8_t>* sliceGroups);
  int Decision(int ctxIdx) {
    const int bin = m_Cabac.DecodeDecision(m_Contexts[ctxIdx]);
    if (m_Observer != nullptr) [[unlikely]] {
      m_Observer->OnDecision(ctxIdx, bin);
    }
    return bin;
  }
  int Bypass() {
    const int bin = m_Cabac.DecodeBypass();
    if (m_Observer != nullptr) [[unlikely]] {
      m_Observer->OnBypass(bin);
    }
    return bin;
  }
  int Terminate() {
    const int bin = m_Cabac.DecodeTerminate();
    if (m_Observer != nullptr) [[unlikely]] {
      m_Observer->OnTerminate(bin);
    }
    return bin;
  }
  uint32_t ReadMbTypeCabac();
  // mb_skip_flag of the macroblock with these neighbours.
  bool ReadSkipFlagCabac(const SmNeighbours& neighbours);
  // mb_field_decoding_flag of the pair holding address.
  bool ReadFieldFlagCabac(uint32_t address);
  uint32_t ReadIntraMbTypeCabac(bool intraSlice);
  int ReadCbpCabac();
  // One residual block of the given category; codedInc is the context
  // increment of its coded_block_flag, or -1 where the block has none.
  // Returns the number of non-zero levels, or -1 for damage.
  int ReadBlockCabac(int category, int codedInc, int maxNumCoeff, int16_t* levels);
  // coded_block_flag, the significance map and the levels of a block.
  template <bool Observed>
  int ReadLevelsCabac(int category, int codedInc, int maxNumCoeff, int16_t* levels);
  template <typename Coded>
  int CodedBlockIncrement(const SmMacroblockInfo* a, const SmMacroblockInfo* b,
                          const Coded& coded) const;
  bool ReadResidualCabac(bool intra16x16, uint8_t cbp);
  bool ReadPcmCabac(CmBitReader& reader);
  // The macroblock that holds 4x4 block (x, y) of the current one's
  // coordinates (-1 to 3) and the block's place in it; null when that
  // macroblock is not available.
  const SmMacroblockInfo* LocateBlock(int x, int y, int& bx, int& by) const;

  bool DecodeIntraMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address);
  bool DecodeInterMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address);
  bool DecodeBMacroblock(CmBitReader& reader, uint32_t mbType, uint32_t address);
  bool ReadInterResidualAndReconstruct(CmBitReader& reader, uint32_t address,
                                       bool allowTransform8x8);
  void DecodeSkippedMacroblock(uint32_t address);
  bool DecodeBSkippedMacroblock(uint32_t address);
  // Direct prediction of the 8x8 blocks whose bits are set in mask
  // (8.4.1.2), spatial or temporal as the slice says.
  bool PredictDirect(uint32_t address, unsigned mask);
  void GetWeights(int refIdx0, int refIdx1, int component, int& w0, int& w1, int& o0, int& o1,
                  int& logWD, bool& weighted) const;
  void GetImplicitWeights(int refIdx0, int refIdx1, int& w0, int& w1) const;
  void ComputeImplicitWeights(int refIdx0, int refIdx1, int& w0, int& w1) const;
  static bool IsUnitWeight(const int* refs, int w0, int w1, int o0, int o1, int logWD);
  // The motion vector prediction of 8.4.1.3 for the partition of the
  // current macroblock at (x, y) and of the given size, in 4x4 blocks.
  void PredictMotionVector(uint32_t address, int list, int x, int y, int width, int height,
                           int refIdx, int shape, int16_t* mvp) const;
  // The motion of a neighbouring 4x4 block at (x, y) relative to the
  // current macroblock, scaled to the current macroblock's lines; false
  // when that block is not available. above: the neighbour lies above the
  // partition (B, C or D), and is the block holding the line just above it.
  bool GetNeighbourMotion(uint32_t address, int list, int x, int y, int& refIdx, int16_t* mv,
                          bool above = false) const;
  void SetMotion(uint32_t address, int list, int x, int y, int width, int height, int refIdx,
                 const int16_t* mv);
  // The 4x4 blocks of a partition whose motion is now known to the
  // predictions of the partitions after it.
  void MarkKnown(int x, int y, int width, int height);
  // A macroblock's record, cleared for inter or skipped decoding.
  void StartInterMacroblock(uint32_t address, uint8_t kind);
  void PredictInter(uint32_t address);
  // Where the current macroblock's prediction goes, worked out once for all
  // its blocks: its record, its top left luma sample in the lines of its
  // picture or field, its samples in each plane and their line distances,
  // the parity of its lines and whether it has 4:2:0 chroma.
  struct SmInterTarget {
    const SmMacroblockInfo* mb;
    int x, y;
    uint8_t* samples[3];
    ptrdiff_t lumaStride, chromaStride;
    int parity;
    bool chroma;
  };
  // One block of width x height samples at 4x4 block (bx, by) whose motion
  // is uniform.
  void PredictBlock(const SmInterTarget& target, int bx, int by, int width, int height);
  // The same where a weight other than one or an offset applies.
  void PredictWeightedBlock(const SmInterTarget& target, int bx, int by, int width, int height);
  void AddChromaResidual(uint32_t address, bool intra);
  void AddLumaResidual4x4(int blk, uint8_t* dst, ptrdiff_t stride, int list, int qp);
  void AddLumaResidual8x8(int b8, uint8_t* dst, ptrdiff_t stride, int list, int qp);
  bool ReadPcm(CmBitReader& reader, uint32_t address);
  bool ReadResidual(CmBitReader& reader, uint32_t address, bool intra16x16, uint8_t cbp);
  void ReconstructIntra(uint32_t address, int intra16x16Mode, int chromaMode);
  SmNeighbours GetNeighbours(uint32_t address) const;
  // Where a location beside or inside the current macroblock lies: the
  // macroblock holding it (null when not available) and the position in
  // that macroblock. xN and yN count samples of a maxW x maxH block grid
  // (16 x 16 for luma, 8 x 8 for 4:2:0 chroma) from the current one's top
  // left; in a frame of macroblock pairs a field and a frame neighbour
  // count their lines differently.
  struct SmLocation {
    const SmMacroblockInfo* mb;
    int x, y;
  };
  SmLocation Locate(uint32_t address, int xN, int yN, int maxW, int maxH) const;
  // The raster record of macroblock address mbAddr, which in a frame of
  // macroblock pairs counts pair by pair, top before bottom.
  uint32_t ToRaster(uint32_t mbAddr) const;
  // The column and row of a macroblock. Decoding asks for them many times
  // per macroblock, mostly of the current one, so the division is done
  // once per address.
  void GetPosition(uint32_t address, uint32_t& x, uint32_t& y) const {
    if (address != m_PositionAddress) {
      const uint32_t width = m_Picture->GetWidthInMbs();
      m_PositionAddress = address;
      m_PositionX = address % width;
      m_PositionY = address / width;
    }
    x = m_PositionX;
    y = m_PositionY;
  }
  // The current macroblock's top left sample of a plane, and the distance
  // between its lines: two frame lines apart for a field macroblock.
  uint8_t* GetSamples(uint32_t address, int plane) const;
  ptrdiff_t GetMbStride(int plane) const {
    return m_Picture->GetStride(plane) * (m_MbField ? 2 : 1);
  }
  // The picture that refIdx of a list names for the current macroblock:
  // the list's entry, or for a field macroblock of a frame in pairs a field
  // of entry refIdx / 2, of the macroblock's own parity for even indices
  // and of the other for odd ones. Null where none does.
  const CmPicture* GetReference(int list, int refIdx) const {
    if (!m_MbField) {
      // Frame macroblocks take the list's entry as it stands.
      const std::vector<const CmPicture*>& pictures = m_Lists[list].pictures;
      return refIdx >= 0 && static_cast<size_t>(refIdx) < pictures.size() ? pictures[refIdx]
                                                                          : nullptr;
    }
    return GetFieldReference(list, refIdx);
  }
  const CmPicture* GetFieldReference(int list, int refIdx) const;
  // How the slice weighs its predictions, and which entries of each list
  // weigh every plane by one with no offset, so that the plain prediction
  // serves; both set once per slice.
  enum SmWeighting : uint8_t { WeightNone, WeightExplicit, WeightImplicit };
  void PrepareWeights();
  // How many indices of a list the current macroblock may use.
  uint32_t GetActiveReferences(int list) const {
    return m_Header->numRefIdxActive[list] * (m_MbField ? 2u : 1u);
  }
  // The parity of the current macroblock's lines when they are one field's:
  // a field picture's, or a field macroblock's of a frame in pairs; else -1.
  int32_t GetCurrentPoc() const {
    const int parity = GetCurrentParity();
    return m_MbField ? m_Picture->GetFieldPoc(parity) : m_Picture->GetPoc();
  }
  int GetCurrentParity() const {
    return m_MbField ? static_cast<int>(m_Address / m_Picture->GetWidthInMbs() % 2)
                     : m_Picture->GetParity();
  }
  // mb_field_decoding_flag of a pair that does not carry it: as the pair
  // to the left, else as the pair above, else frame.
  bool InferMbField(uint32_t address) const;
  // Chooses the coefficient scans for the current macroblock.
  void SelectScans();
  bool IsAvailable(const SmMacroblockInfo* info) const;
  int PredictIntraMode(uint32_t address, int x, int y) const;

  const SmSliceHeader* m_Header = nullptr;
  const SmSequenceParameterSet* m_Sps = nullptr;
  const SmPictureParameterSet* m_Pps = nullptr;
  CmPicture* m_Picture = nullptr;
  uint32_t m_Slice = 0;
  const SmReferenceList* m_Lists = nullptr;
  // A frame of field and frame macroblock pairs, and whether the current
  // pair is a field pair.
  bool m_Mbaff = false;
  bool m_MbField = false;
  // 4x4 blocks of the current macroblock whose motion is known, raster bits.
  uint16_t m_KnownBlocks = 0;
  // The available neighbours of the current inter macroblock outside a
  // frame of pairs, fetched once per macroblock for its motion prediction.
  SmNeighbours m_InterNeighbours{};
  SmWeighting m_Weighting = WeightNone;
  bool m_UnitWeight[2][32] = {};
  // Implicit weights of frame macroblocks per pair of indices, valid where
  // the stamp is the slice's.
  struct SmImplicitWeight {
    uint32_t stamp = 0;
    int16_t w0 = 0, w1 = 0;
  };
  mutable SmImplicitWeight m_ImplicitWeights[32][32];
  uint32_t m_WeightStamp = 0;
  int m_Qp = 0;
  SmLevelScale m_LevelScale;
  // The coefficient scan of 4x4 blocks: zigzag in frames, field scan in fields.
  const uint8_t* m_Scan4x4 = nullptr;
  bool m_FieldScan = false;
  const uint8_t* m_Scan8x8 = nullptr;

  bool m_UseCabac = false;
  CmCabacDecoder m_Cabac;
  uint8_t m_Contexts[1024];
  // The current macroblock and its neighbours A and B, when available.
  uint32_t m_Address = 0;
  mutable uint32_t m_PositionAddress = ~0u;
  mutable uint32_t m_PositionX = 0;
  mutable uint32_t m_PositionY = 0;
  const SmMacroblockInfo* m_MbA = nullptr;
  const SmMacroblockInfo* m_MbB = nullptr;
  // Whether the previous and the current macroblock of the slice changed
  // the quantiser.
  bool m_PrevQpDeltaNonZero = false;
  bool m_QpDeltaNonZero = false;
  bool m_Damaged = false;
  bool m_NeedsUnknownContexts = false; // a residual needs contexts without initial values
  ImCabacObserver* m_Observer = nullptr;
  ImMacroblockProgress* m_Progress = nullptr;
  void TellDone(uint32_t mbAddr) const {
    if (m_Progress != nullptr) {
      m_Progress->OnMacroblockDone(mbAddr);
    }
  }

  // The current macroblock's coefficients in raster order per block.
  // Blocks of AC levels keep a 16th entry, which the residual add reads
  // and ignores; zeroed here so that it is never undefined.
  int16_t m_Levels[16][16] = {}; // luma levels as read, in scan order, by block index
  int16_t m_Levels8x8[4][64];
  int16_t m_DcLevels[16];
  int16_t m_ChromaDcLevels[2][4];
  int16_t m_ChromaAcLevels[2][4][16] = {};
  int32_t m_Luma[16][16];
  int32_t m_Luma8x8[4][64];
  int32_t m_LumaDc[16];
  int32_t m_Chroma[2][4][16];
  int32_t m_ChromaDc[2][4];
};

} // namespace NmH264
