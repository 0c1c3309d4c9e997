#pragma once

#include <cstddef>
#include <cstdint>

#include "Common/Thread/CriticalSection.h"

namespace NmMediaProcessing {

// The operating-system side of a generic byte data record: the members that
// describe the buffer and the raw, bounds-checked field access. Records may be
// views over memory that belongs to somebody else and that may be mapped
// read-only, so every write to such memory goes through a probe that turns a
// would-be fault into a silent no-op.
class CmGenericByteDataOS {
public:
  CmGenericByteDataOS(const CmGenericByteDataOS&) = delete;
  CmGenericByteDataOS& operator=(const CmGenericByteDataOS&) = delete;

  // Copies size bytes, reporting false instead of faulting when the source is
  // not readable or the destination not writable. Regions may overlap.
  static bool SafeCopy(void* destination, const void* source, size_t size);
  // Whether every byte of the range can be written. Probing leaves the bytes
  // as they are.
  static bool IsWritable(void* address, size_t size);
  // Writes all of the bytes or, when any of them cannot be written, none.
  static bool WriteAllOrNothing(void* destination, const void* source, size_t size);

protected:
  CmGenericByteDataOS() = default;
  explicit CmGenericByteDataOS(bool freeOnDestruction) : m_FreeOnDestruction(freeOnDestruction) {}
  ~CmGenericByteDataOS() = default;

  uint64_t GetRecordLength() const { return m_HeaderLength + m_PayloadLength; }

  // Big-endian field reads: 0 when the field does not lie within the record.
  uint8_t ReadU8(uint64_t offset) const;
  uint16_t ReadU16(uint64_t offset) const;
  uint32_t ReadU32(uint64_t offset) const;
  uint64_t ReadU64(uint64_t offset) const;

  // Big-endian field writes, confined to the header. A write outside it or to
  // memory that cannot be written is dropped without a trace.
  void WriteU8(uint64_t offset, uint8_t value);
  void WriteU16(uint64_t offset, uint16_t value);
  void WriteU32(uint64_t offset, uint32_t value);
  void WriteU64(uint64_t offset, uint64_t value);

  uint8_t* m_Data = nullptr;
  bool m_Allocated = false;
  bool m_FreeOnDestruction = false;
  bool m_OwnsBuffer = true;
  uint64_t m_HeaderLength = 0;
  uint64_t m_PayloadLength = 0;
  mutable NmThread::CmCriticalSection m_Lock;

private:
  bool IsFieldReadable(uint64_t offset, uint64_t width) const;
  void WriteBytes(uint64_t offset, const uint8_t* bytes, uint64_t width);
};

} // namespace NmMediaProcessing
