#pragma once

// Items and properties that travel through a toolkit chain.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace NmToolkit {

class ImProperty {
public:
  virtual ~ImProperty() = default;
  // A new copy, owned by the caller.
  virtual ImProperty* Clone() const = 0;
};

class ImBooleanProperty : public ImProperty {
public:
  virtual bool GetValue() const = 0;
};

class ImStringProperty : public ImProperty {
public:
  virtual std::string GetValue() const = 0;
};

class ImUTCTimeProperty : public ImProperty {
public:
  // Milliseconds since 1970-01-01 UTC.
  virtual int64_t GetValue() const = 0;
};

class ImPropertySet {
public:
  virtual ~ImPropertySet() = default;
  virtual bool HasProperty(const std::string& name) const = 0;
  // Null if absent; the set keeps ownership.
  virtual const ImProperty* GetProperty(const std::string& name) const = 0;
  // A deep copy, owned by the caller.
  virtual ImPropertySet* Clone() const = 0;
};

// One item of a toolkit chain. Times are milliseconds since 1970-01-01 UTC.
class ImData {
public:
  virtual ~ImData() = default;
  virtual int64_t GetBeginTime() const = 0;
  virtual int64_t GetEndTime() const = 0;
  // The whole stored record, header included.
  virtual size_t GetDataSize() const = 0;
  virtual const uint8_t* GetDataPointer() const = 0;
  // Null if the item has no such property; the item keeps ownership.
  virtual const ImProperty* GetProperty(const std::string& name) const = 0;
};

class ImMediaData : public ImData {
public:
  // What follows the record's header.
  virtual size_t GetPayloadSize() const = 0;
  virtual const uint8_t* GetPayloadPointer() const = 0;
};

class ImMediaDataVector : public ImMediaData {
public:
  // The element pointers, which stay owned by the vector.
  virtual void GetElements(std::vector<ImMediaData*>& elements) const = 0;
};

// A decoded picture. Plane accessors return 0 for a plane that does not exist.
class ImImage : public ImMediaData {
public:
  // Colour format: 0 Gray, 1 RGB24, 2 BGR24, 3 RGB32, 4 BGR32, 5 YCbCr420_Planar,
  // 6 YCbCr422_Planar, 7 YCbCr444_Planar, 8 RGBA, 9 BGRA.
  virtual uint32_t GetColorFormat() const = 0;
  // 0 progressive, 1 and 2 interleaved, 3 and 4 separate fields, 5 and 6 single fields.
  virtual uint32_t GetInterlacing() const = 0;
  virtual double GetPixelAspectRatio() const = 0;
  virtual uint32_t GetWidth() const = 0;
  virtual uint32_t GetHeight() const = 0;
  virtual const uint8_t* GetPlanePointer(uint32_t plane) const = 0;
  virtual uint32_t GetPlaneWidth(uint32_t plane) const = 0;
  virtual uint32_t GetPlaneHeight(uint32_t plane) const = 0;
  virtual uint32_t GetPlaneStride(uint32_t plane) const = 0;
};

class ImMetaData : public ImData {};
class ImOutOfBandData : public ImData {};
class ImExportData : public ImData {};

// The property names that toolkits know.
namespace NmPropertyNames {
inline constexpr const char* NextBeginTime = "Next_Begin_Time";
inline constexpr const char* NextEndTime = "Next_End_Time";
inline constexpr const char* PrevBeginTime = "Prev_Begin_Time";
inline constexpr const char* PrevEndTime = "Prev_End_Time";
inline constexpr const char* PrivacyMask = "Privacy_Mask";
inline constexpr const char* SequenceNumber = "Sequence_Number";
inline constexpr const char* HasMotion = "Has_Motion";
inline constexpr const char* RecordedSignatures = "Recorded_Signatures";
inline constexpr const char* ExportedSignatures = "Exported_Signatures";
inline constexpr const char* ExportDisallowed = "Export_Disallowed";
inline constexpr const char* Transcoded = "Transcoded";
} // namespace NmPropertyNames

} // namespace NmToolkit
