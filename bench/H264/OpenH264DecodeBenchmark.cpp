// Our H.264 decoder beside OpenH264's, one thread each, in the same run, on
// the 1080p streams of the H.264 decode benchmark: the same access units from
// memory, every picture produced. OpenH264 is made for Baseline; before a
// stream is timed, its first pictures from OpenH264 are compared with
// libavcodec's, and a stream that it does not decode to the bit is skipped
// with the reason. OpenH264 2.3 gets B pictures wrong, so one more stream,
// High with CABAC but without B pictures, gives it a High stream that it
// decodes. The run ends with the ratios, OpenH264 time / our time.

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <benchmark/benchmark.h>
#include <wels/codec_api.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BenchmarkRatios.h"
#include "H264/H264BenchmarkStreams.h"

namespace {

using NmH264Bench::CmPackets;

// How many pictures from the start must equal libavcodec's before OpenH264's
// time counts.
constexpr size_t ComparedPictures = 30;

// One picture as its three planes, tightly packed.
struct SmPicture {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> planes;
};

void AppendPlane(std::vector<uint8_t>& out, const uint8_t* data, int stride, int width,
                 int height) {
  for (int y = 0; y < height; ++y) {
    out.insert(out.end(), data + static_cast<ptrdiff_t>(y) * stride,
               data + static_cast<ptrdiff_t>(y) * stride + width);
  }
}

struct SmDecoderDeleter {
  void operator()(ISVCDecoder* decoder) const {
    decoder->Uninitialize();
    WelsDestroyDecoder(decoder);
  }
};
using CmOpenH264 = std::unique_ptr<ISVCDecoder, SmDecoderDeleter>;

CmOpenH264 MakeOpenH264() {
  ISVCDecoder* raw = nullptr;
  if (WelsCreateDecoder(&raw) != 0 || raw == nullptr) {
    return nullptr;
  }
  int quiet = WELS_LOG_QUIET;
  raw->SetOption(DECODER_OPTION_TRACE_LEVEL, &quiet);
  SDecodingParam parameters;
  std::memset(&parameters, 0, sizeof(parameters));
  parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
  // Concealment would hide a picture it cannot decode.
  parameters.eEcActiveIdc = ERROR_CON_DISABLE;
  if (raw->Initialize(&parameters) != 0) {
    WelsDestroyDecoder(raw);
    return nullptr;
  }
  return CmOpenH264(raw);
}

// Decodes the packets with OpenH264 and calls `take` with each picture
// (null `take` only counts them); gives the number of pictures, or -1 when a
// packet was refused.
int DecodeWithOpenH264(const CmPackets& packets,
                       const std::function<bool(const uint8_t* const*, const SBufferInfo&)>& take) {
  const CmOpenH264 decoder = MakeOpenH264();
  if (!decoder) {
    return -1;
  }
  int pictures = 0;
  bool more = true;
  const auto taken = [&](uint8_t* const* planes, const SBufferInfo& info) {
    if (info.iBufferStatus != 1) {
      return;
    }
    ++pictures;
    if (take && !take(planes, info)) {
      more = false;
    }
  };
  for (const auto& packet : packets) {
    uint8_t* planes[3] = {};
    SBufferInfo info;
    std::memset(&info, 0, sizeof(info));
    if (decoder->DecodeFrameNoDelay(packet.data(), static_cast<int>(packet.size()), planes,
                                    &info) != dsErrorFree) {
      return -1;
    }
    taken(planes, info);
    if (!more) {
      return pictures;
    }
  }
  // Pictures held back for display order.
  int end = 1;
  decoder->SetOption(DECODER_OPTION_END_OF_STREAM, &end);
  for (;;) {
    uint8_t* planes[3] = {};
    SBufferInfo info;
    std::memset(&info, 0, sizeof(info));
    decoder->FlushFrame(planes, &info);
    if (info.iBufferStatus != 1) {
      break;
    }
    taken(planes, info);
  }
  return pictures;
}

// libavcodec's first `count` pictures, in display order, one thread.
std::vector<SmPicture> LibavcodecPictures(const CmPackets& packets, size_t count) {
  std::vector<SmPicture> pictures;
  NmH264Bench::DecodeWithLibavcodec(packets, 1, [&](const AVFrame& frame) {
    SmPicture picture{frame.width, frame.height, {}};
    AppendPlane(picture.planes, frame.data[0], frame.linesize[0], frame.width, frame.height);
    for (int c = 1; c < 3; ++c) {
      AppendPlane(picture.planes, frame.data[c], frame.linesize[c], frame.width / 2,
                  frame.height / 2);
    }
    pictures.push_back(std::move(picture));
    return pictures.size() < count;
  });
  return pictures;
}

// Empty when OpenH264's first pictures equal libavcodec's; else why not.
std::string OpenH264Refusal(const CmPackets& packets) {
  if (packets.empty()) {
    return "the stream could not be made";
  }
  const std::vector<SmPicture> reference = LibavcodecPictures(packets, ComparedPictures);
  size_t index = 0;
  std::string refusal;
  const int decoded =
      DecodeWithOpenH264(packets, [&](const uint8_t* const* planes, const SBufferInfo& info) {
        const SSysMEMBuffer& buffer = info.UsrData.sSystemBuffer;
        SmPicture picture{buffer.iWidth, buffer.iHeight, {}};
        AppendPlane(picture.planes, planes[0], buffer.iStride[0], buffer.iWidth, buffer.iHeight);
        for (int c = 1; c < 3; ++c) {
          AppendPlane(picture.planes, planes[c], buffer.iStride[1], buffer.iWidth / 2,
                      buffer.iHeight / 2);
        }
        if (index < reference.size() &&
            (picture.width != reference[index].width || picture.height != reference[index].height ||
             picture.planes != reference[index].planes)) {
          // Another order, or other pictures?
          size_t same = 0;
          while (same < reference.size() && reference[same].planes != picture.planes) {
            ++same;
          }
          refusal = "OpenH264's picture " + std::to_string(index) + " differs from libavcodec's" +
                    (same < reference.size()
                         ? " (it is libavcodec's picture " + std::to_string(same) + ")"
                         : " and from each of its first " + std::to_string(reference.size()));
          return false;
        }
        return ++index < reference.size();
      });
  if (!refusal.empty()) {
    return refusal;
  }
  if (decoded < 0) {
    return "OpenH264 refused the stream after " + std::to_string(index) + " pictures";
  }
  if (index < reference.size()) {
    return "OpenH264 gave " + std::to_string(index) + " of libavcodec's first " +
           std::to_string(reference.size()) + " pictures";
  }
  return {};
}

// The shared streams, and this benchmark's own High stream without B
// pictures.
constexpr NmH264Bench::SmStream HighWithoutB = {
    "HighCabacNoB1080p", "-profile:v high -x264-params cabac=1:bframes=0:ref=4:8x8dct=1:weightp=2"};

std::vector<NmH264Bench::SmStream> AllStreams() {
  std::vector<NmH264Bench::SmStream> streams(std::begin(NmH264Bench::Streams),
                                             std::end(NmH264Bench::Streams));
  streams.push_back(HighWithoutB);
  return streams;
}

CmPackets StreamPackets(const std::string& name) {
  if (name != HighWithoutB.name) {
    return NmH264Bench::Packets(name);
  }
  static const CmPackets packets =
      NmH264Bench::MadePackets(std::string(HighWithoutB.name) + ".264", HighWithoutB.options);
  return packets;
}

// Whether OpenH264 decodes the stream to libavcodec's pictures, asked once.
const std::string& Refusal(const std::string& name) {
  static std::map<std::string, std::string> refusals;
  const auto known = refusals.find(name);
  if (known != refusals.end()) {
    return known->second;
  }
  return refusals[name] = OpenH264Refusal(StreamPackets(name));
}

void Ours(benchmark::State& state, const std::string& name) {
  const CmPackets packets = StreamPackets(name);
  int pictures = 0;
  for (auto _ : state) {
    pictures = NmH264Bench::DecodeWithOurs(packets);
  }
  state.counters["pictures"] = pictures;
}

void OpenH264(benchmark::State& state, const std::string& name) {
  const CmPackets packets = StreamPackets(name);
  const std::string& refusal = Refusal(name);
  if (!refusal.empty()) {
    state.SkipWithError(("skipped: " + refusal).c_str());
    return;
  }
  int pictures = 0;
  for (auto _ : state) {
    pictures = DecodeWithOpenH264(packets, nullptr);
  }
  if (pictures < 0) {
    state.SkipWithError("OpenH264 refused a packet");
    return;
  }
  state.counters["pictures"] = pictures;
}

} // namespace

int main(int argc, char** argv) {
  for (const NmH264Bench::SmStream& stream : AllStreams()) {
    const std::string name = stream.name;
    benchmark::RegisterBenchmark((name + "/ours").c_str(), Ours, name)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
    benchmark::RegisterBenchmark((name + "/openh264").c_str(), OpenH264, name)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
  }
  benchmark::Initialize(&argc, argv);
  NmBenchmark::CmRatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  for (const NmH264Bench::SmStream& stream : AllStreams()) {
    const std::string& refusal = Refusal(stream.name);
    std::printf("%s: %s\n", stream.name,
                refusal.empty() ? "OpenH264 decodes it to libavcodec's pictures" : refusal.c_str());
  }
  reporter.PrintRatios("ours", {"openh264"});
  benchmark::Shutdown();
  return 0;
}
