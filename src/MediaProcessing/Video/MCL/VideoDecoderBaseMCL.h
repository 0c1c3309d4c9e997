#pragma once

#include <cstdint>
#include <memory>

#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/Status.h"
#include "Codecs/MCL/VideoProcessing.h"
#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MCL/MCLDecoderSettings.h"
#include "MediaProcessing/Video/MCL/MCLError.h"
#include "MediaProcessing/Video/MCL/MCLOutputImagePreparation.h"
#include "MediaProcessing/Video/MCL/MCLPostProcessing.h"
#include "MediaProcessing/Video/MCL/MCLVideoDataWrapper.h"
#include "MediaProcessing/Video/VideoDecoder.h"

namespace NmMediaProcessing {

// Turns an MCL decoder into an ImVideoDecoder that writes straight into the
// caller's CmImage. Decoder is an MCL::VideoDecoder, Params its parameter
// class; N is the number of planes the instance's codec writes, which is 3 for
// every codec that exists (4:2:0 luma and two chroma planes).
//
// The decoder is made at the first Decode and made again after a fault or a
// change of the settings it was initialised with. A bad stream only resets it
// in place, so that it picks up at the next sync frame.
template <typename Decoder, typename Params, int N>
class CmVideoDecoderBaseMCL : public ImVideoDecoder {
  static_assert(N >= 1 && N <= MCL::VideoData::MaxPlanes, "an MCL picture has one to four planes");

public:
  CmVideoDecoderBaseMCL() = default;
  CmVideoDecoderBaseMCL(const CmVideoDecoderBaseMCL&) = delete;
  CmVideoDecoderBaseMCL& operator=(const CmVideoDecoderBaseMCL&) = delete;
  ~CmVideoDecoderBaseMCL() override { TearDown(); }

  bool Decode(const uint8_t* data, uint64_t size, int32_t imageId,
              const NmTimeStamp::CmTimeStamp& time, CmImage& image,
              SmVideoDecodeResult& result) override;

  void Reset() override {
    if (m_ParametersChanged || m_Broken) {
      TearDown();
    }
    m_ResetRequested = false;
    if (m_Decoder) {
      ClearReuse();
      ResetDecoder();
    }
  }

  SmVideoDecodeParameters GetParameters() const override { return m_Parameters; }

  void SetParameters(const SmVideoDecodeParameters& parameters) override {
    if (NeedsMCLDecoderRebuild(m_Parameters, parameters)) {
      m_ParametersChanged = true;
    }
    m_Parameters = parameters;
  }

private:
  void SetUp();
  void TearDown() {
    if (m_Decoder) {
      m_Decoder->Close();
    }
    m_Decoder.reset();
    m_DecoderParams.reset();
    m_Processing.reset();
    m_Broken = false;
    m_ParametersChanged = false;
    ClearReuse();
  }
  // Any non-zero status marks the decoder for a rebuild; a negative one raises.
  void Check(MCL::Status status) {
    if (status != MCL::StatusOk) {
      m_Broken = true;
    }
    if (status < 0) {
      ThrowStatus(status);
    }
  }
  void ResetDecoder() { Check(m_Decoder->Reset()); }
  void ClearReuse() {
    m_Reusing = false;
    m_ReuseData = nullptr;
    m_ReuseSize = 0;
    m_ReuseConsumed = 0;
  }

  SmVideoDecodeParameters m_Parameters;
  std::unique_ptr<Decoder> m_Decoder;
  std::unique_ptr<Params> m_DecoderParams;
  std::unique_ptr<CmSpecialMCLVideoDecoderProcessing> m_Processing;
  bool m_ResetRequested = false;
  bool m_Broken = false;
  bool m_ParametersChanged = false;
  bool m_Reusing = false;
  const uint8_t* m_ReuseData = nullptr;
  uint64_t m_ReuseSize = 0;
  uint64_t m_ReuseConsumed = 0;
};

template <typename Decoder, typename Params, int N>
void CmVideoDecoderBaseMCL<Decoder, Params, N>::SetUp() {
  m_Processing = std::make_unique<CmSpecialMCLVideoDecoderProcessing>();
  const MCL::Status processingStatus = m_Processing->Init(MCL::VideoProcessingParams());
  if (processingStatus < 0) {
    ThrowStatus(processingStatus);
  }
  m_Processing->SetScaleDivisor(1);
  m_Processing->SetLuminanceOnly(m_Parameters.m_LuminanceOnly);

  m_Decoder = std::make_unique<Decoder>();
  m_DecoderParams = std::make_unique<Params>();
  m_DecoderParams->numThreads = MakeMCLThreadCount(m_Parameters.m_ThreadCount);
  m_DecoderParams->flags = MakeMCLDecoderFlags(m_Parameters);

  // The decoder delivers each picture into the one image of the call.
  m_Decoder->SetPostProcessing(m_Processing.get());
  m_Decoder->SetImageCounts(1, 1);

  Check(m_Decoder->Init(m_DecoderParams.get()));
  ClearReuse();
  m_ResetRequested = false;
  ResetDecoder();
}

template <typename Decoder, typename Params, int N>
bool CmVideoDecoderBaseMCL<Decoder, Params, N>::Decode(const uint8_t* data, uint64_t size,
                                                       int32_t imageId,
                                                       const NmTimeStamp::CmTimeStamp& time,
                                                       CmImage& image,
                                                       SmVideoDecodeResult& result) {
  if (m_ParametersChanged || m_Broken) {
    TearDown();
  }
  if (m_ResetRequested && m_Decoder) {
    ClearReuse();
    m_ResetRequested = false;
    ResetDecoder();
  }
  if (!m_Decoder) {
    SetUp();
  }

  MCL::MediaData input;
  input.SetBufferPointer(data, size);
  input.SetDataSize(size);
  input.SetFrameId(imageId);
  input.SetTime(static_cast<double>(time.GetMilliseconds()) / 1000.0);
  if (data != nullptr && size == 0) {
    m_ResetRequested = true;
    throw NmError::CmIntegrityError(VZK_LOCATION,
                                    "Invalid source data length for non-NULL source data",
                                    NmError::CmIntegrityErrorCode::OutOfRange);
  }

  if (m_Reusing) {
    if (data != m_ReuseData || size != m_ReuseSize) {
      m_ResetRequested = true;
      throw NmError::CmIntegrityError(VZK_LOCATION,
                                      "Invalid source data parameters for re-use by decoder",
                                      NmError::CmIntegrityErrorCode::OutOfRange);
    }
    input.MoveDataPointer(m_ReuseConsumed);
    m_Reusing = false;
  }
  const uint64_t offered = input.GetDataSize();

  CmMCLOutputImagePreparation preparation(image);
  CmMCLVideoDataWrapper output(image);
  m_Processing->SetSkipOutput(!m_Parameters.m_ProduceImage);
  m_Processing->SetScaleDivisor(m_Parameters.m_ScaleDivisor);

  // Under four bytes cannot hold a unit of any of the codecs: such a tail is
  // dropped instead of being offered again and again.
  MCL::Status status;
  const uint64_t left = input.GetDataSize();
  if (data != nullptr && left > 0 && left < 4) {
    status = MCL::StatusNotEnoughData;
  } else {
    status = m_Decoder->GetFrame(data != nullptr ? &input : nullptr, &output);
  }
  if (data != nullptr && input.GetDataSize() < 4) {
    input.SetDataSize(0);
  }

  bool failed = false;
  bool frame = false;
  switch (status) {
  case MCL::StatusOk:
    frame = true;
    break;
  case MCL::StatusFrameHeld:
    if (output.GetFrameId() >= 0 && image.IsValid()) {
      frame = true;
    } else {
      failed = true;
    }
    break;
  case MCL::StatusNotEnoughData:
    break;
  case MCL::StatusInvalidStream:
  case MCL::StatusInvalidStreamSync:
  case MCL::StatusFailed:
    m_ResetRequested = true;
    failed = true;
    // A picture that the image cannot hold is the caller's to hear of, in
    // the words of the image's own rule.
    if (auto refusal = m_Processing->TakeRefusal()) {
      ClearReuse();
      throw NmError::CmIntegrityError(*refusal);
    }
    break;
  case MCL::StatusFrameIncomplete:
    failed = data != nullptr && input.GetDataSize() > 0;
    break;
  default:
    m_Broken = true;
    ClearReuse();
    ThrowStatus(status);
  }

  if (!failed) {
    result.m_ImageId = output.GetFrameId();
    if (frame) {
      result.m_ImageProduced = !m_Processing->GetSkipOutput();
    }
    if (result.m_ImageProduced) {
      CmStandardImageAttributes& attributes = image.GetAttributes();
      output.UpdateAttributes(attributes);
      attributes.orientation = Orientation();
      attributes.attribute1 = 0;
      const ColorFormat format = image.GetColorFormat();
      const bool packed = format == RGB24 || format == BGR24 || format == RGB32 ||
                          format == BGR32 || format == RGBA || format == BGRA;
      if (!packed && attributes.subColorFormat == NotApplicable) {
        attributes.subColorFormat = SubColorFormatVideoRange;
      }
      preparation.Keep();
    }
  }

  if (m_ResetRequested || m_Broken) {
    ClearReuse();
  } else if (data != nullptr) {
    const uint64_t remaining = input.GetDataSize();
    if (remaining > 0) {
      result.m_CallAgain = true;
      result.m_NothingConsumed = remaining == offered;
      m_Reusing = true;
      m_ReuseData = data;
      m_ReuseSize = size;
      m_ReuseConsumed = size - remaining;
    }
  } else if (frame || output.GetFrameId() >= 0) {
    // A flush goes on while the decoder still gives something out.
    result.m_CallAgain = true;
    m_Reusing = true;
    m_ReuseData = nullptr;
    m_ReuseSize = 0;
    m_ReuseConsumed = 0;
  } else {
    m_ResetRequested = true;
  }
  return !failed;
}

} // namespace NmMediaProcessing
