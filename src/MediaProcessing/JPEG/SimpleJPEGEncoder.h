#pragma once

#include <cstdint>
#include <memory>

#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/JPEG/JPEGEncoder.h"

namespace NmMediaProcessing {

class ImSimpleJPEGEncoder {
public:
  virtual ~ImSimpleJPEGEncoder() = default;
  // The JPEG of an image. False for an invalid image and for a picture that
  // could not be written; the bytes stay owned by the encoder.
  virtual bool Encode(const CmImage& image, uint32_t quality, const uint8_t*& data, uint64_t& size,
                      bool writeAspectRatio) = 0;
};

// Image and quality in, one JPEG in memory out. Always baseline, grey or
// YCbCr 4:2:0. The output buffer is kept from one picture to the next, so
// that steady encoding does not allocate.
class CmSimpleJPEGEncoder : public ImSimpleJPEGEncoder {
public:
  // A growing memory block as the encoder's output stream.
  class CmMemoryDataOutputBuffer : public CBaseStreamOutput {
  public:
    // Nothing larger is written: a JPEG beyond 16 MiB is refused.
    static constexpr uint64_t MaxCapacity = 0x1000000;

    JStatus Open() override { return JStatusFailed; }
    JStatus Close() override { return JStatusOk; }
    JStatus Write(const void* buffer, uint32_t size, uint32_t& bytesWritten) override;

    void Rewind() { m_Used = 0; }
    const uint8_t* GetData() const { return m_Data.get(); }
    uint64_t GetUsed() const { return m_Used; }
    uint64_t GetCapacity() const { return m_Capacity; }

  private:
    std::unique_ptr<uint8_t[]> m_Data;
    uint64_t m_Capacity = 0;
    uint64_t m_Used = 0;
  };

  // Raises an integrity error (code 2) for a quality above 100, and a media
  // processing error when the encoder refuses its setup. Quality 0 is coded
  // as 1. The data is good until the next call.
  bool Encode(const CmImage& image, uint32_t quality, const uint8_t*& data, uint64_t& size,
              bool writeAspectRatio) override;

  const CmMemoryDataOutputBuffer& GetOutput() const { return m_Output; }

private:
  CmMemoryDataOutputBuffer m_Output;
  CJPEGEncoder m_Encoder;
  // Pictures that must change format first; kept to reuse their memory.
  CmImage m_Converted;
};

} // namespace NmMediaProcessing
