#pragma once

#include "Codecs/H264/H264VideoDecoder.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "MediaProcessing/Video/MCL/VideoAnalyzerBaseMCL.h"
#include "MediaProcessing/Video/MCL/VideoDecoderBaseMCL.h"

namespace NmMediaProcessing {

// H.264 pictures through our engine, written straight into the caller's
// image by the MCL adapter.
class CmVideoDecoderH264 : public ImVideoDecoder {
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
  CmVideoDecoderBaseMCL<MCL::H264VideoDecoder, MCL::H264VideoDecoderParams, 3> m_Decoder;
};

// The picture size of an H.264 stream, from its sequence parameter set after
// cropping.
class CmVideoAnalyzerH264 : public ImVideoAnalyzer {
public:
  bool Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) override {
    return m_Analyzer.Analyze(data, size, result);
  }

private:
  CmVideoAnalyzerBaseMCL<MCL::H264VideoDecoder, MCL::H264VideoDecoderParams> m_Analyzer;
};

} // namespace NmMediaProcessing
