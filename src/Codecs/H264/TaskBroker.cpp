#include "Codecs/H264/TaskBroker.h"

#include <utility>
#include <vector>

#include "Codecs/H264/Concealment.h"
#include "Codecs/H264/Deblocking.h"
#include "Codecs/H264/FilterFollower.h"

namespace MCL {

std::optional<CmFilterFollower> TaskBroker::MakeFollower(const H264PictureTask& task,
                                                         std::function<void(uint32_t)> release) {
  // The follower's count stands for the picture only where macroblocks
  // follow each other in decoding order from one slice to the next.
  if (!task.sliceGroups.empty() || !SlicesFollowEachOther(*task.slices)) {
    return std::nullopt;
  }
  return std::optional<CmFilterFollower>(std::in_place, task, std::move(release));
}

void TaskBroker::Conceal(H264PictureTask& task, const std::optional<CmFilterFollower>& follower) {
  if (!follower || !follower->IsComplete()) {
    task.concealed = NmH264::ConcealMissingMacroblocks(*task.picture, *task.references);
  }
}

void TaskBroker::DecodeAndFinish(H264PictureTask& task) {
  // Each row is filtered as soon as the row below it is decoded, as the
  // worker of two threads does, while its samples and macroblock records
  // are still in the caches: after the whole picture they have left them,
  // and the filter would wait on memory at every macroblock. Without a
  // follower the whole picture is filtered after concealment.
  NmH264::CmRowDeblocker deblocker(*task.picture, task.filters);
  std::optional<CmFilterFollower> follower =
      MakeFollower(task, [&deblocker](uint32_t rows) { deblocker.FilterUpTo(rows); });
  m_Decoders.front()->DecodeSlices(task, 0, task.slices->size(), follower ? &*follower : nullptr);
  Conceal(task, follower);
  deblocker.FilterUpTo(NmH264::GetDeblockingRowCount(*task.picture));
  task.picture->ExtendBorders();
}

void TaskBrokerSingleThread::DecodePicture(H264PictureTask& task) {
  DecodeAndFinish(task);
}

TaskBrokerTwoThread::TaskBrokerTwoThread(
    std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& decoders)
    : TaskBroker(decoders), m_Worker([this](const std::stop_token& stop) { FilterRows(stop); }) {}

TaskBrokerTwoThread::~TaskBrokerTwoThread() {
  m_Worker.request_stop();
  m_Worker.join();
}

void TaskBrokerTwoThread::FilterRows(const std::stop_token& stop) {
  std::unique_lock lock(m_Mutex);
  for (;;) {
    m_Asleep = true;
    m_Changed.wait(lock, stop,
                   [this] { return m_Deblocker != nullptr && m_FilteredRows < m_ReleasedRows; });
    m_Asleep = false;
    if (stop.stop_requested()) {
      return;
    }
    NmH264::CmRowDeblocker& deblocker = *m_Deblocker;
    const uint32_t end = m_ReleasedRows;
    m_Filtering = true;
    lock.unlock();
    deblocker.FilterUpTo(end);
    lock.lock();
    m_Filtering = false;
    m_FilteredRows = end;
    m_Changed.notify_all();
  }
}

void TaskBrokerTwoThread::Release(uint32_t rows) {
  bool wake = false;
  {
    const std::lock_guard lock(m_Mutex);
    m_ReleasedRows = rows;
    // Each wake is a trip through the scheduler, and on a busy machine a
    // long one: a sleeping worker is woken for a few rows at once.
    wake = m_Asleep && rows >= m_FilteredRows + RowsPerWake;
  }
  if (wake) {
    m_Changed.notify_all();
  }
}

void TaskBrokerTwoThread::WaitForFilter() {
  std::unique_lock lock(m_Mutex);
  m_Changed.wait(lock, [this] { return !m_Filtering && m_FilteredRows >= m_ReleasedRows; });
  m_Deblocker = nullptr;
}

void TaskBrokerTwoThread::FilterTheRest(H264PictureTask& task, NmH264::CmRowDeblocker& deblocker) {
  const uint32_t rows = NmH264::GetDeblockingRowCount(*task.picture);
  {
    std::unique_lock lock(m_Mutex);
    m_Changed.wait(lock, [this] { return !m_Filtering; });
    // The rows left are the caller's: waking the worker for them and
    // waiting for it would cost two trips through the scheduler a picture,
    // which on a busy machine take longer than the rows.
    m_ReleasedRows = m_FilteredRows = rows;
    m_Deblocker = nullptr;
  }
  deblocker.FilterUpTo(rows);
}

void TaskBrokerTwoThread::Stop() {
  {
    const std::lock_guard lock(m_Mutex);
    m_ReleasedRows = m_FilteredRows;
  }
  WaitForFilter();
}

void TaskBrokerTwoThread::DecodePicture(H264PictureTask& task) {
  std::optional<CmFilterFollower> follower =
      MakeFollower(task, [this](uint32_t rows) { Release(rows); });
  if (!follower) {
    DecodeAndFinish(task);
    return;
  }
  // Outlives the guard below, which takes it from the worker.
  NmH264::CmRowDeblocker deblocker(*task.picture, task.filters);
  {
    const std::lock_guard lock(m_Mutex);
    m_Deblocker = &deblocker;
    m_ReleasedRows = m_FilteredRows = 0;
  }
  // Whatever leaves early, an exception included, must not leave the worker
  // inside the task.
  struct SmGuard {
    TaskBrokerTwoThread& broker;
    ~SmGuard() { broker.Stop(); }
  } guard{*this};
  m_Decoders.front()->DecodeSlices(task, 0, task.slices->size(), &*follower);
  // Concealment fills only macroblocks that were never released, in rows
  // below those the worker may be filtering now.
  Conceal(task, follower);
  FilterTheRest(task, deblocker);
  task.picture->ExtendBorders();
}

} // namespace MCL
