#pragma once

#include <cstdint>

#include "Common/Error/Error.h"
#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/StreamCollector/StreamCollectorError.h"

namespace NmMediaProcessing {

// How far a block may reach: its header counts images in 16 bits and payload
// bytes in 32.
class CmVideoBlockGOPLimits {
public:
  static constexpr const char* Name = "class NmMediaProcessing::CmVideoBlockGOPLimits";
  static constexpr uint64_t MaximumFrameCount = 65535;
  static constexpr uint64_t MaximumByteCount = 4294967295ULL;
  static constexpr int64_t MaximumTimeSpanDays = 1001;
};

// Counts what the present GOP holds and refuses a frame that would carry it
// beyond the limits; the refusal is kept as the last error.
template <typename Limits>
class CmVideoGOPLimiter : public NmError::CmLastError<CmVideoStreamCollectorError>, public Limits {
public:
  // The counts change only when the frame fits.
  bool UpdateAndCheckLimits(uint64_t frameBytes, const NmTimeStamp::CmTimeStamp& time);
  bool CheckBlockLimits(const CmGenericVideoByteDataBlock& block);

  uint64_t GetFrameCount() const { return m_FrameCount; }
  uint64_t GetByteCount() const { return m_ByteCount; }

protected:
  void ZeroCounts() {
    m_FrameCount = 0;
    m_ByteCount = 0;
  }

private:
  void Refuse(const char* operation, int line, const char* message, uint32_t code);

  uint64_t m_FrameCount = 0;
  uint64_t m_ByteCount = 0;
  NmTimeStamp::CmTimeStamp m_TimeLimit;
};

extern template class CmVideoGOPLimiter<CmVideoBlockGOPLimits>;

} // namespace NmMediaProcessing
