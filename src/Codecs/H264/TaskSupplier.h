#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Codecs/H264/Deblocking.h"
#include "Codecs/H264/DecodingRecords.h"
#include "Codecs/H264/FrameStore.h"
#include "Codecs/H264/Marking.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/PictureOrder.h"
#include "Codecs/H264/PictureWorkers.h"
#include "Codecs/H264/SliceDecoder.h"
#include "Codecs/H264/SliceHeader.h"
#include "Codecs/H264/TaskBroker.h"

namespace MCL {

// What the decoder shell sets up the supplier with.
struct SmTaskSupplierSettings {
  int32_t threadCount = 1;
  int32_t playbackMode = 1; // 1 at normal rate, 2 at any other
  int32_t skipMode = 0;     // 1 drops non-reference pictures, 2 keeps only intra pictures
  bool lowDelay = false;
  bool luminanceOnly = false;
  bool lengthPrefixed = false; // units follow 4-byte lengths instead of start codes
  bool wholeFramePerBuffer = false;
  double frameTime = 1.0 / 30.0;
};

// The parameter sets known to the decoder, each a complete copy by id.
class Headers {
public:
  // Shared with the pictures that decode on workers while newer copies
  // come in.
  std::array<std::shared_ptr<NmH264::SmSequenceParameterSet>, 32> sequence;
  std::array<std::shared_ptr<const NmH264::SmPictureParameterSet>, 256> picture;

  std::array<const NmH264::SmSequenceParameterSet*, 32> GetSequenceTable() const;
  std::array<const NmH264::SmPictureParameterSet*, 256> GetPictureTable() const;
  void Clear();
};

// Cuts the input into units, keeps parameter sets, gathers slices into
// pictures, decodes them, and keeps the frame store with its output order.
class TaskSupplier {
public:
  explicit TaskSupplier(const SmTaskSupplierSettings& settings);
  ~TaskSupplier();
  TaskSupplier(const TaskSupplier&) = delete;
  TaskSupplier& operator=(const TaskSupplier&) = delete;

  // Takes one buffer of units with its time in seconds (-1 for none) and
  // frame number. Returns a status: 0, or -882 for a stream that cannot go
  // on (no free frame twenty times running).
  //
  // With `consumed`, the intake stops before a picture that finds no free
  // frame while a frame waits to leave: `consumed` tells how far it came
  // (for Annex B input in pieces the rest waits inside), IsStalled is true,
  // and the caller lets a frame leave and comes back with the rest. Without
  // it, such a picture is dropped.
  int32_t AddSource(const uint8_t* data, size_t size, double time, int32_t frameId,
                    size_t* consumed = nullptr);
  // The end of the input: the picture in progress is completed. It may stall
  // as AddSource does; then the caller lets a frame leave and flushes again.
  void Flush();
  bool IsStalled() const { return m_Stalled; }
  // Whether slices came since the last call that use coding this decoder
  // does not decode yet (fields, more than 8 bits, 4:2:2, 4:4:4):
  // they were dropped.
  bool TakeUnsupported() { return std::exchange(m_Unsupported, false); }
  // The frame to show next, marked as output; null when none may leave yet
  // (with force, when none is left).
  H264DecoderFrame* GetFrameToDisplay(bool force);
  // After a failure: no frame, reference or pending picture survives, and
  // decoding starts again at the next key unit.
  void RecoveryReset();
  // Starting afresh, as after Init, but with the parameter sets kept: the
  // next picture decodes whatever it is.
  void Reset();

  const NmH264::SmSequenceParameterSet* GetActiveSequence() const { return m_Active.get(); }
  // The sequence in use, or before any picture the one read last.
  const NmH264::SmSequenceParameterSet* GetLatestSequence() const {
    return m_Active != nullptr ? m_Active.get() : m_Latest;
  }
  int32_t GetDpbSize() const { return m_DpbSize; }
  // Frames the store holds, in use or free to be taken again.
  size_t GetFrameCount() const { return m_Frames.GetSize(); }
  int32_t GetExtraFrames() const { return m_ExtraFrames; }
  int32_t GetDpbDelay() const { return m_DpbDelay; }
  bool IsWaitingForKeyUnit() const { return m_WaitingForKeyUnit; }

private:
  // The whole units in data; with atEnd the last one ends with the data.
  // Returns the status and sets `position` to where it stopped.
  int32_t TakeUnits(const uint8_t* data, size_t size, bool atEnd, double time, int32_t frameId,
                    size_t& position);
  void HandleUnit(const uint8_t* unit, size_t size, double time, int32_t frameId);
  // A buffer that holds a whole group of pictures gives one frame a call, so
  // that each frame carries the time its caller gives it: true before the
  // first slice of a frame that follows a frame taken in this call.
  bool StartsAnotherFrame(const uint8_t* unit, size_t size) const;
  void AddSlice(H264Slice&& slice, double time, int32_t frameId);
  // A slice object from the pool, or a new one.
  H264Slice TakeSlice();
  // The slices of the picture in progress go back to the pool.
  void ReleaseSlices();
  // Slices whose picture is done go back to the pool with their buffers, so
  // that later payloads need no allocation; a burst of many slices is not
  // kept for ever.
  void PoolSlices(std::vector<H264Slice>& slices);
  bool StartPicture(const NmH264::SmSliceHeader& header, const NmH264::SmSequenceParameterSet& sps,
                    double time, int32_t frameId);
  void InsertGapFrames(const NmH264::SmSliceHeader& header,
                       const NmH264::SmSequenceParameterSet& sps);
  void CompletePicture();
  // A first field that waited in vain for its partner leaves alone.
  void FinishLoneField();
  // A frame decoded whole in an interlaced sequence lends its fields to the
  // field pictures after it.
  void PrepareFields(NmH264::CmPicture& picture, const H264DecoderFrame& frame);
  void Activate(const NmH264::SmSequenceParameterSet& sps);
  // Whether the picture gathered now may decode on a worker while the
  // pictures after it come in: a frame of a sequence of frames, slices in
  // order, and nothing that changes the picture after its decoding.
  bool MayDecodeAside(const NmH264::SmSliceHeader& first) const;
  void StartAside(H264DecoderFrame& frame);
  // Takes in the pictures that their workers finished (all of them, waiting,
  // with `all`): their frames may be reused, and what they met is told.
  void CollectJobs(bool all);
  // The oldest free frame, after waiting for workers that keep frames busy.
  H264DecoderFrame* TakeFreeFrame(size_t limit);

  SmTaskSupplierSettings m_Settings;
  Headers m_Headers;
  std::shared_ptr<NmH264::SmSequenceParameterSet> m_Active; // the SPS of the current sequence
  const NmH264::SmSequenceParameterSet* m_Latest = nullptr; // the SPS read last
  H264DBPList m_Frames;
  // One segment decoder for each thread, and the broker that shares a
  // picture's work among them.
  std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>> m_SegmentDecoders;
  std::unique_ptr<TaskBroker> m_Broker;
  // The full macroblock records of the picture in decoding.
  NmH264::CmDecodingRecords m_Records;
  // Pictures decoding on workers, oldest first; before the workers, which
  // must stop before the jobs go.
  std::deque<std::unique_ptr<SmPictureJob>> m_Jobs;
  std::unique_ptr<CmPictureWorkers> m_Workers; // with two threads or more
  NmH264::CmPictureOrderCounter m_Order;
  NmH264::SmReferenceState m_References;
  std::vector<H264Slice> m_Slices; // of the picture in progress
  const std::vector<H264Slice> m_NoSlices;
  std::vector<H264Slice> m_SlicePool; // finished slices, kept for their buffers
  std::vector<uint8_t> m_Pending;     // the start of a unit whose end has not come
  H264DecoderFrame* m_CurrentFrame = nullptr;
  // The parity of the field in progress; -1 while a frame is.
  int32_t m_CurrentField = -1;
  // A decoded first field waiting for the field of the other parity, with
  // what the pairing compares.
  H264DecoderFrame* m_FirstField = nullptr;
  NmH264::SmSliceHeader m_FirstFieldHeader;
  int32_t m_DpbSize = 1;
  int32_t m_DpbDelay = 1;
  int32_t m_ExtraFrames = 2;
  bool m_LowDelayActive = false;
  // A recovery point message met for the picture to come: its frame count.
  std::optional<uint32_t> m_PendingRecoveryCount;
  // While decoding recovers from a start at a recovery point: the frame_num
  // of the first picture to show.
  std::optional<uint32_t> m_RecoveryFrameNum;
  // After such a start, the order count of the first picture shown, while
  // pictures that come before it in output order may still arrive.
  std::optional<int32_t> m_RecoveredOrder;
  // The order count of the picture shown last in this generation.
  std::optional<int32_t> m_ShownOrder;
  bool m_WaitingForKeyUnit = false;
  int32_t m_NoFrameCounter = 0;
  bool m_MayStall = false;   // the caller can let a frame leave and come back
  bool m_Stalled = false;    // the intake stopped for want of a free frame
  bool m_FrameTaken = false; // a slice went in during this call
  bool m_Split = false;      // the intake stopped before the next frame
  bool m_Unsupported = false;
  double m_LocalTime = 0.0;
  uint32_t m_LastFrameNum = 0;
  bool m_HaveLastFrameNum = false;
  uint32_t m_NextPictureId = 1;
  int32_t m_Top = 0, m_Bottom = 0;
};

} // namespace MCL
