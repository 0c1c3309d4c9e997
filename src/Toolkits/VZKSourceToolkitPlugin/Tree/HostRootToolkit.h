#pragma once

#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {

// The root that CreateInstance hands to a host. It is the root of the tree as
// any other, and each operation of the interfaces runs behind the host
// boundary: only toolkit errors reach the host, other failures become the
// interfaces' answer for them.
class CmHostRootToolkit final : public CmVZKSourceToolkit {
public:
  explicit CmHostRootToolkit(const char* xml) : CmVZKSourceToolkit(xml) {}

  void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
               uint64_t argument) override;
  void Connect(uint64_t argument) override;
  void Disconnect() override;
  void UpdateValues(const CmKeyValueList& values) override;
  void UpdateValue(const std::string& key, const std::string& value) override;

  void StartLiveStream() override;
  void StopLiveStream() override;
  uint32_t GetLiveData(ImData** out, uint32_t timeout) override;

  uint32_t MoveFirst() override;
  uint32_t MoveLast() override;
  uint32_t MoveNext() override;
  uint32_t MovePrevious() override;
  uint32_t MoveNextSequence() override;
  uint32_t MovePreviousSequence() override;
  uint32_t MoveTo(int64_t time, SmMoveMode mode) override;
  uint32_t GetData(ImData** out) override;
};

} // namespace NmToolkit
