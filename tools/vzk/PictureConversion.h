#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "PluginHost.h"
#include "vzk/Data.h"

namespace NmVzkTool {

// A picture that cannot be written; the text is a sentence.
class CmPictureError : public CmItemError {
public:
  using CmItemError::CmItemError;
};

// The colour formats of the image interface.
enum SmColorFormat : uint32_t {
  FormatGray = 0,
  FormatRGB24 = 1,
  FormatBGR24 = 2,
  FormatRGB32 = 3,
  FormatBGR32 = 4,
  FormatYCbCr420 = 5,
  FormatYCbCr422 = 6,
  FormatYCbCr444 = 7,
  FormatRGBA = 8,
  FormatBGRA = 9,
};

const char* ColorFormatName(uint32_t format);

// One plane copied out of an image: rows tight, top to bottom in picture
// order (fields stored one after the other are woven back together).
struct SmPlaneCopy {
  uint32_t width = 0; // in pixels
  uint32_t height = 0;
  uint32_t pixelStride = 1; // bytes a pixel
  std::vector<uint8_t> bytes;
};

// Copies the planes of `image`, checking that each exists and is as large as
// the colour format says. Throws CmPictureError.
std::vector<SmPlaneCopy> CopyPlanes(const NmToolkit::ImImage& image);

// A picture with 1 (gray), 3 (R G B) or 4 (R G B A) bytes a pixel, rows tight.
struct SmPackedPicture {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  std::vector<uint8_t> pixels;
};

// Any picture as gray, RGB or RGBA. YCbCr goes through the JFIF equations,
// the chroma of each pixel taken from the sample that covers it.
SmPackedPicture ToPacked(const NmToolkit::ImImage& image);

// The same as RGB whatever the picture holds (the contact sheet needs one form).
SmPackedPicture ToRGB(const NmToolkit::ImImage& image);

// One full-range Y Cb Cr triple from R G B by the JFIF equations, and back.
void RGBToYCbCr(uint8_t r, uint8_t g, uint8_t b, uint8_t& y, uint8_t& cb, uint8_t& cr);
void YCbCrToRGB(uint8_t y, uint8_t cb, uint8_t cr, uint8_t& r, uint8_t& g, uint8_t& b);

} // namespace NmVzkTool
