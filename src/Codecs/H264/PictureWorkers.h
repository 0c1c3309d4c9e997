#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

#include "Codecs/H264/DecodingRecords.h"
#include "Codecs/H264/MotionRecord.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/ReferenceLists.h"
#include "Codecs/H264/SegmentDecoder.h"

namespace MCL {

class H264DecoderFrame;

// A picture that decodes on a worker while the caller goes on with the
// pictures after it. It owns everything the decoding reads, because the
// caller's slices, parameter sets and reference marks move on meanwhile.
struct SmPictureJob {
  H264PictureTask task;
  std::vector<H264Slice> slices;
  std::shared_ptr<const NmH264::SmSequenceParameterSet> sps;
  std::vector<std::shared_ptr<const NmH264::SmPictureParameterSet>> pictureParameterSets;
  std::vector<NmH264::SmReferenceFrame> references;
  // Whether later pictures may take it as co-located, and what of its
  // motion they read then.
  bool keepsMotion = false;
  NmH264::CmMotionRecord::SmLayout motionLayout = NmH264::CmMotionRecord::SmLayout::Corners;
  // The frame it decodes into and the frames whose pictures it reads: none
  // of them may be taken for another picture until the job is collected.
  H264DecoderFrame* frame = nullptr;
  std::vector<H264DecoderFrame*> readFrames;
  std::atomic<bool> done{false};
  std::exception_ptr error;
};

// Decodes several pictures at once, one on each worker: the way that scales
// with threads, since inside a picture parsing is serial. A picture
// predicts from the lines of its references that are final already and
// waits for the rest; each worker runs the loop filter one row behind its
// own decoding and makes the lines final as the filter leaves them.
class CmPictureWorkers {
public:
  explicit CmPictureWorkers(
      std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& decoders);
  ~CmPictureWorkers();
  CmPictureWorkers(const CmPictureWorkers&) = delete;
  CmPictureWorkers& operator=(const CmPictureWorkers&) = delete;

  size_t GetWorkerCount() const { return m_Assigned.size(); }
  // Hands the job to a free worker, waiting for one while all are busy.
  void Start(SmPictureJob& job);
  // Blocks until the job is done.
  void Wait(const SmPictureJob& job);

private:
  void Run(const std::stop_token& stop, size_t index);
  static void Decode(H264SegmentDecoderMultiThreaded& decoder, NmH264::CmDecodingRecords& records,
                     SmPictureJob& job);

  std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& m_Decoders;
  std::mutex m_Mutex;
  std::condition_variable_any m_Changed;
  std::vector<SmPictureJob*> m_Assigned; // each worker's job, null while free
  // Each worker's full macroblock records for the picture it decodes.
  std::vector<NmH264::CmDecodingRecords> m_Records;
  // Last, so that they start when the rest exists and stop before it goes.
  std::vector<std::jthread> m_Workers;
};

} // namespace MCL
