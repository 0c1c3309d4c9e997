#include "BlockImport.h"

#include <cmath>
#include <cstdlib>

#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"

using namespace NmMediaProcessing;

namespace NmVzkTool {

namespace {

// A record viewed in place, which keeps the item that holds its bytes.
class CmItemRecord : public CmGenericByteData {
public:
  CmItemRecord(std::shared_ptr<const NmToolkit::ImData> owner, const uint8_t* data, size_t size)
      : CmGenericByteData(const_cast<uint8_t*>(data), size), m_Owner(std::move(owner)) {}

private:
  std::shared_ptr<const NmToolkit::ImData> m_Owner;
};

constexpr size_t ReportedLines = 10;

} // namespace

CmBlockImport::CmBlockImport(CmWrite write) : m_Write(std::move(write)) {
  // Each block ends at its last picture, so that the pictures of a steady
  // stream keep their own times inside the block.
  m_Collector.SetEndTimeIsLastFrame(true);
}

void CmBlockImport::Take(std::shared_ptr<const NmToolkit::ImData> owner, const uint8_t* data,
                         size_t size, int64_t time) {
  const CmRecordPointer record(new CmItemRecord(std::move(owner), data, size));
  if (record->GetType() == SmByteDataType::AudioStreamDataPacket) {
    ++m_AudioLeftOut;
    return;
  }
  const uint64_t queued = m_Collector.GetBlockCount();
  const bool whole = record->IsBlock();
  std::string refusal;
  try {
    m_Collector.SetExplicitTime(NmTimeStamp::CmTimeStamp::FromMilliseconds(time));
    if (!m_Collector.HandleData(record)) {
      const auto* error = m_Collector.GetLastError();
      refusal = error ? error->GetDescription() : "refused";
    }
  } catch (const NmError::CmError& error) {
    refusal = error.GetDescription();
  }
  if (refusal.empty() && !whole) {
    // Taken into the open group, behind the frames of the blocks just made.
    m_Gathered.push_back({record, CmRawVideoByteDataAccess(*record, true).GetTime()});
  }
  if (!refusal.empty()) {
    ++m_Refused[refusal];
    if (m_Collector.GetBlockCount() > queued) {
      m_EarlyClosings.push_back("Block " + std::to_string(m_Blocks + m_Collector.GetBlockCount()) +
                                " was closed early: " + refusal + ".");
    }
  }
  WriteFinishedBlocks(refusal.empty() && whole);
}

void CmBlockImport::Finish() {
  try {
    m_Collector.FlushGOP();
  } catch (const NmError::CmError& error) {
    // The frames of the last group could not make a block; they are lost.
    ++m_Refused[error.GetDescription()];
    m_Gathered.clear();
  }
  WriteFinishedBlocks();
}

void CmBlockImport::WriteFinishedBlocks(bool passThroughLast) {
  while (m_Collector.GetBlockCount() != 0) {
    const auto block = m_Collector.RetrieveBlock();
    if (passThroughLast && m_Collector.GetBlockCount() == 0) {
      m_Write(block->GetData(), block->GetLength());
      ++m_Blocks;
    } else {
      WriteGatheredBlock(*block);
    }
  }
}

void CmBlockImport::WriteGatheredBlock(const CmGenericVideoByteDataBlock& block) {
  const size_t count = std::min<size_t>(block.GetImageCount(), m_Gathered.size());
  // Each picture must stay nearer its own time than half the block's step
  // from one picture to the next: beyond that it would stand in another's
  // place. Closer than that, the block only rounds.
  NmTimeStamp::CmTimeStamp first, last;
  bool placed = count == block.GetImageCount() && block.GetTimeStampForImage(0, first) &&
                block.GetTimeStampForImage(count - 1, last);
  const double step = count > 1
                          ? static_cast<double>(last.GetMilliseconds() - first.GetMilliseconds()) /
                                static_cast<double>(count - 1)
                          : 0.0;
  for (size_t i = 0; placed && i < count; ++i) {
    NmTimeStamp::CmTimeStamp shown;
    placed = block.GetTimeStampForImage(i, shown) &&
             2.0 * std::fabs(static_cast<double>(shown.GetMilliseconds() -
                                                 m_Gathered[i].time.GetMilliseconds())) <
                 std::max(step, 1.0);
  }
  if (placed) {
    m_Write(block.GetData(), block.GetLength());
    ++m_Blocks;
  } else {
    for (size_t i = 0; i < count; ++i) {
      const CmGenericByteData& frame = *m_Gathered[i].record;
      m_Write(frame.GetData(), frame.GetLength());
    }
    m_KeptFrames += count;
    ++m_KeptGroups;
  }
  m_Gathered.erase(m_Gathered.begin(), m_Gathered.begin() + static_cast<std::ptrdiff_t>(count));
}

uint64_t CmBlockImport::GetRefusedCount() const {
  uint64_t count = 0;
  for (const auto& [reason, n] : m_Refused) {
    count += n;
  }
  return count;
}

bool CmBlockImport::Report(std::ostream& out, std::ostream& err) const {
  for (size_t i = 0; i < m_EarlyClosings.size() && i < ReportedLines; ++i) {
    out << m_EarlyClosings[i] << "\n";
  }
  if (m_EarlyClosings.size() > ReportedLines) {
    out << (m_EarlyClosings.size() - ReportedLines) << " more blocks were closed early.\n";
  }
  if (m_KeptGroups != 0) {
    out << m_KeptGroups << " group" << (m_KeptGroups == 1 ? "" : "s") << " of pictures ("
        << m_KeptFrames << " frame" << (m_KeptFrames == 1 ? "" : "s") << ") kept "
        << (m_KeptGroups == 1 ? "its" : "their")
        << " frames: a block, which spaces its pictures evenly, would have shown them away "
           "from their times.\n";
  }
  if (m_AudioLeftOut != 0) {
    out << m_AudioLeftOut << " audio record" << (m_AudioLeftOut == 1 ? " was" : "s were")
        << " left out: blocks hold video only.\n";
  }
  for (const auto& [reason, n] : m_Refused) {
    err << "vzk: " << n << " record" << (n == 1 ? " was" : "s were")
        << " left out of the blocks: " << reason << ".\n";
  }
  return !m_Refused.empty();
}

} // namespace NmVzkTool
