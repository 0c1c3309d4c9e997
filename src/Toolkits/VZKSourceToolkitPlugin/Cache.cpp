#include "Toolkits/VZKSourceToolkitPlugin/Cache.h"

#include "Toolkits/VZKSourceToolkitPlugin/SharedData.h"
#include "Toolkits/VZKSourceToolkitPlugin/ToolkitErrors.h"

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

void CmCache::UpdateValues(const CmKeyValueList& values) { m_Source->UpdateValues(values); }

void CmCache::UpdateValue(const std::string& key, const std::string& value) {
  m_Source->UpdateValue(key, value);
}

void CmCache::StartLiveStream() {
  Live("StartLiveStream").StartLiveStream();
  Clear();
}

void CmCache::StopLiveStream() { Live("StopLiveStream").StopLiveStream(); }

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

CmCache::CmItem CmCache::Search(int64_t time, SmMoveMode mode) const {
  const CmItem& first = m_Entries.front();
  const CmItem& last = m_Entries.back();
  switch (mode) {
  case MoveClosest:
    if (first->GetBeginTime() > time || time > last->GetEndTime()) {
      return nullptr;
    }
    for (size_t i = m_Entries.size(); i-- > 0;) {
      if (m_Entries[i]->GetBeginTime() <= time) {
        if (i + 1 < m_Entries.size()) {
          const CmItem& next = m_Entries[i + 1];
          if (time - m_Entries[i]->GetEndTime() >= next->GetBeginTime() - time) {
            return next;
          }
        }
        return m_Entries[i];
      }
    }
    return nullptr;
  case MoveBefore:
    if (last->GetEndTime() + 1 < time) {
      return nullptr;
    }
    for (size_t i = m_Entries.size(); i-- > 0;) {
      if (m_Entries[i]->GetEndTime() < time) {
        return m_Entries[i];
      }
    }
    return nullptr;
  case MoveAtOrBefore:
    if (last->GetEndTime() < time) {
      return nullptr;
    }
    for (size_t i = m_Entries.size(); i-- > 0;) {
      if (m_Entries[i]->GetBeginTime() <= time) {
        return m_Entries[i];
      }
    }
    return nullptr;
  case MoveAfter:
  case MoveAtOrAfter:
    // Both search alike: an entry that begins exactly at `time` is passed
    // over, and the upstream answers "at or after" itself.
    if (first->GetBeginTime() > (mode == MoveAfter ? time + 1 : time)) {
      return nullptr;
    }
    for (const CmItem& entry : m_Entries) {
      if (entry->GetBeginTime() > time) {
        return entry;
      }
    }
    return nullptr;
  }
  return nullptr;
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
