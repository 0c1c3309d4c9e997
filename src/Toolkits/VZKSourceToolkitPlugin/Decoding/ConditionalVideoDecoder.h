#pragma once

#include <string>

#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/VideoDecoder.h"

namespace NmToolkit {

// Hands items on undecoded when they already are what the host asked for (a
// JPEG of a given size, without a mask to burn in, with square pixels) and
// decodes the others. Playback only.
class CmConditionalVideoDecoder : public CmVideoDecoder {
public:
  explicit CmConditionalVideoDecoder(const NmXerces::CmXmlNodePtr& node);

  void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
               uint64_t argument) override;
  void Connect(uint64_t argument) override;
  void StartLiveStream() override;
  void StopLiveStream() override {}
  uint32_t GetLiveData(ImData** out, uint32_t timeout) override;

  uint32_t MoveFirst() override;
  uint32_t MoveLast() override;
  uint32_t MoveNext() override;
  uint32_t MovePrevious() override;
  uint32_t MoveTo(int64_t time, SmMoveMode mode) override;
  uint32_t GetData(ImData** out) override;
  void ReadConfiguration() override;

  // True when `item` does not meet the conditions and must be decoded.
  bool NeedsDecoding(const ImData& item);

private:
  bool FailsConditions(const ImData& item);
  // True when a privacy mask is to be burnt into `item`, so that it may
  // never go out as stored.
  bool MustBeMasked(const ImData& item) const;

  static constexpr const char* NotSet = "*";

  std::string m_PassPrivacyMask = "none";
  std::string m_PassFormat = NotSet;
  std::string m_PassWidth = NotSet;
  std::string m_PassHeight = NotSet;
  std::string m_PassPixelAspectRatio = NotSet;
  bool m_Decoding = true;
  int64_t m_Time = 0;
  // Decodes an item only to learn its pixel aspect ratio.
  NmMediaProcessing::CmGenericVideoDecoder m_Probe;
};

} // namespace NmToolkit
