#include "Codecs/H264/ReferenceLists.h"

#include <algorithm>

namespace NmH264 {

namespace {

// PicNum of a short-term frame: FrameNumWrap, which counts frames numbered
// above the current one as from before the wrap.
int64_t GetPicNum(const SmReferenceFrame& frame, uint32_t currentFrameNum, uint32_t maxFrameNum) {
  return frame.frameNum > currentFrameNum ? int64_t{frame.frameNum} - maxFrameNum : frame.frameNum;
}

using SmEntries = std::vector<const SmReferenceFrame*>;

bool Modify(const SmReferenceFrame* const* all, size_t count, const SmSliceHeader& header, int list,
            uint32_t maxFrameNum, SmEntries& entries) {
  const uint32_t current = header.frameNum;
  const size_t active = header.numRefIdxActive[list];
  int64_t picNumPred = current;
  size_t refIdx = 0;
  for (uint8_t c = 0; c < header.modificationCount[list]; ++c) {
    const SmListModification& command = header.modifications[list][c];
    if (refIdx >= active) {
      return false;
    }
    const SmReferenceFrame* chosen = nullptr;
    const bool isLong = command.idc == 2;
    int64_t number = 0;
    if (!isLong) {
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
    } else {
      number = command.value;
    }
    for (size_t i = 0; i < count; ++i) {
      const SmReferenceFrame* frame = all[i];
      if (frame->longTerm == isLong &&
          (isLong ? frame->longTermFrameIdx == number
                  : GetPicNum(*frame, current, maxFrameNum) == number)) {
        chosen = frame;
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
  return true;
}

} // namespace

bool BuildReferenceLists(const std::vector<SmReferenceFrame>& frames, const SmSliceHeader& header,
                         uint32_t maxFrameNum, int32_t currentPoc, SmReferenceList lists[2]) {
  const uint32_t current = header.frameNum;
  SmEntries shortTerm, longTerm;
  for (const SmReferenceFrame& frame : frames) {
    (frame.longTerm ? longTerm : shortTerm).push_back(&frame);
  }
  std::sort(longTerm.begin(), longTerm.end(),
            [](const auto* a, const auto* b) { return a->longTermFrameIdx < b->longTermFrameIdx; });
  SmEntries initial[2];
  if (header.sliceType == SliceB) {
    // List 0 looks back first, list 1 forward first, by picture order.
    SmEntries before, after;
    for (const auto* frame : shortTerm) {
      (frame->picture->GetPoc() < currentPoc ? before : after).push_back(frame);
    }
    std::sort(before.begin(), before.end(), [](const auto* a, const auto* b) {
      return a->picture->GetPoc() > b->picture->GetPoc();
    });
    std::sort(after.begin(), after.end(), [](const auto* a, const auto* b) {
      return a->picture->GetPoc() < b->picture->GetPoc();
    });
    initial[0] = before;
    initial[0].insert(initial[0].end(), after.begin(), after.end());
    initial[1] = after;
    initial[1].insert(initial[1].end(), before.begin(), before.end());
    for (SmEntries& list : initial) {
      list.insert(list.end(), longTerm.begin(), longTerm.end());
    }
    if (initial[1].size() > 1 && initial[1] == initial[0]) {
      std::swap(initial[1][0], initial[1][1]);
    }
  } else {
    initial[0] = shortTerm;
    std::sort(initial[0].begin(), initial[0].end(), [&](const auto* a, const auto* b) {
      return GetPicNum(*a, current, maxFrameNum) > GetPicNum(*b, current, maxFrameNum);
    });
    initial[0].insert(initial[0].end(), longTerm.begin(), longTerm.end());
  }
  SmEntries all;
  for (const SmReferenceFrame& frame : frames) {
    all.push_back(&frame);
  }
  for (int list = 0; list < 2; ++list) {
    const size_t active = header.numRefIdxActive[list];
    // One spare entry: a modification shifts the list by one before it
    // drops the duplicate.
    SmEntries entries(active + 1, nullptr);
    std::copy_n(initial[list].begin(), std::min(active, initial[list].size()), entries.begin());
    if (header.listModification[list] &&
        !Modify(all.data(), all.size(), header, list, maxFrameNum, entries)) {
      return false;
    }
    lists[list].pictures.assign(active, nullptr);
    lists[list].longTerm.assign(active, 0);
    for (size_t i = 0; i < active; ++i) {
      if (entries[i] != nullptr) {
        lists[list].pictures[i] = entries[i]->picture;
        lists[list].longTerm[i] = entries[i]->longTerm ? 1 : 0;
      }
    }
  }
  return true;
}

} // namespace NmH264
