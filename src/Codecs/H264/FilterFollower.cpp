#include "Codecs/H264/FilterFollower.h"

#include <utility>

#include "Codecs/H264/Picture.h"

namespace MCL {

CmFilterFollower::CmFilterFollower(uint32_t widthInMbs, uint32_t heightInMbs, bool mbaff,
                                   std::vector<uint32_t> sliceStarts,
                                   std::function<void(uint32_t)> release)
    : m_MbsPerRow(widthInMbs * (mbaff ? 2 : 1)), m_Count(widthInMbs * heightInMbs),
      m_SliceStarts(std::move(sliceStarts)), m_Release(std::move(release)) {}

namespace {

std::vector<uint32_t> SliceStartsOf(const H264PictureTask& task) {
  const uint32_t scale = task.picture->IsMbaff() ? 2 : 1;
  std::vector<uint32_t> starts;
  starts.reserve(task.slices->size());
  for (const H264Slice& slice : *task.slices) {
    starts.push_back(slice.header.firstMbInSlice * scale);
  }
  return starts;
}

} // namespace

CmFilterFollower::CmFilterFollower(const H264PictureTask& task,
                                   std::function<void(uint32_t)> release)
    : CmFilterFollower(task.picture->GetWidthInMbs(), task.picture->GetHeightInMbs(),
                       task.picture->IsMbaff(), SliceStartsOf(task), std::move(release)) {}

void CmFilterFollower::OnSliceStart(size_t index) {
  m_Pending.reset();
  m_Limit = index + 1 < m_SliceStarts.size() ? m_SliceStarts[index + 1] : m_Count;
}

void CmFilterFollower::OnMacroblockDone(uint32_t mbAddr) {
  Count();
  m_Pending = mbAddr;
}

void CmFilterFollower::OnSliceEnd(bool intact) {
  if (intact) {
    Count();
  }
  m_Pending.reset();
}

void CmFilterFollower::Count() {
  if (!m_Pending || *m_Pending != m_Decoded || m_Decoded >= m_Limit) {
    return;
  }
  ++m_Decoded;
  if (m_Decoded % m_MbsPerRow == 0 && m_Decoded / m_MbsPerRow >= 2) {
    m_Release(m_Decoded / m_MbsPerRow - 1);
  }
}

} // namespace MCL
