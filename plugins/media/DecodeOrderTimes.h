#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <utility>

namespace NmMedia {

// Times for the frames of a video stream that reorders pictures (B frames).
// Containers give each frame its presentation time, but frames arrive, and
// are stored, in decoding order, where those times jump back and forth. A
// recording needs rising times in storage order, and the decoder gives the
// n-th picture it shows the n-th time fed. So the n-th frame in decoding
// order takes the n-th smallest presentation time: every picture leaves the
// decoder with its own presentation time, and the stored times rise.
//
// The n-th smallest time is known once the frames that may still undercut it
// have arrived: `window` frames later, the depth of reordering that the
// stream declares. A stream that reorders deeper than declared widens the
// window as it shows so (up to the 16 frames that H.264 allows); the frame
// that came too late for its time gets the next millisecond instead. A jump
// of the times far beyond any reordering starts a new run: the frames before
// it leave first, in their own order.
class CmDecodeOrderTimes {
public:
  static constexpr size_t MostReordering = 16;

  explicit CmDecodeOrderTimes(size_t window);

  // The presentation time of the next frame in decoding order, in ms.
  void Push(int64_t time);
  // A frame whose time the container lost, `frameDuration` ms long. It is
  // taken to be shown first of the frames that reordering may put around
  // it, as a sync frame that opens a stream is: it gets the earliest time of
  // the window of frames after it, less one frame duration.
  void PushUntimed(int64_t frameDuration);
  // Whether the oldest frame pushed can take its time now; at the end of the
  // stream every frame can.
  bool IsReady(bool atEnd) const;
  // The stored time of the oldest frame pushed, which leaves the queue.
  int64_t Pop();
  size_t GetPending() const { return m_Pending.size(); }
  size_t GetWindow() const { return m_Window; }

private:
  // The untimed frame that waits for the frames after it to tell its time.
  struct SmUntimed {
    uint64_t run = 0;
    int64_t duration = 0;
    size_t following = 0;
    int64_t earliest = 0;
  };
  void SettleUntimed();

  size_t m_Window;
  std::optional<SmUntimed> m_Untimed;
  // Frames waiting, oldest first: the run each belongs to.
  std::deque<uint64_t> m_Pending;
  // Their times, by run and then time: the smallest of the oldest run first.
  std::multiset<std::pair<uint64_t, int64_t>> m_Times;
  uint64_t m_Run = 0;
  int64_t m_LastPushed = 0;
  bool m_HavePushed = false;
  int64_t m_LastPopped = 0;
  uint64_t m_LastPoppedRun = 0;
  bool m_HavePopped = false;
};

} // namespace NmMedia
