#pragma once

#include "MediaProcessing/Video/MCL/VideoAnalyzerBaseMCL.h"
#include "MediaProcessing/Video/MCL/VideoDecoderBaseMCL.h"
#include "MediaProcessing/Video/VideoAnalyzer.h"
#include "MediaProcessing/Video/VideoDecoder.h"

namespace NmMediaProcessing {

// A codec decoder that owns the adapter over one MCL engine and forwards its
// operations to it: pictures written straight into the caller's image.
template <typename Decoder, typename Params, int N>
class CmMCLVideoDecoderInstance : public ImVideoDecoder {
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
  CmVideoDecoderBaseMCL<Decoder, Params, N> m_Decoder;
};

// The picture size of a stream, read by the same MCL engine.
template <typename Decoder, typename Params>
class CmMCLVideoAnalyzerInstance : public ImVideoAnalyzer {
public:
  bool Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) override {
    return m_Analyzer.Analyze(data, size, result);
  }

private:
  CmVideoAnalyzerBaseMCL<Decoder, Params> m_Analyzer;
};

} // namespace NmMediaProcessing
