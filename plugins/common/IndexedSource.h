#pragma once

// The part of a source plug-in that answers playback from an index of
// records: the connection check, the moves and the data of the current entry.
// What differs between plug-ins, how an entry becomes an item and how the
// index comes to be, stays with each of them.

#include <cstdint>
#include <string>
#include <vector>

#include "IndexEntry.h"
#include "IndexedNavigation.h"
#include "PluginItems.h"
#include "vzk/vzk.h"

namespace NmPluginBoundary {

template <typename Entry>
class CmIndexedSource : public NmToolkit::ImPlaybackSourceToolkit,
                        public NmToolkit::ImLiveSourceToolkit {
public:
  using NmToolkit::ImSourceToolkit::Connect;
  void Connect(uint64_t argument) override {
    NmToolkit::CmPropertyNameSet supported;
    Connect({}, supported, argument);
  }
  void UpdateValues(const NmToolkit::CmKeyValueList&) override {}
  void UpdateValue(const std::string&, const std::string&) override {}

  uint32_t MoveFirst() override { return Navigation().MoveFirst(m_Position); }
  uint32_t MoveLast() override { return Navigation().MoveLast(m_Position); }
  uint32_t MoveNext() override { return Navigation().MoveNext(m_Position); }
  uint32_t MovePrevious() override { return Navigation().MovePrevious(m_Position); }
  uint32_t MoveNextSequence() override { return Navigation().MoveNextSequence(m_Position); }
  uint32_t MovePreviousSequence() override { return Navigation().MovePreviousSequence(m_Position); }
  uint32_t MoveTo(int64_t time, NmToolkit::SmMoveMode mode) override {
    return Navigation().MoveTo(m_Position, time, mode);
  }
  uint32_t GetData(NmToolkit::ImData** out) override {
    RequireConnected();
    *out = nullptr;
    if (m_Position < 0 || m_Position >= Count()) {
      return NmToolkit::StatusNoItem;
    }
    return Deliver(GetEntries()[m_Position], out);
  }

protected:
  void RequireConnected() const {
    if (!m_Connected) {
      throw CmPluginError<NmToolkit::ImNotConnectedError>("NmToolkit::ImNotConnectedError", 1,
                                                          "Not connected to toolkit!");
    }
  }
  int64_t Count() const { return static_cast<int64_t>(GetEntries().size()); }

  // The entries of the index, none while there is no index.
  virtual const std::vector<Entry>& GetEntries() const = 0;
  // The entry's record as an item, or no item when it cannot be read whole.
  virtual uint32_t Deliver(const Entry& entry, NmToolkit::ImData** out) const = 0;

  bool m_Connected = false;
  int64_t m_Position = -1;

private:
  // Every move asks for the connection first.
  NmIndexedNavigation::CmIndexedNavigation<Entry> Navigation() const {
    RequireConnected();
    return NmIndexedNavigation::CmIndexedNavigation<Entry>(GetEntries());
  }
};

} // namespace NmPluginBoundary
