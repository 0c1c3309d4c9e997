#pragma once

#include <cstdint>

#include "MediaProcessing/Image/BaseOverlayTransformation.h"

namespace NmMediaProcessing {

// Lays a picture on images, letting the image show wherever the picture has
// the key colour. The key bytes are in the picture's own byte order.
class CmColorKeyOverlay : public CmBaseOverlayTransformation {
public:
  CmColorKeyOverlay(const CmImage& overlay, const CmOverlayParameters& parameters, uint8_t key0,
                    uint8_t key1, uint8_t key2, uint8_t key3);
  CmColorKeyOverlay(const CmColorKeyOverlay& other);

  using CmBaseOverlayTransformation::Execute;
  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageOverlayTransformation* CloneOverlay() const override {
    return new CmColorKeyOverlay(*this);
  }

  const CmImage& GetOverlay() const { return m_Overlay; }
  uint8_t GetKey(int index) const { return m_Key[index & 3]; }

private:
  void UpdateScaledOverlay(const CmImage& image);
  void UpdateMask(const CmImage& image);
  bool CanUseKeyDirectly(const CmImage& source) const;

  CmImage m_Overlay;
  CmImage m_ScaledOverlay;
  CmImage m_Mask;
  uint8_t m_Key[4];
};

} // namespace NmMediaProcessing
