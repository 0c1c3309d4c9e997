#include "Codecs/H264/ReferenceLists.h"

#include <algorithm>

namespace NmH264 {

namespace {

// PicNum of a short-term frame: FrameNumWrap, which counts frames numbered
// above the current one as from before the wrap.
int64_t GetPicNum(const SmReferenceFrame& frame, uint32_t currentFrameNum, uint32_t maxFrameNum) {
  return frame.frameNum > currentFrameNum ? int64_t{frame.frameNum} - maxFrameNum : frame.frameNum;
}

} // namespace

bool BuildReferenceListP(const std::vector<SmReferenceFrame>& frames, const SmSliceHeader& header,
                         uint32_t maxFrameNum, std::vector<const CmPicture*>& list) {
  const uint32_t current = header.frameNum;
  std::vector<const SmReferenceFrame*> shortTerm, longTerm;
  for (const SmReferenceFrame& frame : frames) {
    (frame.longTerm ? longTerm : shortTerm).push_back(&frame);
  }
  std::sort(shortTerm.begin(), shortTerm.end(), [&](const auto* a, const auto* b) {
    return GetPicNum(*a, current, maxFrameNum) > GetPicNum(*b, current, maxFrameNum);
  });
  std::sort(longTerm.begin(), longTerm.end(),
            [](const auto* a, const auto* b) { return a->longTermFrameIdx < b->longTermFrameIdx; });
  const size_t active = header.numRefIdxActive[0];
  // One spare entry: a modification shifts the list by one before it drops
  // the duplicate.
  std::vector<const SmReferenceFrame*> entries(active + 1, nullptr);
  size_t n = 0;
  for (const auto* frame : shortTerm) {
    if (n < active) {
      entries[n++] = frame;
    }
  }
  for (const auto* frame : longTerm) {
    if (n < active) {
      entries[n++] = frame;
    }
  }
  if (header.listModification[0]) {
    int64_t picNumPred = current;
    size_t refIdx = 0;
    for (uint8_t c = 0; c < header.modificationCount[0]; ++c) {
      const SmListModification& command = header.modifications[0][c];
      if (refIdx >= active) {
        return false;
      }
      const SmReferenceFrame* chosen = nullptr;
      bool isLong = false;
      int64_t number = 0;
      if (command.idc < 2) {
        const int64_t difference = int64_t{command.value} + 1;
        if (difference > maxFrameNum) {
          return false;
        }
        int64_t noWrap = command.idc == 0 ? picNumPred - difference : picNumPred + difference;
        if (noWrap < 0) {
          noWrap += maxFrameNum;
        } else if (noWrap >= maxFrameNum) {
          noWrap -= maxFrameNum;
        }
        picNumPred = noWrap;
        number = noWrap > current ? noWrap - maxFrameNum : noWrap;
        for (const auto* frame : shortTerm) {
          if (GetPicNum(*frame, current, maxFrameNum) == number) {
            chosen = frame;
          }
        }
      } else {
        isLong = true;
        number = command.value;
        for (const auto* frame : longTerm) {
          if (frame->longTermFrameIdx == command.value) {
            chosen = frame;
          }
        }
      }
      if (chosen == nullptr) {
        return false;
      }
      for (size_t i = active; i > refIdx; --i) {
        entries[i] = entries[i - 1];
      }
      entries[refIdx++] = chosen;
      size_t kept = refIdx;
      for (size_t i = refIdx; i <= active; ++i) {
        const SmReferenceFrame* entry = entries[i];
        const bool same = entry != nullptr && entry->longTerm == isLong &&
                          (isLong ? entry->longTermFrameIdx == number
                                  : GetPicNum(*entry, current, maxFrameNum) == number);
        if (!same) {
          entries[kept++] = entry;
        }
      }
    }
  }
  list.assign(active, nullptr);
  for (size_t i = 0; i < active; ++i) {
    list[i] = entries[i] != nullptr ? entries[i]->picture : nullptr;
  }
  return true;
}

} // namespace NmH264
