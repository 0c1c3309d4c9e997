#pragma once

#include <cstdint>
#include <memory>

#include "MediaProcessing/Image/BaseOverlayTransformation.h"
#include "MediaProcessing/Image/MaskRepository.h"

namespace NmMediaProcessing {

// The colour of a mask in the bytes of an image's format and range.
struct SmMaskColor {
  uint8_t sample[3] = {0, 0, 0};
};
// R, G, B become what the format stores: packed formats in their byte order,
// YCbCr and Gray by the equations of the sub-colour format (JFIF for 1,
// BT.601 video range for 2, BT.601 full range for 3; JFIF when none is set).
SmMaskColor ConvertMaskColor(uint8_t red, uint8_t green, uint8_t blue, ColorFormat format,
                             SubColorFormat subColorFormat);

// Burns a privacy mask into images in a solid colour. The mask follows the
// repository's definition for each image's time.
class CmColorMaskingOverlay : public CmBaseOverlayTransformation {
public:
  CmColorMaskingOverlay(const ImMaskRepository& repository, uint8_t red, uint8_t green,
                        uint8_t blue);
  CmColorMaskingOverlay(const CmColorMaskingOverlay& other);

  using CmBaseOverlayTransformation::Execute;
  void Execute(CmImage& image) override;
  ImImageOverlayTransformation* CloneOverlay() const override {
    return new CmColorMaskingOverlay(*this);
  }

  // The cached masks, for inspection: full size and chroma size.
  const CmImage& GetLumaMask() const { return m_LumaMask; }
  const CmImage& GetChromaMask() const { return m_ChromaMask; }

private:
  bool NeedsUpdate(const CmImage& image);
  void UpdateMasks(const CmImage& image);
  void UpdateColor(const CmImage& image);

  std::unique_ptr<ImMaskRepository> m_Repository;
  std::unique_ptr<ImMaskDefinition> m_Definition;
  CmTimeSpan m_ValidSpan;
  CmImage m_LumaMask;
  CmImage m_ChromaMask;
  uint8_t m_Red;
  uint8_t m_Green;
  uint8_t m_Blue;
  SmMaskColor m_ColorCurrent;
  ColorFormat m_ColorFormatCurrent = ColorFormatNone;
  uint32_t m_LastSubColorFormat = NotApplicable;
};

} // namespace NmMediaProcessing
