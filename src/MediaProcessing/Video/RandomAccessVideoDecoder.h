#pragma once

#include <cstdint>
#include <optional>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/ByteDataVideoAccess.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/GenericVideoDecoder.h"
#include "MediaProcessing/Video/VideoDataAccess.h"

namespace NmMediaProcessing {

// Answers "the image at this time" from a store of encoded records, forwards
// and backwards. The codec keeps running between calls, together with the
// present record and how far it has been fed, so that a step to the next
// frame decodes one frame and not the whole group of pictures again.
class CmRandomAccessVideoDecoder : public CmGenericVideoDecoder {
public:
  CmRandomAccessVideoDecoder() = default;
  explicit CmRandomAccessVideoDecoder(CmVideoFactoryMaker makeFactory)
      : CmGenericVideoDecoder(std::move(makeFactory)) {}

  // The store is not owned and must outlive its use here.
  void SetDataAccess(ImVideoDataAccess* store);
  void ClearDataAccess() { m_Store = nullptr; }

  // False when the store holds nothing suitable or the picture chosen cannot
  // be decoded; the object stays usable.
  bool GetImage(const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType, CmImage& image);
  // After a GetImage that chose a picture but could not decode it, by failure
  // or by an error raised while decoding: true with that picture's time.
  // False after a success, and when no picture matched at all.
  bool GetUndecodableTime(NmTimeStamp::CmTimeStamp& timeOut) const;

  void Reset() override;
  void SetParameters(const SmVideoDecodeParameters& parameters) override;

private:
  enum FeedState : uint32_t { NothingFed = 0, Feeding = 1, RecordFinished = 2, Draining = 3 };
  enum CheckResult { GoOn = 0, Passed = 1, NothingYet = 2, Delivered = 3 };

  static void ValidateParameters(const SmVideoDecodeParameters& parameters);

  void ResetDecoder();
  void ClearRecord();
  void ForgetNeighbours();
  bool GetByteData(const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType,
                   bool syncFramesOnly);
  bool GetNextRecordBegin(NmTimeStamp::CmTimeStamp& beginOut);
  bool GetPreviousRecordEnd(NmTimeStamp::CmTimeStamp& endOut);
  bool IsRightRecord(const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType);
  bool HoldsExactly(const NmTimeStamp::CmTimeStamp& time) const;
  bool ImageIndexForTime(const NmTimeStamp::CmTimeStamp& time, uint64_t& indexOut,
                         NmTimeStamp::CmTimeStamp& timeOut) const;
  NmTimeStamp::CmTimeStamp TargetTime(const NmTimeStamp::CmTimeStamp& time,
                                      SmTimeMatchType matchType) const;
  bool IsSlotEmpty(int slot) const;
  void MarkSlotEmpty(int slot);
  CmImage& NextSlot();
  CheckResult CheckImages(const NmTimeStamp::CmTimeStamp& target, bool newestOnly,
                          const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType,
                          CmImage& image);
  // May the codec go on with the present record from what it was fed last?
  bool IsContinuation();
  // A codec that holds pictures back for reordering has taken in records
  // whose images it has not given out yet. True, with the image's time, when
  // the image wanted is one of those: decoding goes on from where the codec
  // stands, instead of from the group's start.
  bool IsHeldByCodec(const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType,
                     NmTimeStamp::CmTimeStamp& heldTime);
  // Codecs whose pictures may refer back across a sync frame: the leading
  // pictures of an open group, and the pictures of a recovery point that
  // refreshes the picture over several frames.
  bool RefersAcrossSyncFrames() const;
  bool FindImage(const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType, CmImage& image);
  // MissedTarget: the codec went past the target, or ran dry, without
  // showing it.
  enum LoopResult { Found, MissedTarget, NotFound };
  LoopResult DecodeLoop(const NmTimeStamp::CmTimeStamp& target,
                        const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType,
                        CmImage& image);
  // Decoding from the sync frame of the present record missed the target:
  // the codec could not show it from there. Starts over from the
  // sync frames before, which carry the references it needs.
  bool DecodeFromEarlierSyncFrames(const NmTimeStamp::CmTimeStamp& target,
                                   const NmTimeStamp::CmTimeStamp& time, SmTimeMatchType matchType,
                                   CmImage& image);
  void FailDecoding();

  CmGenericByteData m_Record;
  CmRawVideoByteDataAccess m_View;
  NmTimeStamp::CmTimeStamp m_RecordLastTime;
  CmImage m_Images[2];
  bool m_Current = true;
  bool m_DoubleBuffered = false;
  ImVideoDataAccess* m_Store = nullptr;
  uint32_t m_FeedState = NothingFed;
  uint32_t m_Mode = SmVideoDecodeParameters::DecodeAll;
  NmTimeStamp::CmTimeStamp m_NextRecordBegin = NmTimeStamp::CmTimeStamp::FromTicks(0);
  NmTimeStamp::CmTimeStamp m_PreviousRecordEnd = NmTimeStamp::CmTimeStamp::FromTicks(~0ULL);
  NmTimeStamp::CmTimeStamp m_LastDeliveredTime = NmTimeStamp::CmTimeStamp::FromTicks(~0ULL);
  // The begin of the first record and the end of the last record fed to the
  // codec since it was reset. The present record may lie behind the last fed
  // one when the codec gives out its images later than it takes in records.
  std::optional<NmTimeStamp::CmTimeStamp> m_FirstFed;
  std::optional<NmTimeStamp::CmTimeStamp> m_LastFed;
  // The picture the present GetImage is after, once chosen.
  std::optional<NmTimeStamp::CmTimeStamp> m_Target;
};

} // namespace NmMediaProcessing
