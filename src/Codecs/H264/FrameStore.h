#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Codecs/H264/Picture.h"
#include "Codecs/H264/ReferenceLists.h"

namespace MCL {

// Per field: the slices gathered for it and how far they are.
struct H264DecoderFrameInfo {
  enum : int32_t { NotStarted = 0, SecondFieldWaiting = 1, ReadyForDecoding = 2, Done = 3 };
  int32_t state = NotStarted;
  uint32_t sliceCount = 0;
};

// The planes of a frame with their border for motion vectors that point
// outside the picture.
class H264DecYUVBufferPadded {
public:
  NmH264::CmPicture& GetPicture() { return m_Picture; }
  const NmH264::CmPicture& GetPicture() const { return m_Picture; }

protected:
  NmH264::CmPicture m_Picture;
};

// The planes and the per-macroblock records that decoding writes.
class H264DecYUVWorkSpace : public H264DecYUVBufferPadded {};

// One frame of the store: it serves as decoded picture buffer entry and as
// output queue entry at once, and is reused once free.
class H264DecoderFrame : public H264DecYUVWorkSpace {
public:
  int32_t uniqueIndex = -1;
  bool wasOutputted = false;
  bool isDisplayable = false;
  int32_t decodingState = 0;
  bool isShortRef[2] = {false, false};
  bool isLongRef[2] = {false, false};
  bool hideFromOutput = false;
  bool hasPicture = false;
  int32_t resetCount[2] = {0, 0};
  int32_t picOrderCnt[2] = {0, 0};
  int32_t frameNum = 0;
  int32_t frameNumWrap = 0;
  int32_t picNum = 0;
  int32_t longTermPicNum = 0;
  int32_t longTermFrameIdx = 0;
  H264DecoderFrameInfo frameInfo[2];
  // Pictures decoding on workers that write or read this frame's picture:
  // it is not taken for another picture while any is.
  int32_t readers = 0;
  bool inFlight = false; // its own picture decodes on a worker

  // What output hands on with the picture.
  double time = -1.0;     // seconds, from the input of its first slice; -1 for none
  int32_t frameId = -1;   // the input's frame number, all ones for none
  bool intraOnly = false; // every slice an I slice
  bool idr = false;
  // How the frame was coded: progressive (a sequence of frames only), or
  // interlaced, whose two fields may have come as one picture or as two;
  // loneField is the parity of a field that never got its partner, else -1.
  bool progressive = true;
  int32_t loneField = -1;
  // The visible part of the picture and its sample aspect ratio, from the
  // sequence it was decoded in: a frame may leave after another sequence
  // of another size has begun.
  uint32_t visibleWidth = 0, visibleHeight = 0, cropLeft = 0, cropTop = 0;
  uint32_t sarWidth = 0, sarHeight = 0;

  H264DecoderFrame* previous = nullptr;
  H264DecoderFrame* next = nullptr;

  // Everything but the planes, the index and the links starts afresh for a
  // new picture.
  void ClearForNewPicture() {
    wasOutputted = isDisplayable = hideFromOutput = hasPicture = false;
    decodingState = 0;
    isShortRef[0] = isShortRef[1] = isLongRef[0] = isLongRef[1] = false;
    resetCount[0] = resetCount[1] = picOrderCnt[0] = picOrderCnt[1] = 0;
    frameNum = frameNumWrap = picNum = longTermPicNum = longTermFrameIdx = 0;
    frameInfo[0] = frameInfo[1] = H264DecoderFrameInfo();
    time = -1.0;
    frameId = -1;
    intraOnly = idr = false;
    progressive = true;
    loneField = -1;
    visibleWidth = visibleHeight = cropLeft = cropTop = sarWidth = sarHeight = 0;
  }

  bool IsShortTerm() const { return isShortRef[0] || isShortRef[1]; }
  bool IsLongTerm() const { return isLongRef[0] || isLongRef[1]; }
  bool IsReference() const { return IsShortTerm() || IsLongTerm(); }
  // Free: no reference, output or never to be shown, and not in decoding.
  bool IsFree() const {
    return !IsReference() && (wasOutputted || !isDisplayable) && decodingState == 0 &&
           readers == 0;
  }
  int32_t GetResetGeneration() const { return std::max(resetCount[0], resetCount[1]); }
  int32_t GetPicOrderCnt() const { return std::min(picOrderCnt[0], picOrderCnt[1]); }
};

class H264DecoderFrameExtension : public H264DecoderFrame {};

// A doubly linked list of frames in age order: the head is the frame taken
// for a picture longest ago.
class H264DecoderFrameList {
public:
  H264DecoderFrame* GetHead() const { return m_Head; }
  H264DecoderFrame* GetTail() const { return m_Tail; }
  size_t GetSize() const { return m_Owned.size(); }

protected:
  void Append(H264DecoderFrame* frame);
  void Remove(H264DecoderFrame* frame);
  void MoveToTail(H264DecoderFrame* frame);

  std::vector<std::unique_ptr<H264DecoderFrameExtension>> m_Owned;
  H264DecoderFrame* m_Head = nullptr;
  H264DecoderFrame* m_Tail = nullptr;
};

// The frame store: which frame a new picture takes, which frames serve as
// references, and which frame leaves next.
class H264DBPList : public H264DecoderFrameList {
public:
  // The oldest free frame, or a new one while the list holds no more than
  // limit frames; null when neither. The frame taken goes to the tail and
  // is cleared of its marks.
  H264DecoderFrame* GetFreeFrame(size_t limit);

  // Frames that count for output: displayable and still a reference or not
  // yet output, or in decoding.
  int32_t CountForOutput() const;
  // The frame to leave next: by generation and picture order count when
  // dpbDelay is above 0 (looking at no more than dpbSize + 2 candidates),
  // else the first in decoding order. Null when none waits.
  H264DecoderFrame* ChooseForOutput(int32_t dpbDelay, int32_t dpbSize) const;

  // Gives the frame about to leave the earliest input time among the frames
  // still waiting for output, handing its own time to the frame that held it.
  // Inputs arrive in decoding order with rising times, one per picture, while
  // pictures leave in display order: so the n-th picture shown carries the
  // n-th time fed, and the times that leave always rise.
  void TakeEarliestWaitingTime(H264DecoderFrame& leaving);

  // The reference frames for list building and marking.
  std::vector<NmH264::SmReferenceFrame> GetReferences() const;
  // Applies marks decided elsewhere: frames not in references lose their
  // marks; those in it take theirs.
  void SetReferences(const std::vector<NmH264::SmReferenceFrame>& references);
  void DropAllReferences();
  // An IDR or a reset: every frame waiting for output belongs to an older
  // generation from now on.
  void StartNewGeneration();
  void Clear();
};

} // namespace MCL
