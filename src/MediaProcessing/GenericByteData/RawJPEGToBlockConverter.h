#pragma once

#include <cstdint>
#include <memory>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/JPEGSizeAnalyzer.h"

namespace NmMediaProcessing {

// Turns the bare JPEG data of the legacy form into a one-image block of type 1.
class CmRawJPEGToBlockConverter {
public:
  // The analyser reads the image size; it may be null when the converter is
  // only ever asked to leave the size out.
  explicit CmRawJPEGToBlockConverter(const ImJPEGSizeAnalyzer* sizeAnalyzer)
      : m_SizeAnalyzer(sizeAnalyzer) {}

  // A block that owns a copy of the data, or null when the data is refused.
  // Asking for the size without an analyser is a programming error and
  // raises an integrity error rather than producing a block without size.
  std::unique_ptr<CmGenericVideoByteDataBlock> Convert(const uint8_t* data, uint64_t size,
                                                       const NmTimeStamp::CmTimeStamp& time,
                                                       bool readImageSize) const;

private:
  const ImJPEGSizeAnalyzer* m_SizeAnalyzer;
};

} // namespace NmMediaProcessing
