#pragma once

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <string>

#include "MediaProcessing/Image/BaseOverlayTransformation.h"

typedef struct _PangoFontDescription PangoFontDescription;

namespace NmMediaProcessing {

// Cairo and the libraries beneath it keep caches for the life of the process
// from the moment they are loaded. A library that carries them may be
// unloaded and loaded again; these must stay, or their caches are lost
// memory. Safe to call any number of times.
void KeepTextLibrariesLoaded();

// Paints text with the platform's text engine (Pango on Cairo) onto a
// surface: white letters with a black shadow one pixel below and to the
// right, on a background of one exact colour that later serves as the key.
// Antialiasing and hinting are off, so no pixel takes a colour in between.
class CmTextOverlayOS : public CmBaseOverlayTransformation {
public:
  static constexpr const char* DefaultFontName = "DejaVu Sans";
  // Pixel height of letters when they do not scale with the image, and the
  // least height when they do.
  static constexpr uint32_t MinimumFontHeight = 12;
  // Letters taller than this would need surfaces of hundreds of megabytes;
  // a text that large is clipped by the image anyway.
  static constexpr uint32_t MaximumFontHeight = 2048;

  explicit CmTextOverlayOS(const CmOverlayParameters& parameters);
  ~CmTextOverlayOS() override;
  CmTextOverlayOS(const CmTextOverlayOS&) = delete;
  CmTextOverlayOS& operator=(const CmTextOverlayOS&) = delete;

  // The painted text at its own size, B G R X in memory.
  const CmImage& GetSurface() const { return m_Surface; }
  uint32_t GetTextWidth() const { return m_TextWidth; }
  uint32_t GetTextHeight() const { return m_TextHeight; }
  // The letters' pixel height of the current font, 0 when there is none.
  uint32_t GetFontHeight() const { return m_FontHeight; }
  // The background as R, G, B.
  const uint8_t* GetBackgroundColor() const { return m_BackgroundColor; }

protected:
  // A font of round(cachedHeight * scale) pixels, at least 12 and at most
  // 2048, named or the default.
  void MakeFont(const std::string& fontName);
  // The default font at the least height, for text that does not scale.
  void MakeDefaultFont(const std::string& fontName);
  void DeleteFont();
  bool HasFont() const { return m_Font != nullptr; }
  // Lays the text out wrapped at maxWidth. If it needs more than width x
  // height, those become what it needs and the answer is false; otherwise it
  // is painted and they become its size.
  bool PaintText(cairo_t* context, const std::string& text, uint64_t maxWidth, uint64_t& width,
                 uint64_t& height);
  // Makes the drawing surface at least width x height; the painting context
  // follows, and the whole surface is what the next painting clears.
  void AllocateSurface(uint64_t width, uint64_t height);
  // Paints text into the surface, growing it once if it is too small, and
  // leaves the surface cropped to the text.
  void PaintIntoSurface(const std::string& text, uint64_t maxWidth);

  uint64_t m_CachedHeight = 0;

private:
  cairo_t* m_Context = nullptr; // belongs to the drawing surface's allocator
  uint32_t m_TextWidth = 0;
  uint32_t m_TextHeight = 0;
  uint32_t m_FontHeight = 0;
  PangoFontDescription* m_Font = nullptr;
  CmImage m_Drawing; // the Cairo surface, kept at the largest size so far
  CmImage m_Surface; // the last painted text, cropped to its size
  uint8_t m_BackgroundColor[3] = {0x7F, 0x7F, 0x7F};
};

} // namespace NmMediaProcessing
