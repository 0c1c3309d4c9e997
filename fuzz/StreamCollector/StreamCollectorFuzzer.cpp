// Feeds the stream collector lists of records made from the input: video
// packets (H.264 with parameter sets, JPEG, other codecs, arbitrary bytes),
// blocks, raw JPEG, audio, multi packets and raw byte runs, with times that
// run forwards, back and far ahead. Either one conversion of the whole list,
// or record by record as a recorder would, taking blocks out as they finish.
// Errors of the error model may leave (analysers refuse codecs that this
// build cannot size, times beyond a stamp); every block that comes out must
// be one that a decoder can read, and anything else is a finding.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/StreamCollector/VideoStreamConverter.h"
#include "Support/ByteReader.h"
#include "support/FlatJPEG.h"
#include "support/GenericByteDataBuilder.h"
#include "support/H264StreamWriter.h"

using namespace NmMediaProcessing;
using namespace NmTestSupport;

namespace {

// The input, read a byte at a time, with runs of bytes as they are.
class CmInput : public NmFuzz::CmByteReader {
public:
  using CmByteReader::CmByteReader;
  CmBytes Bytes(size_t count) {
    CmBytes bytes;
    while (count-- > 0 && !AtEnd()) {
      bytes.push_back(Byte());
    }
    return bytes;
  }
};

const CmBytes& ParameterSets() {
  static const CmBytes bytes = [] {
    CmH264StreamWriter writer;
    writer.WriteSps({});
    writer.WritePps({});
    return writer.AnnexB();
  }();
  return bytes;
}

const CmBytes& Jpeg() {
  static const CmBytes bytes = FlatJPEG(100);
  return bytes;
}

class CmRecordMaker {
public:
  explicit CmRecordMaker(CmInput& input) : m_Input(input) {}

  CmBytes Next() {
    switch (m_Input.Byte() % 7) {
    case 0:
    case 1:
      return VideoPacket();
    case 2:
      return Block();
    case 3:
      return m_Input.Byte() % 2 ? Jpeg() : BuildRawJPEG(6 + m_Input.Byte());
    case 4:
      return BuildAudioPacket({.sequenceNumber = m_Input.Word(), .time = Time()});
    case 5: {
      SmMultiPacketFields fields;
      const int count = 1 + m_Input.Byte() % 3;
      for (int i = 0; i < count; ++i) {
        fields.packets.push_back(m_Input.Byte() % 2 ? VideoPacket()
                                                    : BuildAudioPacket({.time = Time()}));
      }
      return BuildMultiPacket(fields);
    }
    default:
      return m_Input.Bytes(m_Input.Byte());
    }
  }

private:
  // Mostly forwards in small steps, sometimes back, sometimes days ahead.
  uint64_t Time() {
    const uint8_t step = m_Input.Byte();
    if (step == 0xFF) {
      m_Time += 1000ULL * 86400000ULL + m_Input.Word();
    } else if (step >= 0xF0) {
      m_Time -= std::min<uint64_t>(m_Time, m_Input.Byte());
    } else {
      m_Time += step;
    }
    return m_Time;
  }

  CmBytes Payload(uint32_t codec, bool sync) {
    switch (m_Input.Byte() % 4) {
    case 0:
      return sync && codec == 10 ? ParameterSets() : m_Input.Bytes(1 + m_Input.Byte() % 32);
    case 1:
      return codec == 1 ? Jpeg() : ParameterSets();
    default:
      return m_Input.Bytes(1 + m_Input.Byte() % 32);
    }
  }

  SmImageForm Form() {
    const uint8_t bits = m_Input.Byte();
    return {.interlaced = (bits & 1) != 0,
            .topFieldFirst = (bits & 2) != 0,
            .layout = static_cast<uint32_t>(bits >> 2 & 3),
            .flippedVertically = (bits & 16) != 0,
            .flippedHorizontally = (bits & 32) != 0,
            .rotatedQuarterTurn = (bits & 64) != 0};
  }

  CmBytes VideoPacket() {
    static constexpr uint16_t Codecs[] = {10, 10, 10, 1, 4, 7, 8, 0, 2, 11, 13};
    const uint16_t codec = Codecs[m_Input.Byte() % std::size(Codecs)];
    const uint8_t flags = m_Input.Byte();
    const bool sync = (flags & 1) != 0;
    const uint16_t sequence = (flags & 2) != 0 ? m_Input.Word() : m_Sequence++;
    const uint64_t frameTime = Time();
    if (sync || (flags & 4) != 0) {
      m_SyncTime = (flags & 8) != 0 ? frameTime - std::min<uint64_t>(frameTime, 3) : frameTime;
    }
    const SmImageForm form = (flags & 16) != 0 ? Form() : SmImageForm{};
    return BuildVideoPacket({.codec = codec,
                             .sequenceNumber = sequence,
                             .sync = sync,
                             .imageForm = form,
                             .syncTime = m_SyncTime,
                             .frameTime = frameTime,
                             .payload = Payload(codec, sync)});
  }

  CmBytes Block() {
    static constexpr uint16_t Types[] = {10, 1, 4, 8, 12, 15, 13, 3};
    const uint16_t type = Types[m_Input.Byte() % std::size(Types)];
    const uint64_t begin = Time();
    const uint16_t images = 1 + m_Input.Byte() % 4;
    const uint64_t end = images == 1 ? begin : begin + m_Input.Byte();
    return BuildBlock({.type = type,
                       .lastImageAtEndTime = (m_Input.Byte() & 1) != 0,
                       .beginTime = begin,
                       .endTime = end,
                       .width = m_Input.Word(),
                       .height = 48,
                       .imageCount = images,
                       .payload = Payload(type == 1 ? 1 : 10, true)});
  }

  CmInput& m_Input;
  uint64_t m_Time = 1700000000000ULL;
  uint64_t m_SyncTime = 1700000000000ULL;
  uint16_t m_Sequence = 0;
};

// What comes out must be a block that the decoders can read.
void CheckBlock(const CmGenericVideoByteDataBlock& block) {
  NmFuzz::Require(!block.IsEmpty() && block.AreTimesValid() && block.GetImageCount() != 0);
  const CmRawVideoByteDataAccess view(block, false);
  NmFuzz::Require(view.IsValid() && view.GetImageCount() == block.GetImageCount());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CmInput input(data, size);
  const uint8_t options = input.Byte();
  const bool endTimeIsLastFrame = (options & 1) != 0;
  const bool keyFramesOnly = (options & 2) != 0;
  const bool wholeList = (options & 4) != 0;
  CmRecordMaker maker(input);
  std::deque<CmBytes> records;
  while (!input.AtEnd() && records.size() < 64) {
    records.push_back(maker.Next());
  }
  if (wholeList) {
    std::vector<SmRecordBytes> list;
    for (const CmBytes& record : records) {
      list.emplace_back(record.data(), record.size());
    }
    NmFuzz::Tolerate<NmError::CmError>([&] {
      CmVideoStreamConverter converter;
      const auto block =
          converter.Convert(list, NmTimeStamp::CmTimeStamp::FromMilliseconds(1700000000000LL),
                            (options & 8) != 0, endTimeIsLastFrame, keyFramesOnly);
      if (block) {
        CheckBlock(*block);
        NmFuzz::Require(block->GetOwnsBuffer());
      }
    });
    return 0;
  }
  CmVideoStreamConverterImpl collector;
  collector.SetEndTimeIsLastFrame(endTimeIsLastFrame);
  collector.SetKeyFramesOnly(keyFramesOnly);
  for (CmBytes& record : records) {
    try {
      collector.HandleData(CmByteDataPointer<NmCountedPtr::CmUnserializedReferenceCount>(
          new CmGenericByteData(record.data(), record.size())));
    } catch (const NmError::CmError&) {
      // As the converter does: a collector that raised starts afresh.
      collector.Reset();
    }
    while (collector.GetBlockCount() != 0) {
      CheckBlock(*collector.RetrieveBlock());
    }
  }
  try {
    collector.FlushGOP();
  } catch (const NmError::CmError&) {
    collector.Reset();
  }
  while (collector.GetBlockCount() != 0) {
    CheckBlock(*collector.RetrieveBlock());
  }
  return 0;
}
