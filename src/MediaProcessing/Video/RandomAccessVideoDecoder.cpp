#include "MediaProcessing/Video/RandomAccessVideoDecoder.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/GenericByteData/VideoCodec.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
using NmTimeMatch::LooksBackward;
using NmTimeMatch::LooksForward;
using NmTimeStamp::CmTimeStamp;

namespace {

// A slot holding this time holds nothing: it is the time stamp of wire time 0.
const CmTimeStamp Sentinel;
const CmTimeStamp Lowest = CmTimeStamp::FromTicks(0);
const CmTimeStamp Highest = CmTimeStamp::FromTicks(~0ULL);

// Codecs that reorder may hold a frame for a few calls; a codec that keeps
// asking to be called without ever giving an image is broken, not slow.
constexpr int DecodeBudget = 1000;

// How many sync frames further back a start may go for a picture that the
// nearest one cannot show. One suffices for an open group and for a refresh
// period no longer than the distance between recovery points.
constexpr int EarlierSyncFrames = 2;

CmTimeStamp LastImageTime(const CmRawVideoByteDataAccess& view) {
  CmTimeStamp last = view.GetTime();
  if (view.GetImageCount() > 0) {
    CmTimeStamp time;
    if (view.GetTimeStampForImage(view.GetImageCount() - 1, time)) {
      last = time;
    }
  }
  return last;
}

} // namespace

void CmRandomAccessVideoDecoder::SetDataAccess(ImVideoDataAccess* store) {
  m_Store = store;
  Reset();
}

void CmRandomAccessVideoDecoder::Reset() {
  m_Target.reset();
  ClearRecord();
  ResetDecoder();
  ForgetNeighbours();
}

void CmRandomAccessVideoDecoder::ValidateParameters(const SmVideoDecodeParameters& parameters) {
  auto refuse = [](const char* message) {
    throw CmIntegrityError(
        NmError::MakeLocation("NmMediaProcessing::CmRandomAccessVideoDecoder::ValidateParameters",
                              __FILE__, __LINE__),
        message, CmIntegrityErrorCode::InvalidArgument);
  };
  if (parameters.m_VideoStreamTimestamping != 0) {
    refuse("Video-stream timestamping parameter is not supported by this decoder");
  }
  if (parameters.m_SplitFields) {
    refuse("Split-fields decoding parameter is not supported by this decoder");
  }
  if (!parameters.m_ProduceImage) {
    refuse("Produce-image decoding parameter must be set for this decoder");
  }
  if (parameters.m_LowDelay &&
      parameters.m_DecodeMode != SmVideoDecodeParameters::DecodeSyncFramesOnly) {
    refuse("Low-delay decoding parameter is not supported by this decoder");
  }
}

void CmRandomAccessVideoDecoder::SetParameters(const SmVideoDecodeParameters& parameters) {
  ValidateParameters(parameters);
  CmGenericVideoDecoder::SetParameters(parameters);
  if (parameters.m_DecodeMode != m_Mode) {
    m_Mode = parameters.m_DecodeMode;
    Reset();
  }
}

void CmRandomAccessVideoDecoder::ResetDecoder() {
  CmGenericVideoDecoder::Reset();
  m_Images[0].GetAttributes().timeStamp = Sentinel;
  m_Images[1].GetAttributes().timeStamp = Sentinel;
  m_FeedState = NothingFed;
  m_LastDeliveredTime = Highest;
  m_FirstFed.reset();
  m_LastFed.reset();
}

void CmRandomAccessVideoDecoder::ClearRecord() {
  m_View = CmRawVideoByteDataAccess();
  m_RecordLastTime = Sentinel;
  m_Record = CmGenericByteData();
}

void CmRandomAccessVideoDecoder::ForgetNeighbours() {
  m_NextRecordBegin = Lowest;
  m_PreviousRecordEnd = Highest;
}

bool CmRandomAccessVideoDecoder::GetByteData(const CmTimeStamp& time, SmTimeMatchType matchType,
                                             bool syncFramesOnly) {
  // The view points into the present record, which the store overwrites.
  m_View = CmRawVideoByteDataAccess();
  if (!m_Store->GetByteData(time, matchType, syncFramesOnly, m_Record)) {
    if (!m_Record.IsEmpty()) {
      m_View.Initialize(m_Record, false);
    }
    return false;
  }
  ForgetNeighbours();
  if (!m_Record.GetOwnsBuffer()) {
    ClearRecord();
    ResetDecoder();
    throw CmIntegrityError(
        NmError::MakeLocation("NmMediaProcessing::CmRandomAccessVideoDecoder::GetByteData",
                              __FILE__, __LINE__),
        "Ownership integrity violated", CmIntegrityErrorCode::InvalidPointer);
  }
  m_View.Initialize(m_Record, false);
  if (!m_View.IsValid() || m_View.GetImageCount() == 0) {
    ClearRecord();
    return false;
  }
  m_RecordLastTime = LastImageTime(m_View);
  return true;
}

bool CmRandomAccessVideoDecoder::GetNextRecordBegin(CmTimeStamp& beginOut) {
  if (m_NextRecordBegin == Lowest) {
    CmGenericByteData record;
    if (!m_Store->GetByteData(m_RecordLastTime, TimeMatchAfter,
                              m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly, record)) {
      return false;
    }
    const CmRawVideoByteDataAccess view(record, false);
    if (!view.IsValid()) {
      return false;
    }
    m_NextRecordBegin = view.GetTime();
  }
  beginOut = m_NextRecordBegin;
  return true;
}

bool CmRandomAccessVideoDecoder::GetPreviousRecordEnd(CmTimeStamp& endOut) {
  if (m_PreviousRecordEnd == Highest) {
    const bool syncOnly = m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly;
    CmGenericByteData record;
    if (!m_Store->GetByteData(m_View.GetTime(), TimeMatchBefore, syncOnly, record)) {
      return false;
    }
    const CmRawVideoByteDataAccess view(record, false);
    if (!view.IsValid() || view.GetImageCount() == 0) {
      return false;
    }
    m_PreviousRecordEnd = syncOnly ? view.GetTime() : LastImageTime(view);
  }
  endOut = m_PreviousRecordEnd;
  return true;
}

bool CmRandomAccessVideoDecoder::IsRightRecord(const CmTimeStamp& time, SmTimeMatchType matchType) {
  if (!m_View.IsValid() || m_Record.IsEmpty()) {
    return false;
  }
  const bool syncOnly = m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly;
  const CmTimeStamp begin = m_View.GetTime();
  const CmTimeStamp end = syncOnly ? begin : m_RecordLastTime;
  if (time >= begin && time <= end) {
    return CmByteDataVideoAccess::IsByteDataMatched(time, matchType, syncOnly, m_Record, m_View,
                                                    nullptr);
  }
  // Outside its span the record is still the right one when the neighbour
  // on the side of the time cannot answer, or answers no better.
  if (time < begin && LooksForward(matchType)) {
    CmTimeStamp previousEnd;
    if (!GetPreviousRecordEnd(previousEnd)) {
      return true; // nothing lies closer
    }
    if (matchType == TimeMatchNearest) {
      return time > previousEnd && NmTimeMatch::LaterIsNearer(NmTimeMatch::Gap(time, previousEnd),
                                                              NmTimeMatch::Gap(begin, time));
    }
    return !NmTimeMatch::Qualifies(matchType, NmTimeMatch::SmReading::Frames, time, previousEnd,
                                   previousEnd);
  }
  if (time > end && LooksBackward(matchType)) {
    CmTimeStamp nextBegin;
    if (!GetNextRecordBegin(nextBegin)) {
      return true;
    }
    if (matchType == TimeMatchNearest) {
      return time < nextBegin && !NmTimeMatch::LaterIsNearer(NmTimeMatch::Gap(time, end),
                                                             NmTimeMatch::Gap(nextBegin, time));
    }
    return !NmTimeMatch::Qualifies(matchType, NmTimeMatch::SmReading::Frames, time, nextBegin,
                                   nextBegin);
  }
  return false;
}

bool CmRandomAccessVideoDecoder::HoldsExactly(const CmTimeStamp& time) const {
  if (!m_View.IsValid() || m_Record.IsEmpty()) {
    return false;
  }
  return CmByteDataVideoAccess::IsByteDataMatched(
      time, TimeMatchExact, m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly, m_Record,
      m_View, nullptr);
}

bool CmRandomAccessVideoDecoder::ImageIndexForTime(const CmTimeStamp& time, uint64_t& indexOut,
                                                   CmTimeStamp& timeOut) const {
  // The image shown at a time: the last one that begins at or before it.
  bool found = false;
  for (uint64_t index = 0; index < m_View.GetImageCount(); ++index) {
    CmTimeStamp imageTime;
    if (!m_View.GetTimeStampForImage(index, imageTime) || imageTime > time) {
      break;
    }
    indexOut = index;
    timeOut = imageTime;
    found = true;
  }
  return found;
}

CmTimeStamp CmRandomAccessVideoDecoder::TargetTime(const CmTimeStamp& time,
                                                   SmTimeMatchType matchType) const {
  const CmTimeStamp begin = m_View.GetTime();
  // Only a record's first image is a sync frame, so that is all mode 2 sees.
  if (m_View.GetImageCount() == 1 || time < begin ||
      m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly) {
    return begin;
  }
  if (time > m_RecordLastTime) {
    return m_RecordLastTime;
  }
  uint64_t index = 0;
  CmTimeStamp found = begin;
  if (!ImageIndexForTime(time, index, found)) {
    found = begin;
  }
  const NmTimeMatch::SmFrameChoice choice = NmTimeMatch::ChooseFrame(matchType, found == time);
  if (choice == NmTimeMatch::SmFrameChoice::Shown) {
    return found;
  }
  if (choice == NmTimeMatch::SmFrameChoice::Previous) {
    CmTimeStamp previous;
    if (index > 0 && m_View.GetTimeStampForImage(index - 1, previous)) {
      return previous;
    }
    return found;
  }
  CmTimeStamp following;
  if (!(index + 1 < m_View.GetImageCount() && m_View.GetTimeStampForImage(index + 1, following))) {
    // No following picture can be read: decoding starts over from the first.
    return begin;
  }
  if (choice == NmTimeMatch::SmFrameChoice::NearerOfShownAndFollowing) {
    return NmTimeMatch::LaterIsNearer(NmTimeMatch::Gap(time, found),
                                      NmTimeMatch::Gap(following, time))
               ? following
               : found;
  }
  return following;
}

bool CmRandomAccessVideoDecoder::IsSlotEmpty(int slot) const {
  const CmImage& image = m_Images[slot];
  return !image.IsValid() || image.GetAttributes().timeStamp == Sentinel;
}

void CmRandomAccessVideoDecoder::MarkSlotEmpty(int slot) {
  m_Images[slot].GetAttributes().timeStamp = Sentinel;
}

CmImage& CmRandomAccessVideoDecoder::NextSlot() {
  if (!m_DoubleBuffered) {
    MarkSlotEmpty(0);
    return m_Images[0];
  }
  if (m_Current) {
    if (IsSlotEmpty(0)) {
      return m_Images[0];
    }
    m_Current = false;
    MarkSlotEmpty(1);
    return m_Images[1];
  }
  if (IsSlotEmpty(1)) {
    return m_Images[1];
  }
  m_Current = true;
  MarkSlotEmpty(0);
  return m_Images[0];
}

CmRandomAccessVideoDecoder::CheckResult
CmRandomAccessVideoDecoder::CheckImages(const CmTimeStamp& target, bool newestOnly,
                                        const CmTimeStamp& time, SmTimeMatchType matchType,
                                        CmImage& image) {
  auto deliver = [&](int slot) {
    image = m_Images[slot];
    return Delivered;
  };
  const bool filled0 = !IsSlotEmpty(0);
  const bool filled1 = m_DoubleBuffered && !IsSlotEmpty(1);
  if (filled0 && filled1) {
    const CmTimeStamp time0 = m_Images[0].GetAttributes().timeStamp;
    const CmTimeStamp time1 = m_Images[1].GetAttributes().timeStamp;
    if (target == time0) {
      return deliver(0);
    }
    if (target == time1) {
      return deliver(1);
    }
    const int older = time0 <= time1 ? 0 : 1;
    const int newer = 1 - older;
    const CmTimeStamp olderTime = m_Images[older].GetAttributes().timeStamp;
    const CmTimeStamp newerTime = m_Images[newer].GetAttributes().timeStamp;
    if (olderTime > target) {
      return Passed;
    }
    if (newerTime < target) {
      return GoOn;
    }
    switch (NmTimeMatch::StandInBetween(matchType, time, olderTime, newerTime)) {
    case NmTimeMatch::SmStandIn::Older:
      return deliver(older);
    case NmTimeMatch::SmStandIn::Newer:
      return deliver(newer);
    case NmTimeMatch::SmStandIn::None:
      return NothingYet;
    }
  }
  int slot = -1;
  if (filled0) {
    slot = 0;
  } else if (filled1) {
    slot = 1;
  }
  if (slot < 0) {
    return NothingYet;
  }
  const CmTimeStamp slotTime = m_Images[slot].GetAttributes().timeStamp;
  if (slotTime == target) {
    return deliver(slot);
  }
  if (slotTime < target) {
    return GoOn;
  }
  if (newestOnly && LooksForward(matchType)) {
    return deliver(slot);
  }
  return Passed;
}

void CmRandomAccessVideoDecoder::FailDecoding() {
  ResetDecoder();
}

bool CmRandomAccessVideoDecoder::IsContinuation() {
  if (m_View.GetSync() && !RefersAcrossSyncFrames()) {
    return true;
  }
  // A frame that depends on others, or a sync frame after which pictures
  // may refer back across it, can follow only the record right before it.
  // For a codec that gives out each image as its record goes in, the last
  // record fed is the one of its last image.
  CmTimeStamp previousEnd;
  return m_LastFed && GetPreviousRecordEnd(previousEnd) && *m_LastFed == previousEnd;
}

bool CmRandomAccessVideoDecoder::IsHeldByCodec(const CmTimeStamp& time, SmTimeMatchType matchType,
                                               CmTimeStamp& heldTime) {
  if ((m_FeedState != RecordFinished && m_FeedState != Draining) || !m_FirstFed || !m_LastFed ||
      !m_View.IsValid() || m_View.GetImageCount() != 1) {
    return false;
  }
  const int newest = m_DoubleBuffered && !m_Current ? 1 : 0;
  // A codec that has given out the image of the last record fed holds
  // nothing back: the store need not be asked.
  if (IsSlotEmpty(newest) || m_Images[newest].GetAttributes().timeStamp >= *m_LastFed) {
    return false;
  }
  const bool syncOnly = m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly;
  CmGenericByteData record;
  if (!m_Store->GetByteData(time, matchType, syncOnly, record)) {
    return false;
  }
  const CmRawVideoByteDataAccess view(record, false);
  if (!view.IsValid() || view.GetImageCount() != 1) {
    return false;
  }
  heldTime = view.GetTime();
  return heldTime >= *m_FirstFed && heldTime <= *m_LastFed &&
         heldTime > m_Images[newest].GetAttributes().timeStamp;
}

bool CmRandomAccessVideoDecoder::GetImage(const CmTimeStamp& time, SmTimeMatchType matchType,
                                          CmImage& image) {
  m_Target.reset();
  const bool found = FindImage(time, matchType, image);
  if (found) {
    m_Target.reset();
  }
  return found;
}

bool CmRandomAccessVideoDecoder::GetUndecodableTime(CmTimeStamp& timeOut) const {
  if (!m_Target) {
    return false;
  }
  timeOut = *m_Target;
  return true;
}

bool CmRandomAccessVideoDecoder::FindImage(const CmTimeStamp& time, SmTimeMatchType matchType,
                                           CmImage& image) {
  if (m_Store == nullptr) {
    throw CmIntegrityError(
        NmError::MakeLocation("NmMediaProcessing::CmRandomAccessVideoDecoder::GetImage", __FILE__,
                              __LINE__),
        "No video data store specified", CmIntegrityErrorCode::InvalidPointer);
  }
  const bool doubleBuffered =
      m_Mode == SmVideoDecodeParameters::DecodeReduced && LooksBackward(matchType);
  if (m_DoubleBuffered && !doubleBuffered && !m_Current) {
    m_Images[0] = m_Images[1];
    m_Current = true;
  }
  m_DoubleBuffered = doubleBuffered;
  if (!doubleBuffered) {
    m_Images[1].Reset();
  }
  const bool syncOnly = m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly;

  bool continueDecoding = false;
  if (!IsRightRecord(time, matchType)) {
    CmTimeStamp held;
    if (IsHeldByCodec(time, matchType, held)) {
      m_Target = held;
      return DecodeLoop(held, time, matchType, image) == Found;
    }
    const bool steppingSingles =
        m_View.IsValid() && m_View.GetImageCount() == 1 && m_FeedState == RecordFinished;
    if (!GetByteData(time, matchType, syncOnly)) {
      return false;
    }
    if (steppingSingles) {
      // The image wanted may be the one decoded last, or the codec may go
      // straight on with the new record.
      const CmTimeStamp target = TargetTime(time, matchType);
      m_Target = target;
      const CheckResult check = CheckImages(target, false, time, matchType, image);
      if (check == Delivered) {
        m_LastDeliveredTime = image.GetAttributes().timeStamp;
        return true;
      }
      if (check == GoOn && IsContinuation()) {
        m_FeedState = NothingFed;
        continueDecoding = true;
      }
    }
    if (!continueDecoding) {
      ResetDecoder();
    }
  }

  const CmTimeStamp target = TargetTime(time, matchType);
  // From here on the picture is known, and a failure means that it cannot be
  // decoded, not that it is not there.
  m_Target = target;
  if (!continueDecoding) {
    if (m_FeedState != NothingFed) {
      const CheckResult check = CheckImages(target, false, time, matchType, image);
      if (check == Delivered) {
        m_LastDeliveredTime = image.GetAttributes().timeStamp;
        return true;
      }
      if (check == Passed) {
        ResetDecoder();
      } else {
        continueDecoding = true;
      }
    }
    if (!continueDecoding && !m_View.GetSync()) {
      if (!GetByteData(target, TimeMatchAtOrBefore, true)) {
        return false;
      }
    }
  }
  const LoopResult result = DecodeLoop(target, time, matchType, image);
  // Reduced decoding drops pictures on purpose; going back would not bring
  // them.
  if (result == MissedTarget && !continueDecoding && RefersAcrossSyncFrames() &&
      m_Mode == SmVideoDecodeParameters::DecodeAll) {
    return DecodeFromEarlierSyncFrames(target, time, matchType, image);
  }
  return result == Found;
}

bool CmRandomAccessVideoDecoder::RefersAcrossSyncFrames() const {
  return m_View.IsValid() && !IsIntraOnlyCodec(m_View.GetCodec()) &&
         m_Mode != SmVideoDecodeParameters::DecodeSyncFramesOnly;
}

bool CmRandomAccessVideoDecoder::DecodeFromEarlierSyncFrames(const CmTimeStamp& target,
                                                             const CmTimeStamp& time,
                                                             SmTimeMatchType matchType,
                                                             CmImage& image) {
  // The sync frame at or before the target is where the failed start was.
  CmGenericByteData record;
  if (!m_Store->GetByteData(target, TimeMatchAtOrBefore, true, record)) {
    return false;
  }
  CmTimeStamp start = CmRawVideoByteDataAccess(record, false).GetTime();
  for (int step = 0; step < EarlierSyncFrames; ++step) {
    if (!GetByteData(start, TimeMatchBefore, true)) {
      return false;
    }
    start = m_View.GetTime();
    ResetDecoder();
    m_Target = target;
    const LoopResult result = DecodeLoop(target, time, matchType, image);
    if (result != MissedTarget) {
      return result == Found;
    }
  }
  return false;
}

CmRandomAccessVideoDecoder::LoopResult
CmRandomAccessVideoDecoder::DecodeLoop(const CmTimeStamp& target, const CmTimeStamp& time,
                                       SmTimeMatchType matchType, CmImage& image) {
  const bool syncOnly = m_Mode == SmVideoDecodeParameters::DecodeSyncFramesOnly;
  const CmGenericByteData drainRecord;
  int budget = DecodeBudget;
  for (;;) {
    if (m_FeedState == RecordFinished) {
      if (HoldsExactly(target) && (m_View.GetImageCount() > 1 || syncOnly)) {
        m_FeedState = Draining;
      } else if (GetByteData(m_LastFed ? *m_LastFed : m_RecordLastTime, TimeMatchAfter, false)) {
        // A new sync frame starts a new group: what the target needs is all
        // fed already, and only the codec's held frames remain. Unless the
        // codec's pictures refer across it: then the held ones may be
        // pictures that need the group before, and it goes on feeding.
        m_FeedState = m_View.GetSync() && !RefersAcrossSyncFrames() ? Draining : Feeding;
      } else {
        m_FeedState = Draining;
      }
    }
    const bool draining = m_FeedState == Draining;
    CmImage& slot = NextSlot();
    bool callAgain = false;
    bool gotImage = false;
    if (!draining) {
      if (!m_FirstFed) {
        m_FirstFed = m_View.GetTime();
      }
      m_LastFed = m_RecordLastTime;
    }
    const bool decoded = Decode(draining ? drainRecord : m_Record, slot, callAgain, gotImage);
    if (!gotImage) {
      slot.GetAttributes().timeStamp = Sentinel;
    } else if (!draining && m_Record.IsRawJPEG()) {
      // A raw JPEG has no time of its own: every view of it reads the clock.
      // The image takes the reading under which the target was chosen, or the
      // two would never meet.
      slot.GetAttributes().timeStamp = m_View.GetTime();
    }
    bool drainEnded = false;
    if (!decoded) {
      if (draining || HoldsExactly(target)) {
        FailDecoding();
        return NotFound;
      }
      m_FeedState = RecordFinished;
      budget = DecodeBudget;
    } else if (callAgain) {
      if (!draining) {
        m_FeedState = Feeding;
      }
      budget = gotImage ? DecodeBudget : budget - 1;
    } else {
      if (draining) {
        drainEnded = true;
      } else {
        m_FeedState = RecordFinished;
      }
      budget = DecodeBudget;
    }

    const CheckResult check = CheckImages(target, m_Mode == SmVideoDecodeParameters::DecodeReduced,
                                          time, matchType, image);
    if (check == Delivered) {
      if (drainEnded) {
        ResetDecoder();
      }
      m_LastDeliveredTime = image.GetAttributes().timeStamp;
      return Found;
    }
    if (drainEnded) {
      // The codec is empty and the target has not come out of it. A sync
      // record that was fetched but not fed yet starts a fresh group: the
      // target may lie there. Otherwise the target never comes.
      const bool unfed =
          m_View.IsValid() && m_View.GetSync() && (!m_LastFed || m_View.GetTime() > *m_LastFed);
      ResetDecoder();
      if (!unfed) {
        // The stream ended without showing the target: from this start the
        // codec could not (its leading pictures, or a refresh that ends
        // beyond the last frame).
        return MissedTarget;
      }
      budget = DecodeBudget;
    }
    if (check == Passed) {
      return MissedTarget;
    }
    if (budget < 1) {
      ResetDecoder();
      throw CmIntegrityError(
          NmError::MakeLocation("NmMediaProcessing::CmRandomAccessVideoDecoder::GetImage", __FILE__,
                                __LINE__),
          "Decoding sanity limit reached", CmIntegrityErrorCode::InvalidPointer);
    }
  }
}

} // namespace NmMediaProcessing
