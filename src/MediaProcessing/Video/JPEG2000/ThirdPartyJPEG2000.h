#pragma once

#include <cstdint>

#include "MediaProcessing/Image/Image.h"

namespace NmMediaProcessing {

// The one narrow way to a JPEG 2000 codec, so that any codec can stand behind it.
class ImThirdPartyJPEG2000 {
public:
  virtual ~ImThirdPartyJPEG2000() = default;
  // Keeps the pointer and the size, not the bytes: they must outlive the use.
  virtual bool SetData(const uint8_t* data, uint64_t size) = 0;
  virtual bool GetImageInfo(uint64_t& width, uint64_t& height) = 0;
  virtual bool DecodeImage(CmImage& image) = 0;
};

// Holds the data given, neither owned.
class CmThirdPartyJPEG2000 : public ImThirdPartyJPEG2000 {
public:
  // Null data or size 0 give false and keep nothing.
  bool SetData(const uint8_t* data, uint64_t size) override;

protected:
  const uint8_t* m_Data = nullptr;
  uint64_t m_Size = 0;
};

// Accepts data and decodes nothing: for tests of the adapter around a codec.
class CmDummyJPEG2000 : public CmThirdPartyJPEG2000 {
public:
  bool GetImageInfo(uint64_t& width, uint64_t& height) override;
  bool DecodeImage(CmImage& image) override;
};

} // namespace NmMediaProcessing
