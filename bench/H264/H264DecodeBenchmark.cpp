// Our H.264 decoder beside libavcodec's with one thread, in the same run, on
// 300 pictures of 1080p: Baseline, and High without and with CABAC (B
// pictures, the 8x8 transform, weighted prediction). x264 makes the streams on the first
// run; they are kept beside the benchmark. Both decoders get the same
// access units from memory and produce every picture. The run ends with the
// ratios, libavcodec time / our time.

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "BenchmarkRatios.h"
#include "H264/H264BenchmarkStreams.h"

namespace {

using NmH264Bench::Packets;

void Ours(benchmark::State& state, const std::string& name) {
  const auto packets = Packets(name);
  int pictures = 0;
  for (auto _ : state) {
    pictures = NmH264Bench::DecodeWithOurs(packets);
  }
  state.counters["pictures"] = pictures;
}

void Libavcodec(benchmark::State& state, const std::string& name) {
  const auto packets = Packets(name);
  int pictures = 0;
  for (auto _ : state) {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    context->thread_count = 1;
    avcodec_open2(context, codec, nullptr);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    pictures = 0;
    const auto drain = [&] {
      while (avcodec_receive_frame(context, frame) == 0) {
        ++pictures;
      }
    };
    for (const auto& data : packets) {
      packet->data = const_cast<uint8_t*>(data.data());
      packet->size = static_cast<int>(data.size());
      avcodec_send_packet(context, packet);
      drain();
    }
    avcodec_send_packet(context, nullptr);
    drain();
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&context);
  }
  state.counters["pictures"] = pictures;
}

} // namespace

int main(int argc, char** argv) {
  for (const NmH264Bench::SmStream& stream : NmH264Bench::Streams) {
    const std::string name = stream.name;
    benchmark::RegisterBenchmark((name + "/ours").c_str(), Ours, name)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
    benchmark::RegisterBenchmark((name + "/libavcodec").c_str(), Libavcodec, name)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
  }
  benchmark::Initialize(&argc, argv);
  NmBenchmark::CmRatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios("ours", {"libavcodec"});
  benchmark::Shutdown();
  return 0;
}
