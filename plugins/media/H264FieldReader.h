#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace NmMedia {

// Tells of an H.264 packet whether it holds one field of a frame coded as
// two field pictures, and which. Containers store such fields as packets of
// their own, but a frame is what a recording keeps in one record: a first
// field waits for its second field to travel with it.
//
// Reads the parameter sets from the container's configuration and from the
// packets themselves, and of a packet only the first slice header's start.
class CmH264FieldReader {
public:
  struct SmField {
    bool bottom = false;
    uint32_t frameNum = 0;
    bool idr = false;
    bool reference = false;
  };

  // The container's configuration: an avcC record, Annex B parameter sets,
  // or nothing.
  void Configure(const uint8_t* data, size_t size);
  // The field that the packet's first slice codes; nothing for a frame, a
  // packet without slices or one that cannot be read. Parameter sets in the
  // packet are learnt on the way.
  std::optional<SmField> Read(const uint8_t* data, size_t size);

  // Whether `second`, in the packet after `first`, completes first's frame
  // (ITU-T H.264, 3.30 and 7.4.1.2.4): opposite parity, the same frame_num,
  // both reference fields or neither, and no IDR, which always begins a
  // picture of its own.
  static bool Completes(const SmField& first, const SmField& second);

private:
  struct SmSequence {
    uint32_t log2MaxFrameNum = 4;
    bool frameMbsOnly = true;
    bool separateColourPlanes = false;
  };
  // One NAL unit with its header byte; false when it is not a slice or
  // cannot be read, with `field` set only for a field's slice.
  bool ReadUnit(const uint8_t* nal, size_t size, std::optional<SmField>& field);

  // 0 until known: Annex B; else the bytes of each length prefix.
  size_t m_LengthSize = 0;
  std::map<uint32_t, SmSequence> m_Sequences;
  // Picture parameter set id to sequence parameter set id.
  std::map<uint32_t, uint32_t> m_Pictures;
};

} // namespace NmMedia
