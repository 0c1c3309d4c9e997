#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "MediaProcessing/Image/ImageTransformation.h"
#include "MediaProcessing/Image/MaskDefinition.h"
#include "MediaProcessing/Image/MaskRepository.h"

namespace NmToolkit {

// Keeps a privacy mask overlay in step with the mask text that items carry.
// Building the overlay parses the text and later paints cached mask planes,
// so it is rebuilt only when the text changes, not for every item.
//
// A text that is not a mask never lets a picture through unmasked: the
// overlay then refuses every image with an error, which the toolkits turn
// into an empty image.
class CmStandAloneAPM {
public:
  // The overlay is held here; masked pixels take the colour red, green, blue.
  explicit CmStandAloneAPM(uint8_t red = 0, uint8_t green = 0, uint8_t blue = 0);
  // The overlay is written into `overlaySlot`, which the owner applies itself
  // (a toolkit whose transformation is the mask). The slot must outlive this.
  explicit CmStandAloneAPM(std::unique_ptr<NmMediaProcessing::ImImageTransformation>& overlaySlot,
                           uint8_t red = 0, uint8_t green = 0, uint8_t blue = 0);
  CmStandAloneAPM(const CmStandAloneAPM&) = delete;
  CmStandAloneAPM& operator=(const CmStandAloneAPM&) = delete;

  // Replaces the overlay when `text` differs from the last one; the empty
  // text removes it.
  void SetMask(const std::string& text);
  // Paints the current mask into `image`; without an overlay the image is
  // left alone. Throws NmError::CmError when the mask cannot be applied.
  void Apply(NmMediaProcessing::CmImage& image);

  bool HasOverlay() const { return m_Overlay.get() != nullptr; }
  const NmMediaProcessing::ImImageTransformation* GetOverlay() const { return m_Overlay.get(); }
  const std::string& GetMaskText() const { return m_MaskText; }
  // Null without a mask, or when the last text was not one.
  const NmMediaProcessing::ImMaskDefinition* GetMaskDefinition() const {
    return m_MaskDefinition.get();
  }

private:
  std::unique_ptr<NmMediaProcessing::ImImageTransformation> m_OwnOverlay;
  std::unique_ptr<NmMediaProcessing::ImImageTransformation>& m_Overlay;
  std::unique_ptr<NmMediaProcessing::ImMaskDefinition> m_MaskDefinition;
  std::string m_MaskText;
  uint8_t m_Red;
  uint8_t m_Green;
  uint8_t m_Blue;
};

} // namespace NmToolkit
