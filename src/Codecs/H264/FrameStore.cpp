#include "Codecs/H264/FrameStore.h"

#include <algorithm>
#include <utility>

namespace MCL {

void H264DecoderFrameList::Append(H264DecoderFrame* frame) {
  frame->previous = m_Tail;
  frame->next = nullptr;
  if (m_Tail != nullptr) {
    m_Tail->next = frame;
  } else {
    m_Head = frame;
  }
  m_Tail = frame;
}

void H264DecoderFrameList::Remove(H264DecoderFrame* frame) {
  (frame->previous != nullptr ? frame->previous->next : m_Head) = frame->next;
  (frame->next != nullptr ? frame->next->previous : m_Tail) = frame->previous;
  frame->previous = frame->next = nullptr;
}

void H264DecoderFrameList::MoveToTail(H264DecoderFrame* frame) {
  Remove(frame);
  Append(frame);
}

H264DecoderFrame* H264DBPList::GetFreeFrame(size_t limit) {
  // Among free frames the oldest generation first, then the smallest order
  // count: the frame that left longest ago.
  H264DecoderFrame* chosen = nullptr;
  for (H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    if (!frame->IsFree()) {
      continue;
    }
    if (chosen == nullptr || frame->GetResetGeneration() > chosen->GetResetGeneration() ||
        (frame->GetResetGeneration() == chosen->GetResetGeneration() &&
         frame->GetPicOrderCnt() < chosen->GetPicOrderCnt())) {
      chosen = frame;
    }
  }
  if (chosen == nullptr) {
    if (m_Owned.size() > limit) {
      return nullptr;
    }
    m_Owned.push_back(std::make_unique<H264DecoderFrameExtension>());
    chosen = m_Owned.back().get();
    // The lowest index from 0 to 31 that no other frame uses.
    for (int32_t index = 0; index < 32 && chosen->uniqueIndex < 0; ++index) {
      bool used = false;
      for (const auto& other : m_Owned) {
        used = used || other->uniqueIndex == index;
      }
      if (!used) {
        chosen->uniqueIndex = index;
      }
    }
    Append(chosen);
  } else {
    MoveToTail(chosen);
  }
  chosen->ClearForNewPicture();
  return chosen;
}

int32_t H264DBPList::CountForOutput() const {
  int32_t count = 0;
  for (const H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    if ((frame->isDisplayable && (frame->IsReference() || !frame->wasOutputted)) ||
        frame->decodingState >= 2) {
      ++count;
    }
  }
  return count;
}

H264DecoderFrame* H264DBPList::ChooseForOutput(int32_t dpbDelay, int32_t dpbSize) const {
  H264DecoderFrame* chosen = nullptr;
  int32_t candidates = 0;
  for (H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    if (frame->wasOutputted || !(frame->isDisplayable || frame->decodingState > 0)) {
      continue;
    }
    if (dpbDelay == 0) {
      return frame;
    }
    if (chosen == nullptr) {
      chosen = frame;
    } else {
      const int32_t e = frame->GetResetGeneration(), ce = chosen->GetResetGeneration();
      const int32_t p = frame->GetPicOrderCnt(), cp = chosen->GetPicOrderCnt();
      if (e > ce ||
          (e == ce && (p < cp || (p == cp && frame->hasPicture && !chosen->hasPicture)))) {
        chosen = frame;
      }
    }
    if (++candidates >= dpbSize + 2) {
      break;
    }
  }
  return chosen;
}

std::vector<NmH264::SmReferenceFrame> H264DBPList::GetReferences() const {
  std::vector<NmH264::SmReferenceFrame> references;
  for (const H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    // Fields marked apart give an entry each.
    const uint8_t shortFields =
        static_cast<uint8_t>((frame->isShortRef[0] ? 1 : 0) | (frame->isShortRef[1] ? 2 : 0));
    const uint8_t longFields =
        static_cast<uint8_t>((frame->isLongRef[0] ? 1 : 0) | (frame->isLongRef[1] ? 2 : 0));
    for (const bool longTerm : {false, true}) {
      const uint8_t fields = longTerm ? longFields : shortFields;
      if (fields != 0) {
        references.push_back({&frame->GetPicture(), static_cast<uint32_t>(frame->frameNum),
                              longTerm, static_cast<uint32_t>(frame->longTermFrameIdx), fields});
      }
    }
  }
  return references;
}

void H264DBPList::SetReferences(const std::vector<NmH264::SmReferenceFrame>& references) {
  for (H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    // A frame whose fields are marked apart has an entry for each.
    frame->isShortRef[0] = frame->isShortRef[1] = false;
    frame->isLongRef[0] = frame->isLongRef[1] = false;
    for (const NmH264::SmReferenceFrame& found : references) {
      if (found.picture != &frame->GetPicture()) {
        continue;
      }
      for (int parity = 0; parity < 2; ++parity) {
        if ((found.fields & (1 << parity)) != 0) {
          (found.longTerm ? frame->isLongRef : frame->isShortRef)[parity] = true;
        }
      }
      frame->frameNum = static_cast<int32_t>(found.frameNum);
      if (found.longTerm) {
        frame->longTermFrameIdx = static_cast<int32_t>(found.longTermFrameIdx);
      }
    }
  }
}

void H264DBPList::DropAllReferences() {
  for (H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    frame->isShortRef[0] = frame->isShortRef[1] = false;
    frame->isLongRef[0] = frame->isLongRef[1] = false;
  }
}

void H264DBPList::StartNewGeneration() {
  for (H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    ++frame->resetCount[0];
    ++frame->resetCount[1];
  }
}

void H264DBPList::TakeEarliestWaitingTime(H264DecoderFrame& leaving) {
  if (leaving.time < 0) {
    return;
  }
  H264DecoderFrame* earliest = &leaving;
  for (H264DecoderFrame* frame = m_Head; frame != nullptr; frame = frame->next) {
    if (!frame->wasOutputted && frame->isDisplayable && frame->time >= 0 &&
        frame->time < earliest->time) {
      earliest = frame;
    }
  }
  std::swap(leaving.time, earliest->time);
}

void H264DBPList::Clear() {
  m_Owned.clear();
  m_Head = m_Tail = nullptr;
}

} // namespace MCL
