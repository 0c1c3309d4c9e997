#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

#include "Codecs/MCL/VideoDecoder.h"
#include "Image/ImageFixtures.h"
#include "MediaProcessing/Video/VideoDecoder.h"
#include "support/ExternalTools.h"

namespace NmMPEG4Test {

// A clip's coded pictures in decoding order, as a recording keeps them: the
// stream headers in front of every intra picture, and the n-th picture timed
// with the n-th smallest presentation time.
struct SmClip {
  std::vector<std::vector<uint8_t>> pictures;
  std::vector<bool> intra;
  std::vector<double> times;
};

inline SmClip Demux(const std::string& path) {
  SmClip clip;
  AVFormatContext* format = nullptr;
  if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) {
    return clip;
  }
  if (avformat_find_stream_info(format, nullptr) < 0 || format->nb_streams < 1) {
    avformat_close_input(&format);
    return clip;
  }
  const AVCodecParameters& parameters = *format->streams[0]->codecpar;
  const AVRational base = format->streams[0]->time_base;
  const std::vector<uint8_t> headers(parameters.extradata,
                                     parameters.extradata + parameters.extradata_size);
  AVPacket* packet = av_packet_alloc();
  std::vector<double> presentation;
  while (av_read_frame(format, packet) >= 0) {
    std::vector<uint8_t> bytes(packet->data, packet->data + packet->size);
    bool intra = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    // AVI marks every H.263 picture as a key frame; a baseline picture header
    // tells: the coding type bit follows the 22-bit start code, the 8-bit
    // reference, 2 marker bits, 3 flags and the 3-bit source format.
    if (parameters.codec_id == AV_CODEC_ID_H263 && packet->size >= 5 &&
        ((packet->data[4] >> 2) & 7) != 7) {
      intra = ((packet->data[4] >> 1) & 1) == 0;
    }
    if (intra && !headers.empty() &&
        (bytes.size() < headers.size() ||
         !std::equal(headers.begin(), headers.end(), bytes.begin()))) {
      bytes.insert(bytes.begin(), headers.begin(), headers.end());
    }
    clip.pictures.push_back(std::move(bytes));
    clip.intra.push_back(intra);
    const int64_t pts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    presentation.push_back(static_cast<double>(pts) * base.num / base.den);
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  avformat_close_input(&format);
  std::sort(presentation.begin(), presentation.end());
  clip.times = presentation;
  return clip;
}

// `frames` pictures of ffmpeg's noisy test picture coded with `options`;
// empty when ffmpeg fails.
inline std::string MakeClip(const NmTestSupport::CmTempDirectory& dir, const std::string& name,
                            int width, int height, int frames, const std::string& options) {
  const std::string clip = dir / name;
  return NmTestSupport::Run(
             "ffmpeg -y -v error -f lavfi -i testsrc2=size=" + std::to_string(width) + "x" +
             std::to_string(height) + ":rate=25 -frames:v " + std::to_string(frames) +
             " -vf noise=alls=12:allf=t -pix_fmt yuv420p " + options + " '" + clip + "'")
             ? clip
             : std::string();
}

// Every picture of ffmpeg's own decode, planes tight, in display order.
// libavcodec's interlaced MPEG-4 differs between one thread and several, so
// the reference is made with the thread count of the decode it is for.
inline std::vector<std::vector<uint8_t>>
ReferencePictures(const NmTestSupport::CmTempDirectory& dir, const std::string& clip, int width,
                  int height, int threads = 1) {
  const size_t size =
      static_cast<size_t>(width * height + 2 * ((width + 1) / 2) * ((height + 1) / 2));
  return NmTestSupport::FfmpegPictures(clip, dir / "reference.yuv", size, "yuv420p", "", threads);
}

// A picture that a toolkit's decoder delivered, planes tight.
struct SmDecoded {
  std::vector<uint8_t> samples;
  int32_t id = -1;
  NmMediaProcessing::ColorFormat format = NmMediaProcessing::Gray;
  uint64_t width = 0;
  uint64_t height = 0;
};

// One record (or the flush, with null data) as a toolkit gives it: again
// while the decoder asks for it. Every picture delivered is kept.
inline bool Feed(NmMediaProcessing::ImVideoDecoder& decoder, const std::vector<uint8_t>* record,
                 int32_t id, std::vector<SmDecoded>& out) {
  bool ok = true;
  for (int calls = 0; calls < 64; ++calls) {
    NmMediaProcessing::CmImage image;
    NmMediaProcessing::SmVideoDecodeResult result;
    ok = decoder.Decode(record != nullptr ? record->data() : nullptr,
                        record != nullptr ? record->size() : 0, id,
                        NmTimeStamp::CmTimeStamp::FromMilliseconds(1000 + 40 * id), image, result);
    if (ok && result.m_ImageProduced) {
      out.push_back(
          {{}, result.m_ImageId, image.GetColorFormat(), image.GetWidth(), image.GetHeight()});
      for (const auto& plane : NmImageTest::Planes(image)) {
        out.back().samples.insert(out.back().samples.end(), plane.begin(), plane.end());
      }
    }
    if (!ok || !result.m_CallAgain) {
      break;
    }
  }
  return ok;
}

} // namespace NmMPEG4Test
