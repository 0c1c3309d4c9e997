#include "Codecs/H264/ReferenceLists.h"

#include <optional>

#include <algorithm>

namespace NmH264 {

namespace {

// The picture number that a list modification command names (8.2.4.3.1 and
// 8.2.4.3.2): a short-term one from the predicted number and the difference
// it codes, moving the prediction on; a long-term one as it stands. Frames
// and fields differ only in the range of the numbers. Nothing for a
// difference beyond that range.
std::optional<int64_t> ModifiedPicNum(const SmListModification& command, int64_t maxPicNum,
                                      int64_t currPicNum, int64_t& picNumPred) {
  if (command.idc == 2) {
    return int64_t{command.value};
  }
  const int64_t difference = int64_t{command.value} + 1;
  if (difference > maxPicNum) {
    return std::nullopt;
  }
  int64_t noWrap = command.idc == 0 ? picNumPred - difference : picNumPred + difference;
  if (noWrap < 0) {
    noWrap += maxPicNum;
  } else if (noWrap >= maxPicNum) {
    noWrap -= maxPicNum;
  }
  picNumPred = noWrap;
  return noWrap > currPicNum ? noWrap - maxPicNum : noWrap;
}

// PicNum of a short-term frame: FrameNumWrap, which counts frames numbered
// above the current one as from before the wrap.
int64_t GetPicNum(const SmReferenceFrame& frame, uint32_t currentFrameNum, uint32_t maxFrameNum) {
  return frame.frameNum > currentFrameNum ? int64_t{frame.frameNum} - maxFrameNum : frame.frameNum;
}

using SmEntries = std::vector<const SmReferenceFrame*>;

// Puts the picture that a modification chose at refIdx, moving the entries
// after it back one place, and drops the later entry that names the same
// picture (8.2.4.3.1, 8.2.4.3.2).
template <typename Entries, typename Matches>
void PlaceModified(Entries& entries, size_t active, size_t& refIdx,
                   typename Entries::value_type chosen, const Matches& matches) {
  for (size_t i = active; i > refIdx; --i) {
    entries[i] = entries[i - 1];
  }
  entries[refIdx++] = chosen;
  size_t kept = refIdx;
  for (size_t i = refIdx; i <= active; ++i) {
    if (!matches(entries[i])) {
      entries[kept++] = entries[i];
    }
  }
}

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
    const std::optional<int64_t> number = ModifiedPicNum(command, maxFrameNum, current, picNumPred);
    if (!number) {
      return false;
    }
    const auto matches = [&](const SmReferenceFrame* frame) {
      return frame != nullptr && frame->longTerm == isLong &&
             (isLong ? frame->longTermFrameIdx == *number
                     : GetPicNum(*frame, current, maxFrameNum) == *number);
    };
    for (size_t i = 0; i < count; ++i) {
      if (matches(all[i])) {
        chosen = all[i];
      }
    }
    if (chosen == nullptr) {
      return false;
    }
    PlaceModified(entries, active, refIdx, chosen, matches);
  }
  return true;
}

// The fields of a list of frames (8.2.4.2.5): alternately one of the current
// field's parity and one of the other, each the next frame's in order that
// has such a reference field; once one parity runs out, the rest of the
// other follows.
std::vector<const CmPicture*> AlternateFields(const SmEntries& frames, int parity) {
  std::vector<const CmPicture*> fields;
  size_t next[2] = {0, 0};
  int wanted = parity;
  for (;;) {
    size_t& index = next[wanted == parity ? 0 : 1];
    while (index < frames.size() && (frames[index]->fields & (1 << wanted)) == 0) {
      ++index;
    }
    if (index < frames.size()) {
      fields.push_back(frames[index]->picture->FindField(wanted));
      ++index;
    } else {
      const int other = 1 - wanted;
      size_t& rest = next[other == parity ? 0 : 1];
      for (; rest < frames.size(); ++rest) {
        if ((frames[rest]->fields & (1 << other)) != 0) {
          fields.push_back(frames[rest]->picture->FindField(other));
        }
      }
      return fields;
    }
    wanted = 1 - wanted;
  }
}

// A frame's order count for field lists: of its reference fields only.
int32_t GetReferencePoc(const SmReferenceFrame& frame) {
  const CmPicture* top = frame.picture->FindField(0);
  const CmPicture* bottom = frame.picture->FindField(1);
  if (frame.fields == 1 && top != nullptr) {
    return top->GetPoc();
  }
  if (frame.fields == 2 && bottom != nullptr) {
    return bottom->GetPoc();
  }
  return std::min(top != nullptr ? top->GetPoc() : frame.picture->GetPoc(),
                  bottom != nullptr ? bottom->GetPoc() : frame.picture->GetPoc());
}

// PicNum of a reference field (8.2.4.1): twice FrameNumWrap, plus one for
// the current field's parity.
int64_t GetFieldPicNum(const CmPicture& field, const SmReferenceFrame& frame, int parity,
                       uint32_t current, uint32_t maxFrameNum) {
  const int64_t base =
      frame.longTerm ? int64_t{frame.longTermFrameIdx} : GetPicNum(frame, current, maxFrameNum);
  return 2 * base + (field.GetParity() == parity ? 1 : 0);
}

bool BuildFieldLists(const std::vector<SmReferenceFrame>& frames, const SmSliceHeader& header,
                     uint32_t maxFrameNum, int32_t currentPoc, SmReferenceList lists[2]) {
  const uint32_t current = header.frameNum;
  const int parity = header.bottomField ? 1 : 0;
  SmEntries shortTerm, longTerm;
  for (const SmReferenceFrame& frame : frames) {
    // Each reference field must have its picture.
    for (int p = 0; p < 2; ++p) {
      if ((frame.fields & (1 << p)) != 0 && frame.picture->FindField(p) == nullptr) {
        return false;
      }
    }
    (frame.longTerm ? longTerm : shortTerm).push_back(&frame);
  }
  std::sort(longTerm.begin(), longTerm.end(),
            [](const auto* a, const auto* b) { return a->longTermFrameIdx < b->longTermFrameIdx; });
  std::vector<const CmPicture*> initial[2];
  const std::vector<const CmPicture*> longFields = AlternateFields(longTerm, parity);
  if (header.sliceType == SliceB) {
    // Frames by the order counts of their reference fields, back first for
    // list 0 (a count equal to the current one counts as back), forward
    // first for list 1.
    SmEntries before, after;
    for (const auto* frame : shortTerm) {
      (GetReferencePoc(*frame) <= currentPoc ? before : after).push_back(frame);
    }
    std::stable_sort(before.begin(), before.end(), [](const auto* a, const auto* b) {
      return GetReferencePoc(*a) > GetReferencePoc(*b);
    });
    std::stable_sort(after.begin(), after.end(), [](const auto* a, const auto* b) {
      return GetReferencePoc(*a) < GetReferencePoc(*b);
    });
    SmEntries order0 = before, order1 = after;
    order0.insert(order0.end(), after.begin(), after.end());
    order1.insert(order1.end(), before.begin(), before.end());
    initial[0] = AlternateFields(order0, parity);
    initial[1] = AlternateFields(order1, parity);
    for (auto& list : initial) {
      list.insert(list.end(), longFields.begin(), longFields.end());
    }
    if (initial[1].size() > 1 && initial[1] == initial[0]) {
      std::swap(initial[1][0], initial[1][1]);
    }
  } else {
    std::stable_sort(shortTerm.begin(), shortTerm.end(), [&](const auto* a, const auto* b) {
      return GetPicNum(*a, current, maxFrameNum) > GetPicNum(*b, current, maxFrameNum);
    });
    initial[0] = AlternateFields(shortTerm, parity);
    initial[0].insert(initial[0].end(), longFields.begin(), longFields.end());
  }
  // Every reference field with its frame, for the modifications.
  struct SmField {
    const CmPicture* picture;
    const SmReferenceFrame* frame;
  };
  std::vector<SmField> all;
  for (const SmReferenceFrame& frame : frames) {
    for (int p = 0; p < 2; ++p) {
      if ((frame.fields & (1 << p)) != 0) {
        all.push_back({frame.picture->FindField(p), &frame});
      }
    }
  }
  const auto frameOf = [&all](const CmPicture* field) -> const SmReferenceFrame* {
    for (const SmField& f : all) {
      if (f.picture == field) {
        return f.frame;
      }
    }
    return nullptr;
  };
  const int64_t maxPicNum = 2 * int64_t{maxFrameNum};
  const int64_t currPicNum = 2 * int64_t{current} + 1;
  for (int list = 0; list < 2; ++list) {
    const size_t active = header.numRefIdxActive[list];
    std::vector<const CmPicture*> entries(active + 1, nullptr);
    std::copy_n(initial[list].begin(), std::min(active, initial[list].size()), entries.begin());
    if (header.listModification[list]) {
      int64_t picNumPred = currPicNum;
      size_t refIdx = 0;
      for (uint8_t c = 0; c < header.modificationCount[list]; ++c) {
        const SmListModification& command = header.modifications[list][c];
        if (refIdx >= active) {
          return false;
        }
        const bool isLong = command.idc == 2;
        const std::optional<int64_t> number =
            ModifiedPicNum(command, maxPicNum, currPicNum, picNumPred);
        if (!number) {
          return false;
        }
        const auto matches = [&](const CmPicture* field) {
          const SmReferenceFrame* frame = field == nullptr ? nullptr : frameOf(field);
          return frame != nullptr && frame->longTerm == isLong &&
                 GetFieldPicNum(*field, *frame, parity, current, maxFrameNum) == *number;
        };
        const CmPicture* chosen = nullptr;
        for (const SmField& f : all) {
          if (matches(f.picture)) {
            chosen = f.picture;
          }
        }
        if (chosen == nullptr) {
          return false;
        }
        PlaceModified(entries, active, refIdx, chosen, matches);
      }
    }
    lists[list].pictures.assign(active, nullptr);
    lists[list].longTerm.assign(active, 0);
    for (size_t i = 0; i < active; ++i) {
      lists[list].pictures[i] = entries[i];
      const SmReferenceFrame* frame = entries[i] == nullptr ? nullptr : frameOf(entries[i]);
      lists[list].longTerm[i] = frame != nullptr && frame->longTerm ? 1 : 0;
    }
  }
  return true;
}

} // namespace

bool BuildReferenceLists(const std::vector<SmReferenceFrame>& frames, const SmSliceHeader& header,
                         uint32_t maxFrameNum, int32_t currentPoc, SmReferenceList lists[2]) {
  if (header.fieldPic) {
    return BuildFieldLists(frames, header, maxFrameNum, currentPoc, lists);
  }
  const uint32_t current = header.frameNum;
  SmEntries shortTerm, longTerm;
  for (const SmReferenceFrame& frame : frames) {
    // A frame whose other field is no reference serves no frame.
    if (frame.fields != 3) {
      continue;
    }
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
    if (frame.fields == 3) {
      all.push_back(&frame);
    }
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
