// Arbitrary bytes as a container's codec configuration followed by packets:
// the H.264 Annex B conversion, the AAC LOAS wrapping, the completion of JPEG
// Huffman tables, the H.263 picture header, the H.264 field reader and the
// record builder around them must never crash, and what they accept must be
// well framed.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "AACLoasWrapper.h"
#include "H264AnnexBConverter.h"
#include "H264FieldReader.h"
#include "JPEGTableCompleter.h"
#include "MediaRecordBuilder.h"
#include "PictureCodingType.h"

namespace {

struct SmPiece {
  const uint8_t* data;
  size_t size;
};

// The input as pieces, each behind a two-byte length that is cut to what is left.
std::vector<SmPiece> Pieces(const uint8_t* data, size_t size) {
  std::vector<SmPiece> pieces;
  size_t at = 0;
  while (at + 2 <= size) {
    size_t length = static_cast<size_t>(data[at] << 8 | data[at + 1]);
    at += 2;
    length = std::min(length, size - at);
    pieces.push_back({data + at, length});
    at += length;
  }
  return pieces;
}

void CheckAnnexB(const std::vector<uint8_t>& out) {
  if (out.size() < 5 || out[0] != 0 || out[1] != 0 || out[2] != 0 || out[3] != 1) {
    __builtin_trap();
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) {
    return 0;
  }
  const uint8_t mode = data[0];
  const std::vector<SmPiece> pieces = Pieces(data + 1, size - 1);
  if (pieces.empty()) {
    return 0;
  }
  std::vector<uint8_t> out;
  if (mode % 4 == 3) {
    for (const SmPiece& piece : pieces) {
      NmMedia::IsIntraH263Picture(piece.data, piece.size);
      NmMedia::IsIntraMPEG4Picture(piece.data, piece.size);
      // A completed frame is the frame with one segment more.
      if (NmMedia::CompleteJPEGHuffmanTables(piece.data, piece.size, out) &&
          out.size() != piece.size + 420) {
        __builtin_trap();
      }
    }
  } else if (mode % 3 == 0) {
    NmMedia::CmH264AnnexBConverter converter;
    converter.Configure(pieces[0].data, pieces[0].size);
    NmMedia::CmH264FieldReader fields;
    fields.Configure(pieces[0].data, pieces[0].size);
    for (size_t i = 1; i < pieces.size(); ++i) {
      fields.Read(pieces[i].data, pieces[i].size);
      bool idr = false;
      if (converter.Convert(pieces[i].data, pieces[i].size, (mode >> 2) & 1, out, idr)) {
        CheckAnnexB(out);
      }
    }
  } else if (mode % 3 == 1) {
    NmMedia::CmAACLoasWrapper wrapper;
    wrapper.Configure(pieces[0].data, pieces[0].size);
    for (size_t i = 1; i < pieces.size(); ++i) {
      if (wrapper.Wrap(pieces[i].data, pieces[i].size, out) &&
          !NmMedia::IsLoasFrame(out.data(), out.size())) {
        __builtin_trap();
      }
    }
  } else {
    NmMedia::SmMediaStreamFormat format;
    const bool audio = (mode >> 2) & 1;
    format.kind = audio ? NmMedia::SmMediaStreamFormat::Audio : NmMedia::SmMediaStreamFormat::Video;
    format.payload = static_cast<NmMedia::SmMediaStreamFormat::Payload>((mode >> 3) % 9);
    format.codec = audio ? 1 : 10;
    format.channels = 1 + (mode >> 6);
    format.samplingFrequency = 8000;
    format.bitsPerSample = 16;
    format.bitsPerCodedSample = (mode & 0x80) ? 8 : 0;
    NmMedia::CmMediaRecordBuilder builder(format);
    builder.Configure(pieces[0].data, pieces[0].size);
    for (size_t i = 1; i < pieces.size(); ++i) {
      NmMedia::SmRecordInfo info;
      // Times that step backwards, or leap across the whole range and wrap
      // around; the wrap is done unsigned so that the harness itself stays
      // defined and every overflow left is the builder's own.
      const uint64_t step = mode & 2 ? UINT64_MAX : static_cast<uint64_t>(INT64_MAX / 3);
      const int64_t time = static_cast<int64_t>(static_cast<uint64_t>(i) * step);
      builder.Build({pieces[i].data, pieces[i].size, (i & 1) != 0, time, 0}, out, info);
    }
  }
  return 0;
}
