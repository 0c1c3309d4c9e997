#include <dlfcn.h>
#include <glib.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <mutex>

#include "Codecs/Primitives/PlaneCopy.h"
#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/CairoImageAllocator.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Image/TextOverlayOS.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

namespace {

struct CmGObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};
struct CmGFree {
  void operator()(char* text) const { g_free(text); }
};
struct CmFontOptionsDestroy {
  void operator()(cairo_font_options_t* options) const { cairo_font_options_destroy(options); }
};

// The value 0x7F of the background has to come out of Cairo's colour path
// exactly; 127/255 does.
constexpr double BackgroundLevel = 127.0 / 255.0;

// Pango needs a text it can lay out without guessing: invalid UTF-8 becomes
// U+FFFD, and lengths stay within what a signed 32-bit count holds.
std::unique_ptr<char, CmGFree> MakeValidText(const std::string& text) {
  const size_t length = std::min<size_t>(text.size(), INT_MAX);
  return std::unique_ptr<char, CmGFree>(
      g_utf8_make_valid(text.data(), static_cast<gssize>(length)));
}

CmCairoImageAllocator& SurfaceAllocator(CmImage& surface) {
  auto* allocator = dynamic_cast<CmCairoImageAllocator*>(&surface.Allocator());
  VZK_REQUIRE(allocator != nullptr, "Text surface is not a drawing surface",
              CmIntegrityErrorCode::InvalidState);
  return *allocator;
}

} // namespace

void KeepTextLibrariesLoaded() {
  static std::once_flag kept;
  std::call_once(kept, [] {
    for (void* symbol : {reinterpret_cast<void*>(&cairo_version),
                         reinterpret_cast<void*>(&pango_cairo_font_map_get_default)}) {
      Dl_info info{};
      if (dladdr(symbol, &info) != 0 && info.dli_fname != nullptr) {
        // The handle is deliberately never closed.
        dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
      }
    }
  });
}

CmTextOverlayOS::CmTextOverlayOS(const CmOverlayParameters& parameters)
    : CmBaseOverlayTransformation(parameters) {}

CmTextOverlayOS::~CmTextOverlayOS() {
  DeleteFont();
}

void CmTextOverlayOS::DeleteFont() {
  if (m_Font != nullptr) {
    pango_font_description_free(m_Font);
    m_Font = nullptr;
  }
  m_FontHeight = 0;
}

void CmTextOverlayOS::MakeDefaultFont(const std::string& fontName) {
  DeleteFont();
  PangoFontDescription* font =
      pango_font_description_from_string(fontName.empty() ? DefaultFontName : fontName.c_str());
  if (font == nullptr) {
    return;
  }
  pango_font_description_set_absolute_size(font, MinimumFontHeight * PANGO_SCALE);
  m_Font = font;
  m_FontHeight = MinimumFontHeight;
}

void CmTextOverlayOS::MakeFont(const std::string& fontName) {
  DeleteFont();
  const double wanted = std::floor(static_cast<double>(m_CachedHeight) * m_Parameters.scale + 0.5);
  const double height = std::clamp(wanted, static_cast<double>(MinimumFontHeight),
                                   static_cast<double>(MaximumFontHeight));
  PangoFontDescription* font =
      pango_font_description_from_string(fontName.empty() ? DefaultFontName : fontName.c_str());
  if (font == nullptr) {
    return;
  }
  pango_font_description_set_absolute_size(font, height * PANGO_SCALE);
  m_Font = font;
  m_FontHeight = static_cast<uint32_t>(height);
}

bool CmTextOverlayOS::PaintText(cairo_t* context, const std::string& text, uint64_t maxWidth,
                                uint64_t& width, uint64_t& height) {
  m_BackgroundColor[0] = m_BackgroundColor[1] = m_BackgroundColor[2] = 0x7F;
  cairo_save(context);
  cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
  cairo_set_source_rgb(context, BackgroundLevel, BackgroundLevel, BackgroundLevel);
  cairo_rectangle(context, 0, 0, m_TextWidth, m_TextHeight);
  cairo_fill(context);
  cairo_restore(context);
  VZK_REQUIRE_AS(NmError::CmSystemError, cairo_status(context) == CAIRO_STATUS_SUCCESS,
                 "Unable to initialize text background",
                 static_cast<int32_t>(cairo_status(context)),
                 cairo_status_to_string(cairo_status(context)));

  std::unique_ptr<PangoLayout, CmGObjectUnref> layout(pango_cairo_create_layout(context));
  // Smoothed or hinted edges would produce colours that match neither the
  // letters nor the key.
  std::unique_ptr<cairo_font_options_t, CmFontOptionsDestroy> options(cairo_font_options_create());
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_NONE);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(pango_layout_get_context(layout.get()), options.get());
  pango_layout_context_changed(layout.get());
  if (m_Font != nullptr) {
    pango_layout_set_font_description(layout.get(), m_Font);
  }
  const int wrapWidth =
      static_cast<int>(std::min<uint64_t>(std::max<uint64_t>(maxWidth, 1), INT_MAX / PANGO_SCALE));
  pango_layout_set_width(layout.get(), wrapWidth * PANGO_SCALE);
  pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD);
  const auto valid = MakeValidText(text);
  pango_layout_set_text(layout.get(), valid.get(), -1);

  PangoRectangle ink;
  PangoRectangle logical;
  pango_layout_get_pixel_extents(layout.get(), &ink, &logical);
  // The shadow adds one pixel to the right and below.
  const uint64_t neededWidth = static_cast<uint64_t>(std::max(logical.width, 1)) + 1;
  const uint64_t neededHeight = static_cast<uint64_t>(std::max(logical.height, 1)) + 1;
  if (neededWidth > width || neededHeight > height) {
    width = neededWidth;
    height = neededHeight;
    return false;
  }
  width = neededWidth;
  height = neededHeight;
  m_TextWidth = static_cast<uint32_t>(neededWidth);
  m_TextHeight = static_cast<uint32_t>(neededHeight);

  cairo_save(context);
  cairo_set_antialias(context, CAIRO_ANTIALIAS_NONE);
  cairo_set_operator(context, CAIRO_OPERATOR_OVER);
  cairo_set_source_rgb(context, 0.0, 0.0, 0.0);
  cairo_move_to(context, 1.0 - logical.x, 1.0 - logical.y);
  pango_cairo_show_layout(context, layout.get());
  cairo_set_source_rgb(context, 1.0, 1.0, 1.0);
  cairo_move_to(context, -logical.x, -logical.y);
  pango_cairo_show_layout(context, layout.get());
  cairo_restore(context);
  return true;
}

void CmTextOverlayOS::AllocateSurface(uint64_t width, uint64_t height) {
  width = std::clamp<uint64_t>(width, 1, 32767);
  height = std::clamp<uint64_t>(height, 1, 32767);
  if (!m_Drawing.IsValid()) {
    m_Drawing.SetAllocator(std::make_unique<CmCairoImageAllocator>());
  }
  // The drawing surface only grows; a smaller text paints into its top left
  // corner and is cropped out of it.
  uint64_t surfaceWidth = 0;
  uint64_t surfaceHeight = 0;
  if (m_Drawing.IsValid()) {
    surfaceWidth = m_Drawing.GetWidth();
    surfaceHeight = m_Drawing.GetHeight();
  }
  if (width > surfaceWidth || height > surfaceHeight) {
    m_Drawing.Allocate(std::max(width, surfaceWidth), std::max(height, surfaceHeight),
                       CmCairoImageAllocator::GetRecommendedColorFormat(), 4);
  }
  m_Context = SurfaceAllocator(m_Drawing).GetHandle();
  m_TextWidth = static_cast<uint32_t>(m_Drawing.GetWidth());
  m_TextHeight = static_cast<uint32_t>(m_Drawing.GetHeight());
}

void CmTextOverlayOS::PaintIntoSurface(const std::string& text, uint64_t maxWidth) {
  if (m_Context == nullptr) {
    // A first guess of one line across the width; a taller text grows it once.
    AllocateSurface(maxWidth + 1, m_FontHeight + 2);
  } else {
    AllocateSurface(m_Drawing.GetWidth(), m_Drawing.GetHeight());
  }
  uint64_t width = m_Drawing.GetWidth();
  uint64_t height = m_Drawing.GetHeight();
  if (!PaintText(m_Context, text, maxWidth, width, height)) {
    AllocateSurface(width, height);
    width = m_Drawing.GetWidth();
    height = m_Drawing.GetHeight();
    VZK_REQUIRE(PaintText(m_Context, text, maxWidth, width, height),
                "Unable to paint into correct size", CmIntegrityErrorCode::InvalidPointer);
  }
  // Cairo leaves the fourth byte to chance; the key compares all four.
  const ImImageMemoryAllocation::CmWriteablePlane plane =
      m_Drawing.Allocator().GetWriteablePlane(0);
  NmPrimitives::SetChannel4(0xFF, 3, plane.data, plane.rowStride, plane.width, plane.height);
  // A copy in plain memory: the next painting must not change what an
  // overlay made from this one shows.
  CmImage painted(m_Drawing);
  CmImageCrop(0, 0, width, height).Execute(painted);
  // Cairo stores row 0 at the top, so the text is upright.
  painted.GetAttributes().orientation = Orientation();
  m_Surface = painted;
}

} // namespace NmMediaProcessing
