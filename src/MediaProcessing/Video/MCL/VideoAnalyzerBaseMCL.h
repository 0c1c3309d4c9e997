#pragma once

#include <cstdint>
#include <memory>

#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/Status.h"
#include "Common/Error/Error.h"
#include "MediaProcessing/Video/MCL/MCLError.h"
#include "MediaProcessing/Video/VideoAnalyzer.h"

namespace NmMediaProcessing {

// Reads the picture size of a stream with the codec itself: a decoder is
// initialised over the data and asked what it found.
template <typename Decoder, typename Params> class CmVideoAnalyzerBaseMCL : public ImVideoAnalyzer {
public:
  bool Analyze(const uint8_t* data, uint64_t size, SmVideoSize& result) override {
    if (data == nullptr || size == 0) {
      throw NmError::CmIntegrityError(VZK_LOCATION, "Null input parameters given",
                                      NmError::CmIntegrityErrorCode::OutOfRange);
    }
    MCL::MediaData input;
    input.SetBufferPointer(data, size);
    input.SetDataSize(size);

    auto decoder = std::make_unique<Decoder>();
    auto params = std::make_unique<Params>();
    params->numThreads = 1;
    params->initialData = &input;
    MCL::Status status = decoder->Init(params.get());
    if (status == MCL::StatusOk) {
      status = decoder->GetInfo(params.get());
    }
    decoder->Close();

    if (status == MCL::StatusOk && params->info.width > 0 && params->info.height > 0) {
      result = SmVideoSize(static_cast<uint64_t>(params->info.width),
                           static_cast<uint64_t>(params->info.height));
      return true;
    }
    switch (status) {
    case MCL::StatusOk:
    case MCL::StatusFrameHeld:
    case MCL::StatusInvalidStream:
    case MCL::StatusInvalidStreamSync:
    case MCL::StatusNotEnoughData:
    case MCL::StatusFrameIncomplete:
    case MCL::StatusWorkerFailed:
      // The data does not tell, or not yet.
      return false;
    default:
      if (status < 0) {
        ThrowStatus(status);
      }
      return false;
    }
  }
};

} // namespace NmMediaProcessing
