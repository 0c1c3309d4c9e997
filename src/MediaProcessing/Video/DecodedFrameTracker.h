#pragma once

#include <cstdint>
#include <map>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Image/ImageAttributes.h"

namespace NmMediaProcessing {

// A codec may hold frames back and reorder them, so the attributes that the
// byte data carried cannot travel alongside the call. Each frame fed gets a
// small id; the tracker keeps what is to be put on the image that comes out
// with that id.
class CmDecodedFrameTracker {
public:
  // Ids run from 1 to MaxId and then wrap.
  static constexpr int32_t MaxId = 10000;
  // A time before 1970 plus this many milliseconds (3650 days) is counted
  // from the start of the stream rather than from 1970.
  static constexpr int64_t StreamRelativeLimitMs = 315360000000LL;

  struct SmFrameEntry {
    Orientation orientation;
    Interlacing interlacing = Progressive;
  };

  void Reset();
  // Forgets the frames but keeps the base time and the id sequence, so that
  // ids given out before cannot be mistaken for new ones.
  void ClearFrames() { m_Frames.clear(); }
  // A new frame, described by the view: its orientation and interlacing.
  int32_t GetNewId(const CmRawVideoByteDataAccess& view);
  // A further image from the frame given last. Without an entry for it the
  // same id comes back.
  int32_t GetContinuationId();
  // Puts the frame's orientation, interlacing and absolute time on the
  // attributes. False, with nothing changed, for an id without entry.
  bool Apply(int32_t id, CmStandardImageAttributes& attributes);

  const NmTimeStamp::CmTimeStamp& GetBaseTime() const { return m_BaseTime; }
  int32_t GetLastId() const { return m_LastId; }
  uint64_t GetEntryCount() const { return m_Frames.size(); }
  bool HasEntry(int32_t id) const { return m_Frames.count(id) != 0; }

private:
  int32_t NextId();
  void Trim(int32_t id);

  NmTimeStamp::CmTimeStamp m_BaseTime;
  int32_t m_LastId = 0;
  std::map<int32_t, SmFrameEntry> m_Frames;
};

// The orientation that a picture format code 0 to 15 stands for; codes above
// 15 give the upright orientation.
Orientation PictureFormatToOrientation(uint32_t pictureFormat);

} // namespace NmMediaProcessing
