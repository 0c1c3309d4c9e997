#pragma once

#include <cstdint>

namespace NmPluginBoundary {

// What navigation needs of an entry of an index: where its record lies, its
// time span (an instant has both ends equal), and the continuous run
// (sequence) that it belongs to.
struct SmIndexEntry {
  uint64_t offset = 0;
  uint64_t length = 0;
  int64_t beginTime = 0;
  int64_t endTime = 0;
  uint32_t sequence = 0;
};

inline int64_t EntryBeginTime(const SmIndexEntry& entry) {
  return entry.beginTime;
}
inline int64_t EntryEndTime(const SmIndexEntry& entry) {
  return entry.endTime;
}

} // namespace NmPluginBoundary
