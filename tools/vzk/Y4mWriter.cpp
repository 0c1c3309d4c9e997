#include "Y4mWriter.h"

#include <cmath>
#include <numeric>

#include "PictureConversion.h"

using namespace NmToolkit;

namespace NmVzkTool {
namespace {

char InterlacingTag(uint32_t interlacing) {
  switch (interlacing) {
  case 1:
  case 3:
    return 't';
  case 2:
  case 4:
    return 'b';
  default:
    // Progressive, and a single field, which is a picture of its own.
    return 'p';
  }
}

// The frame bytes in the stream's plane order, and the colour space that says
// how to read them.
std::vector<uint8_t> FrameBytes(const ImImage& image, std::string& colorSpace) {
  std::vector<SmPlaneCopy> planes = CopyPlanes(image);
  std::vector<uint8_t> frame;
  switch (image.GetColorFormat()) {
  case FormatGray:
    colorSpace = "mono";
    return std::move(planes[0].bytes);
  case FormatYCbCr420:
    // Chroma centred between the luma rows, as JPEG places it.
    colorSpace = "420jpeg";
    break;
  case FormatYCbCr422:
    colorSpace = "422";
    break;
  case FormatYCbCr444:
    colorSpace = "444";
    break;
  default: {
    // Packed RGB has no place in the stream: it becomes full-range 4:4:4.
    colorSpace = "444";
    const SmPackedPicture rgb = ToRGB(image);
    const uint64_t pixels = uint64_t{rgb.width} * rgb.height;
    frame.resize(pixels * 3);
    for (uint64_t i = 0; i < pixels; ++i) {
      RGBToYCbCr(rgb.pixels[3 * i], rgb.pixels[3 * i + 1], rgb.pixels[3 * i + 2], frame[i],
                 frame[pixels + i], frame[2 * pixels + i]);
    }
    return frame;
  }
  }
  for (const SmPlaneCopy& plane : planes) {
    frame.insert(frame.end(), plane.bytes.begin(), plane.bytes.end());
  }
  return frame;
}

} // namespace

void ApproximateRatio(double value, uint32_t limit, uint32_t& numerator, uint32_t& denominator) {
  numerator = 0;
  denominator = 0;
  if (!std::isfinite(value) || value <= 0 || value > 1e6) {
    return; // unknown
  }
  // Continued fraction convergents until the denominator grows past the limit.
  uint64_t p0 = 0, q0 = 1, p1 = 1, q1 = 0;
  double x = value;
  for (int step = 0; step < 32; ++step) {
    const double whole = std::floor(x);
    const uint64_t a = static_cast<uint64_t>(whole);
    const uint64_t p2 = a * p1 + p0;
    const uint64_t q2 = a * q1 + q0;
    if (q2 > limit || p2 > 0xFFFFFFFFu) {
      break;
    }
    p0 = p1, q0 = q1, p1 = p2, q1 = q2;
    if (x - whole < 1e-9) {
      break;
    }
    x = 1.0 / (x - whole);
  }
  numerator = static_cast<uint32_t>(p1);
  denominator = static_cast<uint32_t>(q1);
}

CmY4mWriter::~CmY4mWriter() {
  try {
    Close();
  } catch (...) {
  }
}

std::string CmY4mWriter::Write(const ImImage& image, int64_t time) {
  SmLayout layout;
  std::vector<uint8_t> frame = FrameBytes(image, layout.colorSpace);
  layout.width = image.GetWidth();
  layout.height = image.GetHeight();
  layout.interlacing = InterlacingTag(image.GetInterlacing());
  ApproximateRatio(image.GetPixelAspectRatio(), 1000, layout.aspectNumerator,
                   layout.aspectDenominator);
  if (!m_Layout || !(*m_Layout == layout)) {
    Close();
    StartStream(layout);
  }
  if (!m_HeaderWritten && m_PendingFrame.empty()) {
    m_PendingFrame = std::move(frame);
    m_PendingTime = time;
    return m_StreamName;
  }
  if (!m_HeaderWritten) {
    const int64_t interval = time - m_PendingTime;
    if (interval > 0 && interval < 1000000) {
      const uint64_t divisor = std::gcd<uint64_t, uint64_t>(1000, interval);
      WriteHeader(static_cast<uint32_t>(1000 / divisor), static_cast<uint32_t>(interval / divisor));
    } else {
      WriteHeader(25, 1);
    }
  }
  m_File.Write("FRAME\n");
  m_File.Write(frame.data(), frame.size());
  return m_StreamName;
}

void CmY4mWriter::StartStream(const SmLayout& layout) {
  ++m_StreamCount;
  m_StreamName = m_StreamCount == 1 ? "out.y4m" : "out-" + std::to_string(m_StreamCount) + ".y4m";
  m_File.Open(m_Directory + "/" + m_StreamName);
  m_Layout = layout;
  m_HeaderWritten = false;
  m_PendingFrame.clear();
}

void CmY4mWriter::WriteHeader(uint32_t rateNumerator, uint32_t rateDenominator) {
  const SmLayout& layout = *m_Layout;
  m_File.Write("YUV4MPEG2 W" + std::to_string(layout.width) + " H" + std::to_string(layout.height) +
               " F" + std::to_string(rateNumerator) + ":" + std::to_string(rateDenominator) + " I" +
               layout.interlacing + " A" + std::to_string(layout.aspectNumerator) + ":" +
               std::to_string(layout.aspectDenominator) + " C" + layout.colorSpace + "\n");
  m_HeaderWritten = true;
  if (!m_PendingFrame.empty()) {
    m_File.Write("FRAME\n");
    m_File.Write(m_PendingFrame.data(), m_PendingFrame.size());
    m_PendingFrame.clear();
  }
}

void CmY4mWriter::Close() {
  if (!m_File.IsOpen()) {
    return;
  }
  if (!m_HeaderWritten) {
    // A stream of one picture has no interval to go by.
    WriteHeader(25, 1);
  }
  m_Layout.reset();
  m_File.Close();
}

} // namespace NmVzkTool
