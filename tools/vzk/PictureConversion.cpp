#include "PictureConversion.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace NmToolkit;

namespace NmVzkTool {
namespace {

struct SmPlaneShape {
  uint32_t width;
  uint32_t height;
  uint32_t pixelStride;
};

// What each plane of a colour format must hold, after the image model.
std::vector<SmPlaneShape> PlaneShapes(uint32_t format, uint32_t width, uint32_t height) {
  const uint32_t halfWidth = (width + 1) / 2;
  switch (format) {
  case FormatGray:
    return {{width, height, 1}};
  case FormatRGB24:
  case FormatBGR24:
    return {{width, height, 3}};
  case FormatRGB32:
  case FormatBGR32:
  case FormatRGBA:
  case FormatBGRA:
    return {{width, height, 4}};
  case FormatYCbCr420:
    return {{width, height, 1}, {halfWidth, (height + 1) / 2, 1}, {halfWidth, (height + 1) / 2, 1}};
  case FormatYCbCr422:
    return {{width, height, 1}, {halfWidth, height, 1}, {halfWidth, height, 1}};
  case FormatYCbCr444:
    return {{width, height, 1}, {width, height, 1}, {width, height, 1}};
  default:
    throw CmPictureError("The picture has colour format " + std::to_string(format) +
                         ", which is none of the ten formats that vzk knows.");
  }
}

// Row of the plane that holds picture row `row`: fields stored one after the
// other keep the top field in the upper part, whichever field came first.
uint32_t SourceRow(uint32_t interlacing, uint32_t row, uint32_t height) {
  if (interlacing == 3 || interlacing == 4) {
    return row % 2 == 0 ? row / 2 : (height + 1) / 2 + row / 2;
  }
  return row;
}

uint8_t Clamp(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

} // namespace

const char* ColorFormatName(uint32_t format) {
  static const char* const names[] = {"Gray",
                                      "RGB24",
                                      "BGR24",
                                      "RGB32",
                                      "BGR32",
                                      "YCbCr420_Planar",
                                      "YCbCr422_Planar",
                                      "YCbCr444_Planar",
                                      "RGBA",
                                      "BGRA"};
  return format < 10 ? names[format] : "unknown";
}

std::vector<SmPlaneCopy> CopyPlanes(const ImImage& image) {
  const uint32_t width = image.GetWidth();
  const uint32_t height = image.GetHeight();
  if (width == 0 || height == 0) {
    throw CmPictureError("The picture is empty (" + std::to_string(width) + "x" +
                         std::to_string(height) + " pixels).");
  }
  const uint32_t format = image.GetColorFormat();
  const std::vector<SmPlaneShape> shapes = PlaneShapes(format, width, height);
  std::vector<SmPlaneCopy> planes;
  for (uint32_t index = 0; index < shapes.size(); ++index) {
    const SmPlaneShape& shape = shapes[index];
    const uint8_t* data = image.GetPlanePointer(index);
    const uint64_t stride = image.GetPlaneStride(index);
    const uint64_t rowBytes = uint64_t{shape.width} * shape.pixelStride;
    if (data == nullptr) {
      throw CmPictureError("The " + std::string(ColorFormatName(format)) + " picture lacks plane " +
                           std::to_string(index) + ".");
    }
    if (image.GetPlaneWidth(index) < shape.width || image.GetPlaneHeight(index) < shape.height ||
        stride < rowBytes) {
      throw CmPictureError("Plane " + std::to_string(index) + " of the " + std::to_string(width) +
                           "x" + std::to_string(height) + " " + ColorFormatName(format) +
                           " picture is " + std::to_string(image.GetPlaneWidth(index)) + "x" +
                           std::to_string(image.GetPlaneHeight(index)) + " with rows of " +
                           std::to_string(stride) + " bytes, smaller than the picture needs.");
    }
    SmPlaneCopy copy{shape.width, shape.height, shape.pixelStride, {}};
    copy.bytes.resize(rowBytes * shape.height);
    for (uint32_t row = 0; row < shape.height; ++row) {
      const uint32_t from = SourceRow(image.GetInterlacing(), row, shape.height);
      std::memcpy(copy.bytes.data() + row * rowBytes, data + from * stride, rowBytes);
    }
    planes.push_back(std::move(copy));
  }
  return planes;
}

void RGBToYCbCr(uint8_t r, uint8_t g, uint8_t b, uint8_t& y, uint8_t& cb, uint8_t& cr) {
  y = Clamp(static_cast<int>(std::lround(0.299 * r + 0.587 * g + 0.114 * b)));
  cb = Clamp(static_cast<int>(std::lround(128 - 0.168736 * r - 0.331264 * g + 0.5 * b)));
  cr = Clamp(static_cast<int>(std::lround(128 + 0.5 * r - 0.418688 * g - 0.081312 * b)));
}

void YCbCrToRGB(uint8_t y, uint8_t cb, uint8_t cr, uint8_t& r, uint8_t& g, uint8_t& b) {
  // Fixed point with 16 fraction bits; the constants are the JFIF ones.
  const int u = cb - 128;
  const int v = cr - 128;
  const int base = (y << 16) + (1 << 15);
  r = Clamp((base + 91881 * v) >> 16);
  g = Clamp((base - 22554 * u - 46802 * v) >> 16);
  b = Clamp((base + 116130 * u) >> 16);
}

SmPackedPicture ToPacked(const ImImage& image) {
  const std::vector<SmPlaneCopy> planes = CopyPlanes(image);
  const uint32_t format = image.GetColorFormat();
  SmPackedPicture picture{image.GetWidth(), image.GetHeight(), 3, {}};
  const uint64_t pixels = uint64_t{picture.width} * picture.height;
  const uint8_t* source = planes[0].bytes.data();
  switch (format) {
  case FormatGray:
    picture.channels = 1;
    picture.pixels = planes[0].bytes;
    return picture;
  case FormatRGB24:
    picture.pixels = planes[0].bytes;
    return picture;
  case FormatRGBA:
    picture.channels = 4;
    picture.pixels = planes[0].bytes;
    return picture;
  case FormatBGRA:
    picture.channels = 4;
    picture.pixels.resize(pixels * 4);
    for (uint64_t i = 0; i < pixels; ++i) {
      const uint8_t* p = source + i * 4;
      uint8_t* q = picture.pixels.data() + i * 4;
      q[0] = p[2], q[1] = p[1], q[2] = p[0], q[3] = p[3];
    }
    return picture;
  case FormatBGR24:
  case FormatRGB32:
  case FormatBGR32: {
    const uint32_t stride = planes[0].pixelStride;
    const bool swap = format != FormatRGB32;
    picture.pixels.resize(pixels * 3);
    for (uint64_t i = 0; i < pixels; ++i) {
      const uint8_t* p = source + i * stride;
      uint8_t* q = picture.pixels.data() + i * 3;
      q[0] = swap ? p[2] : p[0], q[1] = p[1], q[2] = swap ? p[0] : p[2];
    }
    return picture;
  }
  default: {
    // Planar YCbCr: each chroma sample covers the pixels of its cell.
    const SmPlaneCopy& cbPlane = planes[1];
    const SmPlaneCopy& crPlane = planes[2];
    const uint32_t xShift = cbPlane.width < picture.width ? 1 : 0;
    const uint32_t yShift = cbPlane.height < picture.height ? 1 : 0;
    picture.pixels.resize(pixels * 3);
    for (uint32_t y = 0; y < picture.height; ++y) {
      const uint8_t* luma = source + uint64_t{y} * picture.width;
      const uint64_t chromaRow = uint64_t{y >> yShift} * cbPlane.width;
      uint8_t* out = picture.pixels.data() + uint64_t{y} * picture.width * 3;
      for (uint32_t x = 0; x < picture.width; ++x) {
        const uint64_t c = chromaRow + (x >> xShift);
        YCbCrToRGB(luma[x], cbPlane.bytes[c], crPlane.bytes[c], out[3 * x], out[3 * x + 1],
                   out[3 * x + 2]);
      }
    }
    return picture;
  }
  }
}

SmPackedPicture ToRGB(const ImImage& image) {
  SmPackedPicture picture = ToPacked(image);
  if (picture.channels == 3) {
    return picture;
  }
  const uint64_t pixels = uint64_t{picture.width} * picture.height;
  std::vector<uint8_t> rgb(pixels * 3);
  for (uint64_t i = 0; i < pixels; ++i) {
    for (uint32_t c = 0; c < 3; ++c) {
      rgb[i * 3 + c] = picture.pixels[i * picture.channels + (picture.channels == 1 ? 0 : c)];
    }
  }
  picture.pixels = std::move(rgb);
  picture.channels = 3;
  return picture;
}

} // namespace NmVzkTool
