#include "Codecs/Primitives/JPEGColorConvert.h"

namespace NmPrimitives::NmReference {

namespace {
uint8_t Clamp(int32_t value) {
  return static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}
} // namespace

void JPEGYCbCrToRGBRow(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint8_t* out,
                       size_t width, bool bgr) {
  for (size_t x = 0; x < width; ++x) {
    const int32_t luma = y[x];
    const int32_t blue = cb[x] - 128;
    const int32_t red = cr[x] - 128;
    const uint8_t r = Clamp(luma + ((kJFIFCrToR * red + 32768) >> 16));
    const uint8_t g = Clamp(luma + ((-kJFIFCbToG * blue - kJFIFCrToG * red + 32768) >> 16));
    const uint8_t b = Clamp(luma + ((kJFIFCbToB * blue + 32768) >> 16));
    out[3 * x + 0] = bgr ? b : r;
    out[3 * x + 1] = g;
    out[3 * x + 2] = bgr ? r : b;
  }
}

} // namespace NmPrimitives::NmReference
