#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace NmMedia {

// Turns the H.264 packets of a container into Annex B access units that a
// decoder can start on at every sync frame. Containers store H.264 either as
// Annex B already (MPEG-TS, raw streams) or with big-endian length prefixes
// and the parameter sets kept aside in an avcC record (MP4, MKV). Either way,
// the parameter sets seen so far are put in front of each sync frame, because
// a host may start decoding at any sync frame it navigates to.
class CmH264AnnexBConverter {
public:
  // The container's codec configuration: an avcC record, Annex B parameter
  // sets, or nothing. False when an avcC record is malformed.
  bool Configure(const uint8_t* data, size_t size);

  // Converts one packet into `out` (replacing its contents). `sync` is the
  // container's key-frame flag; an IDR picture makes a packet sync as well,
  // which `containsIdr` reports. False when the packet cannot be split into
  // NAL units; `out` is then empty.
  bool Convert(const uint8_t* data, size_t size, bool sync, std::vector<uint8_t>& out,
               bool& containsIdr);

  // Whether the packet converted last holds a recovery point message that
  // needs no frames to recover: a place where decoding starts clean without
  // the pictures before it.
  bool HadRecoveryPoint() const { return m_RecoveryPoint; }
  // The recovery_frame_cnt of the recovery point in an SEI unit (with its
  // header byte), if it holds one.
  static std::optional<uint32_t> RecoveryFrameCount(const uint8_t* nal, size_t size);

  // Bytes of each length prefix, or 0 for Annex B input.
  size_t GetLengthSize() const { return m_LengthSize; }
  size_t GetParameterSetCount() const { return m_Sequence.size() + m_Picture.size(); }

private:
  bool m_RecoveryPoint = false;
  struct SmNal {
    const uint8_t* data;
    size_t size;
  };
  static bool SplitLengthPrefixed(const uint8_t* data, size_t size, size_t lengthSize,
                                  std::vector<SmNal>& nals);
  static bool SplitAnnexB(const uint8_t* data, size_t size, std::vector<SmNal>& nals);
  void Remember(const SmNal& nal);

  size_t m_LengthSize = 0;
  // NAL units without start code, by parameter set id.
  std::map<uint32_t, std::vector<uint8_t>> m_Sequence;
  std::map<uint32_t, std::vector<uint8_t>> m_Picture;
};

} // namespace NmMedia
