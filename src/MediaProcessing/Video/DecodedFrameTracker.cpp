#include "MediaProcessing/Video/DecodedFrameTracker.h"

#include "MediaProcessing/GenericByteData/ImageFormBits.h"

namespace NmMediaProcessing {

namespace {

const NmTimeStamp::CmTimeStamp WireZero;

} // namespace

Orientation PictureFormatToOrientation(uint32_t pictureFormat) {
  // Quarter turns, flipped vertically, flipped horizontally of each code.
  static constexpr uint8_t Table[16][3] = {
      {0, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {1, 1, 0},
      {2, 1, 0}, {3, 1, 0}, {1, 0, 1}, {2, 0, 1}, {3, 0, 1}, {1, 1, 1}, {2, 1, 1}, {3, 1, 1},
  };
  Orientation orientation;
  if (pictureFormat < 16) {
    orientation.rotation = Table[pictureFormat][0];
    orientation.flippedVertically = Table[pictureFormat][1] != 0;
    orientation.flippedHorizontally = Table[pictureFormat][2] != 0;
  }
  return orientation;
}

void CmDecodedFrameTracker::Reset() {
  m_BaseTime = WireZero;
  m_LastId = 0;
  m_Frames.clear();
}

int32_t CmDecodedFrameTracker::NextId() {
  m_LastId = m_LastId >= MaxId ? 1 : m_LastId + 1;
  return m_LastId;
}

int32_t CmDecodedFrameTracker::GetNewId(const CmRawVideoByteDataAccess& view) {
  if (m_BaseTime == WireZero) {
    m_BaseTime = view.GetTime();
  }
  const int32_t id = NextId();
  SmFrameEntry entry;
  entry.orientation = PictureFormatToOrientation(view.GetPictureFormat());
  entry.interlacing = static_cast<Interlacing>(NmImageFormBits::BitsToInterlacing(
      view.GetInterlaced(), view.GetTopFieldFirst(), view.GetInterlaceLayout()));
  m_Frames[id] = entry;
  return id;
}

int32_t CmDecodedFrameTracker::GetContinuationId() {
  const auto last = m_Frames.find(m_LastId);
  if (last == m_Frames.end()) {
    return m_LastId;
  }
  const SmFrameEntry entry = last->second;
  const int32_t id = NextId();
  m_Frames[id] = entry;
  return id;
}

bool CmDecodedFrameTracker::Apply(int32_t id, CmStandardImageAttributes& attributes) {
  const auto found = m_Frames.find(id);
  if (found == m_Frames.end()) {
    return false;
  }
  const SmFrameEntry& entry = found->second;
  // The codec's own orientation is in picture space; the record's mirrors
  // come on top of it, then its turn.
  if (entry.orientation.flippedVertically) {
    attributes.orientation.FlipVertically();
  }
  if (entry.orientation.flippedHorizontally) {
    attributes.orientation.FlipHorizontally();
  }
  attributes.orientation.AddRotation(entry.orientation.rotation);
  attributes.interlacing = entry.interlacing;

  const int64_t milliseconds = attributes.timeStamp.GetMilliseconds();
  if (milliseconds < StreamRelativeLimitMs) {
    attributes.timeStamp = m_BaseTime + NmTimeStamp::CmTimeSpan::FromMilliseconds(milliseconds);
  }
  if (attributes.attribute0 != 0) {
    Trim(id);
  }
  return true;
}

// Frames that a codec dropped without ever delivering them would otherwise
// stay forever. Once id i is out, the ids of the 5000 before it are done with;
// the entry of i itself stays for a second image of the same frame.
void CmDecodedFrameTracker::Trim(int32_t id) {
  const int32_t p = id - 5001;
  if (p >= 0) {
    m_Frames.erase(m_Frames.lower_bound(p), m_Frames.lower_bound(id));
  } else {
    m_Frames.erase(m_Frames.lower_bound(id + 4999), m_Frames.upper_bound(MaxId));
    m_Frames.erase(m_Frames.lower_bound(0), m_Frames.lower_bound(id));
  }
}

} // namespace NmMediaProcessing
