#include "Codecs/H264/Marking.h"

#include <algorithm>

namespace NmH264 {

namespace {

int64_t GetPicNum(const SmReferenceFrame& frame, uint32_t current, uint32_t maxFrameNum) {
  return frame.frameNum > current ? int64_t{frame.frameNum} - maxFrameNum : frame.frameNum;
}

template <typename F> bool RemoveIf(std::vector<SmReferenceFrame>& frames, F condition) {
  const auto end = std::remove_if(frames.begin(), frames.end(), condition);
  const bool found = end != frames.end();
  frames.erase(end, frames.end());
  return found;
}

// The commands of a field's dec_ref_pic_marking, which name single fields
// by their field picture numbers: twice FrameNumWrap, plus one for the
// current field's parity. Only 1, a short-term field unmarked, is carried
// out; the slice header refuses fields with the others.
bool MarkFieldsAdaptively(SmReferenceState& state, const SmSliceHeader& header, int parity,
                          uint32_t maxFrameNum) {
  std::vector<SmReferenceFrame>& frames = state.frames;
  const int64_t currPicNum = 2 * int64_t{header.frameNum} + 1;
  bool ok = true;
  for (uint8_t i = 0; i < header.markingCount; ++i) {
    const SmMarkingOperation& op = header.marking[i];
    if (op.operation != 1) {
      ok = false;
      continue;
    }
    const int64_t picNumX = currPicNum - (int64_t{op.differenceOfPicNums} + 1);
    bool found = false;
    for (SmReferenceFrame& frame : frames) {
      for (int p = 0; p < 2 && !frame.longTerm; ++p) {
        const int64_t picNum =
            2 * GetPicNum(frame, header.frameNum, maxFrameNum) + (p == parity ? 1 : 0);
        if ((frame.fields & (1 << p)) != 0 && picNum == picNumX) {
          frame.fields = static_cast<uint8_t>(frame.fields & ~(1 << p));
          found = true;
        }
      }
    }
    RemoveIf(frames, [](const SmReferenceFrame& f) { return f.fields == 0; });
    ok = ok && found;
  }
  return ok;
}

} // namespace

bool MarkReferences(SmReferenceState& state, const SmSliceHeader& header, const CmPicture* current,
                    uint32_t maxNumRefFrames, uint32_t maxFrameNum, int parity) {
  std::vector<SmReferenceFrame>& frames = state.frames;
  SmReferenceFrame self{current, header.frameNum, false, 0,
                        static_cast<uint8_t>(parity < 0 ? 3 : 1 << parity)};
  bool ok = true;
  if (parity >= 0) {
    if (header.adaptiveMarking) {
      ok = MarkFieldsAdaptively(state, header, parity, maxFrameNum);
    }
    // The second field of a reference field pair: no sliding window, the
    // pair is one entry.
    for (SmReferenceFrame& frame : frames) {
      if (frame.picture == current) {
        frame.fields = static_cast<uint8_t>(frame.fields | self.fields);
        return ok;
      }
    }
    if (header.adaptiveMarking) {
      frames.push_back(self);
      return ok;
    }
  }
  if (header.IsIdr()) {
    frames.clear();
    state.maxLongTermFrameIdx = header.longTermReference ? 0 : -1;
    self.longTerm = header.longTermReference;
    frames.push_back(self);
    return true;
  }
  bool selfLongTerm = false;
  if (header.adaptiveMarking) {
    const uint32_t currentNum = header.frameNum;
    for (uint8_t i = 0; i < header.markingCount; ++i) {
      const SmMarkingOperation& op = header.marking[i];
      const int64_t picNumX = int64_t{currentNum} - (int64_t{op.differenceOfPicNums} + 1);
      const auto isShort = [&](const SmReferenceFrame& f) {
        return !f.longTerm && GetPicNum(f, currentNum, maxFrameNum) == picNumX;
      };
      switch (op.operation) {
      case 1:
        ok = RemoveIf(frames, isShort) && ok;
        break;
      case 2:
        ok = RemoveIf(frames,
                      [&](const SmReferenceFrame& f) {
                        return f.longTerm && f.longTermFrameIdx == op.longTermPicNum;
                      }) &&
             ok;
        break;
      case 3: {
        const auto found = std::find_if(frames.begin(), frames.end(), isShort);
        if (found == frames.end() || int64_t{op.longTermFrameIdx} > state.maxLongTermFrameIdx) {
          ok = false;
          break;
        }
        const CmPicture* picture = found->picture;
        RemoveIf(frames, [&](const SmReferenceFrame& f) {
          return f.longTerm && f.longTermFrameIdx == op.longTermFrameIdx && f.picture != picture;
        });
        for (SmReferenceFrame& f : frames) {
          if (f.picture == picture) {
            f.longTerm = true;
            f.longTermFrameIdx = op.longTermFrameIdx;
          }
        }
        break;
      }
      case 4:
        state.maxLongTermFrameIdx = int64_t{op.maxLongTermFrameIdxPlus1} - 1;
        RemoveIf(frames, [&](const SmReferenceFrame& f) {
          return f.longTerm && int64_t{f.longTermFrameIdx} > state.maxLongTermFrameIdx;
        });
        break;
      case 5:
        frames.clear();
        state.maxLongTermFrameIdx = -1;
        // The frame counts from zero again after this operation.
        self.frameNum = 0;
        break;
      case 6:
        if (int64_t{op.longTermFrameIdx} > state.maxLongTermFrameIdx) {
          ok = false;
          break;
        }
        RemoveIf(frames, [&](const SmReferenceFrame& f) {
          return f.longTerm && f.longTermFrameIdx == op.longTermFrameIdx;
        });
        selfLongTerm = true;
        self.longTermFrameIdx = op.longTermFrameIdx;
        break;
      default:
        ok = false;
        break;
      }
    }
  } else {
    // The sliding window: the short-term frame numbered longest ago goes
    // when the store is full.
    const size_t limit = std::max(maxNumRefFrames, 1u);
    while (frames.size() >= limit) {
      auto oldest = frames.end();
      for (auto it = frames.begin(); it != frames.end(); ++it) {
        if (!it->longTerm &&
            (oldest == frames.end() || GetPicNum(*it, header.frameNum, maxFrameNum) <
                                           GetPicNum(*oldest, header.frameNum, maxFrameNum))) {
          oldest = it;
        }
      }
      if (oldest == frames.end()) {
        break;
      }
      frames.erase(oldest);
    }
  }
  self.longTerm = selfLongTerm;
  frames.push_back(self);
  // More references than the stream allows mean damage; the oldest go.
  while (frames.size() > std::max(maxNumRefFrames, 1u)) {
    frames.erase(frames.begin());
    ok = false;
  }
  return ok;
}

} // namespace NmH264
