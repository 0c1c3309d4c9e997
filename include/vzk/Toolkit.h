#pragma once

// The toolkit interfaces. Their virtual operations are a fixed contract
// between hosts and plug-ins: do not reorder them.

#include <cstdint>
#include <list>
#include <set>
#include <string>
#include <utility>

#include "vzk/Data.h"

namespace NmToolkit {

using CmPropertyNameSet = std::set<std::string>;
using CmKeyValueList = std::list<std::pair<std::string, std::string>>;

// Status of navigation and data operations.
inline constexpr uint32_t StatusSuccess = 0;
inline constexpr uint32_t StatusNoItem = 1;

enum SmMoveMode : uint32_t {
  MoveClosest = 0,    // the item nearest to the time
  MoveBefore = 1,     // the last item that ends before the time
  MoveAtOrBefore = 2, // the last item that begins at or before the time
  MoveAfter = 3,      // the first item that begins after the time
  MoveAtOrAfter = 4,  // the first item that begins at or after the time
};

class ImToolkit {
public:
  virtual ~ImToolkit() = default;
};

class ImSourceToolkit : public ImToolkit {
public:
  ~ImSourceToolkit() override = default;
  // Agrees on the item properties: `supported` receives those that will come.
  // `argument` is passed along the chain unread.
  virtual void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                       uint64_t argument) = 0;
  virtual void Connect(uint64_t argument) = 0;
  virtual void Disconnect() = 0;
  virtual void UpdateValues(const CmKeyValueList& values) = 0;
  virtual void UpdateValue(const std::string& key, const std::string& value) = 0;
};

class ImLiveSourceToolkit : public virtual ImSourceToolkit {
public:
  virtual void StartLiveStream() = 0;
  virtual void StopLiveStream() = 0;
  // `out` receives an item that the caller owns; `timeout` is in milliseconds.
  virtual uint32_t GetLiveData(ImData** out, uint32_t timeout) = 0;
};

class ImPlaybackSourceToolkit : public virtual ImSourceToolkit {
public:
  virtual uint32_t MoveFirst() = 0;
  virtual uint32_t MoveLast() = 0;
  virtual uint32_t MoveNext() = 0;
  virtual uint32_t MovePrevious() = 0;
  virtual uint32_t MoveNextSequence() = 0;
  virtual uint32_t MovePreviousSequence() = 0;
  // `time` is in milliseconds since 1970-01-01 UTC.
  virtual uint32_t MoveTo(int64_t time, SmMoveMode mode) = 0;
  // `out` receives an item that the caller owns.
  virtual uint32_t GetData(ImData** out) = 0;
};

class ImToolkitFactory {
public:
  virtual ~ImToolkitFactory() = default;
  virtual ImToolkit* CreateInstance(const char* xml) = 0;
  virtual void DeleteInstance(ImToolkit* toolkit) = 0;
};

} // namespace NmToolkit
