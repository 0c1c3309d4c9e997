#include "MediaProcessing/Image/TextOverlay.h"

#include <utility>

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

CmTextOverlay::CmTextOverlay(std::string text, const CmOverlayParameters& parameters,
                             std::string fontName)
    : CmTextOverlayOS(parameters), m_Text(std::move(text)), m_FontName(std::move(fontName)) {}

void CmTextOverlay::UpdateImageOverlay(const CmImage& image) {
  const bool turned = image.GetAttributes().orientation.rotation % 2 == 1;
  // The viewer's height and width: a turned image shows its stored width upright.
  const uint64_t uprightHeight = turned ? image.GetWidth() : image.GetHeight();
  const uint64_t uprightWidth = turned ? image.GetHeight() : image.GetWidth();
  if ((m_Parameters.flags & OverlayScale) != 0) {
    if (uprightHeight != m_CachedHeight || !HasFont()) {
      m_Overlay.reset();
      m_CachedHeight = uprightHeight;
      MakeFont(m_FontName);
    }
  } else if (!HasFont()) {
    m_Overlay.reset();
    MakeDefaultFont(m_FontName);
  }
  if (m_Overlay) {
    return;
  }
  PaintIntoSurface(m_Text, uprightWidth);
  // The letters keep their size through the font; the picture itself is laid
  // on unscaled.
  CmOverlayParameters parameters = m_Parameters;
  parameters.flags &= ~static_cast<uint32_t>(OverlayScale);
  const uint8_t* background = GetBackgroundColor();
  const ColorFormat format = GetSurface().GetColorFormat();
  const bool redFirst = format == RGB24 || format == RGB32 || format == RGBA;
  const uint8_t key0 = redFirst ? background[0] : background[2];
  const uint8_t key2 = redFirst ? background[2] : background[0];
  m_Overlay =
      std::make_unique<CmColorKeyOverlay>(GetSurface(), parameters, key0, background[1], key2, 0);
}

void CmTextOverlay::Execute(CmImage& image) {
  if (m_Text.empty()) {
    return;
  }
  UpdateImageOverlay(image);
  m_Overlay->Execute(image);
}

void CmTextOverlay::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  if (m_Text.empty()) {
    destination = source;
    return;
  }
  UpdateImageOverlay(source);
  m_Overlay->Execute(source, destination);
}

} // namespace NmMediaProcessing
