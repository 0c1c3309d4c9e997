#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "MediaProcessing/StreamCollector/VideoStreamConverter.h"
#include "vzk/Data.h"

namespace NmVzkTool {

// Gathers the video records of an import into one block record per group of
// pictures and hands each finished block to the writer. The records are not
// copied while they wait: the item that holds them lives until their block is
// written.
//
// A block spaces its pictures evenly between its first and last. A group
// whose pictures are not (a stream that starts with a gap, a camera that
// dropped frames) would play each picture at another's time; such a group
// is written as the frames it came as.
class CmBlockImport {
public:
  using CmWrite = std::function<void(const uint8_t* data, size_t size)>;
  explicit CmBlockImport(CmWrite write);

  // `time` (milliseconds since 1970) is the time of legacy JPEG, which has
  // none of its own.
  void Take(std::shared_ptr<const NmToolkit::ImData> owner, const uint8_t* data, size_t size,
            int64_t time);
  // Closes the last group and writes it.
  void Finish();

  uint64_t GetBlockCount() const { return m_Blocks; }
  // Frames of groups that no block could time, written as they came.
  uint64_t GetKeptFrameCount() const { return m_KeptFrames; }
  uint64_t GetRefusedCount() const;
  // Which blocks a broken stream or a block limit closed early, and what was
  // refused. True when records were refused.
  bool Report(std::ostream& out, std::ostream& err) const;

private:
  using CmRecordPointer =
      NmMediaProcessing::CmByteDataPointer<NmCountedPtr::CmUnserializedReferenceCount>;
  struct SmGatheredFrame {
    CmRecordPointer record;
    NmTimeStamp::CmTimeStamp time;
  };

  // `passThroughLast`: the newest block queued came whole from the input.
  void WriteFinishedBlocks(bool passThroughLast = false);
  // Writes the block made of the oldest gathered frames, or the frames
  // themselves when the block would misplace them.
  void WriteGatheredBlock(const NmMediaProcessing::CmGenericVideoByteDataBlock& block);

  CmWrite m_Write;
  NmMediaProcessing::CmVideoStreamConverterImpl m_Collector;
  // The frames of the groups not yet written, oldest first.
  std::deque<SmGatheredFrame> m_Gathered;
  uint64_t m_Blocks = 0;
  uint64_t m_KeptFrames = 0;
  uint64_t m_KeptGroups = 0;
  uint64_t m_AudioLeftOut = 0;
  std::map<std::string, uint64_t> m_Refused;
  std::vector<std::string> m_EarlyClosings;
};

} // namespace NmVzkTool
