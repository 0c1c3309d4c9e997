#include "Codecs/H264/PictureWorkers.h"

#include <utility>

#include "Codecs/H264/Concealment.h"
#include "Codecs/H264/Deblocking.h"
#include "Codecs/H264/FilterFollower.h"

namespace MCL {

using namespace NmH264;

CmPictureWorkers::CmPictureWorkers(
    std::vector<std::unique_ptr<H264SegmentDecoderMultiThreaded>>& decoders)
    : m_Decoders(decoders), m_Assigned(decoders.size(), nullptr), m_Records(decoders.size()) {
  for (size_t index = 0; index < decoders.size(); ++index) {
    m_Workers.emplace_back([this, index](const std::stop_token& stop) { Run(stop, index); });
  }
}

CmPictureWorkers::~CmPictureWorkers() {
  // A worker finishes the picture it holds: another may wait for its lines.
  for (std::jthread& worker : m_Workers) {
    worker.request_stop();
  }
  m_Workers.clear();
}

void CmPictureWorkers::Start(SmPictureJob& job) {
  job.task.picture->BeginDecoding();
  std::unique_lock lock(m_Mutex);
  for (;;) {
    for (SmPictureJob*& assigned : m_Assigned) {
      if (assigned == nullptr) {
        assigned = &job;
        lock.unlock();
        m_Changed.notify_all();
        return;
      }
    }
    m_Changed.wait(lock);
  }
}

void CmPictureWorkers::Wait(const SmPictureJob& job) {
  std::unique_lock lock(m_Mutex);
  m_Changed.wait(lock, [&job] { return job.done.load(std::memory_order_acquire); });
}

void CmPictureWorkers::Run(const std::stop_token& stop, size_t index) {
  std::unique_lock lock(m_Mutex);
  for (;;) {
    m_Changed.wait(lock, stop, [this, index] { return m_Assigned[index] != nullptr; });
    if (m_Assigned[index] == nullptr) {
      return; // stopped
    }
    SmPictureJob& job = *m_Assigned[index];
    lock.unlock();
    Decode(*m_Decoders[index], m_Records[index], job);
    lock.lock();
    m_Assigned[index] = nullptr;
    job.done.store(true, std::memory_order_release);
    m_Changed.notify_all();
  }
}

void CmPictureWorkers::Decode(H264SegmentDecoderMultiThreaded& decoder, CmDecodingRecords& records,
                              SmPictureJob& job) {
  H264PictureTask& task = job.task;
  CmPicture& picture = *task.picture;
  const auto height = static_cast<int32_t>(picture.GetHeightInMbs() * 16);
  uint32_t filtered = 0;
  int32_t final = 0;
  try {
    const CmDecodingRecords::CmLease lease = records.Lend(picture);
    // Motion is kept row by row as rows become final, so that a picture
    // decoding beside this one may take it as co-located before it is done.
    const uint32_t width = picture.GetWidthInMbs();
    const uint32_t count = width * picture.GetHeightInMbs();
    uint32_t stored = 0;
    if (job.keepsMotion) {
      picture.GetMotion().Begin(count, job.motionLayout);
    }
    const auto storeMotion = [&](uint32_t end) {
      if (job.keepsMotion && end > stored) {
        picture.GetMotion().StoreRange(picture.GetMacroblocks(), stored, end);
        stored = end;
      }
    };
    // The filter of a row changes the last lines of the row above it, so
    // lines are final one row behind the filter.
    CmRowDeblocker deblocker(picture, task.filters);
    const auto filterUpTo = [&](uint32_t rows) {
      if (rows <= filtered) {
        return;
      }
      storeMotion(rows * width);
      deblocker.FilterUpTo(rows);
      filtered = rows;
      const int32_t lines = static_cast<int32_t>(filtered - 1) * 16;
      if (lines > final) {
        picture.ExtendBordersOfLines(final, lines);
        final = lines;
        picture.PublishLines(final);
      }
    };
    CmFilterFollower follower(task, filterUpTo);
    decoder.DecodeSlices(task, 0, task.slices->size(), &follower);
    if (!follower.IsComplete()) {
      // Concealment copies from the references wherever their macroblocks
      // are, so it waits for them whole.
      for (const SmReferenceFrame& reference : job.references) {
        reference.picture->WaitUntilComplete();
      }
      task.concealed = ConcealMissingMacroblocks(picture, job.references);
    }
    storeMotion(count);
    deblocker.FilterUpTo(GetDeblockingRowCount(picture));
    picture.ExtendBordersOfLines(final, height);
  } catch (...) {
    job.error = std::current_exception();
  }
  // Whatever happened, nobody may wait for this picture for ever.
  picture.MarkComplete();
}

} // namespace MCL
