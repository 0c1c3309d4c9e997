// Arbitrary bytes as MPEG-4 Part 2 or H.263 records through the decoders
// that the toolkits use (the MCL adapter over the engines on libavcodec),
// with the repeat protocol, a decode mode, low delay, luminance only and a
// scale that the first byte chooses. Records are cut at picture start codes
// or into fixed pieces. Damage is expected; faults and hangs are findings.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Common/Error/Error.h"
#include "MediaProcessing/Video/H263/VideoDecoderH263.h"
#include "MediaProcessing/Video/MPEG4/VideoDecoderMPEG4.h"
#include "Support/VideoRecords.h"

namespace {

// Where a picture starts: a VOP start code for MPEG-4, the 22-bit picture
// start code for H.263.
bool StartsPicture(const uint8_t* at, size_t left, bool mpeg4) {
  if (left < 4 || at[0] != 0 || at[1] != 0) {
    return false;
  }
  return mpeg4 ? at[2] == 1 && at[3] == 0xB6 : (at[2] & 0xFC) == 0x80;
}

std::vector<std::pair<size_t, size_t>> Cut(const uint8_t* data, size_t size, bool mpeg4,
                                           bool atPictures, size_t piece) {
  std::vector<std::pair<size_t, size_t>> records;
  if (!atPictures) {
    for (size_t offset = 0; offset < size; offset += piece) {
      records.emplace_back(offset, size - offset < piece ? size - offset : piece);
    }
    return records;
  }
  size_t begin = 0;
  bool seenPicture = false;
  for (size_t i = 0; i < size; ++i) {
    if (!StartsPicture(data + i, size - i, mpeg4)) {
      continue;
    }
    // Headers in front of the first picture stay with it.
    if (seenPicture && i > begin) {
      records.emplace_back(begin, i - begin);
      begin = i;
    }
    seenPicture = true;
  }
  if (begin < size) {
    records.emplace_back(begin, size - begin);
  }
  return records;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace NmMediaProcessing;
  if (size < 2) {
    return 0;
  }
  const uint8_t choice = data[0];
  ++data;
  --size;
  const bool mpeg4 = (choice & 1) == 0;
  std::unique_ptr<ImVideoDecoder> decoder;
  std::unique_ptr<ImVideoAnalyzer> analyzer;
  if (mpeg4) {
    decoder = std::make_unique<CmVideoDecoderMPEG4>();
    analyzer = std::make_unique<CmVideoAnalyzerMPEG4>();
  } else {
    decoder = std::make_unique<CmVideoDecoderH263>();
    analyzer = std::make_unique<CmVideoAnalyzerH263>();
  }
  SmVideoDecodeParameters parameters = NmFuzz::DecodeParameters(choice);
  parameters.m_ThreadCount = (choice & 16) != 0 ? 2 : 1;
  decoder->SetParameters(parameters);

  const auto records = Cut(data, size, mpeg4, (choice & 32) != 0, 1 + (choice >> 6) * 97);
  CmImage image;
  const auto feed = [&](const uint8_t* record, size_t length, int32_t id) {
    NmFuzz::FeedRecord(*decoder, image, record, length, id);
  };
  int32_t id = 1;
  for (const auto& [offset, length] : records) {
    if (id == 1) {
      SmVideoSize videoSize;
      try {
        analyzer->Analyze(data + offset, length, videoSize);
      } catch (const NmError::CmError&) {
      }
    }
    feed(data + offset, length, id++);
  }
  feed(nullptr, 0, id);
  return 0;
}
