#pragma once

#include <cstdint>

#include "MediaProcessing/GenericByteData/JPEGSizeAnalyzer.h"
#include "MediaProcessing/JPEG/JPEGDecoder.h"
#include "MediaProcessing/Video/VideoAnalyzer.h"

namespace NmMediaProcessing {

// Reads the picture size of a JPEG frame from its headers alone.
class CmVideoAnalyzerJPEG : public ImVideoAnalyzer {
public:
  bool Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) override;

private:
  CJPEGDecoder m_Decoder;
};

// The same, for the conversion of raw JPEG records into blocks. Refuses
// instead of throwing.
class CmJPEGSizeAnalyzer : public ImJPEGSizeAnalyzer {
public:
  bool GetImageSize(const uint8_t* data, uint64_t size, uint32_t& width,
                    uint32_t& height) const override;
};

} // namespace NmMediaProcessing
