#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <vector>

#include "Codecs/H264/Deblocking.h"
#include "Codecs/H264/FilterFollower.h"
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
  // Follows the decoding of a picture whose slices come in raster order,
  // releasing rows to `release`; none for other pictures.
  static std::optional<CmFilterFollower> MakeFollower(const H264PictureTask& task,
                                                      std::function<void(uint32_t)> release);
  // Fills what no slice decoded, unless the follower counted it all.
  static void Conceal(H264PictureTask& task, const std::optional<CmFilterFollower>& follower);
  // Every slice on the caller's thread with the loop filter a row behind
  // (after concealment where no follower counts), then the borders that
  // motion vectors pointing outside the picture read.
  void DecodeAndFinish(H264PictureTask& task);

  std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& m_Decoders;
};

// One thread: the caller's decodes every slice in turn.
class TaskBrokerSingleThread : public TaskBroker {
public:
  using TaskBroker::TaskBroker;
  void DecodePicture(H264PictureTask& task) override;
};

// The form for two threads and more, for the pictures that cannot decode
// beside the next one (fields, frames of macroblock pairs, slice groups,
// low delay; see CmPictureWorkers for the others): the caller's thread
// decodes the slices while a worker runs the loop filter behind it, each
// row as soon as the row below it is decoded. Pictures whose slices don't
// follow each other in raster order (slice groups, arbitrary order) leave
// the filter to the end.
class TaskBrokerTwoThread : public TaskBroker {
public:
  explicit TaskBrokerTwoThread(
      std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& decoders);
  ~TaskBrokerTwoThread() override;
  void DecodePicture(H264PictureTask& task) override;
  // The worker takes no further rows and lets go of the picture.
  void Stop() override;

private:
  void FilterRows(const std::stop_token& stop);
  // Rows up to `rows` may be filtered now.
  void Release(uint32_t rows);
  static constexpr uint32_t RowsPerWake = 4;
  // Once every slice is decoded and concealment is done: the rows that the
  // worker has not begun are filtered on the caller's thread.
  void FilterTheRest(H264PictureTask& task, NmH264::CmRowDeblocker& deblocker);
  // Blocks until the worker has filtered every released row and holds no
  // reference to the task.
  void WaitForFilter();

  std::mutex m_Mutex;
  std::condition_variable_any m_Changed;
  // The filter of the picture whose rows the worker filters, null between
  // pictures. It keeps what it gathered of the rows filtered so far for the
  // next rows: whichever thread filters next takes it over under the mutex.
  NmH264::CmRowDeblocker* m_Deblocker = nullptr;
  uint32_t m_ReleasedRows = 0;
  uint32_t m_FilteredRows = 0;
  bool m_Filtering = false; // the worker is inside a row range
  bool m_Asleep = false;    // the worker waits for rows
  // Last, so that it starts when the rest exists and stops before it goes.
  std::jthread m_Worker;
};

} // namespace MCL
