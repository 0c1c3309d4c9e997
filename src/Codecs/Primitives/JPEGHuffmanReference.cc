#include "Codecs/Primitives/JPEGHuffman-inl.h"

// The same decoders with symbols found one bit at a time (T.81 F.2.2.3),
// against which the lookup-table path is tested.
namespace NmPrimitives::NmReference {

using namespace NmHuffmanDetail;

bool DecodeBlockSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                           const SmHuffmanDecodeTable& dc, const SmHuffmanDecodeTable& ac,
                           int16_t* block, int32_t& lastDC) {
  return DecodeSequential<false, true>(source, state, dc, ac, block, lastDC);
}
size_t DecodeMcusSequential(SmEntropySource& source, SmHuffmanDecodeState& state,
                            const SmHuffmanMcuBlock* blocks, int count, size_t mcus, bool dcOnly,
                            size_t reserve, bool& damaged) {
  return dcOnly ? DecodeMcus<false, false>(source, state, blocks, count, mcus, reserve, damaged)
                : DecodeMcus<false, true>(source, state, blocks, count, mcus, reserve, damaged);
}
bool DecodeBlockDCFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& dc, int16_t* block, int32_t& lastDC,
                        int successiveLow) {
  return DecodeDCFirst<false>(source, state, dc, block, lastDC, successiveLow);
}
bool DecodeBlockDCRefine(SmEntropySource& source, SmHuffmanDecodeState& state, int16_t* block,
                         int successiveLow) {
  return DCRefine(source, state, block, successiveLow);
}
bool DecodeBlockACFirst(SmEntropySource& source, SmHuffmanDecodeState& state,
                        const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                        int spectralEnd, int successiveLow) {
  return DecodeACFirst<false>(source, state, ac, block, spectralStart, spectralEnd, successiveLow);
}
bool DecodeBlockACRefine(SmEntropySource& source, SmHuffmanDecodeState& state,
                         const SmHuffmanDecodeTable& ac, int16_t* block, int spectralStart,
                         int spectralEnd, int successiveLow) {
  return DecodeACRefine<false>(source, state, ac, block, spectralStart, spectralEnd, successiveLow);
}
bool DecodeLosslessDifference(SmEntropySource& source, SmHuffmanDecodeState& state,
                              const SmHuffmanDecodeTable& table, int32_t& difference) {
  return DecodeDifference<false>(source, state, table, difference);
}

} // namespace NmPrimitives::NmReference
