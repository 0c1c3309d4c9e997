#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Codecs/H264/SegmentDecoder.h"

namespace MCL {

// Hands the work of a picture to the segment decoders: decoding,
// reconstruction and the loop filter of all its slices. When DecodePicture
// returns, the picture is complete, borders included.
class TaskBroker {
public:
  explicit TaskBroker(std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& decoders)
      : m_Decoders(decoders) {}
  virtual ~TaskBroker() = default;
  TaskBroker(const TaskBroker&) = delete;
  TaskBroker& operator=(const TaskBroker&) = delete;

  virtual void DecodePicture(H264PictureTask& task) = 0;
  // Called by the recovery reset: work in flight is abandoned.
  virtual void Stop() {}

protected:
  // The loop filter over the whole picture, once every slice is decoded, and
  // the borders that motion vectors pointing outside it read.
  static void FinishPicture(H264PictureTask& task);

  std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& m_Decoders;
};

// One thread: the caller's decodes every slice in turn.
class TaskBrokerSingleThread : public TaskBroker {
public:
  using TaskBroker::TaskBroker;
  void DecodePicture(H264PictureTask& task) override;
};

// The form for two threads and more. Its workers and their segment
// decoders exist, but the division of a picture's work among threads is
// still to come: for now the caller's thread does all of it, as with one.
class TaskBrokerTwoThread : public TaskBrokerSingleThread {
public:
  using TaskBrokerSingleThread::TaskBrokerSingleThread;
};

} // namespace MCL
