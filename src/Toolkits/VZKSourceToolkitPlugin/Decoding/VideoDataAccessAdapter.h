#pragma once

#include <cstdint>
#include <list>
#include <memory>

#include "MediaProcessing/Video/VideoDataAccess.h"
#include "vzk/Toolkit.h"

namespace NmToolkit {

// Lets the random-access decoder search a playback toolkit for records by
// time. The items come from upstream; what the decoder gets is a copy of the
// bytes of the one record that holds the frame it wants, so the decoder never
// depends on an item staying alive.
class CmVideoDataAccessAdapter : public NmMediaProcessing::ImVideoDataAccess {
public:
  // `playback` is not owned and must outlive the adapter.
  explicit CmVideoDataAccessAdapter(ImPlaybackSourceToolkit* playback);

  bool GetByteData(const NmTimeStamp::CmTimeStamp& time,
                   NmMediaProcessing::SmTimeMatchType matchType, bool syncFramesOnly,
                   NmMediaProcessing::CmGenericByteData& recordOut) override;
  // Access modes number like SmTimeMatchType; 5 succeeds only on an item that
  // begins exactly at the time.
  bool MoveTo(const NmTimeStamp::CmTimeStamp& time, uint32_t accessMode) override;
  bool MoveTo(const NmTimeStamp::CmTimeStamp& time, uint32_t accessMode,
              NmTimeStamp::CmTimeStamp& beginOut) override;

  // The remembered item whose span holds the time, or null. Of a vector, the
  // element that begins at the time, else the vector itself.
  const ImData* FindItem(int64_t time) const;
  // The item fetched last, or null.
  const ImData* GetCurrentItem() const;
  void Remember(std::shared_ptr<ImData> item);
  void Forget() { m_Items.clear(); }

private:
  // The item that `mode` selects upstream, remembered; null when there is none.
  std::shared_ptr<ImData> Fetch(int64_t time, SmMoveMode mode);
  std::shared_ptr<ImData> Step(bool forwards);
  // The item the playback toolkit stands on, remembered; null if none.
  std::shared_ptr<ImData> TakeCurrent();
  // Takes the record in `item` that answers the request; false when the item
  // holds none. `conclusive` tells whether no other item can hold a better one.
  bool Choose(const ImData& item, int64_t time, NmMediaProcessing::SmTimeMatchType matchType,
              bool syncFramesOnly, NmMediaProcessing::CmGenericByteData& recordOut,
              bool& conclusive) const;
  // Steps item by item in the direction of the match until one answers it.
  bool Walk(int64_t time, NmMediaProcessing::SmTimeMatchType matchType, bool syncFramesOnly,
            NmMediaProcessing::CmGenericByteData& recordOut, int64_t& foundTime);

  ImPlaybackSourceToolkit* m_Playback;
  // One item at a time: the last one fetched.
  std::list<std::shared_ptr<ImData>> m_Items;
};

} // namespace NmToolkit
