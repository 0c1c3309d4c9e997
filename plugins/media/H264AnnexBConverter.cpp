#include "H264AnnexBConverter.h"

#include <algorithm>
#include <optional>
#include <set>

namespace NmMedia {
namespace {

constexpr uint8_t NalIdr = 5;
constexpr uint8_t NalSei = 6;
constexpr uint32_t SeiRecoveryPoint = 6;
constexpr uint8_t NalSequenceParameterSet = 7;
constexpr uint8_t NalPictureParameterSet = 8;
constexpr uint8_t NalAccessUnitDelimiter = 9;
// Parameter sets are small; anything larger is damage and is not kept.
constexpr size_t MaxParameterSetSize = 4096;
constexpr uint8_t StartCode[] = {0, 0, 0, 1};

// Exp-Golomb reading over the start of a NAL unit's payload, with the
// emulation prevention bytes taken out.
class CmRbspReader {
public:
  CmRbspReader(const uint8_t* data, size_t size) {
    size_t zeros = 0;
    for (size_t i = 0; i < size && m_Bytes.size() < 64; ++i) {
      if (zeros >= 2 && data[i] == 3) {
        zeros = 0;
        continue;
      }
      zeros = data[i] == 0 ? zeros + 1 : 0;
      m_Bytes.push_back(data[i]);
    }
  }
  std::optional<uint32_t> Bits(unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i) {
      if (m_Position >= m_Bytes.size() * 8) {
        return std::nullopt;
      }
      value = value << 1 | ((m_Bytes[m_Position / 8] >> (7 - m_Position % 8)) & 1);
      ++m_Position;
    }
    return value;
  }
  std::optional<uint32_t> UnsignedGolomb() {
    unsigned zeros = 0;
    for (;;) {
      const auto bit = Bits(1);
      if (!bit) {
        return std::nullopt;
      }
      if (*bit) {
        break;
      }
      if (++zeros > 31) {
        return std::nullopt;
      }
    }
    const auto rest = Bits(zeros);
    if (!rest) {
      return std::nullopt;
    }
    return static_cast<uint32_t>((uint64_t{1} << zeros) - 1 + *rest);
  }

private:
  std::vector<uint8_t> m_Bytes;
  size_t m_Position = 0;
};

uint8_t NalType(const uint8_t* nal) {
  return nal[0] & 0x1F;
}

// The id of a parameter set, or nothing for damaged data.
std::optional<uint32_t> ParameterSetId(const uint8_t* nal, size_t size) {
  if (NalType(nal) == NalSequenceParameterSet) {
    // profile_idc, constraint flags and level_idc come before the id.
    if (size < 5) {
      return std::nullopt;
    }
    CmRbspReader reader(nal + 4, size - 4);
    const auto id = reader.UnsignedGolomb();
    return id && *id <= 31 ? id : std::nullopt;
  }
  CmRbspReader reader(nal + 1, size - 1);
  const auto id = reader.UnsignedGolomb();
  return id && *id <= 255 ? id : std::nullopt;
}

uint32_t ReadBigEndian(const uint8_t* data, size_t bytes) {
  uint32_t value = 0;
  for (size_t i = 0; i < bytes; ++i) {
    value = value << 8 | data[i];
  }
  return value;
}

// Zero bytes, at least two, then a one.
bool StartsWithStartCode(const uint8_t* data, size_t size) {
  size_t zeros = 0;
  while (zeros < size && data[zeros] == 0) {
    ++zeros;
  }
  return zeros >= 2 && zeros < size && data[zeros] == 1;
}

void Append(std::vector<uint8_t>& out, const uint8_t* data, size_t size) {
  out.insert(out.end(), std::begin(StartCode), std::end(StartCode));
  out.insert(out.end(), data, data + size);
}

} // namespace

bool CmH264AnnexBConverter::Configure(const uint8_t* data, size_t size) {
  m_LengthSize = 0;
  m_Sequence.clear();
  m_Picture.clear();
  if (data == nullptr || size == 0) {
    return true;
  }
  std::vector<SmNal> nals;
  if (data[0] != 1) {
    // Annex B parameter sets; the packets are Annex B too.
    if (!SplitAnnexB(data, size, nals)) {
      return false;
    }
    std::for_each(nals.begin(), nals.end(), [this](const SmNal& nal) { Remember(nal); });
    return true;
  }
  // avcC: version, profile, compatibility, level, length size, then the
  // sequence and picture parameter sets, each with a 16-bit length.
  if (size < 7) {
    return false;
  }
  const size_t lengthSize = (data[4] & 3) + 1u;
  if (lengthSize == 3) {
    return false;
  }
  size_t at = 5;
  for (int list = 0; list < 2; ++list) {
    if (at >= size) {
      return false;
    }
    const size_t count = list == 0 ? (data[at] & 0x1F) : data[at];
    ++at;
    for (size_t i = 0; i < count; ++i) {
      if (at + 2 > size) {
        return false;
      }
      const size_t length = ReadBigEndian(data + at, 2);
      at += 2;
      if (length == 0 || at + length > size) {
        return false;
      }
      nals.push_back({data + at, length});
      at += length;
    }
  }
  // What follows (the chroma and bit depth extension of high profiles) does
  // not concern the stream's framing.
  m_LengthSize = lengthSize;
  std::for_each(nals.begin(), nals.end(), [this](const SmNal& nal) { Remember(nal); });
  return true;
}

bool CmH264AnnexBConverter::SplitLengthPrefixed(const uint8_t* data, size_t size, size_t lengthSize,
                                                std::vector<SmNal>& nals) {
  size_t at = 0;
  while (at < size) {
    if (size - at < lengthSize) {
      return false;
    }
    const size_t length = ReadBigEndian(data + at, lengthSize);
    at += lengthSize;
    if (length > size - at) {
      return false;
    }
    if (length > 0) {
      nals.push_back({data + at, length});
    }
    at += length;
  }
  return true;
}

bool CmH264AnnexBConverter::SplitAnnexB(const uint8_t* data, size_t size,
                                        std::vector<SmNal>& nals) {
  // Positions just behind each three-byte start code.
  std::vector<size_t> starts;
  for (size_t i = 0; i + 2 < size; ++i) {
    if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) {
      starts.push_back(i + 3);
      i += 2;
    }
  }
  if (starts.empty()) {
    return false;
  }
  // Only zero bytes may come before the first start code.
  if (std::any_of(data, data + starts.front() - 3, [](uint8_t byte) { return byte != 0; })) {
    return false;
  }
  for (size_t n = 0; n < starts.size(); ++n) {
    size_t end = n + 1 < starts.size() ? starts[n + 1] - 3 : size;
    // Trailing zeros belong to the next start code or are padding.
    while (end > starts[n] && data[end - 1] == 0) {
      --end;
    }
    if (end > starts[n]) {
      nals.push_back({data + starts[n], end - starts[n]});
    }
  }
  return true;
}

void CmH264AnnexBConverter::Remember(const SmNal& nal) {
  const uint8_t type = NalType(nal.data);
  if ((type != NalSequenceParameterSet && type != NalPictureParameterSet) ||
      nal.size > MaxParameterSetSize) {
    return;
  }
  const auto id = ParameterSetId(nal.data, nal.size);
  if (!id) {
    return;
  }
  auto& sets = type == NalSequenceParameterSet ? m_Sequence : m_Picture;
  sets[*id].assign(nal.data, nal.data + nal.size);
}

std::optional<uint32_t> CmH264AnnexBConverter::RecoveryFrameCount(const uint8_t* nal, size_t size) {
  // The payload without its emulation prevention bytes, then its messages:
  // type and size each as a run of 255s and a last byte (D.1.1).
  std::vector<uint8_t> payload;
  payload.reserve(size);
  for (size_t i = 1; i < size; ++i) {
    if (i >= 3 && nal[i] == 3 && nal[i - 1] == 0 && nal[i - 2] == 0) {
      continue;
    }
    payload.push_back(nal[i]);
  }
  size_t at = 0;
  const auto number = [&payload, &at](uint32_t& value) {
    value = 0;
    while (at < payload.size() && payload[at] == 0xFF) {
      value += 0xFF;
      ++at;
    }
    if (at >= payload.size()) {
      return false;
    }
    value += payload[at++];
    return true;
  };
  uint32_t type = 0, length = 0;
  // The last byte is the trailing bits.
  while (at + 1 < payload.size() && number(type) && number(length)) {
    if (type == SeiRecoveryPoint) {
      // recovery_frame_cnt, the first field, as an Exp-Golomb code.
      size_t bit = at * 8;
      const auto read = [&payload, &bit]() -> int {
        if (bit >= payload.size() * 8) {
          return -1;
        }
        const int value = (payload[bit / 8] >> (7 - bit % 8)) & 1;
        ++bit;
        return value;
      };
      int zeros = 0;
      int value = 0;
      while ((value = read()) == 0 && zeros < 32) {
        ++zeros;
      }
      if (value != 1) {
        return std::nullopt;
      }
      uint64_t count = 1;
      for (int z = 0; z < zeros; ++z) {
        const int next = read();
        if (next < 0) {
          return std::nullopt;
        }
        count = count << 1 | static_cast<uint64_t>(next);
      }
      return count - 1 <= UINT32_MAX ? std::optional<uint32_t>(static_cast<uint32_t>(count - 1))
                                     : std::nullopt;
    }
    at += length;
  }
  return std::nullopt;
}

bool CmH264AnnexBConverter::Convert(const uint8_t* data, size_t size, bool sync,
                                    std::vector<uint8_t>& out, bool& containsIdr) {
  out.clear();
  containsIdr = false;
  m_RecoveryPoint = false;
  if (data == nullptr || size == 0) {
    return false;
  }
  std::vector<SmNal> nals;
  bool split = m_LengthSize > 0 && SplitLengthPrefixed(data, size, m_LengthSize, nals);
  if (!split) {
    // Some muxers store Annex B even where the configuration says lengths.
    nals.clear();
    split = StartsWithStartCode(data, size) && SplitAnnexB(data, size, nals);
  }
  if (!split || nals.empty()) {
    return false;
  }
  std::set<uint32_t> sequenceIds;
  std::set<uint32_t> pictureIds;
  for (const SmNal& nal : nals) {
    const uint8_t type = NalType(nal.data);
    containsIdr = containsIdr || type == NalIdr;
    // Decoding may start at any recovery point. One with a refresh period
    // shows its pictures from the frame it names on; the playback decoder
    // starts from an earlier point for the pictures before.
    m_RecoveryPoint =
        m_RecoveryPoint || (type == NalSei && RecoveryFrameCount(nal.data, nal.size).has_value());
    if (type == NalSequenceParameterSet || type == NalPictureParameterSet) {
      if (const auto id = ParameterSetId(nal.data, nal.size)) {
        (type == NalSequenceParameterSet ? sequenceIds : pictureIds).insert(*id);
      }
      Remember(nal);
    }
  }
  out.reserve(size + 64);
  size_t next = 0;
  // An access unit delimiter must stay the first unit of the access unit.
  if (NalType(nals[0].data) == NalAccessUnitDelimiter) {
    Append(out, nals[0].data, nals[0].size);
    next = 1;
  }
  if (sync || containsIdr || m_RecoveryPoint) {
    for (const auto& [id, nal] : m_Sequence) {
      if (sequenceIds.count(id) == 0) {
        Append(out, nal.data(), nal.size());
      }
    }
    for (const auto& [id, nal] : m_Picture) {
      if (pictureIds.count(id) == 0) {
        Append(out, nal.data(), nal.size());
      }
    }
  }
  for (; next < nals.size(); ++next) {
    Append(out, nals[next].data, nals[next].size);
  }
  return true;
}

} // namespace NmMedia
