#include "Toolkits/VZKSourceToolkitPlugin/Tree/HostRootToolkit.h"

#include "Toolkits/VZKSourceToolkitPlugin/Tree/HostBoundary.h"

namespace NmToolkit {

void CmHostRootToolkit::Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
                                uint64_t argument) {
  RunAtHostBoundary("Connect",
                    [&] { CmVZKSourceToolkit::Connect(requested, supported, argument); });
}

void CmHostRootToolkit::Connect(uint64_t argument) {
  RunAtHostBoundary("Connect", [&] { CmVZKSourceToolkit::Connect(argument); });
}

void CmHostRootToolkit::Disconnect() {
  RunAtHostBoundary("Disconnect", [&] { CmVZKSourceToolkit::Disconnect(); });
}

void CmHostRootToolkit::UpdateValues(const CmKeyValueList& values) {
  RunAtHostBoundary("UpdateValues", [&] { CmVZKSourceToolkit::UpdateValues(values); });
}

void CmHostRootToolkit::UpdateValue(const std::string& key, const std::string& value) {
  RunAtHostBoundary("UpdateValue", [&] { CmVZKSourceToolkit::UpdateValue(key, value); });
}

void CmHostRootToolkit::StartLiveStream() {
  RunAtHostBoundary("StartLiveStream", [&] { CmVZKSourceToolkit::StartLiveStream(); });
}

void CmHostRootToolkit::StopLiveStream() {
  RunAtHostBoundary("StopLiveStream", [&] { CmVZKSourceToolkit::StopLiveStream(); });
}

uint32_t CmHostRootToolkit::GetLiveData(ImData** out, uint32_t timeout) {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::GetLiveData(out, timeout); });
}

uint32_t CmHostRootToolkit::MoveFirst() {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::MoveFirst(); });
}

uint32_t CmHostRootToolkit::MoveLast() {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::MoveLast(); });
}

uint32_t CmHostRootToolkit::MoveNext() {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::MoveNext(); });
}

uint32_t CmHostRootToolkit::MovePrevious() {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::MovePrevious(); });
}

uint32_t CmHostRootToolkit::MoveNextSequence() {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::MoveNextSequence(); });
}

uint32_t CmHostRootToolkit::MovePreviousSequence() {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::MovePreviousSequence(); });
}

uint32_t CmHostRootToolkit::MoveTo(int64_t time, SmMoveMode mode) {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::MoveTo(time, mode); });
}

uint32_t CmHostRootToolkit::GetData(ImData** out) {
  return RunStatusAtHostBoundary([&] { return CmVZKSourceToolkit::GetData(out); });
}

} // namespace NmToolkit
