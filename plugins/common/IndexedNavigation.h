#pragma once

// Navigation over an index of records in file order, answered the same way by
// every source plug-in that keeps such an index: steps, sequence moves and the
// five time modes. An entry gives its time span through
// EntryBeginTime(entry) and EntryEndTime(entry), found beside its type; an
// instant has both equal. Each entry names its sequence in `sequence`.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "vzk/Toolkit.h"

namespace NmIndexedNavigation {

using NmToolkit::SmMoveMode;

// How far apart two times lie. Unsigned, because a host may ask for a time at
// one end of the range while the records lie near the other, and that gap
// does not fit in int64_t.
inline uint64_t Gap(int64_t a, int64_t b) {
  return a > b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b)
               : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
}

// How far a time lies from an entry's span; inside it, nothing.
template <typename Entry> uint64_t Distance(const Entry& entry, int64_t time) {
  const int64_t begin = EntryBeginTime(entry);
  const int64_t end = EntryEndTime(entry);
  if (time >= begin && time <= end) {
    return 0;
  }
  return std::min(Gap(time, begin), Gap(time, end));
}

// The position is -1 before the first move; it only ever takes a valid index.
template <typename Entry> class CmIndexedNavigation {
public:
  explicit CmIndexedNavigation(const std::vector<Entry>& entries) : m_Entries(entries) {}

  uint32_t MoveToIndex(int64_t& position, int64_t index) const {
    if (index < 0 || index >= Count()) {
      return NmToolkit::StatusNoItem;
    }
    position = index;
    return NmToolkit::StatusSuccess;
  }

  uint32_t MoveFirst(int64_t& position) const { return MoveToIndex(position, 0); }
  uint32_t MoveLast(int64_t& position) const { return MoveToIndex(position, Count() - 1); }
  uint32_t MoveNext(int64_t& position) const {
    return MoveToIndex(position, position < 0 ? 0 : position + 1);
  }
  uint32_t MovePrevious(int64_t& position) const {
    return position < 0 ? NmToolkit::StatusNoItem : MoveToIndex(position, position - 1);
  }

  uint32_t MoveNextSequence(int64_t& position) const {
    if (!IsValid(position)) {
      return NmToolkit::StatusNoItem;
    }
    for (int64_t i = position + 1; i < Count(); ++i) {
      if (m_Entries[i].sequence != m_Entries[position].sequence) {
        return MoveToIndex(position, i);
      }
    }
    return NmToolkit::StatusNoItem;
  }

  // To the first record of the sequence before the current one.
  uint32_t MovePreviousSequence(int64_t& position) const {
    if (!IsValid(position)) {
      return NmToolkit::StatusNoItem;
    }
    const int64_t start = StartOfSequence(position);
    return start == 0 ? NmToolkit::StatusNoItem : MoveToIndex(position, StartOfSequence(start - 1));
  }

  // The mode must be one of the five; callers decide what another one means.
  uint32_t MoveTo(int64_t& position, int64_t time, SmMoveMode mode) const {
    int64_t found = -1;
    for (int64_t i = 0; i < Count(); ++i) {
      const Entry& entry = m_Entries[i];
      switch (mode) {
      case NmToolkit::MoveBefore:
        found = EntryEndTime(entry) < time ? i : found;
        break;
      case NmToolkit::MoveAtOrBefore:
        found = EntryBeginTime(entry) <= time ? i : found;
        break;
      case NmToolkit::MoveAfter:
        found = (found < 0 && EntryBeginTime(entry) > time) ? i : found;
        break;
      case NmToolkit::MoveAtOrAfter:
        found = (found < 0 && EntryBeginTime(entry) >= time) ? i : found;
        break;
      case NmToolkit::MoveClosest:
        if (found < 0 || Distance(entry, time) < Distance(m_Entries[found], time)) {
          found = i;
        }
        break;
      default:
        return NmToolkit::StatusNoItem;
      }
    }
    return MoveToIndex(position, found);
  }

private:
  int64_t Count() const { return static_cast<int64_t>(m_Entries.size()); }
  bool IsValid(int64_t position) const { return position >= 0 && position < Count(); }
  int64_t StartOfSequence(int64_t index) const {
    while (index > 0 && m_Entries[index - 1].sequence == m_Entries[index].sequence) {
      --index;
    }
    return index;
  }

  const std::vector<Entry>& m_Entries;
};

} // namespace NmIndexedNavigation
