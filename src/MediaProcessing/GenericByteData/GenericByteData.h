#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteDataOS.h"

namespace NmMediaProcessing {

// Values of the 16-bit type field at offset 0 that have a meaning of their own.
struct SmByteDataType {
  enum : int32_t {
    Invalid = 0,
    FirstSinglePacket = 16,
    VideoStreamDataPacket = 16,
    AudioStreamDataPacket = 32,
    LastSinglePacket = 65023,
    MultiPacket = 65264,
    RawJPEG = 65496,
  };
};

// Is the type one of the block types 1 to 12 or 15 (raw JPEG excluded)?
bool IsBlockHeaderType(int32_t type);

// Wire time (milliseconds since 1970, unsigned) to time stamp and back. The
// conversion to a time stamp raises the time stamp's own error when the value
// is beyond what a time stamp can hold.
NmTimeStamp::CmTimeStamp WireTimeToTimeStamp(uint64_t wireTime);
uint64_t TimeStampToWireTime(const NmTimeStamp::CmTimeStamp& time);

// Where a whole-number header field sits and how wide it is (1, 2 or 4 bytes).
struct SmHeaderField {
  uint64_t offset;
  uint32_t width;
};

// A view over one generic byte data record: a big-endian header followed by
// the payload. Nothing is parsed into members; getters read the bytes and
// setters write them, so the buffer is always the wire form. The object may
// own the bytes (Allocate, deep copy) or view bytes that live elsewhere.
class CmGenericByteData : public CmGenericByteDataOS {
public:
  CmGenericByteData() = default;
  explicit CmGenericByteData(bool freeOnDestruction);
  // Views the foreign buffer; the bytes must outlive the object.
  CmGenericByteData(uint8_t* buffer, uint64_t size);
  CmGenericByteData(const CmGenericByteData& other);
  CmGenericByteData& operator=(const CmGenericByteData& other);
  virtual ~CmGenericByteData();

  virtual bool IsValidType(int32_t type) const;
  virtual bool CanAllocate() const { return false; }
  virtual uint64_t GetHeaderLength(int32_t type) const;
  virtual int32_t GetDefaultType() const { return SmByteDataType::MultiPacket; }

  bool Allocate(uint64_t payloadLength);
  bool Clear();
  bool IsEmpty() const;

  int32_t GetType() const;
  bool SetType(int32_t type);
  bool IsTypeValid() const;
  bool IsRawJPEG() const;
  bool IsBlock() const;
  bool IsPacket() const;
  bool IsMultiPacket() const;

  uint8_t* GetData() const;
  uint8_t* GetPayload() const;
  uint64_t GetLength() const;
  uint64_t GetPayloadLength() const;

  bool CopyTo(uint8_t* destination, uint64_t capacity) const;
  bool CopyPayloadFrom(const uint8_t* source, uint64_t size);

  void SetFreeOnDestruction(bool freeOnDestruction);
  void SetOwnsBuffer(bool ownsBuffer);
  bool GetOwnsBuffer() const;

  // Lets a caller hold the record's lock across several operations.
  NmThread::CmCriticalSection& GetLock() const { return m_Lock; }

protected:
  // Only constructors attach: a view is made once, over bytes that it does
  // not own. Derived classes call it from their own constructors so that
  // their header length rules apply.
  bool Attach(uint8_t* buffer, uint64_t size);
  // The length that the record's own fields claim, 0 when it has none.
  uint64_t GetDeclaredLength() const;
  // Holding a buffer, a header of at least 6 bytes and a type this class
  // accepts: the precondition of every field getter and setter.
  bool CanAccessFields() const;
  void Release();

  NmTimeStamp::CmTimeStamp ReadTime(uint64_t offset) const;
  void WriteTime(uint64_t offset, const NmTimeStamp::CmTimeStamp& time);
  uint32_t ReadField(SmHeaderField field) const;
  void WriteField(SmHeaderField field, uint32_t value);

  // What the public getters and setters of the record kinds share: the lock
  // and the check that the record has fields at all. Without fields a getter
  // answers 0 (the empty time) and a setter false; a setter whose value its
  // caller refused answers false as well and writes nothing.
  uint32_t GetField(SmHeaderField field) const;
  bool SetField(SmHeaderField field, uint32_t value, bool accepted = true);
  NmTimeStamp::CmTimeStamp GetTimeField(uint64_t offset) const;
  bool SetTimeField(uint64_t offset, const NmTimeStamp::CmTimeStamp& time);
  // One bit of a flags field: false without fields.
  bool GetFlag(SmHeaderField flags, uint32_t bit) const;
  bool SetFlag(SmHeaderField flags, uint32_t bit, bool set);

private:
  void ClearView();
  void DeepCopyFrom(const CmGenericByteData& other);
};

} // namespace NmMediaProcessing
