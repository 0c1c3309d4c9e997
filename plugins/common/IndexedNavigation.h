#pragma once

// Navigation over an index of records in file order, answered the same way by
// every source plug-in that keeps such an index: steps, sequence moves and the
// five time modes. An entry gives its time span through
// EntryBeginTime(entry) and EntryEndTime(entry), found beside its type or a
// base of it (SmIndexEntry); an instant has both equal. Each entry names its sequence in
// `sequence`.

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "MediaProcessing/GenericByteData/TimeMatch.h"
#include "vzk/Toolkit.h"

namespace NmIndexedNavigation {

using NmToolkit::SmMoveMode;

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
  // A tie for the nearest goes to the later entry, as it does in the toolkits
  // above, which may answer the same move from items they hold.
  uint32_t MoveTo(int64_t& position, int64_t time, SmMoveMode mode) const {
    if (!NmTimeMatch::IsMoveMode(mode)) {
      return NmToolkit::StatusNoItem;
    }
    const std::optional<size_t> found = NmTimeMatch::Select(
        NmTimeMatch::ForMove(mode), NmTimeMatch::SmReading::Items, time, m_Entries.size(),
        [this](size_t i) {
          return std::pair(EntryBeginTime(m_Entries[i]), EntryEndTime(m_Entries[i]));
        });
    return found ? MoveToIndex(position, static_cast<int64_t>(*found)) : NmToolkit::StatusNoItem;
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
