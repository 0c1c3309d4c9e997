// Arbitrary bytes as an H.264 stream through the task supplier: Annex B or
// length-prefixed units, fed whole or in pieces, with the skip modes and low
// delay that the first byte chooses, with one thread or two, and every
// picture taken out as it may leave. Then the same pieces as records
// through the decoder that the toolkits use (the MCL adapter over the
// engine's shell), with the repeat protocol, a decode mode, a scale and
// luminance only. Damage is expected; faults and hangs are findings.

#include <cstddef>
#include <cstdint>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/TaskSupplier.h"
#include "MediaProcessing/Video/H264/VideoDecoderH264.h"
#include "Support/VideoRecords.h"

namespace {

// Pictures beyond this many macroblocks are legal but cost the fuzzer more
// memory and time than they find.
constexpr uint32_t MostMacroblocks = 64 * 64;

bool HasHugeSequence(const uint8_t* data, size_t size, bool lengthPrefixed) {
  size_t position = 0;
  NmH264::SmNalUnit unit;
  std::vector<uint8_t> rbsp;
  while (lengthPrefixed ? NmH264::NextLengthPrefixedUnit(data, size, position, 4, unit)
                        : NmH264::NextAnnexBUnit(data, size, position, true, unit)) {
    if (unit.GetType() != NmH264::NalSequenceParameterSet) {
      continue;
    }
    NmH264::ExtractPayload(unit.data + 1, unit.size - 1, rbsp);
    NmH264::CmBitReader reader(rbsp.data(), rbsp.size());
    NmH264::SmSequenceParameterSet sps;
    NmH264::ParseSequenceParameterSet(reader, sps);
    if (sps.widthInMbs * sps.GetFrameHeightInMbs() > MostMacroblocks) {
      return true;
    }
  }
  return false;
}

// The pieces as records through the adapter: each record until the decoder
// wants no further call, then the flush.
void ThroughTheAdapter(const uint8_t* data, size_t size, size_t piece, uint8_t choice) {
  using namespace NmMediaProcessing;
  CmVideoDecoderH264 decoder;
  SmVideoDecodeParameters parameters = NmFuzz::DecodeParameters(choice);
  parameters.m_LowDelay = parameters.m_LowDelay || parameters.m_DecodeMode == 2;
  decoder.SetParameters(parameters);
  CmImage image;
  const auto feed = [&](const uint8_t* record, size_t length, int32_t id) {
    NmFuzz::FeedRecord(decoder, image, record, length, id);
  };
  int32_t id = 1;
  for (size_t offset = 0; offset < size; offset += piece, ++id) {
    feed(data + offset, size - offset < piece ? size - offset : piece, id);
  }
  feed(nullptr, 0, id);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) {
    return 0;
  }
  const uint8_t choice = data[0];
  ++data;
  --size;
  MCL::SmTaskSupplierSettings settings;
  settings.lengthPrefixed = (choice & 1) != 0;
  settings.skipMode = (choice >> 1) % 3;
  settings.lowDelay = (choice & 8) != 0;
  settings.wholeFramePerBuffer = (choice & 16) != 0;
  // Every bit of the choice is taken: the length's parity puts the loop
  // filter on a second thread.
  settings.threadCount = 1 + static_cast<int32_t>(size % 2);
  if (HasHugeSequence(data, size, settings.lengthPrefixed)) {
    return 0;
  }
  MCL::TaskSupplier supplier(settings);
  const auto drain = [&supplier](bool force) {
    while (supplier.GetFrameToDisplay(force) != nullptr) {
    }
  };
  // Whole, or in pieces of a size the choice byte sets.
  const size_t piece = (choice & 32) != 0 ? size : 1 + (choice >> 6) * 97;
  for (size_t offset = 0; offset < size; offset += piece) {
    const size_t length = size - offset < piece ? size - offset : piece;
    if (supplier.AddSource(data + offset, length, static_cast<double>(offset), 0) != 0) {
      supplier.RecoveryReset();
    }
    drain(false);
  }
  supplier.Flush();
  drain(true);
  ThroughTheAdapter(data, size, piece, choice);
  return 0;
}
