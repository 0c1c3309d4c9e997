#include "H264FieldReader.h"

#include <vector>

namespace NmMedia {
namespace {

// Exp-Golomb and fixed-length fields of an RBSP; reads past the end give
// zeros and mark the reader as failed.
class CmRbspReader {
public:
  CmRbspReader(const uint8_t* nal, size_t size, size_t most) {
    // Emulation prevention bytes out; only the start of a unit is read.
    int zeros = 0;
    for (size_t i = 1; i < size && m_Bytes.size() < most; ++i) {
      if (zeros >= 2 && nal[i] == 3) {
        zeros = 0;
        continue;
      }
      m_Bytes.push_back(nal[i]);
      zeros = nal[i] == 0 ? zeros + 1 : 0;
    }
  }
  uint32_t Bits(unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i, ++m_Bit) {
      if (m_Bit / 8 >= m_Bytes.size()) {
        m_Failed = true;
        return 0;
      }
      value = value << 1 | ((m_Bytes[m_Bit / 8] >> (7 - m_Bit % 8)) & 1);
    }
    return value;
  }
  uint32_t UE() {
    unsigned zeros = 0;
    while (Bits(1) == 0) {
      if (m_Failed || ++zeros > 31) {
        m_Failed = true;
        return 0;
      }
    }
    return zeros == 0 ? 0 : static_cast<uint32_t>((1ull << zeros) - 1 + Bits(zeros));
  }
  int32_t SE() {
    const uint32_t code = UE();
    return (code & 1) != 0 ? static_cast<int32_t>((code + 1) / 2) : -static_cast<int32_t>(code / 2);
  }
  bool Failed() const { return m_Failed; }

private:
  std::vector<uint8_t> m_Bytes;
  size_t m_Bit = 0;
  bool m_Failed = false;
};

bool HasChromaFormat(uint32_t profile) {
  for (const uint32_t high :
       {100u, 110u, 122u, 244u, 44u, 83u, 86u, 118u, 128u, 138u, 139u, 134u, 135u}) {
    if (profile == high) {
      return true;
    }
  }
  return false;
}

void SkipScalingList(CmRbspReader& bits, int size) {
  int32_t last = 8, next = 8;
  for (int j = 0; j < size && !bits.Failed(); ++j) {
    if (next != 0) {
      next = (last + bits.SE() + 256) % 256;
    }
    last = next == 0 ? last : next;
  }
}

} // namespace

void CmH264FieldReader::Configure(const uint8_t* data, size_t size) {
  if (data == nullptr || size < 7 || data[0] != 1) {
    if (data != nullptr && size > 0) {
      Read(data, size);
    }
    return;
  }
  // avcC: version, profile, compatibility, level, length size, then the
  // sequence and the picture parameter sets, each behind 16 bits of length.
  m_LengthSize = (data[4] & 3u) + 1;
  size_t at = 5;
  for (int kind = 0; kind < 2 && at < size; ++kind) {
    const unsigned count = kind == 0 ? data[at] & 31u : data[at];
    ++at;
    for (unsigned i = 0; i < count && at + 2 <= size; ++i) {
      const size_t length = static_cast<size_t>(data[at] << 8 | data[at + 1]);
      at += 2;
      if (length > size - at) {
        return;
      }
      std::optional<SmField> ignored;
      ReadUnit(data + at, length, ignored);
      at += length;
    }
  }
}

std::optional<CmH264FieldReader::SmField> CmH264FieldReader::Read(const uint8_t* data,
                                                                  size_t size) {
  std::optional<SmField> field;
  if (data == nullptr) {
    return field;
  }
  const auto unit = [&](const uint8_t* nal, size_t length) {
    // Up to the first slice: what follows belongs to the same picture.
    return !ReadUnit(nal, length, field);
  };
  if (m_LengthSize != 0) {
    for (size_t at = 0; at + m_LengthSize <= size;) {
      size_t length = 0;
      for (size_t i = 0; i < m_LengthSize; ++i) {
        length = length << 8 | data[at + i];
      }
      at += m_LengthSize;
      if (length > size - at || !unit(data + at, length)) {
        break;
      }
      at += length;
    }
    return field;
  }
  // Annex B: units between start codes.
  size_t begin = 0;
  bool inUnit = false;
  for (size_t i = 0; i + 2 < size; ++i) {
    if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) {
      if (inUnit) {
        size_t end = i;
        while (end > begin && data[end - 1] == 0) {
          --end;
        }
        if (!unit(data + begin, end - begin)) {
          return field;
        }
      }
      begin = i + 3;
      inUnit = true;
      i += 2;
    }
  }
  if (inUnit && begin < size) {
    unit(data + begin, size - begin);
  }
  return field;
}

bool CmH264FieldReader::ReadUnit(const uint8_t* nal, size_t size, std::optional<SmField>& field) {
  if (size < 2) {
    return false;
  }
  const uint32_t type = nal[0] & 31u;
  if (type == 7) {
    CmRbspReader bits(nal, size, 1024);
    const uint32_t profile = bits.Bits(8);
    bits.Bits(16);
    const uint32_t id = bits.UE();
    SmSequence sequence;
    if (HasChromaFormat(profile)) {
      const uint32_t chroma = bits.UE();
      if (chroma == 3) {
        sequence.separateColourPlanes = bits.Bits(1) != 0;
      }
      bits.UE();
      bits.UE();
      bits.Bits(1);
      if (bits.Bits(1) != 0) {
        for (int i = 0; i < (chroma != 3 ? 8 : 12); ++i) {
          if (bits.Bits(1) != 0) {
            SkipScalingList(bits, i < 6 ? 16 : 64);
          }
        }
      }
    }
    sequence.log2MaxFrameNum = bits.UE() + 4;
    const uint32_t pocType = bits.UE();
    if (pocType == 0) {
      bits.UE();
    } else if (pocType == 1) {
      bits.Bits(1);
      bits.SE();
      bits.SE();
      const uint32_t cycle = bits.UE();
      for (uint32_t i = 0; i < cycle && i < 256 && !bits.Failed(); ++i) {
        bits.SE();
      }
    }
    bits.UE();
    bits.Bits(1);
    bits.UE();
    bits.UE();
    sequence.frameMbsOnly = bits.Bits(1) != 0;
    if (!bits.Failed() && id < 32 && sequence.log2MaxFrameNum <= 16) {
      m_Sequences[id] = sequence;
    }
    return false;
  }
  if (type == 8) {
    CmRbspReader bits(nal, size, 16);
    const uint32_t id = bits.UE();
    const uint32_t sequence = bits.UE();
    if (!bits.Failed() && id < 256 && sequence < 32) {
      m_Pictures[id] = sequence;
    }
    return false;
  }
  if (type != 1 && type != 5) {
    return false;
  }
  CmRbspReader bits(nal, size, 32);
  bits.UE(); // first_mb_in_slice
  bits.UE(); // slice_type
  const auto picture = m_Pictures.find(bits.UE());
  if (bits.Failed() || picture == m_Pictures.end()) {
    return true;
  }
  const auto sequence = m_Sequences.find(picture->second);
  if (sequence == m_Sequences.end()) {
    return true;
  }
  if (sequence->second.separateColourPlanes) {
    bits.Bits(2);
  }
  SmField read;
  read.frameNum = bits.Bits(sequence->second.log2MaxFrameNum);
  read.idr = type == 5;
  read.reference = (nal[0] & 0x60) != 0;
  if (!sequence->second.frameMbsOnly && bits.Bits(1) != 0) {
    read.bottom = bits.Bits(1) != 0;
    if (!bits.Failed()) {
      field = read;
    }
  }
  return true;
}

bool CmH264FieldReader::Completes(const SmField& first, const SmField& second) {
  return first.bottom != second.bottom && first.frameNum == second.frameNum &&
         first.reference == second.reference && !second.idr;
}

} // namespace NmMedia
