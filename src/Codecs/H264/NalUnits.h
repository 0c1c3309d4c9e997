#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NmH264 {

// nal_unit_type values the decoder acts on.
enum SmNalUnitType : uint8_t {
  NalSlice = 1,
  NalSlicePartitionA = 2,
  NalSlicePartitionB = 3,
  NalSlicePartitionC = 4,
  NalIdrSlice = 5,
  NalSei = 6,
  NalSequenceParameterSet = 7,
  NalPictureParameterSet = 8,
  NalAccessUnitDelimiter = 9,
  NalEndOfSequence = 10,
  NalEndOfStream = 11,
  NalFillerData = 12,
  NalSequenceParameterSetExtension = 13,
  NalAuxiliarySlice = 19,
};

// One unit as it stands in the stream: its header byte first, emulation
// prevention bytes still in place.
struct SmNalUnit {
  const uint8_t* data = nullptr;
  size_t size = 0;

  uint8_t GetType() const { return data[0] & 0x1F; }
  uint8_t GetReferenceIdc() const { return (data[0] >> 5) & 3; }
  bool IsSlice() const {
    const uint8_t type = GetType();
    return (type >= NalSlice && type <= NalIdrSlice) || type == NalAuxiliarySlice;
  }
};

// Cuts units out of a byte stream in the format of ITU-T H.264 Annex B. From
// position on, skips to the first start code and returns the unit behind
// it; the unit ends at the next start code, or at the end of the data when
// atEnd says that nothing follows. Zero bytes before a start code belong to
// it, not to the unit. False when no whole unit is there; position is then
// left at the start code of the unfinished unit (or at the end of the data
// when there is none), so that the caller can keep that part for later.
bool NextAnnexBUnit(const uint8_t* data, size_t size, size_t& position, bool atEnd,
                    SmNalUnit& unit);

// Cuts units that each follow a big-endian length of lengthSize bytes (1, 2
// or 4), the layout of MP4 and Matroska. False when the data ends before the
// unit does or the length is 0; position stays where it was.
bool NextLengthPrefixedUnit(const uint8_t* data, size_t size, size_t& position, unsigned lengthSize,
                            SmNalUnit& unit);

// The raw byte sequence payload of a unit's bytes behind its header:
// every 0x000003 loses its 0x03. rbsp is overwritten.
void ExtractPayload(const uint8_t* data, size_t size, std::vector<uint8_t>& rbsp);

} // namespace NmH264
