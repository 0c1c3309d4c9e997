#include "BlockImport.h"

#include "MediaProcessing/GenericByteData/GenericByteData.h"

using namespace NmMediaProcessing;

namespace NmVzkTool {

namespace {

using CmRecordPointer = CmByteDataPointer<NmCountedPtr::CmUnserializedReferenceCount>;

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
  if (!refusal.empty()) {
    ++m_Refused[refusal];
    if (m_Collector.GetBlockCount() > queued) {
      m_EarlyClosings.push_back("Block " + std::to_string(m_Blocks + m_Collector.GetBlockCount()) +
                                " was closed early: " + refusal + ".");
    }
  }
  WriteFinishedBlocks();
}

void CmBlockImport::Finish() {
  try {
    m_Collector.FlushGOP();
  } catch (const NmError::CmError& error) {
    // The frames of the last group could not make a block; they are lost.
    ++m_Refused[error.GetDescription()];
  }
  WriteFinishedBlocks();
}

void CmBlockImport::WriteFinishedBlocks() {
  while (m_Collector.GetBlockCount() != 0) {
    const auto block = m_Collector.RetrieveBlock();
    m_Write(block->GetData(), block->GetLength());
    ++m_Blocks;
  }
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
