#pragma once

#include <cstdint>
#include <memory>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/JPEG/SimpleJPEGEncoder.h"

namespace NmMediaProcessing {

// Encodes images into JPEG blocks of generic byte data, with the picture's
// size, time, interlacing and orientation in the block header.
class CmSimpleJPEGEncoderWrapper {
public:
  // A block that owns its bytes; null when the image could not be encoded.
  // Raises as CmSimpleJPEGEncoder::Encode does.
  std::unique_ptr<CmGenericVideoByteDataBlock> Encode(const CmImage& image, uint32_t quality,
                                                      bool writeAspectRatio = false);

private:
  CmSimpleJPEGEncoder m_Encoder;
};

} // namespace NmMediaProcessing
