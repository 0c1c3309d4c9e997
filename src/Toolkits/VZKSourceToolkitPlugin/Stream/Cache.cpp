#include "Toolkits/VZKSourceToolkitPlugin/Stream/Cache.h"

#include <optional>
#include <utility>

#include "MediaProcessing/GenericByteData/TimeMatch.h"

#include "Toolkits/VZKSourceToolkitPlugin/Items/SharedData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {
namespace {

bool Holds(const std::shared_ptr<ImData>& item, int64_t time) {
  return item->GetBeginTime() <= time && time <= item->GetEndTime();
}

} // namespace

CmCache::CmCache(CmUpstreamToolkit source)
    : m_Owned(std::move(source)), m_Source(m_Owned.Get()), m_Playback(m_Owned.GetPlayback()),
      m_Live(m_Owned.GetLive()) {}

void CmCache::Clear() {
  m_Current.reset();
  m_LastFetched.reset();
  m_Entries.clear();
}

ImPlaybackSourceToolkit& CmCache::Playback(const char* operation) const {
  if (m_Playback == nullptr) {
    throw CmInvalidOperationError<0>(operation);
  }
  return *m_Playback;
}

ImLiveSourceToolkit& CmCache::Live(const char* operation) const {
  if (m_Live == nullptr) {
    throw CmInvalidOperationError<0>(operation);
  }
  return *m_Live;
}

void CmCache::Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                      uint64_t argument) {
  m_Source->Connect(requested, supported, argument);
  Clear();
}

void CmCache::Connect(uint64_t argument) {
  m_Source->Connect(argument);
  Clear();
}

void CmCache::Disconnect() {
  m_Source->Disconnect();
  Clear();
}

void CmCache::UpdateValues(const CmKeyValueList& values) {
  m_Source->UpdateValues(values);
}

void CmCache::UpdateValue(const std::string& key, const std::string& value) {
  m_Source->UpdateValue(key, value);
}

void CmCache::StartLiveStream() {
  Live("StartLiveStream").StartLiveStream();
  Clear();
}

void CmCache::StopLiveStream() {
  Live("StopLiveStream").StopLiveStream();
}

uint32_t CmCache::GetLiveData(ImData** out, uint32_t timeout) {
  return Live("GetLiveData").GetLiveData(out, timeout);
}

uint32_t CmCache::MoveFirst() {
  m_Current.reset();
  m_LastFetched.reset();
  return Playback("MoveFirst").MoveFirst();
}

uint32_t CmCache::MoveLast() {
  m_Current.reset();
  m_LastFetched.reset();
  return Playback("MoveLast").MoveLast();
}

uint32_t CmCache::MoveNext() {
  if (m_Current) {
    return MoveTo(m_Current->GetBeginTime(), MoveAfter);
  }
  m_LastFetched.reset();
  return Playback("MoveNext").MoveNext();
}

uint32_t CmCache::MovePrevious() {
  if (m_Current) {
    return MoveTo(m_Current->GetBeginTime(), MoveBefore);
  }
  m_LastFetched.reset();
  return Playback("MovePrevious").MovePrevious();
}

void CmCache::PositionUpstreamAtCurrent() {
  // While items are served from the list the upstream may stand elsewhere;
  // a sequence step must start from the item the caller sees.
  if (m_Current && m_Current != m_LastFetched) {
    Playback("MoveTo").MoveTo(m_Current->GetBeginTime(), MoveAtOrBefore);
  }
  m_Current.reset();
  m_LastFetched.reset();
}

uint32_t CmCache::MoveNextSequence() {
  PositionUpstreamAtCurrent();
  return Playback("MoveNextSequence").MoveNextSequence();
}

uint32_t CmCache::MovePreviousSequence() {
  PositionUpstreamAtCurrent();
  return Playback("MovePreviousSequence").MovePreviousSequence();
}

uint32_t CmCache::GetData(ImData** out) {
  if (out == nullptr) {
    throw CmInvalidArgumentError<2>("out");
  }
  *out = nullptr;
  if (m_Current) {
    *out = WrapSharedData(m_Current);
    return *out ? StatusSuccess : StatusNoItem;
  }
  ImData* raw = nullptr;
  const uint32_t status = Playback("GetData").GetData(&raw);
  CmItem item(raw);
  if (status != StatusSuccess || !item) {
    return status;
  }
  m_Entries.clear();
  m_Entries.push_back(item);
  m_Current = item;
  m_LastFetched = item;
  *out = WrapSharedData(item);
  return StatusSuccess;
}

bool CmCache::CanAnswer(int64_t time, SmMoveMode mode) const {
  const int64_t first = m_Entries.front()->GetBeginTime();
  const int64_t last = m_Entries.back()->GetEndTime();
  if (mode == MoveClosest) {
    return first <= time && time <= last;
  }
  // Upstream items do not overlap and times are whole milliseconds: an item
  // outside the list lies a millisecond or more beyond its ends. The list
  // answers unless such an item, on the side where the mode looks, would be
  // taken instead.
  const NmMediaProcessing::SmTimeMatchType type = NmTimeMatch::ForMove(mode);
  if (NmTimeMatch::TakesLast(type)) {
    return last == INT64_MAX ||
           !NmTimeMatch::Qualifies(type, NmTimeMatch::SmReading::Items, time, last + 1, last + 1);
  }
  return first == INT64_MIN ||
         !NmTimeMatch::Qualifies(type, NmTimeMatch::SmReading::Items, time, first - 1, first - 1);
}

CmCache::CmItem CmCache::Search(int64_t time, SmMoveMode mode) const {
  if (!NmTimeMatch::IsMoveMode(mode) || !CanAnswer(time, mode)) {
    return nullptr;
  }
  auto spanOf = [this](size_t i) {
    return std::pair(m_Entries[i]->GetBeginTime(), m_Entries[i]->GetEndTime());
  };
  // "At or after" searches like "after": an entry that begins exactly at the
  // time is passed over, and the upstream answers "at or after" itself.
  const SmMoveMode searched = mode == MoveAtOrAfter ? MoveAfter : mode;
  if (searched != MoveClosest) {
    const std::optional<size_t> found =
        NmTimeMatch::Select(NmTimeMatch::ForMove(searched), NmTimeMatch::SmReading::Items, time,
                            m_Entries.size(), spanOf);
    return found ? m_Entries[*found] : nullptr;
  }
  // The nearest is the last entry that begins at or before the time, or the
  // one after it.
  const std::optional<size_t> found =
      NmTimeMatch::Select(NmMediaProcessing::TimeMatchAtOrBefore, NmTimeMatch::SmReading::Items,
                          time, m_Entries.size(), spanOf);
  if (!found) {
    return nullptr;
  }
  const size_t next = *found + 1;
  if (next < m_Entries.size()) {
    const auto [begin, end] = spanOf(*found);
    const auto [nextBegin, nextEnd] = spanOf(next);
    if (NmTimeMatch::LaterIsNearer(NmTimeMatch::Distance(time, begin, end),
                                   NmTimeMatch::Distance(time, nextBegin, nextEnd))) {
      return m_Entries[next];
    }
  }
  return m_Entries[*found];
}

void CmCache::Remember(const CmItem& item, int64_t time, SmMoveMode mode) {
  if (mode == MoveBefore && !m_Entries.empty() && Holds(m_Entries.front(), time)) {
    m_Entries.push_front(item);
    while (m_Entries.size() > Limit) {
      m_Entries.pop_back();
    }
  } else if (mode == MoveAfter && !m_Entries.empty() && Holds(m_Entries.back(), time)) {
    m_Entries.push_back(item);
    while (m_Entries.size() > Limit) {
      m_Entries.pop_front();
    }
  } else {
    m_Entries.clear();
    m_Entries.push_back(item);
  }
}

uint32_t CmCache::MoveTo(int64_t time, SmMoveMode mode) {
  m_Current.reset();
  if (!m_Entries.empty()) {
    if (CmItem found = Search(time, mode)) {
      m_Current = found;
      return StatusSuccess;
    }
  }
  ImPlaybackSourceToolkit& playback = Playback("MoveTo");
  uint32_t status = StatusSuccess;
  const CmItem last = m_LastFetched;
  m_LastFetched.reset();
  // One step from where the upstream stands is cheaper than a search by time.
  if (last && mode == MoveBefore && time == last->GetBeginTime()) {
    status = playback.MovePrevious();
  } else if (last && mode == MoveAfter && time == last->GetBeginTime()) {
    status = playback.MoveNext();
  } else {
    status = playback.MoveTo(time, mode);
  }
  if (status != StatusSuccess) {
    return status;
  }
  ImData* raw = nullptr;
  const uint32_t fetched = playback.GetData(&raw);
  CmItem item(raw);
  if (fetched != StatusSuccess || !item) {
    // The move itself worked; the failure shows at the next GetData.
    return status;
  }
  m_Current = item;
  m_LastFetched = item;
  Remember(item, time, mode);
  return StatusSuccess;
}

} // namespace NmToolkit
