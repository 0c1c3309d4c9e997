#include "ContactSheet.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "MediaProcessing/JPEG/JPEGDecoder.h"
#include "MediaProcessing/JPEG/MemBuffInput.h"
#include "PictureConversion.h"
#include "PluginHost.h"
#include "RecordingInfo.h"

using namespace NmToolkit;

namespace NmVzkTool {
namespace {

// Area average: each thumbnail pixel is the mean of the source pixels whose
// centres fall into it, which keeps fine detail from aliasing.
CmContactSheet::SmThumbnail Shrink(const SmPackedPicture& picture, uint32_t width,
                                   uint32_t height) {
  CmContactSheet::SmThumbnail thumbnail;
  thumbnail.width = width;
  thumbnail.height = height;
  thumbnail.rgb.resize(uint64_t{width} * height * 3);
  for (uint32_t ty = 0; ty < height; ++ty) {
    const uint64_t y0 = uint64_t{ty} * picture.height / height;
    const uint64_t y1 = std::max<uint64_t>(y0 + 1, uint64_t{ty + 1} * picture.height / height);
    for (uint32_t tx = 0; tx < width; ++tx) {
      const uint64_t x0 = uint64_t{tx} * picture.width / width;
      const uint64_t x1 = std::max<uint64_t>(x0 + 1, uint64_t{tx + 1} * picture.width / width);
      uint64_t sum[3] = {0, 0, 0};
      for (uint64_t y = y0; y < y1; ++y) {
        const uint8_t* row = picture.pixels.data() + (y * picture.width) * 3;
        for (uint64_t x = x0; x < x1; ++x) {
          sum[0] += row[3 * x], sum[1] += row[3 * x + 1], sum[2] += row[3 * x + 2];
        }
      }
      const uint64_t count = (y1 - y0) * (x1 - x0);
      uint8_t* out = thumbnail.rgb.data() + (uint64_t{ty} * width + tx) * 3;
      for (int c = 0; c < 3; ++c) {
        out[c] = static_cast<uint8_t>((sum[c] + count / 2) / count);
      }
    }
  }
  return thumbnail;
}

std::string ClockTime(int64_t milliseconds) {
  // "YYYY-MM-DD hh:mm:ss.mmm UTC" -> "hh:mm:ss.mmm"
  const std::string text = FormatUtc(milliseconds);
  return text.size() >= 23 ? text.substr(11, 12) : text;
}

} // namespace

bool CmContactSheet::TakeNext() {
  return m_Seen++ % m_Step == 0;
}

void CmContactSheet::AddPicture(const ImImage& image, uint64_t index, int64_t time) {
  if (TakeNext()) {
    Add(ToRGB(image), image.GetPixelAspectRatio(), index, time);
  }
}

void CmContactSheet::AddJPEG(const uint8_t* data, uint64_t size, uint64_t index, int64_t time) {
  if (!TakeNext()) {
    return;
  }
  CMemBuffInput input;
  CJPEGDecoder decoder;
  int width = 0, height = 0, channels = 0, precision = 0;
  JColor color = JColorUnknown;
  JSampling sampling = JSampling444;
  if (size > UINT32_MAX || input.Open(data, static_cast<uint32_t>(size)) != JStatusOk ||
      decoder.SetSource(&input) != JStatusOk ||
      decoder.ReadHeader(width, height, channels, color, sampling, precision) != JStatusOk ||
      width <= 0 || height <= 0) {
    NoteUndecodable("damaged JPEG record");
    return;
  }
  // The decoder scales by 1/2, 1/4 or 1/8 for free; the area average does the rest.
  int scale = 0;
  while (scale < 3 && (width >> (scale + 1)) >= static_cast<int>(ThumbnailWidth) &&
         (height >> (scale + 1)) >= static_cast<int>(ThumbnailHeight)) {
    ++scale;
  }
  SmPackedPicture rgb;
  rgb.width = static_cast<uint32_t>((width + (1 << scale) - 1) >> scale);
  rgb.height = static_cast<uint32_t>((height + (1 << scale) - 1) >> scale);
  rgb.channels = 3;
  rgb.pixels.assign(uint64_t{rgb.width} * rgb.height * 3, 0);
  const JStatus status =
      decoder.SetDestination(rgb.pixels.data(), rgb.width * 3, rgb.width, rgb.height, 3, JColorRGB,
                             sampling, precision, scale);
  // A stream that ends early still shows the rows it had.
  const JStatus decoded = status == JStatusOk ? decoder.ReadData() : status;
  if (decoded != JStatusOk && decoded != JStatusEndOfData) {
    NoteUndecodable("damaged JPEG record");
    return;
  }
  Add(rgb, decoder.GetFrameAspect(), index, time);
}

void CmContactSheet::Add(const SmPackedPicture& rgb, double pixelAspect, uint64_t index,
                         int64_t time) {
  // Fit the box, keeping the shape, with the pixel aspect ratio applied.
  const double aspect = pixelAspect > 0.01 && pixelAspect < 100 ? pixelAspect : 1.0;
  const double shownWidth = rgb.width * aspect;
  const double scale = std::min(
      {1.0, ThumbnailWidth / shownWidth, static_cast<double>(ThumbnailHeight) / rgb.height});
  const uint32_t width =
      std::max<uint32_t>(1, static_cast<uint32_t>(std::lround(shownWidth * scale)));
  const uint32_t height =
      std::max<uint32_t>(1, static_cast<uint32_t>(std::lround(rgb.height * scale)));
  SmThumbnail thumbnail =
      Shrink(rgb, std::min(width, ThumbnailWidth), std::min(height, ThumbnailHeight));
  thumbnail.index = index;
  thumbnail.time = time;
  m_Thumbnails.push_back(std::move(thumbnail));
  if (m_Thumbnails.size() > MaximumThumbnails) {
    std::vector<SmThumbnail> kept;
    for (size_t i = 0; i < m_Thumbnails.size(); i += 2) {
      kept.push_back(std::move(m_Thumbnails[i]));
    }
    m_Thumbnails = std::move(kept);
    m_Step *= 2;
  }
}

void CmContactSheet::Write(const std::string& path, std::ostream& messages) const {
  std::string leftOut;
  for (const auto& [kind, count] : m_Undecodable) {
    leftOut += (leftOut.empty() ? "" : " and ") + std::to_string(count) + " " + kind +
               (count == 1 ? "" : "s");
  }
  if (m_Thumbnails.empty()) {
    const bool decodable = m_Undecodable.size() > m_Undecodable.count("damaged JPEG record");
    throw CmRunError("No contact sheet was written: the tree delivered no pictures" +
                     (leftOut.empty() ? std::string(".")
                                      : ", only " + leftOut + ", which vzk cannot show" +
                                            (decodable ? "; a \"video_decoder\" element in the "
                                                         "tree makes pictures of them."
                                                       : ".")));
  }
  if (!leftOut.empty()) {
    messages << "vzk: The contact sheet leaves out " << leftOut << ".\n";
  }
  // Cairo's and fontconfig's font caches stay: the plug-in's text overlays
  // share them in this process and may still hold fonts.
  Draw(path);
}

void CmContactSheet::Draw(const std::string& path) const {
  constexpr int Margin = 8;
  constexpr int Label = 16;
  const int columns = static_cast<int>(
      std::min<size_t>(8, static_cast<size_t>(std::ceil(std::sqrt(m_Thumbnails.size())))));
  const int rows = static_cast<int>((m_Thumbnails.size() + columns - 1) / columns);
  const int cellWidth = ThumbnailWidth + Margin;
  const int cellHeight = ThumbnailHeight + Label + Margin;
  const int width = Margin + columns * cellWidth;
  const int height = Margin + rows * cellHeight;

  std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> sheet(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy);
  std::unique_ptr<cairo_t, decltype(&cairo_destroy)> cairo(cairo_create(sheet.get()),
                                                           cairo_destroy);
  cairo_t* cr = cairo.get();
  cairo_set_source_rgb(cr, 0.15, 0.15, 0.15);
  cairo_paint(cr);
  cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, 11);
  for (size_t i = 0; i < m_Thumbnails.size(); ++i) {
    const SmThumbnail& thumbnail = m_Thumbnails[i];
    const int left = Margin + static_cast<int>(i % columns) * cellWidth;
    const int top = Margin + static_cast<int>(i / columns) * cellHeight;
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> picture(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(thumbnail.width),
                                   static_cast<int>(thumbnail.height)),
        cairo_surface_destroy);
    cairo_surface_flush(picture.get());
    uint8_t* pixels = cairo_image_surface_get_data(picture.get());
    const int stride = cairo_image_surface_get_stride(picture.get());
    if (pixels == nullptr) {
      throw CmRunError("The contact sheet could not be made: out of memory.");
    }
    for (uint32_t y = 0; y < thumbnail.height; ++y) {
      auto* row = reinterpret_cast<uint32_t*>(pixels + static_cast<ptrdiff_t>(y) * stride);
      const uint8_t* rgb = thumbnail.rgb.data() + uint64_t{y} * thumbnail.width * 3;
      for (uint32_t x = 0; x < thumbnail.width; ++x) {
        row[x] = uint32_t{rgb[3 * x]} << 16 | uint32_t{rgb[3 * x + 1]} << 8 | rgb[3 * x + 2];
      }
    }
    cairo_surface_mark_dirty(picture.get());
    const int offsetX = left + static_cast<int>(ThumbnailWidth - thumbnail.width) / 2;
    const int offsetY = top + static_cast<int>(ThumbnailHeight - thumbnail.height) / 2;
    cairo_set_source_surface(cr, picture.get(), offsetX, offsetY);
    cairo_paint(cr);
    cairo_set_source_rgb(cr, 0.9, 0.9, 0.9);
    cairo_move_to(cr, left, top + ThumbnailHeight + 12);
    const std::string label =
        "#" + std::to_string(thumbnail.index) + "  " + ClockTime(thumbnail.time);
    cairo_show_text(cr, label.c_str());
  }
  cairo_surface_flush(sheet.get());
  const cairo_status_t status = cairo_surface_write_to_png(sheet.get(), path.c_str());
  if (status != CAIRO_STATUS_SUCCESS) {
    throw CmRunError("The contact sheet " + path +
                     " could not be written: " + cairo_status_to_string(status) + ".");
  }
}

} // namespace NmVzkTool
