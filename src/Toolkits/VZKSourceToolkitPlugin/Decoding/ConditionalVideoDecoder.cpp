#include "Toolkits/VZKSourceToolkitPlugin/Decoding/ConditionalVideoDecoder.h"

#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/GenericByteData/TimeMatch.h"
#include "MediaProcessing/Video/JPEG/VideoAnalyzerJPEG.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/MediaData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {

using namespace NmMediaProcessing;

namespace {

constexpr uint32_t JPEGCodec = 1;
// How far past the current time "the last item" is looked for.
constexpr int64_t LastItemReach = 1000000000;

double NumberOr(const std::string& text, double fallback) {
  return text.empty() ? fallback : std::atof(text.c_str());
}

// The stored picture size of a record, from its header or its JPEG headers.
bool StoredSize(const CmGenericByteData& record, const CmRawVideoByteDataAccess& view,
                uint32_t& width, uint32_t& height) {
  if (record.IsBlock()) {
    const CmGenericVideoByteDataBlock block(record.GetData(), record.GetLength());
    width = block.GetImageWidth();
    height = block.GetImageHeight();
    return width != 0 && height != 0;
  }
  return view.GetCodec() == JPEGCodec &&
         CmJPEGSizeAnalyzer().GetImageSize(view.GetData(), view.GetDataSize(), width, height);
}

} // namespace

CmConditionalVideoDecoder::CmConditionalVideoDecoder(const NmXerces::CmXmlNodePtr& node)
    : CmVideoDecoder(node) {
  SmVideoDecodeParameters probe;
  probe.m_DecodeMode = SmVideoDecodeParameters::DecodeSyncFramesOnly;
  m_Probe.SetParameters(probe);
}

void CmConditionalVideoDecoder::ReadConfiguration() {
  CmVideoDecoder::ReadConfiguration();
  m_PassPrivacyMask = GetConfigurationValue("pass_privacy_mask", "none");
  m_PassFormat = GetConfigurationValue("pass_format", NotSet);
  m_PassWidth = GetConfigurationValue("pass_width", NotSet);
  m_PassHeight = GetConfigurationValue("pass_height", NotSet);
  m_PassPixelAspectRatio = GetConfigurationValue("pass_pixel_aspect_ratio", NotSet);
}

void CmConditionalVideoDecoder::Connect(const CmPropertyNameSet& requested,
                                        CmPropertyNameSet& supported, uint64_t argument) {
  if (IsConnected()) {
    return;
  }
  m_Decoding = true;
  m_Time = 0;
  CmVideoDecoder::Connect(requested, supported, argument);
}

void CmConditionalVideoDecoder::Connect(uint64_t argument) {
  CmPropertyNameSet supported;
  Connect(CmPropertyNameSet(), supported, argument);
}

void CmConditionalVideoDecoder::StartLiveStream() {
  throw CmInvalidOperationError<0>("StartLiveStream");
}

uint32_t CmConditionalVideoDecoder::GetLiveData(ImData**, uint32_t) {
  throw CmInvalidOperationError<0>("GetLiveData");
}

bool CmConditionalVideoDecoder::NeedsDecoding(const ImData& item) {
  try {
    return FailsConditions(item);
  } catch (const NmError::CmError&) {
    // A record that cannot even be looked at is left to the decoder, whose
    // failure shows as no picture.
    return true;
  }
}

bool CmConditionalVideoDecoder::MustBeMasked(const ImData& item) const {
  if (m_PassPrivacyMask == NotSet) {
    return false;
  }
  if (item.GetProperty(NmPropertyNames::PrivacyMask) != nullptr) {
    return true;
  }
  for (const ImData* element : ElementsOf(item)) {
    if (element != nullptr && element->GetProperty(NmPropertyNames::PrivacyMask) != nullptr) {
      return true;
    }
  }
  return false;
}

bool CmConditionalVideoDecoder::FailsConditions(const ImData& item) {
  if (MustBeMasked(item)) {
    return true;
  }
  const std::vector<const ImData*> elements = ElementsOf(item);
  const bool format = m_PassFormat != NotSet;
  const bool size = m_PassWidth != NotSet || m_PassHeight != NotSet;
  if ((format || size) && elements.size() > 1) {
    return true;
  }
  if (elements.empty() || elements.front() == nullptr) {
    return true;
  }
  const ImData& stored = *elements.front();
  const CmGenericByteData record(const_cast<uint8_t*>(stored.GetDataPointer()),
                                 stored.GetDataSize());
  const CmRawVideoByteDataAccess view(record, true);
  if (format && (!view.IsValid() || view.GetCodec() != JPEGCodec)) {
    return true;
  }
  if (size) {
    uint32_t width = 0;
    uint32_t height = 0;
    if (!view.IsValid() || !StoredSize(record, view, width, height)) {
      return true;
    }
    if (m_PassWidth != NotSet && width != static_cast<uint32_t>(NumberOr(m_PassWidth, 640))) {
      return true;
    }
    if (m_PassHeight != NotSet && height != static_cast<uint32_t>(NumberOr(m_PassHeight, 480))) {
      return true;
    }
  }
  if (m_PassPixelAspectRatio != NotSet) {
    const double wanted = NumberOr(m_PassPixelAspectRatio, 1.0);
    try {
      m_Probe.Reset();
      CmImage image;
      bool callAgain = false;
      bool gotImage = false;
      if (wanted <= 0 || !m_Probe.Decode(record, image, callAgain, gotImage) || !gotImage) {
        return true;
      }
      return std::fabs(image.GetAttributes().aspectRatio / wanted - 1.0) > 0.001;
    } catch (const NmError::CmError&) {
      return true;
    }
  }
  return false;
}

uint32_t CmConditionalVideoDecoder::MoveTo(int64_t time, SmMoveMode mode) {
  RequirePlayback("MoveTo");
  if (!NmTimeMatch::IsMoveMode(mode)) {
    std::abort(); // a host fault that nothing here can repair
  }
  ImPlaybackSourceToolkit& upstream = *FirstPlaybackUpstream("MoveTo");
  uint32_t status = upstream.MoveTo(time, mode);
  if (status != StatusSuccess) {
    return status;
  }
  ImData* raw = nullptr;
  status = upstream.GetData(&raw);
  const std::unique_ptr<ImData> undecoded(raw);
  if (status == StatusSuccess && undecoded && NeedsDecoding(*undecoded)) {
    if (CmVideoDecoder::MoveTo(time, mode) == StatusSuccess) {
      raw = nullptr;
      const uint32_t decodedStatus = CmVideoDecoder::GetData(&raw);
      const std::unique_ptr<ImData> decoded(raw);
      if (decodedStatus == StatusSuccess && decoded &&
          decoded->GetBeginTime() >= undecoded->GetBeginTime() &&
          decoded->GetBeginTime() <= undecoded->GetEndTime()) {
        m_Time = decoded->GetBeginTime();
        m_Decoding = true;
        return StatusSuccess;
      }
    }
    // An item that needs its mask burnt in and gives no picture of its own
    // must not go out as stored, unmasked: the move stands on it with no
    // picture to give, and the next step goes past it.
    if (MustBeMasked(*undecoded)) {
      StandOnUndecodable(undecoded->GetBeginTime());
      m_Time = undecoded->GetBeginTime();
      m_Decoding = true;
      return StatusSuccess;
    }
  }
  // Undecoded delivery, from the item the move selects.
  m_Decoding = false;
  if (undecoded) {
    m_Time = undecoded->GetBeginTime();
  }
  return upstream.MoveTo(time, mode);
}

uint32_t CmConditionalVideoDecoder::GetData(ImData** out) {
  if (m_Decoding) {
    return CmVideoDecoder::GetData(out);
  }
  RequirePlayback("GetData");
  return FirstPlaybackUpstream("GetData")->GetData(out);
}

uint32_t CmConditionalVideoDecoder::MoveFirst() {
  return MoveTo(0, MoveAtOrAfter);
}

uint32_t CmConditionalVideoDecoder::MoveLast() {
  return MoveTo(m_Time + LastItemReach, MoveAtOrBefore);
}

uint32_t CmConditionalVideoDecoder::MoveNext() {
  return MoveTo(m_Time, MoveAfter);
}

uint32_t CmConditionalVideoDecoder::MovePrevious() {
  return MoveTo(m_Time, MoveBefore);
}

} // namespace NmToolkit
