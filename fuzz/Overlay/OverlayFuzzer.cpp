// Overlay geometry from arbitrary parameters: any size, pixel aspect,
// orientation, alignment, scale and exact position. An overlay may refuse its
// parameters or an image with an error of the media layer; it must never
// write outside the image, and the key colour must never show.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "MediaProcessing/Image/ColorKeyOverlay.h"
#include "Support/ByteReader.h"
#include "Support/Images.h"

using namespace NmMediaProcessing;

namespace {

using CmInput = NmFuzz::CmByteReader;
using NmFuzz::Require;

const ColorFormat Formats[] = {Gray, RGB24, BGR24,           BGR32,           RGBA,
                               BGRA, RGB32, YCbCr420_Planar, YCbCr422_Planar, YCbCr444_Planar};

CmImage MakeImage(CmInput& input, uint8_t fill) {
  const uint64_t width = input.Byte() % 40 + 1;
  const uint64_t height = input.Byte() % 40 + 1;
  const ColorFormat format = Formats[input.Byte() % std::size(Formats)];
  const uint8_t shape = input.Byte();
  CmImage image;
  image.Allocate(width, height, format);
  NmFuzz::FillPlanes(image, [fill](auto...) { return fill; });
  const bool planar = format == Gray || IsMultiPlaneFormat(format);
  image.GetAttributes().subColorFormat = planar ? SubColorFormatVideoRange : NotApplicable;
  image.GetAttributes().orientation = NmFuzz::OrientationFrom(shape);
  // Pixel aspects from a quarter to four.
  image.GetAttributes().aspectRatio = std::pow(2.0, ((shape >> 4) - 8) / 4.0);
  return image;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CmInput input(data, size);
  CmImage picture = MakeImage(input, 200);
  CmImage image = MakeImage(input, 100);
  CmOverlayParameters parameters;
  parameters.flags = input.Byte() & 63;
  if ((input.Byte() & 1) != 0) {
    parameters.scale = input.Double();
  }
  if ((input.Byte() & 1) != 0) {
    parameters.x = input.Double();
    parameters.y = input.Double();
  }
  // Every third picture pixel is the key; a planar picture has neutral
  // chroma everywhere, which is also the key's, so that luma alone decides
  // and no colour conversion can turn the picture's own pixels into 0.
  const auto luma = picture.Allocator().GetPlane(0);
  NmFuzz::FillPlanes(picture, [&](uint64_t p, uint64_t x, uint64_t y) {
    return p > 0 ? 128 : (y * luma.width + x / luma.pixelStride) % 3 == 0 ? 0 : 200;
  });
  const uint8_t keyChroma = picture.Allocator().GetPlaneCount() > 1 ? 128 : 0;
  try {
    CmColorKeyOverlay overlay(picture, parameters, 0, keyChroma, keyChroma, 0);
    overlay.Execute(image);
  } catch (const NmError::CmError&) {
    return 0;
  }
  // The key's first byte is 0 and neither the image nor the picture has a 0
  // in its first byte elsewhere, so a 0 would be a key pixel that got through.
  const auto result = image.Allocator().GetPlane(0);
  for (uint64_t y = 0; y < result.height; ++y) {
    for (uint64_t x = 0; x < result.width; ++x) {
      const uint8_t value = result.GetPixelAddress(x, y)[0];
      Require(value != 0);
    }
  }
  return 0;
}
