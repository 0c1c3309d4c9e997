#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "MediaProcessing/Image/Image.h"

// Pictures and JPEG files for the codec's tests: source pictures with the
// texture and noise of a camera, files made from them by cjpeg and ffmpeg in
// the build tree, and libjpeg-turbo's decode of them as the reference.
namespace NmJPEGTest {

using CmBytes = std::vector<uint8_t>;

// Interleaved samples (1 or 3 channels) of a scene with gradients, edges and
// sensor noise, the same for the same seed.
CmBytes MakeCameraPicture(int width, int height, int channels, unsigned seed);

// A JPEG made by cjpeg from a camera picture, cached by name. `arguments` go
// to cjpeg as they are; `gray` makes a one-channel source.
CmBytes MakeJPEG(const std::string& name, int width, int height, bool gray,
                 const std::string& arguments);
// A lossless JPEG made by ffmpeg's ljpeg encoder, and ffmpeg's decode of it as
// planes in the same pixel format, one after the other.
CmBytes MakeLosslessJPEG(const std::string& name, int width, int height,
                         const std::string& pixelFormat, CmBytes& ffmpegPlanes);
// Tightly packed planes, each of its own size.
struct SmPlanes {
  int width[4] = {};
  int height[4] = {};
  std::vector<CmBytes> planes;
  int subsampling = -1; // TurboJPEG's name for the layout, where it decoded
};
SmPlanes PlanesOf(const NmMediaProcessing::CmImage& image);

// Worst and mean absolute difference over the first `rows` rows (all when
// negative) of plane `p` of `ours`; the reference may be larger by padding.
struct SmDifference {
  int worst = 1000;
  double mean = 1000;
};
SmDifference Compare(const SmPlanes& ours, const SmPlanes& reference, size_t p, int rows = -1);
// Every plane within `worst` of the reference, and within `mean` on average.
void ExpectClose(const SmPlanes& ours, const SmPlanes& reference, int worst = 1, double mean = 0.1);

// libjpeg-turbo's decode to planes with the accurate integer DCT, at
// 1 / (1 << scale) of the size, luma cut to the picture. False when it
// refuses the file.
bool TurboDecodePlanes(const CmBytes& jpeg, int scale, SmPlanes& out);
// libjpeg-turbo's encode of 4:2:0 planes: the peer of our encoder.
CmBytes TurboEncode420(const SmPlanes& planes, int quality);

// djpeg's decode to packed RGB with the accurate integer DCT and replicated
// chroma (libjpeg-turbo's fast up-sampling), for layouts that TurboJPEG does
// not name too.
bool DjpegDecodeRGB(const CmBytes& jpeg, int& width, int& height, CmBytes& rgb);

// Replaces the JFIF APP0 segment with an Adobe APP14 one of the given transform.
CmBytes ReplaceJFIFWithAdobe(const CmBytes& jpeg, uint8_t transform);
// Inserts a segment right after SOI.
CmBytes InsertSegment(const CmBytes& jpeg, uint8_t marker, const CmBytes& body);

// The frame without its DHT segments, as many cameras write Motion JPEG.
inline CmBytes WithoutHuffmanTables(const CmBytes& frame) {
  CmBytes out(frame.begin(), frame.begin() + 2);
  size_t at = 2;
  while (at + 4 <= frame.size() && frame[at + 1] != 0xDA) {
    const size_t length = static_cast<size_t>(frame[at + 2] << 8 | frame[at + 3]);
    if (frame[at + 1] != 0xC4) {
      out.insert(out.end(), frame.begin() + static_cast<std::ptrdiff_t>(at),
                 frame.begin() + static_cast<std::ptrdiff_t>(at + 2 + length));
    }
    at += 2 + length;
  }
  out.insert(out.end(), frame.begin() + static_cast<std::ptrdiff_t>(at), frame.end());
  return out;
}

} // namespace NmJPEGTest
