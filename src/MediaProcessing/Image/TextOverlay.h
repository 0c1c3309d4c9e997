#pragma once

#include <memory>
#include <string>

#include "MediaProcessing/Image/ColorKeyOverlay.h"
#include "MediaProcessing/Image/TextOverlayOS.h"

namespace NmMediaProcessing {

// A text laid on images: painted once per font size, then laid on each image
// as a colour-key overlay.
class CmTextOverlay : public CmTextOverlayOS {
public:
  // text is UTF-8; an empty fontName means the default font.
  CmTextOverlay(std::string text, const CmOverlayParameters& parameters,
                std::string fontName = std::string());

  using CmTextOverlayOS::Execute;
  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageOverlayTransformation* CloneOverlay() const override {
    return new CmTextOverlay(m_Text, m_Parameters, m_FontName);
  }

  const std::string& GetText() const { return m_Text; }

private:
  void UpdateImageOverlay(const CmImage& image);

  std::string m_Text;
  std::string m_FontName;
  std::unique_ptr<CmColorKeyOverlay> m_Overlay;
};

} // namespace NmMediaProcessing
