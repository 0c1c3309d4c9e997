#include "Toolkits/VZKSourceToolkitPlugin/Decoding/VideoDecoder.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>

#include "Common/Error/Error.h"
#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/TimeMatch.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {

using namespace NmMediaProcessing;
using NmTimeStamp::CmTimeStamp;

namespace {

// More than any codec holds back: H.264 reorders by at most 16 frames.
constexpr size_t MostFedItems = 32;

int64_t TimeOf(const CmImage& image) {
  return image.GetAttributes().timeStamp.GetMilliseconds();
}

bool Exists(const CmImage& image) {
  return image.IsValid();
}

int64_t NowMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

} // namespace

CmVideoDecoder::CmVideoDecoder(const NmXerces::CmXmlNodePtr& node) : CmDecodingToolkit(node) {
  if (!IsConfigured() || FirstUpstream() == nullptr ||
      dynamic_cast<ImPlaybackSourceToolkit*>(FirstUpstream()) == nullptr) {
    return;
  }
  ApplyOptions();
  m_Cache = WrapFirstUpstream<CmCache>();
  m_Adapter = std::make_unique<CmVideoDataAccessAdapter>(m_Cache);
  m_RandomAccess.SetDataAccess(m_Adapter.get());
}

CmVideoDecoder::~CmVideoDecoder() {
  // The adapter goes before the base releases the cache it reads through.
  m_RandomAccess.ClearDataAccess();
}

void CmVideoDecoder::ApplyOptions() {
  m_StreamDecoder.SetParameters(m_Options);
  m_RandomAccess.SetParameters(m_Options);
}

void CmVideoDecoder::ReadConfiguration() {
  if (ReadOutputConfiguration()) {
    ApplyOptions();
  }
}

// ---- live ----

void CmVideoDecoder::StartLiveStream() {
  SetLive(true);
  m_RandomAccess.Reset();
  FirstLiveUpstream("StartLiveStream")->StartLiveStream();
}

void CmVideoDecoder::StopLiveStream() {
  m_StreamDecoder.Reset();
  m_PendingItem.reset();
  m_FedItems.clear();
  SetLive(false);
  FirstLiveUpstream("StopLiveStream")->StopLiveStream();
}

uint32_t CmVideoDecoder::GetLiveData(ImData** out, uint32_t timeout) {
  RequireConnected();
  if (!IsLive()) {
    throw CmInvalidOperationError<2>("GetLiveData");
  }
  if (out == nullptr) {
    throw CmInvalidArgumentError<2>("out");
  }
  *out = nullptr;
  const int64_t start = NowMilliseconds();
  CmImage image;
  CmVZKSourceToolkitProperties properties;
  // The mask goes with the picture's own item, which may be gone by the time
  // the picture is masked.
  CmVZKSourceToolkitProperties maskText;
  for (;;) {
    if (!m_PendingItem) {
      const int64_t spent = NowMilliseconds() - start;
      const uint32_t left = spent >= timeout ? 0 : static_cast<uint32_t>(timeout - spent);
      ImData* raw = nullptr;
      const uint32_t status = FirstLiveUpstream("GetLiveData")->GetLiveData(&raw, left);
      std::unique_ptr<ImData> item(raw);
      if (status != StatusSuccess) {
        return status;
      }
      if (dynamic_cast<ImMediaData*>(item.get()) == nullptr) {
        if (dynamic_cast<ImOutOfBandData*>(item.get()) != nullptr) {
          *out = item.release();
          return StatusSuccess;
        }
        return StatusNoItem;
      }
      m_PendingItem = std::move(item);
      SmFedItem fed;
      fed.time = m_PendingItem->GetBeginTime();
      m_Output.CopyPerFrameProperties(m_PendingItem.get(), fed.properties);
      if (const auto* mask = dynamic_cast<const ImStringProperty*>(
              m_PendingItem->GetProperty(NmPropertyNames::PrivacyMask))) {
        fed.mask.SetProperty(NmPropertyNames::PrivacyMask,
                             std::unique_ptr<ImProperty>(mask->Clone()));
      }
      m_FedItems.push_back(std::move(fed));
      if (m_FedItems.size() > MostFedItems) {
        m_FedItems.pop_front();
      }
    }

    bool callAgain = false;
    bool gotImage = false;
    bool decoded = false;
    try {
      const CmGenericByteData source(const_cast<uint8_t*>(m_PendingItem->GetDataPointer()),
                                     m_PendingItem->GetDataSize());
      decoded = m_StreamDecoder.Decode(source, image, callAgain, gotImage);
    } catch (const NmError::CmError&) {
      decoded = false;
    }
    if (!decoded) {
      m_PendingItem.reset();
      return StatusNoItem;
    }
    if (gotImage) {
      // The item of the picture's time, else the item that brought it out.
      const int64_t time = image.GetAttributes().timeStamp.GetMilliseconds();
      auto own = std::find_if(m_FedItems.begin(), m_FedItems.end(),
                              [&](const SmFedItem& fed) { return fed.time == time; });
      if (own == m_FedItems.end() && !m_FedItems.empty()) {
        own = std::prev(m_FedItems.end());
      }
      if (own != m_FedItems.end()) {
        properties = std::move(own->properties);
        maskText = std::move(own->mask);
        m_FedItems.erase(m_FedItems.begin(), std::next(own));
      }
      if (!callAgain) {
        m_PendingItem.reset();
      }
      break;
    }
    if (!callAgain) {
      m_PendingItem.reset();
    }
    if (NowMilliseconds() - start >= static_cast<int64_t>(timeout)) {
      return StatusNoItem;
    }
  }

  CmImage result;
  try {
    result = m_Output.Transform(image);
  } catch (const NmError::CmError&) {
    result.Reset();
  }
  ApplyMask(maskText.GetProperty(NmPropertyNames::PrivacyMask), result);
  if (GetPassedProperties().count(NmPropertyNames::Transcoded) != 0) {
    properties.SetProperty(NmPropertyNames::Transcoded, std::make_unique<CmBooleanProperty>(true));
  }
  *out = new CmImageData(result, properties);
  return StatusSuccess;
}

// ---- playback ----

uint32_t CmVideoDecoder::Seek(int64_t time, SmTimeMatchType matchType) {
  const bool haveCurrent = Exists(m_Current);
  auto rotateForwards = [&] {
    m_Previous = m_Current;
    m_Current = m_Next;
    m_Next.Reset();
  };
  auto rotateBackwards = [&] {
    m_Next = m_Current;
    m_Current = m_Previous;
    m_Previous.Reset();
  };
  auto atTime = [&](const CmImage& image) { return Exists(image) && TimeOf(image) == time; };
  auto landed = [&] {
    m_UndecodableAt.reset();
    m_LastStatus = StatusSuccess;
    return StatusSuccess;
  };

  if (haveCurrent) {
    if (matchType == TimeMatchAfter && Exists(m_Next) && TimeOf(m_Current) == time) {
      rotateForwards();
      return landed();
    }
    if (matchType == TimeMatchBefore && Exists(m_Previous) && TimeOf(m_Current) == time) {
      rotateBackwards();
      return landed();
    }
    if (matchType != TimeMatchAfter && matchType != TimeMatchBefore) {
      const bool inCurrentSpan = matchType == TimeMatchAtOrBefore && Exists(m_Next) &&
                                 TimeOf(m_Current) <= time && time < TimeOf(m_Next);
      if (atTime(m_Current) || inCurrentSpan) {
        return landed();
      }
      if (atTime(m_Next)) {
        rotateForwards();
        return landed();
      }
      if (atTime(m_Previous)) {
        rotateBackwards();
        return landed();
      }
    }
  }

  m_Next.Reset();
  m_Previous.Reset();
  const CmImage saved = m_Current;
  bool found = false;
  try {
    CmImage image;
    found = m_RandomAccess.GetImage(CmTimeStamp::FromMilliseconds(time), matchType, image) &&
            Exists(image);
    if (found) {
      m_Current = image;
    }
  } catch (const NmError::CmError&) {
    found = false;
  }
  if (found) {
    return landed();
  }
  // The move found its picture but could not decode it. One bad picture must
  // not end playback: the move stands on it, GetData says that there is no
  // picture, and the next step goes past it. Only an exact time, which names
  // that one picture, fails.
  CmTimeStamp undecodable;
  if (matchType != TimeMatchExact && m_RandomAccess.GetUndecodableTime(undecodable)) {
    StandOnUndecodable(undecodable.GetMilliseconds());
    return StatusSuccess;
  }
  // A miss keeps showing the picture there was, if there was one, or stays
  // on the picture that could not be decoded.
  if (m_UndecodableAt) {
    m_Current.Reset();
    m_LastStatus = StatusNoItem;
  } else if (Exists(saved)) {
    m_Current = saved;
    m_LastStatus = StatusSuccess;
  } else {
    m_Current.Reset();
    m_LastStatus = StatusNoItem;
  }
  return StatusNoItem;
}

uint32_t CmVideoDecoder::MoveFirst() {
  RequirePlayback("MoveFirst");
  return MoveTo(CmTimeStamp(CmTimeStamp::Earliest).GetMilliseconds(), MoveAtOrAfter);
}

uint32_t CmVideoDecoder::MoveLast() {
  RequirePlayback("MoveLast");
  return MoveTo(CmTimeStamp(CmTimeStamp::Latest).GetMilliseconds(), MoveAtOrBefore);
}

void CmVideoDecoder::StandOnUndecodable(int64_t time) {
  m_Current.Reset();
  m_Next.Reset();
  m_Previous.Reset();
  m_UndecodableAt = time;
  m_LastStatus = StatusNoItem;
}

int64_t CmVideoDecoder::PositionTime() const {
  if (m_UndecodableAt) {
    return *m_UndecodableAt;
  }
  return Exists(m_Current) ? TimeOf(m_Current) : CmTimeStamp().GetMilliseconds();
}

uint32_t CmVideoDecoder::MoveNext() {
  RequirePlayback("MoveNext");
  return Seek(PositionTime(), TimeMatchAfter);
}

uint32_t CmVideoDecoder::MovePrevious() {
  RequirePlayback("MovePrevious");
  return Seek(PositionTime(), TimeMatchBefore);
}

uint32_t CmVideoDecoder::MoveSequence(bool forwards) {
  ImPlaybackSourceToolkit* upstream =
      FirstPlaybackUpstream(forwards ? "MoveNextSequence" : "MovePreviousSequence");
  const uint32_t status =
      forwards ? upstream->MoveNextSequence() : upstream->MovePreviousSequence();
  if (status != StatusSuccess) {
    return status;
  }
  ImData* raw = nullptr;
  const uint32_t fetched = upstream->GetData(&raw);
  std::unique_ptr<ImData> item(raw);
  if (fetched != StatusSuccess || !item) {
    return fetched != StatusSuccess ? fetched : StatusNoItem;
  }
  const int64_t begin = item->GetBeginTime();
  item.reset();
  return Seek(begin, TimeMatchAtOrBefore);
}

uint32_t CmVideoDecoder::MoveNextSequence() {
  RequirePlayback("MoveNextSequence");
  return MoveSequence(true);
}

uint32_t CmVideoDecoder::MovePreviousSequence() {
  RequirePlayback("MovePreviousSequence");
  return MoveSequence(false);
}

uint32_t CmVideoDecoder::MoveTo(int64_t time, SmMoveMode mode) {
  RequirePlayback("MoveTo");
  if (!NmTimeMatch::IsMoveMode(mode)) {
    // A mode outside the contract is a host fault that nothing here can repair.
    std::abort();
  }
  return Seek(time, NmTimeMatch::ForMove(mode));
}

std::optional<int64_t> CmVideoDecoder::FindNeighbour(CmImage& neighbour,
                                                     SmTimeMatchType matchType) {
  if (Exists(neighbour)) {
    return TimeOf(neighbour);
  }
  try {
    CmImage image;
    if (m_RandomAccess.GetImage(m_Current.GetAttributes().timeStamp, matchType, image) &&
        Exists(image)) {
      neighbour = image;
      return TimeOf(image);
    }
  } catch (const NmError::CmError&) {
  }
  neighbour.Reset();
  // A neighbour that cannot be decoded is still where the next step goes.
  CmTimeStamp undecodable;
  if (m_RandomAccess.GetUndecodableTime(undecodable)) {
    return undecodable.GetMilliseconds();
  }
  return std::nullopt;
}

const ImData* CmVideoDecoder::ItemAt(int64_t time) {
  if (const ImData* item = m_Adapter->FindItem(time)) {
    return item;
  }
  if (m_Cache->MoveTo(time, MoveClosest) != StatusSuccess) {
    return nullptr;
  }
  ImData* raw = nullptr;
  if (m_Cache->GetData(&raw) != StatusSuccess || raw == nullptr) {
    delete raw;
    return nullptr;
  }
  m_Adapter->Remember(std::shared_ptr<ImData>(raw));
  return m_Adapter->FindItem(time);
}

uint32_t CmVideoDecoder::GetData(ImData** out) {
  RequirePlayback("GetData");
  if (out == nullptr) {
    throw CmInvalidArgumentError<2>("out");
  }
  *out = nullptr;
  if (m_LastStatus != StatusSuccess) {
    return m_LastStatus;
  }
  CmImage result;
  try {
    result = m_Output.Transform(m_Current);
  } catch (const NmError::CmError&) {
    result = m_Current;
  }
  CmVZKSourceToolkitProperties properties;
  const auto& passed = GetPassedProperties();
  if (passed.count(NmPropertyNames::Transcoded) != 0) {
    properties.SetProperty(NmPropertyNames::Transcoded, std::make_unique<CmBooleanProperty>(true));
  }
  const int64_t time = TimeOf(m_Current);
  if (passed.count(NmPropertyNames::PrevBeginTime) != 0 ||
      passed.count(NmPropertyNames::PrevEndTime) != 0) {
    if (const std::optional<int64_t> previous = FindNeighbour(m_Previous, TimeMatchBefore)) {
      properties.SetProperty(NmPropertyNames::PrevBeginTime,
                             std::make_unique<CmUTCTimeProperty>(*previous));
      properties.SetProperty(NmPropertyNames::PrevEndTime,
                             std::make_unique<CmUTCTimeProperty>(*previous));
    }
  }
  if (passed.count(NmPropertyNames::NextBeginTime) != 0 ||
      passed.count(NmPropertyNames::NextEndTime) != 0) {
    if (const std::optional<int64_t> next = FindNeighbour(m_Next, TimeMatchAfter)) {
      properties.SetProperty(NmPropertyNames::NextBeginTime,
                             std::make_unique<CmUTCTimeProperty>(*next));
      properties.SetProperty(NmPropertyNames::NextEndTime,
                             std::make_unique<CmUTCTimeProperty>(*next));
    }
  }
  const ImData* item = nullptr;
  try {
    item = ItemAt(time);
    if (item != nullptr && (item->GetBeginTime() > time || time > item->GetEndTime())) {
      item = nullptr;
    }
  } catch (const ImToolkitError&) {
    // The picture goes without what it could not get, but never unmasked.
    if (AppliesMasks()) {
      result.Reset();
    }
  }
  ApplyMask(item != nullptr ? item->GetProperty(NmPropertyNames::PrivacyMask) : nullptr, result);
  m_Output.CopyPerFrameProperties(item, properties);
  *out = new CmImageData(result, properties);
  return m_LastStatus;
}

} // namespace NmToolkit
