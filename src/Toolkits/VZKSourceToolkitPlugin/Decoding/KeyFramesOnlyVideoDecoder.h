#pragma once

#include <memory>

#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/DecodingToolkit.h"
#include "Toolkits/VZKSourceToolkitPlugin/Stream/Cache.h"

namespace NmToolkit {

// Decodes each item alone, starting the decoder afresh for every one, so
// that it never needs a reference frame: moves go to the items upstream and
// only the sync frame of an item becomes a picture.
class CmKeyFramesOnlyVideoDecoder : public CmDecodingToolkit {
public:
  explicit CmKeyFramesOnlyVideoDecoder(const NmXerces::CmXmlNodePtr& node);

  uint32_t MoveTo(int64_t time, SmMoveMode mode) override;
  uint32_t GetData(ImData** out) override;
  void ReadConfiguration() override;
  // Live items go through here.
  void ProcessData(ImData* in, ImData** out) override;

private:
  // The picture of one item with its properties, or null when it does not decode.
  std::unique_ptr<ImData> Decode(const ImData& item);
  uint32_t MoveClosest(ImPlaybackSourceToolkit& upstream, int64_t time);
  // The begin of the item one step away, the upstream left where it was.
  bool NeighbourBegin(ImPlaybackSourceToolkit& upstream, bool forwards, int64_t time,
                      int64_t& beginOut);

  NmMediaProcessing::CmGenericVideoDecoder m_Decoder;
};

} // namespace NmToolkit
