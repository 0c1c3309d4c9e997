#pragma once

// The boundary of a source plug-in: every call that a host or a toolkit makes
// into the plug-in passes through here, and nothing but toolkit errors comes
// back out. Out of memory, and whatever else the plug-in's code throws,
// becomes the interfaces' answer for a failure: no item (status 1) for
// navigation and data, "Operation ... could not be performed!" for the others.

#include <cxxabi.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "vzk/vzk.h"

namespace NmPluginBoundary {

// "Operation %1% could not be performed!", kept in the object so that it can
// be thrown when the heap has nothing left.
class CmOperationFailedError : public NmToolkit::ImInvalidOperationError {
public:
  explicit CmOperationFailedError(const char* operation) : m_Operation(operation) {
    std::snprintf(m_Text, sizeof m_Text, "Operation %s could not be performed!", operation);
  }
  const char* what() const noexcept override { return m_Text; }
  std::string GetErrorName() const override { return "NmToolkit::ImInvalidOperationError"; }
  uint32_t GetErrorCode() const override { return 0; }
  std::vector<std::string> GetArguments() const override { return {m_Operation}; }
  std::string GetDescription() const override { return m_Text; }
  const NmToolkit::ImToolkitError* GetInnerError() const override { return nullptr; }

private:
  const char* m_Operation;
  char m_Text[96];
};

template <typename Run> void RunGuarded(const char* operation, Run&& run) {
  try {
    run();
  } catch (const NmToolkit::ImToolkitError&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    // A cancelled thread must go on unwinding.
    throw;
  } catch (...) {
    throw CmOperationFailedError(operation);
  }
}

template <typename Run> uint32_t RunGuardedStatus(Run&& run) {
  try {
    return run();
  } catch (const NmToolkit::ImToolkitError&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return NmToolkit::StatusNoItem;
  }
}

// Implements both source interfaces over the plug-in's own source object,
// which it owns.
template <typename Source>
class CmGuardedSource final : public NmToolkit::ImPlaybackSourceToolkit,
                              public NmToolkit::ImLiveSourceToolkit {
public:
  explicit CmGuardedSource(std::unique_ptr<Source> source) : m_Source(std::move(source)) {}

  void Connect(const NmToolkit::CmPropertyNameSet& requested,
               NmToolkit::CmPropertyNameSet& supported, uint64_t argument) override {
    RunGuarded("Connect", [&] { m_Source->Connect(requested, supported, argument); });
  }
  void Connect(uint64_t argument) override {
    RunGuarded("Connect", [&] { m_Source->Connect(argument); });
  }
  void Disconnect() override {
    RunGuarded("Disconnect", [&] { m_Source->Disconnect(); });
  }
  void UpdateValues(const NmToolkit::CmKeyValueList& values) override {
    RunGuarded("UpdateValues", [&] { m_Source->UpdateValues(values); });
  }
  void UpdateValue(const std::string& key, const std::string& value) override {
    RunGuarded("UpdateValue", [&] { m_Source->UpdateValue(key, value); });
  }

  void StartLiveStream() override {
    RunGuarded("StartLiveStream", [&] { m_Source->StartLiveStream(); });
  }
  void StopLiveStream() override {
    RunGuarded("StopLiveStream", [&] { m_Source->StopLiveStream(); });
  }
  uint32_t GetLiveData(NmToolkit::ImData** out, uint32_t timeout) override {
    return RunGuardedStatus([&] { return m_Source->GetLiveData(out, timeout); });
  }

  uint32_t MoveFirst() override {
    return RunGuardedStatus([&] { return m_Source->MoveFirst(); });
  }
  uint32_t MoveLast() override {
    return RunGuardedStatus([&] { return m_Source->MoveLast(); });
  }
  uint32_t MoveNext() override {
    return RunGuardedStatus([&] { return m_Source->MoveNext(); });
  }
  uint32_t MovePrevious() override {
    return RunGuardedStatus([&] { return m_Source->MovePrevious(); });
  }
  uint32_t MoveNextSequence() override {
    return RunGuardedStatus([&] { return m_Source->MoveNextSequence(); });
  }
  uint32_t MovePreviousSequence() override {
    return RunGuardedStatus([&] { return m_Source->MovePreviousSequence(); });
  }
  uint32_t MoveTo(int64_t time, NmToolkit::SmMoveMode mode) override {
    return RunGuardedStatus([&] { return m_Source->MoveTo(time, mode); });
  }
  uint32_t GetData(NmToolkit::ImData** out) override {
    return RunGuardedStatus([&] { return m_Source->GetData(out); });
  }

private:
  std::unique_ptr<Source> m_Source;
};

// The plug-in's CreateInstance: null when not even the source can be made,
// which is all that out of memory can mean there.
template <typename Source> NmToolkit::ImToolkit* CreateGuardedSource(const char* xml) noexcept {
  try {
    return new CmGuardedSource<Source>(std::make_unique<Source>(xml));
  } catch (...) {
    return nullptr;
  }
}

} // namespace NmPluginBoundary
