#pragma once

#include <deque>
#include <memory>
#include <optional>

#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "MediaProcessing/Video/RandomAccessVideoDecoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/DecodingToolkit.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/VideoDataAccessAdapter.h"
#include "Toolkits/VZKSourceToolkitPlugin/Stream/Cache.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/SourceToolkitOperations.h"

namespace NmToolkit {

// Turns encoded items into pictures. In playback it answers every move by
// decoding the picture at that time, forwards or backwards, through a cache
// of the upstream items; live, it decodes the stream as it comes.
class CmVideoDecoder : public CmDecodingToolkit {
public:
  explicit CmVideoDecoder(const NmXerces::CmXmlNodePtr& node);
  ~CmVideoDecoder() override;

  VZK_LIVE_SOURCE_TOOLKIT_OPERATIONS;

  VZK_PLAYBACK_SOURCE_TOOLKIT_OPERATIONS;

  void ReadConfiguration() override;

protected:
  // The picture at `time` as the random-access match type `matchType`
  // selects it, into the current image; 0 or 1.
  uint32_t Seek(int64_t time, NmMediaProcessing::SmTimeMatchType matchType);
  CmCache* GetCache() const { return m_Cache; }
  // Stands on the picture at `time` as on one that cannot be decoded: GetData
  // answers 1, and the next step starts from there.
  void StandOnUndecodable(int64_t time);

private:
  void ApplyOptions();
  uint32_t MoveSequence(bool forwards);
  // Decodes the neighbour of the current picture into `neighbour` unless it
  // is there already, and gives its time; the time of a neighbour that cannot
  // be decoded too, with `neighbour` left empty. None when there is none.
  std::optional<int64_t> FindNeighbour(NmMediaProcessing::CmImage& neighbour,
                                       NmMediaProcessing::SmTimeMatchType matchType);
  // The upstream item of the picture's time, for its per-frame properties.
  const ImData* ItemAt(int64_t time);
  // Where the next step starts from: the picture shown or the one that could
  // not be decoded.
  int64_t PositionTime() const;

  NmMediaProcessing::CmGenericVideoDecoder m_StreamDecoder;
  std::unique_ptr<ImData> m_PendingItem;
  // What live items fed to the decoder bring for their pictures, until those
  // come out: a codec that reorders gives a picture out some items later.
  // The picture with an item's time takes that item's properties.
  struct SmFedItem {
    int64_t time = 0;
    CmVZKSourceToolkitProperties properties;
    CmVZKSourceToolkitProperties mask;
  };
  std::deque<SmFedItem> m_FedItems;
  NmMediaProcessing::CmRandomAccessVideoDecoder m_RandomAccess;
  // Owned by the base, as the first upstream in place of the one it wraps.
  CmCache* m_Cache = nullptr;
  std::unique_ptr<CmVideoDataAccessAdapter> m_Adapter;
  uint32_t m_LastStatus = StatusNoItem;
  NmMediaProcessing::CmImage m_Current;
  NmMediaProcessing::CmImage m_Next;
  NmMediaProcessing::CmImage m_Previous;
  std::optional<int64_t> m_UndecodableAt;
};

} // namespace NmToolkit
