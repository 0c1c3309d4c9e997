#pragma once

// What the tests of streams written bit by bit share: textured I_PCM
// macroblocks, the frames they make, and the decode by the engine and by
// ffmpeg of a written stream.

#include <string>
#include <vector>

#include "H264/ReferenceDecoding.h"
#include "support/H264StreamWriter.h"

namespace NmH264Test {

using MB = NmTestSupport::SmWriterMacroblock;

// I_PCM content that differs from picture to picture and macroblock to
// macroblock, with enough texture that a wrong motion vector, reference or
// chroma shift shows.
inline MB Textured(int seed, uint32_t address, uint32_t widthInMbs = 4) {
  MB mb;
  mb.kind = MB::Pcm;
  const int x0 = static_cast<int>(address % widthInMbs) * 16,
            y0 = static_cast<int>(address / widthInMbs) * 16;
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      const int X = x0 + x, Y = y0 + y;
      mb.samples.push_back(static_cast<uint8_t>(seed * 53 + X * 5 + Y * 3 + ((X ^ Y) & 7) * 9));
    }
  }
  for (int c = 1; c < 3; ++c) {
    for (int y = 0; y < 8; ++y) {
      for (int x = 0; x < 8; ++x) {
        const int X = x0 / 2 + x, Y = y0 / 2 + y;
        mb.samples.push_back(static_cast<uint8_t>(seed * 29 * c + X * 7 * c + Y * 11 + (X & Y)));
      }
    }
  }
  return mb;
}

inline std::vector<MB> IntraPicture(int seed, uint32_t count, uint32_t widthInMbs = 4) {
  std::vector<MB> mbs;
  for (uint32_t a = 0; a < count; ++a) {
    mbs.push_back(Textured(seed, a, widthInMbs));
  }
  return mbs;
}

inline NmTestSupport::SmWriterSlice WithActive(NmTestSupport::SmWriterSlice slice, uint32_t l0,
                                               uint32_t l1 = 1) {
  slice.overrideRefIdx = true;
  slice.numRefIdxActive[0] = l0;
  slice.numRefIdxActive[1] = l1;
  return slice;
}

// The slice as an IDR picture's.
inline NmTestSupport::SmWriterSlice AsIdr(NmTestSupport::SmWriterSlice slice,
                                          uint32_t idrPicId = 0) {
  slice.idr = true;
  slice.idrPicId = idrPicId;
  return slice;
}

// The slice marking references by these memory management commands.
inline NmTestSupport::SmWriterSlice WithOps(NmTestSupport::SmWriterSlice slice,
                                            std::vector<NmTestSupport::SmWriterMmco> ops) {
  slice.adaptiveMarking = true;
  slice.mmcos = std::move(ops);
  return slice;
}

// Puts the I_PCM samples of each macroblock into a planar 4:2:0 frame of
// widthInMbs x heightInMbs macroblocks, every `rowStep`th row from `row0`:
// a frame picture with 1 and 0, a field with 2 and its parity.
inline void Place(Bytes& frame, const std::vector<MB>& mbs, uint32_t widthInMbs,
                  uint32_t heightInMbs, size_t rowStep = 1, size_t row0 = 0) {
  const size_t count = widthInMbs * heightInMbs;
  frame.resize(count * 384);
  for (size_t a = 0; a < mbs.size(); ++a) {
    const size_t x = a % widthInMbs, y = a / widthInMbs;
    for (size_t i = 0; i < 256; ++i) {
      frame[(rowStep * (y * 16 + i / 16) + row0) * widthInMbs * 16 + x * 16 + i % 16] =
          mbs[a].samples[i];
    }
    for (size_t c = 0; c < 2; ++c) {
      for (size_t i = 0; i < 64; ++i) {
        frame[count * (256 + c * 64) + (rowStep * (y * 8 + i / 8) + row0) * widthInMbs * 8 + x * 8 +
              i % 8] = mbs[a].samples[256 + 64 * c + i];
      }
    }
  }
}

inline SmSupplied DecodeWritten(const NmTestSupport::CmH264StreamWriter& writer,
                                MCL::SmTaskSupplierSettings settings = {}) {
  return DecodeWithSupplier(Framed(writer.Units(), settings.lengthPrefixed), settings);
}

inline Frames FfmpegOfWritten(const NmTestSupport::CmH264StreamWriter& writer, size_t frameSize,
                              const std::string& inputOptions = "") {
  NmTestSupport::CmTempDirectory directory;
  const std::string stream = directory / "written.264";
  if (!NmTestSupport::WriteBytes(stream, writer.AnnexB())) {
    return {};
  }
  return FfmpegPictures(stream, directory / "written.yuv", frameSize, "yuv420p", inputOptions);
}

// Our pictures, every unit accepted, `count` of them, each equal to ffmpeg's;
// returns ffmpeg's.
inline Frames ExpectWrittenSameAsFfmpeg(const NmTestSupport::CmH264StreamWriter& writer,
                                        size_t count, size_t frameSize,
                                        const std::string& inputOptions = "") {
  const SmSupplied ours = DecodeWritten(writer);
  EXPECT_TRUE(ours.allAccepted);
  EXPECT_EQ(ours.pictures.size(), count);
  Frames theirs = FfmpegOfWritten(writer, frameSize, inputOptions);
  ExpectSameFrames(ours.pictures, theirs);
  return theirs;
}

} // namespace NmH264Test
