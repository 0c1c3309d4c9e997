// Attaches arbitrary bytes through every record class, reads every field,
// walks multi packets, writes into a private copy, and feeds the read views,
// the time matching and the sequence analyser. The only exceptions allowed
// out of these are the time stamp's range error and the analyser's and the
// matcher's integrity errors; anything else, and any fault, is a finding.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MediaProcessing/GenericByteData/ByteDataSequenceAnalyzer.h"
#include "MediaProcessing/GenericByteData/ByteDataVideoAccess.h"
#include "MediaProcessing/GenericByteData/GenericAudioStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/GenericByteDataBlock.h"
#include "MediaProcessing/GenericByteData/GenericByteDataMultiPacket.h"
#include "MediaProcessing/GenericByteData/GenericVideoStreamDataPacket.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "Support/ByteReader.h"

using namespace NmMediaProcessing;
using NmTimeStamp::CmTimeStamp;

namespace {

// Keeps the optimiser from dropping reads whose results are unused.
volatile uint64_t g_Sink;

void Consume(uint64_t value) {
  g_Sink = g_Sink + value;
}

void Consume(const CmTimeStamp& time) {
  Consume(time.GetTicks());
}

template <typename F> void Guarded(F&& f) {
  NmFuzz::Tolerate<NmTimeStamp::CmTimeError, NmError::CmIntegrityError>(f);
}

void ReadBase(const CmGenericByteData& r) {
  Consume(static_cast<uint64_t>(r.GetType()));
  Consume(r.IsTypeValid() + r.IsRawJPEG() + r.IsBlock() + r.IsPacket() + r.IsMultiPacket() +
          r.IsEmpty());
  Consume(r.GetLength() + r.GetPayloadLength());
  const uint8_t* payload = r.GetPayload();
  if (payload != nullptr && r.GetPayloadLength() > 0) {
    // Touch both ends of the payload that the record claims.
    Consume(payload[0] + payload[r.GetPayloadLength() - 1]);
  }
}

// The image form that blocks and video packets both carry.
template <typename Record> void ReadForm(const Record& r) {
  ReadBase(r);
  bool interlaced = false;
  bool top = false;
  uint32_t layout = 0;
  uint32_t format = 0;
  Consume(r.GetInterlacing(interlaced, top, layout) + interlaced + top + layout);
  Consume(r.GetPictureFormat(format) + format);
}

void ReadBlock(const CmGenericByteDataBlock& b) {
  ReadForm(b);
  Consume(b.GetImageWidth() + b.GetImageHeight() + b.GetImageCount() + b.IsEndTimeExclusive());
  Guarded([&] {
    Consume(b.GetBeginTime());
    Consume(b.GetEndTime());
    Consume(b.AreTimesValid());
    const uint64_t count = b.GetImageCount();
    for (uint64_t i = 0; i <= count && i < 40; ++i) {
      CmTimeStamp time;
      if (b.GetTimeStampForImage(i, time)) {
        Consume(time);
        uint64_t index = 0;
        CmTimeStamp found;
        Consume(b.GetImageIndexForTime(time, index, found) + index);
        Consume(b.GetImageIndexForTime(time + NmTimeStamp::CmTimeSpan::FromMilliseconds(1), index,
                                       found) +
                index);
      }
    }
  });
}

void ReadVideo(const CmGenericVideoStreamDataPacket& p) {
  ReadForm(p);
  Consume(p.GetCodec() + p.GetSequenceNumber() + p.GetPreviousSequenceNumber() + p.GetSync());
  Guarded([&] {
    Consume(p.GetSyncTime());
    Consume(p.GetFrameTime());
  });
}

void ReadAudio(const CmGenericAudioStreamDataPacket& p) {
  ReadBase(p);
  Consume(p.GetCodec() + p.GetSequenceNumber() + p.GetPreviousSequenceNumber() +
          p.GetSampleCount() + p.GetChannelCount() + p.GetBitsPerSample() +
          p.GetSamplingFrequency() + p.GetCodecOption());
  Guarded([&] { Consume(p.GetTime()); });
}

void WalkMulti(const CmGenericByteDataMultiPacket& m) {
  ReadBase(m);
  const uint64_t count = m.GetPacketCount();
  for (int32_t type : {16, 32, 17, 1}) {
    for (uint64_t i = 0; i <= count && i < 16; ++i) {
      uint8_t* data = nullptr;
      uint64_t length = 0;
      if (m.FindPacket(type, i, data, length)) {
        ReadVideo(CmGenericVideoStreamDataPacket(data, length));
        ReadAudio(CmGenericAudioStreamDataPacket(data, length));
      }
    }
  }
}

// Setters on a private deep copy, with values taken from the input.
void WriteCopy(const CmGenericByteData& source, const uint8_t* data, size_t size) {
  const uint32_t value =
      size >= 4
          ? (data[size - 4] << 24 | data[size - 3] << 16 | data[size - 2] << 8 | data[size - 1])
          : 0;
  CmGenericVideoByteDataBlock block(source.GetData(), source.GetLength());
  CmGenericVideoByteDataBlock blockCopy(block);
  blockCopy.SetImageWidth(value & 0x1FFFF);
  blockCopy.SetImageCount(value >> 15);
  blockCopy.SetInterlacing(value & 1, value & 2, value & 7);
  blockCopy.SetPictureFormat(value & 31);
  blockCopy.SetEndTimeExclusive(value & 4);
  blockCopy.SetType(static_cast<int32_t>(value & 0xFFFF));
  blockCopy.SetBeginTime(CmTimeStamp::FromMilliseconds(value));
  ReadBlock(blockCopy);

  CmGenericVideoStreamDataPacket video(source.GetData(), source.GetLength());
  CmGenericVideoStreamDataPacket videoCopy(video);
  videoCopy.SetCodec(value & 0xFF);
  videoCopy.SetSync(value & 1);
  videoCopy.SetSequenceNumber(static_cast<uint16_t>(value));
  videoCopy.SetPictureFormat(value >> 28);
  videoCopy.SetFrameTime(CmTimeStamp::FromMilliseconds(value));
  ReadVideo(videoCopy);

  CmGenericAudioStreamDataPacket audio(source.GetData(), source.GetLength());
  CmGenericAudioStreamDataPacket audioCopy(audio);
  audioCopy.SetSampleCount(value);
  audioCopy.SetChannelCount(value & 0x1FF);
  audioCopy.SetSamplingFrequency(value >> 4);
  audioCopy.SetCodec(value & 0x1F);
  ReadAudio(audioCopy);

  std::vector<uint8_t> out(source.GetLength());
  if (!out.empty()) {
    Consume(source.CopyTo(out.data(), out.size()));
  }
  CmGenericByteDataBlock fresh(true);
  if (fresh.Allocate(source.GetLength() > 0 ? source.GetLength() : 1)) {
    Consume(fresh.CopyPayloadFrom(source.GetData(), fresh.GetPayloadLength() <= source.GetLength()
                                                        ? fresh.GetPayloadLength()
                                                        : 0));
  }
}

void MatchAndAnalyze(const CmGenericByteData& record, const uint8_t* data, size_t size) {
  for (bool lenient : {false, true}) {
    Guarded([&] {
      const CmRawVideoByteDataAccess view(record, lenient);
      Consume(view.IsValid() + view.GetCodec() + view.GetDataSize() + view.GetImageCount());
      if (!view.IsValid()) {
        return;
      }
      for (uint64_t i = 0; i < view.GetImageCount() && i < 8; ++i) {
        CmTimeStamp time;
        Guarded([&] { Consume(view.GetTimeStampForImage(i, time)); });
      }
      const int64_t base = view.GetTime().GetMilliseconds();
      const int64_t offsets[] = {-1, 0, 1, size > 0 ? data[0] * 37 : 5, 100000};
      for (int64_t offset : offsets) {
        for (uint32_t type = 0; type <= 6; ++type) {
          for (bool syncOnly : {false, true}) {
            Guarded([&] {
              CmTimeStamp matched;
              Consume(CmByteDataVideoAccess::IsByteDataMatched(
                  CmTimeStamp::FromMilliseconds(base + offset), static_cast<SmTimeMatchType>(type),
                  syncOnly, record, view, &matched));
              Consume(matched);
            });
          }
        }
      }
    });
  }
  CmByteDataSequenceSpecificAnalyzer analyzer;
  for (int round = 0; round < 3; ++round) {
    Guarded([&] {
      SmByteDataSequenceResult result;
      Consume(analyzer.Analyze(record, result) + result.m_Status + result.m_Sync);
    });
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Exactly sized, so that any read past the record is caught.
  std::vector<uint8_t> bytes(data, data + size);
  uint8_t* const buffer = bytes.empty() ? nullptr : bytes.data();

  const CmGenericByteData base(buffer, size);
  ReadBase(base);
  ReadBlock(CmGenericByteDataBlock(buffer, size));
  ReadBlock(CmGenericVideoByteDataBlock(buffer, size));
  ReadBase(CmGenericByteDataSinglePacket(buffer, size));
  ReadVideo(CmGenericVideoStreamDataPacket(buffer, size));
  ReadAudio(CmGenericAudioStreamDataPacket(buffer, size));
  WalkMulti(CmGenericByteDataMultiPacket(buffer, size));

  Guarded([&] { WriteCopy(base, data, size); });
  MatchAndAnalyze(base, data, size);
  return 0;
}
