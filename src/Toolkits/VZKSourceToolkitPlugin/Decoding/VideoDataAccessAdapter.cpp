#include "Toolkits/VZKSourceToolkitPlugin/Decoding/VideoDataAccessAdapter.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "MediaProcessing/GenericByteData/RawJPEGToBlockConverter.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/GenericByteData/TimeMatch.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/MediaData.h"

namespace NmToolkit {

using NmMediaProcessing::CmGenericByteData;
using NmMediaProcessing::CmRawVideoByteDataAccess;
using NmMediaProcessing::SmTimeMatchType;
using NmTimeStamp::CmTimeStamp;

namespace {

// A group of pictures, or a run of damaged records, is far shorter than this;
// a walk that goes on longer is walking through a recording without pictures.
constexpr int SyncWalkLimit = 1000;

bool Holds(const ImData& item, int64_t time) {
  return item.GetBeginTime() <= time && time <= item.GetEndTime();
}

// One record of an item as the decoder will see it, with the times by which
// it is chosen.
struct SmCandidate {
  std::unique_ptr<CmGenericByteData> record;
  int64_t begin = 0;
  // Its last image, or its first when only sync frames count.
  int64_t end = 0;
  bool sync = false;
  std::vector<int64_t> imageTimes;
};

std::vector<SmCandidate> CandidatesOf(const ImData& item, bool syncFramesOnly) {
  const std::vector<const ImData*> elements = ElementsOf(item);
  std::vector<SmCandidate> candidates;
  for (const ImData* element : elements) {
    const uint8_t* data = element->GetDataPointer();
    const size_t size = element->GetDataSize();
    if (data == nullptr || size < 2) {
      continue;
    }
    SmCandidate candidate;
    if (data[0] == 0xFF && data[1] == 0xD8) {
      // A raw JPEG has no time of its own; the item's time goes with it.
      candidate.record = NmMediaProcessing::CmRawJPEGToBlockConverter(nullptr).Convert(
          data, size, CmTimeStamp::FromMilliseconds(element->GetBeginTime()), false);
      if (!candidate.record) {
        continue;
      }
    } else {
      candidate.record = std::make_unique<CmGenericByteData>(const_cast<uint8_t*>(data),
                                                             static_cast<uint64_t>(size));
    }
    const CmRawVideoByteDataAccess view(*candidate.record, false);
    if (!view.IsValid() || view.GetImageCount() == 0) {
      continue;
    }
    const uint64_t count = syncFramesOnly ? 1 : view.GetImageCount();
    for (uint64_t index = 0; index < count; ++index) {
      CmTimeStamp time;
      if (!view.GetTimeStampForImage(index, time)) {
        break;
      }
      candidate.imageTimes.push_back(time.GetMilliseconds());
    }
    candidate.begin = view.GetTime().GetMilliseconds();
    candidate.end = candidate.imageTimes.empty() ? candidate.begin : candidate.imageTimes.back();
    candidate.sync = view.GetSync();
    candidates.push_back(std::move(candidate));
  }
  return candidates;
}

} // namespace

CmVideoDataAccessAdapter::CmVideoDataAccessAdapter(ImPlaybackSourceToolkit* playback)
    : m_Playback(playback) {}

bool CmVideoDataAccessAdapter::Choose(const ImData& item, int64_t time, SmTimeMatchType matchType,
                                      bool syncFramesOnly, CmGenericByteData& recordOut,
                                      bool& conclusive) const {
  conclusive = false;
  const std::vector<SmCandidate> candidates = CandidatesOf(item, syncFramesOnly);
  std::vector<const SmCandidate*> usable;
  for (const SmCandidate& c : candidates) {
    if (!syncFramesOnly || c.sync) {
      usable.push_back(&c);
    }
  }
  if (usable.empty()) {
    return false;
  }
  const SmCandidate* found = nullptr;
  if (matchType == NmMediaProcessing::TimeMatchExact) {
    // Only a frame at the time itself will do, not a span around it.
    for (const SmCandidate* c : usable) {
      if (std::find(c->imageTimes.begin(), c->imageTimes.end(), time) != c->imageTimes.end()) {
        found = c;
      }
    }
  } else if (const std::optional<size_t> index = NmTimeMatch::Select(
                 matchType, NmTimeMatch::SmReading::Frames, time, usable.size(),
                 [&](size_t i) { return std::pair(usable[i]->begin, usable[i]->end); })) {
    found = usable[*index];
  }
  if (found == nullptr) {
    return false;
  }
  int64_t first = usable.front()->begin;
  int64_t last = usable.front()->end;
  for (const SmCandidate* c : usable) {
    first = std::min(first, c->begin);
    last = std::max(last, c->end);
  }
  // Items do not overlap, so only a nearest match near the item's edges can
  // have a better answer in a neighbour.
  conclusive = matchType != NmMediaProcessing::TimeMatchNearest || (first <= time && time <= last);
  recordOut = *found->record; // a copy that owns its bytes
  return true;
}

void CmVideoDataAccessAdapter::Remember(std::shared_ptr<ImData> item) {
  m_Items.clear();
  if (item) {
    m_Items.push_back(std::move(item));
  }
}

const ImData* CmVideoDataAccessAdapter::GetCurrentItem() const {
  return m_Items.empty() ? nullptr : m_Items.front().get();
}

const ImData* CmVideoDataAccessAdapter::FindItem(int64_t time) const {
  for (const auto& item : m_Items) {
    if (!Holds(*item, time)) {
      continue;
    }
    if (const auto* vector = dynamic_cast<const ImMediaDataVector*>(item.get())) {
      std::vector<ImMediaData*> elements;
      vector->GetElements(elements);
      for (const ImMediaData* element : elements) {
        if (element != nullptr && element->GetBeginTime() == time) {
          return element;
        }
      }
    }
    return item.get();
  }
  return nullptr;
}

std::shared_ptr<ImData> CmVideoDataAccessAdapter::Fetch(int64_t time, SmMoveMode mode) {
  return m_Playback->MoveTo(time, mode) == 0 ? TakeCurrent() : nullptr;
}

std::shared_ptr<ImData> CmVideoDataAccessAdapter::Step(bool forwards) {
  const uint32_t moved = forwards ? m_Playback->MoveNext() : m_Playback->MovePrevious();
  return moved == 0 ? TakeCurrent() : nullptr;
}

std::shared_ptr<ImData> CmVideoDataAccessAdapter::TakeCurrent() {
  ImData* raw = nullptr;
  const uint32_t status = m_Playback->GetData(&raw);
  std::shared_ptr<ImData> item(raw);
  if (status != 0 || !item) {
    return nullptr;
  }
  Remember(item);
  return item;
}

bool CmVideoDataAccessAdapter::GetByteData(const CmTimeStamp& time, SmTimeMatchType matchType,
                                           bool syncFramesOnly, CmGenericByteData& recordOut) {
  if (!NmTimeMatch::IsTimeMatchType(matchType)) {
    return false;
  }
  const int64_t t = time.GetMilliseconds();
  CmGenericByteData record;
  bool conclusive = false;

  // The item in hand, or else the one the time falls in, answers most
  // requests: the next frame of a group, the previous one, the same one.
  std::shared_ptr<ImData> holder = m_Items.empty() ? nullptr : m_Items.front();
  if (!holder || !Holds(*holder, t)) {
    holder = Fetch(t, MoveAtOrBefore);
  }
  if (holder && Holds(*holder, t) &&
      Choose(*holder, t, matchType, syncFramesOnly, record, conclusive) && conclusive) {
    recordOut = record;
    return true;
  }

  // Otherwise the item that the request selects upstream. A nearest sync
  // frame early in that item may lie farther from the time than the next
  // item's: only an answer that its item settles is final.
  const std::shared_ptr<ImData> item = Fetch(t, NmTimeMatch::ForMatch(matchType));
  const bool chosen = item && Choose(*item, t, matchType, syncFramesOnly, record, conclusive);
  if (chosen && (conclusive || !syncFramesOnly)) {
    recordOut = record;
    return true;
  }
  if (!item || matchType == NmMediaProcessing::TimeMatchExact ||
      (!syncFramesOnly && matchType == NmMediaProcessing::TimeMatchNearest)) {
    return false;
  }

  // The item found holds nothing that fits: a damaged record, or only frames
  // that need others when sync frames are wanted. The search goes on past it.
  int64_t foundTime = 0;
  if (matchType != NmMediaProcessing::TimeMatchNearest) {
    if (!Walk(t, matchType, syncFramesOnly, record, foundTime)) {
      return false;
    }
    recordOut = record;
    return true;
  }
  CmGenericByteData before;
  CmGenericByteData after;
  int64_t beforeTime = 0;
  int64_t afterTime = 0;
  const bool hasBefore =
      Fetch(t, MoveAtOrBefore) &&
      (Choose(*m_Items.front(), t, NmMediaProcessing::TimeMatchAtOrBefore, true, before,
              conclusive) ||
       Walk(t, NmMediaProcessing::TimeMatchAtOrBefore, true, before, beforeTime));
  if (hasBefore) {
    beforeTime = CmRawVideoByteDataAccess(before, false).GetTime().GetMilliseconds();
  }
  const bool hasAfter = Fetch(t, MoveAtOrAfter) &&
                        (Choose(*m_Items.front(), t, NmMediaProcessing::TimeMatchAtOrAfter, true,
                                after, conclusive) ||
                         Walk(t, NmMediaProcessing::TimeMatchAtOrAfter, true, after, afterTime));
  if (hasAfter) {
    afterTime = CmRawVideoByteDataAccess(after, false).GetTime().GetMilliseconds();
  }
  if (hasAfter && (!hasBefore || NmTimeMatch::LaterIsNearer(NmTimeMatch::Gap(t, beforeTime),
                                                            NmTimeMatch::Gap(afterTime, t)))) {
    recordOut = after;
    return true;
  }
  if (hasBefore) {
    recordOut = before;
    return true;
  }
  if (chosen) {
    recordOut = record;
  }
  return chosen;
}

bool CmVideoDataAccessAdapter::Walk(int64_t time, SmTimeMatchType matchType, bool syncFramesOnly,
                                    CmGenericByteData& recordOut, int64_t& foundTime) {
  // Called for the four directed types only.
  const bool forwards = NmTimeMatch::LooksForward(matchType);
  for (int step = 0; step < SyncWalkLimit; ++step) {
    const std::shared_ptr<ImData> item = Step(forwards);
    if (!item) {
      return false;
    }
    bool conclusive = false;
    if (Choose(*item, time, matchType, syncFramesOnly, recordOut, conclusive)) {
      foundTime = item->GetBeginTime();
      return true;
    }
  }
  return false;
}

bool CmVideoDataAccessAdapter::MoveTo(const CmTimeStamp& time, uint32_t accessMode) {
  CmTimeStamp begin;
  if (accessMode == NmMediaProcessing::TimeMatchExact) {
    return MoveTo(time, accessMode, begin);
  }
  if (!NmTimeMatch::IsTimeMatchType(accessMode)) {
    return false;
  }
  return m_Playback->MoveTo(time.GetMilliseconds(),
                            NmTimeMatch::ForMatch(static_cast<SmTimeMatchType>(accessMode))) == 0;
}

bool CmVideoDataAccessAdapter::MoveTo(const CmTimeStamp& time, uint32_t accessMode,
                                      CmTimeStamp& beginOut) {
  if (!NmTimeMatch::IsTimeMatchType(accessMode)) {
    return false;
  }
  const int64_t t = time.GetMilliseconds();
  const std::shared_ptr<ImData> item =
      Fetch(t, NmTimeMatch::ForMatch(static_cast<SmTimeMatchType>(accessMode)));
  if (!item) {
    return false;
  }
  if (accessMode == NmMediaProcessing::TimeMatchExact && item->GetBeginTime() != t) {
    return false;
  }
  beginOut = CmTimeStamp::FromMilliseconds(item->GetBeginTime());
  return true;
}

} // namespace NmToolkit
