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

// Fields of one frame may be marked apart: one long-term and one
// short-term, or one gone. An entry holds the fields of one frame that share
// a marking, so a frame has two entries while its fields differ.

// Unmarks the fields of `bit` (a mask) in the entries that `condition`
// picks, dropping entries left without fields.
template <typename F> bool UnmarkFields(std::vector<SmReferenceFrame>& frames, F condition) {
  bool found = false;
  for (SmReferenceFrame& frame : frames) {
    for (int p = 0; p < 2; ++p) {
      if ((frame.fields & (1 << p)) != 0 && condition(frame, p)) {
        frame.fields = static_cast<uint8_t>(frame.fields & ~(1 << p));
        found = true;
      }
    }
  }
  RemoveIf(frames, [](const SmReferenceFrame& f) { return f.fields == 0; });
  return found;
}

// Gives the field of parity `p` of `picture` the long-term index, joining
// its sibling when that holds the same index.
void MarkFieldLongTerm(std::vector<SmReferenceFrame>& frames, const CmPicture* picture,
                       uint32_t frameNum, int p, uint32_t index) {
  for (SmReferenceFrame& frame : frames) {
    if (frame.picture == picture && frame.longTerm && frame.longTermFrameIdx == index) {
      frame.fields = static_cast<uint8_t>(frame.fields | (1 << p));
      return;
    }
  }
  frames.push_back({picture, frameNum, true, index, static_cast<uint8_t>(1 << p)});
}

// Frees a long-term index for a field of `keeper`: long-term frames and
// fields that hold it go, except a field of keeper's own frame, whose
// sibling may take the same index (8.2.5.4.3, 8.2.5.4.6).
void FreeLongTermIndex(std::vector<SmReferenceFrame>& frames, uint32_t index,
                       const CmPicture* keeper) {
  UnmarkFields(frames, [&](const SmReferenceFrame& f, int) {
    return f.longTerm && f.longTermFrameIdx == index && f.picture != keeper;
  });
}

// The commands of a field's dec_ref_pic_marking, which name single fields
// by their field picture numbers (8.2.4.1): twice FrameNumWrap or
// LongTermFrameIdx, plus one for the current field's parity. `selfLongTerm`
// and `selfIndex` tell what command 6 made of the current field.
bool MarkFieldsAdaptively(SmReferenceState& state, const SmSliceHeader& header, int parity,
                          uint32_t maxFrameNum, const CmPicture* current, bool& selfLongTerm,
                          uint32_t& selfIndex) {
  std::vector<SmReferenceFrame>& frames = state.frames;
  const int64_t currPicNum = 2 * int64_t{header.frameNum} + 1;
  const auto shortPicNum = [&](const SmReferenceFrame& f, int p) {
    return 2 * GetPicNum(f, header.frameNum, maxFrameNum) + (p == parity ? 1 : 0);
  };
  bool ok = true;
  for (uint8_t i = 0; i < header.markingCount; ++i) {
    const SmMarkingOperation& op = header.marking[i];
    const int64_t picNumX = currPicNum - (int64_t{op.differenceOfPicNums} + 1);
    switch (op.operation) {
    case 1:
      ok = UnmarkFields(frames,
                        [&](const SmReferenceFrame& f, int p) {
                          return !f.longTerm && shortPicNum(f, p) == picNumX;
                        }) &&
           ok;
      break;
    case 2:
      ok = UnmarkFields(frames,
                        [&](const SmReferenceFrame& f, int p) {
                          return f.longTerm &&
                                 2 * int64_t{f.longTermFrameIdx} + (p == parity ? 1 : 0) ==
                                     int64_t{op.longTermPicNum};
                        }) &&
           ok;
      break;
    case 3: {
      const CmPicture* picture = nullptr;
      uint32_t frameNum = 0;
      int field = -1;
      for (const SmReferenceFrame& f : frames) {
        for (int p = 0; p < 2; ++p) {
          if ((f.fields & (1 << p)) != 0 && !f.longTerm && shortPicNum(f, p) == picNumX) {
            picture = f.picture;
            frameNum = f.frameNum;
            field = p;
          }
        }
      }
      if (field < 0 || int64_t{op.longTermFrameIdx} > state.maxLongTermFrameIdx) {
        ok = false;
        break;
      }
      FreeLongTermIndex(frames, op.longTermFrameIdx, picture);
      UnmarkFields(frames, [&](const SmReferenceFrame& f, int p) {
        return !f.longTerm && f.picture == picture && p == field;
      });
      MarkFieldLongTerm(frames, picture, frameNum, field, op.longTermFrameIdx);
      break;
    }
    case 4:
      state.maxLongTermFrameIdx = int64_t{op.maxLongTermFrameIdxPlus1} - 1;
      UnmarkFields(frames, [&](const SmReferenceFrame& f, int) {
        return f.longTerm && int64_t{f.longTermFrameIdx} > state.maxLongTermFrameIdx;
      });
      break;
    case 5:
      // Every reference goes, the first field of the current frame too.
      frames.clear();
      state.maxLongTermFrameIdx = -1;
      break;
    case 6:
      if (int64_t{op.longTermFrameIdx} > state.maxLongTermFrameIdx) {
        ok = false;
        break;
      }
      // The first field of the current frame keeps the index that its
      // second field takes too.
      FreeLongTermIndex(frames, op.longTermFrameIdx, current);
      selfLongTerm = true;
      selfIndex = op.longTermFrameIdx;
      break;
    default:
      ok = false;
      break;
    }
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
  if (parity >= 0 && !header.IsIdr()) {
    if (header.adaptiveMarking) {
      ok = MarkFieldsAdaptively(state, header, parity, maxFrameNum, current, self.longTerm,
                                self.longTermFrameIdx);
      if (header.HasMemoryManagement5()) {
        self.frameNum = 0; // the frame counts from zero again
      }
    }
    // The second field of a reference field pair: no sliding window, and
    // one entry with its first field when both are marked alike.
    bool paired = false;
    for (SmReferenceFrame& frame : frames) {
      if (frame.picture != current) {
        continue;
      }
      paired = true;
      if (frame.longTerm == self.longTerm &&
          (!self.longTerm || frame.longTermFrameIdx == self.longTermFrameIdx)) {
        frame.fields = static_cast<uint8_t>(frame.fields | self.fields);
        return ok;
      }
    }
    if (paired || header.adaptiveMarking) {
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
