#include "Toolkits/VZKSourceToolkitPlugin/Decoding/KeyFramesOnlyVideoDecoder.h"

#include <cstdlib>
#include <optional>

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/TimeMatch.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {

using namespace NmMediaProcessing;

namespace {

std::unique_ptr<ImData> FetchItem(ImPlaybackSourceToolkit& upstream, uint32_t& status) {
  ImData* raw = nullptr;
  status = upstream.GetData(&raw);
  std::unique_ptr<ImData> item(raw);
  if (status == StatusSuccess && !item) {
    status = StatusNoItem;
  }
  return item;
}

} // namespace

CmKeyFramesOnlyVideoDecoder::CmKeyFramesOnlyVideoDecoder(const NmXerces::CmXmlNodePtr& node)
    : CmDecodingToolkit(node) {
  m_Options.m_DecodeMode = SmVideoDecodeParameters::DecodeSyncFramesOnly;
  m_Decoder.SetParameters(m_Options);
  if (!IsConfigured() || dynamic_cast<ImPlaybackSourceToolkit*>(FirstUpstream()) == nullptr) {
    return;
  }
  // The cache takes the upstream over and serves every fetch in its place.
  WrapFirstUpstream<CmCache>();
}

void CmKeyFramesOnlyVideoDecoder::ReadConfiguration() {
  if (ReadOutputConfiguration()) {
    m_Decoder.SetParameters(m_Options);
  }
}

std::unique_ptr<ImData> CmKeyFramesOnlyVideoDecoder::Decode(const ImData& item) {
  if (dynamic_cast<const ImMediaData*>(&item) == nullptr) {
    return nullptr;
  }
  CmImage image;
  try {
    m_Decoder.Reset();
    const CmGenericByteData source(const_cast<uint8_t*>(item.GetDataPointer()), item.GetDataSize());
    bool callAgain = false;
    bool gotImage = false;
    if (!m_Decoder.Decode(source, image, callAgain, gotImage) || !gotImage) {
      return nullptr;
    }
  } catch (const NmError::CmError&) {
    return nullptr;
  }
  CmVZKSourceToolkitProperties properties;
  m_Output.CopyPerFrameProperties(&item, properties);
  CmImage result;
  try {
    result = m_Output.Transform(image);
  } catch (const NmError::CmError&) {
    result = image;
  }
  ApplyMask(item.GetProperty(NmPropertyNames::PrivacyMask), result);
  if (GetPassedProperties().count(NmPropertyNames::Transcoded) != 0) {
    properties.SetProperty(NmPropertyNames::Transcoded, std::make_unique<CmBooleanProperty>(true));
  }
  return std::make_unique<CmImageData>(result, properties);
}

void CmKeyFramesOnlyVideoDecoder::ProcessData(ImData* in, ImData** out) {
  std::unique_ptr<ImData> picture = in != nullptr ? Decode(*in) : nullptr;
  // Nothing decodable gives an empty picture, which the host can tell apart.
  *out = picture ? picture.release() : new CmImageData(CmImage(), CmVZKSourceToolkitProperties());
}

bool CmKeyFramesOnlyVideoDecoder::NeighbourBegin(ImPlaybackSourceToolkit& upstream, bool forwards,
                                                 int64_t time, int64_t& beginOut) {
  uint32_t status = forwards ? upstream.MoveNext() : upstream.MovePrevious();
  bool found = false;
  if (status == StatusSuccess) {
    const std::unique_ptr<ImData> item = FetchItem(upstream, status);
    if (status == StatusSuccess) {
      beginOut = item->GetBeginTime();
      found = (forwards ? upstream.MovePrevious() : upstream.MoveNext()) == StatusSuccess;
    }
  }
  if (!found) {
    // Back to the item shown, whatever happened on the way.
    upstream.MoveTo(time, MoveAtOrBefore);
  }
  return found;
}

uint32_t CmKeyFramesOnlyVideoDecoder::GetData(ImData** out) {
  RequirePlayback("GetData");
  if (out == nullptr) {
    throw CmInvalidArgumentError<2>("out");
  }
  *out = nullptr;
  ImPlaybackSourceToolkit& upstream = *FirstPlaybackUpstream("GetData");
  uint32_t status = StatusSuccess;
  const std::unique_ptr<ImData> item = FetchItem(upstream, status);
  if (status != StatusSuccess) {
    return status;
  }
  std::unique_ptr<ImData> picture = Decode(*item);
  if (!picture) {
    return StatusNoItem;
  }
  auto& image = static_cast<CmImageData&>(*picture);
  CmVZKSourceToolkitProperties properties = image.GetProperties();
  const int64_t time = item->GetBeginTime();
  const auto& passed = GetPassedProperties();
  int64_t begin = 0;
  if ((passed.count(NmPropertyNames::PrevBeginTime) != 0 ||
       passed.count(NmPropertyNames::PrevEndTime) != 0) &&
      NeighbourBegin(upstream, false, time, begin)) {
    properties.SetProperty(NmPropertyNames::PrevBeginTime,
                           std::make_unique<CmUTCTimeProperty>(begin));
    properties.SetProperty(NmPropertyNames::PrevEndTime,
                           std::make_unique<CmUTCTimeProperty>(begin));
  }
  if ((passed.count(NmPropertyNames::NextBeginTime) != 0 ||
       passed.count(NmPropertyNames::NextEndTime) != 0) &&
      NeighbourBegin(upstream, true, time, begin)) {
    properties.SetProperty(NmPropertyNames::NextBeginTime,
                           std::make_unique<CmUTCTimeProperty>(begin));
    properties.SetProperty(NmPropertyNames::NextEndTime,
                           std::make_unique<CmUTCTimeProperty>(begin));
  }
  *out = new CmImageData(image.GetImage(), properties);
  return StatusSuccess;
}

uint32_t CmKeyFramesOnlyVideoDecoder::MoveClosest(ImPlaybackSourceToolkit& upstream, int64_t time) {
  uint32_t status = upstream.MoveTo(time, NmToolkit::MoveClosest);
  if (status != StatusSuccess) {
    return status;
  }
  std::unique_ptr<ImData> item = FetchItem(upstream, status);
  if (status != StatusSuccess) {
    return StatusSuccess; // the failure shows at GetData
  }
  const int64_t begin = item->GetBeginTime();
  if (begin >= time) {
    return StatusSuccess;
  }
  // Pictures stand at the begins of items, and a tie goes to the earlier one.
  const int64_t end = item->GetEndTime();
  if (time <= end &&
      !NmTimeMatch::LaterIsNearer(NmTimeMatch::Gap(time, begin), NmTimeMatch::Gap(end, time),
                                  NmTimeMatch::SmTie::Earlier)) {
    return StatusSuccess;
  }
  // The time lies past the item's middle: the next one may be closer.
  if (upstream.MoveNext() != StatusSuccess) {
    return upstream.MoveTo(time, NmToolkit::MoveClosest);
  }
  const std::unique_ptr<ImData> next = FetchItem(upstream, status);
  if (status != StatusSuccess ||
      (next->GetBeginTime() >= time &&
       !NmTimeMatch::LaterIsNearer(NmTimeMatch::Gap(time, begin),
                                   NmTimeMatch::Gap(next->GetBeginTime(), time),
                                   NmTimeMatch::SmTie::Earlier))) {
    return upstream.MovePrevious();
  }
  return StatusSuccess;
}

uint32_t CmKeyFramesOnlyVideoDecoder::MoveTo(int64_t time, SmMoveMode mode) {
  RequirePlayback("MoveTo");
  ImPlaybackSourceToolkit& upstream = *FirstPlaybackUpstream("MoveTo");
  if (!NmTimeMatch::IsMoveMode(mode)) {
    // A mode outside the contract is a host fault that nothing here can repair.
    std::abort();
  }
  if (mode == NmToolkit::MoveClosest) {
    return MoveClosest(upstream, time);
  }
  // Each item shows one picture, at its begin: the move is about begins.
  const std::optional<NmTimeMatch::SmMoveRequest> request = NmTimeMatch::AboutBegins(mode, time);
  // Time 0 is the earliest time for the two modes that look a millisecond back.
  if (!request || (request->time != time && time == 0)) {
    return StatusNoItem;
  }
  return upstream.MoveTo(request->time, request->mode);
}

} // namespace NmToolkit
