#pragma once

// The 1080p streams that the H.264 decode benchmarks share, and our decoder's
// run over them: x264 makes each stream on the first run and it is kept
// beside the benchmark; every decoder gets the same access units from memory.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Codecs/H264/TaskSupplier.h"

namespace NmH264Bench {

struct SmStream {
  const char* name;
  const char* options;
};
inline constexpr SmStream Streams[] = {
    {"Baseline1080p", "-profile:v baseline -x264-params ref=3"},
    {"HighCavlc1080p",
     "-profile:v high -x264-params cabac=0:bframes=3:b-pyramid=normal:ref=4:8x8dct=1:weightp=2"},
    {"HighCabac1080p",
     "-profile:v high -x264-params cabac=1:bframes=3:b-pyramid=normal:ref=4:8x8dct=1:weightp=2"},
    // 1080i as cameras send it: two pictures of the source woven into one
    // frame, top field first, coded with frame and field macroblock pairs
    // (x264's interlaced mode is MBAFF), High with CABAC and B pictures.
    {"Mbaff1080i", "-vf interlace=scan=tff -flags +ildct+ilme -profile:v high -x264-params "
                   "tff=1:cabac=1:bframes=3:b-pyramid=normal:ref=4:8x8dct=1:weightp=2"},
};

using CmPackets = std::vector<std::vector<uint8_t>>;

// The packets of the raw H.264 stream at `path`, as libavformat's reader
// cuts them; x264 makes the stream (300 pictures of 1080p, preset medium, with these
// options, which may filter the source first) when it is not there. Empty when it cannot be made or
// read.
inline CmPackets MadePackets(const std::string& path, const std::string& options) {
  if (!std::ifstream(path)) {
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v 300 "
        "-pix_fmt yuv420p -c:v libx264 -preset medium " +
        options + " -f h264 " + path + ".part";
    // Under its own name only when whole: a run cut short leaves no stream
    // that a later run would take for one.
    if (std::system(command.c_str()) != 0 ||
        std::rename((path + ".part").c_str(), path.c_str()) != 0) {
      return {};
    }
  }
  CmPackets packets;
  AVFormatContext* context = nullptr;
  if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) {
    return {};
  }
  AVPacket* packet = av_packet_alloc();
  while (av_read_frame(context, packet) >= 0) {
    packets.emplace_back(packet->data, packet->data + packet->size);
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  avformat_close_input(&context);
  return packets;
}

// The named stream's packets.
inline CmPackets Packets(const std::string& name) {
  static std::vector<CmPackets> cache(std::size(Streams));
  size_t index = 0;
  while (index < std::size(Streams) && Streams[index].name != name) {
    ++index;
  }
  if (index == std::size(Streams)) {
    return {};
  }
  if (cache[index].empty()) {
    cache[index] = MadePackets(name + ".264", Streams[index].options);
  }
  return cache[index];
}

// Decodes all packets with our decoder and gives the number of pictures.
// inspect sees the supplier once every picture is out, before it goes.
template <typename Inspect>
int DecodeWithOurs(const CmPackets& packets, int threads, const Inspect& inspect) {
  MCL::SmTaskSupplierSettings settings;
  settings.wholeFramePerBuffer = true;
  settings.threadCount = threads;
  MCL::TaskSupplier supplier(settings);
  int pictures = 0;
  for (const auto& packet : packets) {
    supplier.AddSource(packet.data(), packet.size(), -1.0, -1);
    while (supplier.GetFrameToDisplay(false) != nullptr) {
      ++pictures;
    }
  }
  supplier.Flush();
  while (supplier.GetFrameToDisplay(true) != nullptr) {
    ++pictures;
  }
  inspect(supplier);
  return pictures;
}

inline int DecodeWithOurs(const CmPackets& packets, int threads = 1) {
  return DecodeWithOurs(packets, threads, [](const MCL::TaskSupplier&) {});
}

// libavcodec over the packets with its default division of threads; take
// sees each frame as it leaves, and says false to stop there.
template <typename Take>
void DecodeWithLibavcodec(const CmPackets& packets, int threads, const Take& take) {
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  AVCodecContext* context = avcodec_alloc_context3(codec);
  context->thread_count = threads;
  avcodec_open2(context, codec, nullptr);
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  bool more = true;
  const auto drain = [&] {
    while (more && avcodec_receive_frame(context, frame) == 0) {
      more = take(*frame);
    }
  };
  for (const auto& data : packets) {
    if (!more) {
      break;
    }
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

} // namespace NmH264Bench
