#pragma once

// The steps that the H.264 tests share: make a stream with x264, decode it
// with ffmpeg as the oracle, decode it with the engine (through the task
// supplier or through the decoder shell), and compare picture for picture.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Codecs/H264/FrameStore.h"
#include "Codecs/H264/H264VideoDecoder.h"
#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/TaskSupplier.h"
#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/VideoData.h"
#include "Codecs/MCL/VideoDecoderParams.h"
#include "Codecs/MCL/VideoProcessing.h"
#include "support/ExternalTools.h"
#include "support/PictureCollector.h"

#define REQUIRE_FFMPEG()                                                                           \
  if (!NmTestSupport::HaveProgram("ffmpeg")) {                                                     \
    GTEST_SKIP() << "ffmpeg is not installed";                                                     \
  }

namespace NmH264Test {

using Bytes = std::vector<uint8_t>;
using Frames = std::vector<Bytes>;

using NmTestSupport::FfmpegPictures;
using NmTestSupport::Split;

// A clip of ffmpeg's test pattern as x264 encodes it with `options`.
// Odd lines inverted in bands that move from picture to picture: x264
// codes field macroblock pairs there and frame pairs elsewhere, in luma and
// in chroma.
inline constexpr const char* Combing =
    "geq=lum='if(eq(mod(trunc(X/16)+trunc(Y/32)+N\\,3)\\,0)*mod(Y\\,2)\\,255-lum(X\\,Y)\\,lum(X\\,"
    "Y))'"
    ":cb='cb(X,Y)'"
    ":cr='if(lt(mod(X+N*8\\,32)\\,16)*mod(Y\\,2)\\,255-cr(X\\,Y)\\,cr(X\\,Y))'";

struct SmX264Clip {
  std::string size = "64x48";
  std::string pixelFormat = "yuv420p";
  std::string options;
  int frames = 10;
  std::string preset = "medium";
  std::string filter = "null";
};

struct SmEncoded {
  Bytes stream;
  Frames pictures; // ffmpeg's decode of the stream
};

inline SmEncoded EncodeWithX264(const SmX264Clip& clip) {
  NmTestSupport::CmTempDirectory directory;
  const std::string stream = directory / "clip.264";
  SmEncoded encoded;
  if (!NmTestSupport::Run("ffmpeg -y -v error -f lavfi -i testsrc2=size=" + clip.size +
                          ":rate=25 -frames:v " + std::to_string(clip.frames) + " -vf \"" +
                          clip.filter + "\" -pix_fmt " + clip.pixelFormat +
                          " -c:v libx264 -preset " + clip.preset + " -x264-params '" +
                          clip.options + "' -f h264 '" + stream + "'")) {
    ADD_FAILURE() << "x264 could not encode " << clip.options;
    return encoded;
  }
  encoded.stream = NmTestSupport::ReadBytes(stream);
  const std::string decoded = directory / "clip.yuv";
  NmTestSupport::Run("ffmpeg -y -v error -threads 1 -i '" + stream + "' -f rawvideo -pix_fmt " +
                     clip.pixelFormat + " '" + decoded + "'");
  const Bytes samples = NmTestSupport::ReadBytes(decoded);
  encoded.pictures = Split(samples, samples.size() / static_cast<size_t>(clip.frames));
  return encoded;
}

// The units of an Annex B stream, each with a three-byte start code in front.
inline Frames AnnexBUnits(const Bytes& stream) {
  Frames units;
  size_t position = 0;
  NmH264::SmNalUnit unit;
  while (NmH264::NextAnnexBUnit(stream.data(), stream.size(), position, true, unit)) {
    units.push_back({0, 0, 1});
    units.back().insert(units.back().end(), unit.data, unit.data + unit.size);
  }
  return units;
}

// An x264 stream with delimiters cut into access units, each a list of
// its units with their start codes; and the access units joined, one
// buffer each, as the toolkits feed records.
using AccessUnit = std::vector<Bytes>;
inline std::vector<AccessUnit> AccessUnits(const Bytes& stream) {
  std::vector<AccessUnit> accessUnits;
  for (Bytes& unit : AnnexBUnits(stream)) {
    if ((unit[3] & 0x1F) == 9 || accessUnits.empty()) {
      accessUnits.emplace_back();
    }
    accessUnits.back().push_back(std::move(unit));
  }
  return accessUnits;
}
inline Frames Joined(const std::vector<AccessUnit>& accessUnits) {
  Frames buffers;
  for (const AccessUnit& accessUnit : accessUnits) {
    buffers.emplace_back();
    for (const Bytes& unit : accessUnit) {
      buffers.back().insert(buffers.back().end(), unit.begin(), unit.end());
    }
  }
  return buffers;
}
inline bool IsSlice(const Bytes& unit) {
  const int type = unit[3] & 0x1F;
  return type == 1 || type == 5;
}

// Units as the stream writer keeps them (header byte and payload), behind
// start codes or four-byte lengths.
inline Frames Framed(const Frames& units, bool lengthPrefixed = false) {
  Frames framed;
  for (const Bytes& unit : units) {
    framed.push_back(lengthPrefixed ? Bytes{0, static_cast<uint8_t>(unit.size() >> 16),
                                            static_cast<uint8_t>(unit.size() >> 8),
                                            static_cast<uint8_t>(unit.size())}
                                    : Bytes{0, 0, 1});
    framed.back().insert(framed.back().end(), unit.begin(), unit.end());
  }
  return framed;
}

struct SmSupplied {
  Frames pictures;
  bool allAccepted = true; // every buffer taken without a status or anything unsupported
};

// A decoded frame's visible samples, the crop of its sequence applied: the
// planes one after the other, rows tight, as ffmpeg writes raw video.
inline std::vector<uint8_t> VisibleSamples(const MCL::H264DecoderFrame& frame,
                                           const NmH264::SmSequenceParameterSet& sps) {
  const NmH264::CmPicture& picture = frame.GetPicture();
  std::vector<uint8_t> out;
  for (int c = 0; c < (picture.IsMonochrome() ? 1 : 3); ++c) {
    const uint32_t shift = c == 0 ? 0 : 1;
    for (uint32_t y = sps.cropTop >> shift; y < (sps.GetHeight() - sps.cropBottom) >> shift; ++y) {
      const uint8_t* row = picture.GetPlane(c) + y * picture.GetStride(c);
      out.insert(out.end(), row + (sps.cropLeft >> shift),
                 row + ((sps.GetWidth() - sps.cropRight) >> shift));
    }
  }
  return out;
}

// Feeds the buffers one by one to the task supplier, taking every picture
// as soon as it may leave, and returns their visible samples in output order.
inline SmSupplied DecodeWithSupplier(const Frames& buffers,
                                     MCL::SmTaskSupplierSettings settings = {}) {
  MCL::TaskSupplier supplier(settings);
  SmSupplied out;
  const auto take = [&](bool force) {
    while (MCL::H264DecoderFrame* frame = supplier.GetFrameToDisplay(force)) {
      out.pictures.push_back(VisibleSamples(*frame, *supplier.GetActiveSequence()));
    }
  };
  for (const Bytes& buffer : buffers) {
    const int32_t status = supplier.AddSource(buffer.data(), buffer.size(), -1.0, -1);
    out.allAccepted = out.allAccepted && status == 0 && !supplier.TakeUnsupported();
    take(false);
  }
  supplier.Flush();
  take(true);
  return out;
}

// An Annex B stream a unit at a time through the task supplier.
inline SmSupplied DecodeStream(const Bytes& stream, int32_t threads = 1) {
  MCL::SmTaskSupplierSettings settings;
  settings.threadCount = threads;
  return DecodeWithSupplier(AnnexBUnits(stream), settings);
}

using NmTestSupport::CmPictureCollector;

// The decoder shell with a collector behind it, fed a buffer at a time.
class CmShell {
public:
  explicit CmShell(uint32_t flags = 0, int32_t threads = 1) {
    MCL::H264VideoDecoderParams params;
    params.flags = flags;
    params.numThreads = threads;
    EXPECT_EQ(decoder.Init(&params), MCL::StatusOk);
    decoder.SetPostProcessing(&collector);
  }
  // Calls until the buffer is used up or the decoder takes no more (at most
  // `calls` times); the status of the first call.
  MCL::Status Feed(const Bytes& buffer, int calls = 1000, double time = -1.0) {
    MCL::MediaData input;
    input.SetBufferPointer(buffer.data(), buffer.size());
    input.SetDataSize(buffer.size());
    input.SetTime(time);
    MCL::Status first = MCL::StatusOk;
    for (int call = 0; call < calls && input.GetDataSize() >= 4; ++call) {
      const MCL::Status status = decoder.GetFrame(&input, &output);
      first = call == 0 ? status : first;
    }
    left = input.GetDataSize();
    return first;
  }
  void Flush() {
    while (decoder.GetFrame(nullptr, &output) == MCL::StatusOk) {
    }
  }

  MCL::H264VideoDecoder decoder;
  CmPictureCollector collector;
  MCL::VideoData output;
  size_t left = 0; // what the last buffer had left untaken
};

// Every picture of the buffers through the decoder shell, then the flush.
inline CmPictureCollector CollectWithShell(const Frames& buffers, int32_t threads = 1) {
  CmShell shell(0, threads);
  for (const Bytes& buffer : buffers) {
    shell.Feed(buffer);
  }
  shell.Flush();
  return std::move(shell.collector);
}
inline Frames DecodeWithShell(const Frames& buffers, int32_t threads = 1) {
  return CollectWithShell(buffers, threads).pictures;
}

// Which of two pictures the 16x16 luma block at (x, y) of `ours` equals:
// `names` of the one, '=' of both (a still part), '?' of neither.
inline char SourceOf(const Bytes& ours, const Bytes& first, const Bytes& second, const char* names,
                     size_t width, size_t x, size_t y) {
  std::string from;
  for (const auto& [picture, name] : {std::pair{&first, names[0]}, {&second, names[1]}}) {
    bool same = true;
    for (size_t row = y; row < y + 16 && same; ++row) {
      const auto at = static_cast<std::ptrdiff_t>(row * width + x);
      same = std::equal(ours.begin() + at, ours.begin() + at + 16, picture->begin() + at);
    }
    from += same ? std::string(1, name) : "";
  }
  return from.empty() ? '?' : (from.size() == 2 ? '=' : from[0]);
}

// Equal pictures in equal number; a difference names the picture and the
// index of its first differing sample.
inline void ExpectSameFrames(const Frames& ours, const Frames& expected) {
  ASSERT_EQ(ours.size(), expected.size());
  for (size_t i = 0; i < ours.size(); ++i) {
    ASSERT_EQ(ours[i].size(), expected[i].size()) << "picture " << i;
    size_t same = 0;
    while (same < ours[i].size() && ours[i][same] == expected[i][same]) {
      ++same;
    }
    EXPECT_EQ(same, ours[i].size()) << "picture " << i;
  }
}

// Encodes testsrc2 with x264 for each case and expects every picture to
// equal ffmpeg's decode of the same stream, sample for sample, with one
// thread and with two; every fifth case, the largest pictures, and every
// case when `allThreadCounts`, with three and eight too.
inline void ExpectSameAsReference(const std::vector<SmX264Clip>& cases,
                                  bool allThreadCounts = false) {
  for (size_t index = 0; index < cases.size(); ++index) {
    const SmX264Clip& c = cases[index];
    SCOPED_TRACE(c.options + " " + c.pixelFormat + " " + c.size + " " + c.preset);
    const SmEncoded encoded = EncodeWithX264(c);
    ASSERT_EQ(encoded.pictures.size(), static_cast<size_t>(c.frames));
    std::vector<int32_t> threadCounts = {1, 2};
    if (allThreadCounts || index % 5 == 0 || c.size == "1280x720") {
      threadCounts.insert(threadCounts.end(), {3, 8});
    }
    for (const int32_t threads : threadCounts) {
      SCOPED_TRACE(std::to_string(threads) + " threads");
      const SmSupplied ours = DecodeStream(encoded.stream, threads);
      EXPECT_TRUE(ours.allAccepted);
      ExpectSameFrames(ours.pictures, encoded.pictures);
    }
  }
}

} // namespace NmH264Test
