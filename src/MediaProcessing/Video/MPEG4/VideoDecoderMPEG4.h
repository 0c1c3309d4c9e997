#pragma once

#include "Codecs/MCL/MPEG4VideoDecoder.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "MediaProcessing/Video/MCL/VideoAnalyzerBaseMCL.h"
#include "MediaProcessing/Video/MCL/VideoDecoderBaseMCL.h"

namespace NmMediaProcessing {

// MPEG-4 pictures through the MCL engine, written straight into the caller's
// image by the MCL adapter.
class CmVideoDecoderMPEG4 : public ImVideoDecoder {
public:
  bool Decode(const uint8_t* data, uint64_t size, int32_t imageId,
              const NmTimeStamp::CmTimeStamp& time, CmImage& image,
              SmVideoDecodeResult& result) override {
    return m_Decoder.Decode(data, size, imageId, time, image, result);
  }
  void Reset() override { m_Decoder.Reset(); }
  SmVideoDecodeParameters GetParameters() const override { return m_Decoder.GetParameters(); }
  void SetParameters(const SmVideoDecodeParameters& parameters) override {
    m_Decoder.SetParameters(parameters);
  }

private:
  CmVideoDecoderBaseMCL<MCL::MPEG4VideoDecoder, MCL::VideoDecoderParams, 3> m_Decoder;
};

// The picture size of a MPEG-4 stream, from its picture headers.
class CmVideoAnalyzerMPEG4 : public ImVideoAnalyzer {
public:
  bool Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) override {
    return m_Analyzer.Analyze(data, size, result);
  }

private:
  CmVideoAnalyzerBaseMCL<MCL::MPEG4VideoDecoder, MCL::VideoDecoderParams> m_Analyzer;
};

} // namespace NmMediaProcessing
