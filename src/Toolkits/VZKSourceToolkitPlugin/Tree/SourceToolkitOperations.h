#pragma once

#include <cstdint>
#include <string>

#include "vzk/Toolkit.h"

// The operations of the three source toolkit interfaces, as the overrides of
// a class that answers all of an interface itself: the root, the base toolkit,
// the cache and the decoders. Spelling them out once keeps those classes in
// step with the interfaces; each class still defines every operation.

#define VZK_SOURCE_TOOLKIT_OPERATIONS                                                              \
  void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,                   \
               uint64_t argument) override;                                                        \
  void Connect(uint64_t argument) override;                                                        \
  void Disconnect() override;                                                                      \
  void UpdateValues(const CmKeyValueList& values) override;                                        \
  void UpdateValue(const std::string& key, const std::string& value) override

#define VZK_LIVE_SOURCE_TOOLKIT_OPERATIONS                                                         \
  void StartLiveStream() override;                                                                 \
  void StopLiveStream() override;                                                                  \
  uint32_t GetLiveData(ImData** out, uint32_t timeout) override

#define VZK_PLAYBACK_SOURCE_TOOLKIT_OPERATIONS                                                     \
  uint32_t MoveFirst() override;                                                                   \
  uint32_t MoveLast() override;                                                                    \
  uint32_t MoveNext() override;                                                                    \
  uint32_t MovePrevious() override;                                                                \
  uint32_t MoveNextSequence() override;                                                            \
  uint32_t MovePreviousSequence() override;                                                        \
  uint32_t MoveTo(int64_t time, SmMoveMode mode) override;                                         \
  uint32_t GetData(ImData** out) override
