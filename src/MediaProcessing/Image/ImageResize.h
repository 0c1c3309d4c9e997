#pragma once

#include "MediaProcessing/Image/ImageTransformation.h"

namespace NmMediaProcessing {

// Scales an image to a fixed size. The interpolation follows the options:
// nearest neighbour when fast, super sampling when shrinking both ways with
// high quality, Lanczos for other high quality work, linear otherwise.
class CmImageResize : public CmBaseImageTransformation<ImImageTransformation> {
public:
  // With keepAspectRatioAttribute false the pixel aspect ratio is adjusted so
  // that the stretched picture keeps its shape on screen.
  CmImageResize(uint64_t width, uint64_t height, bool keepAspectRatioAttribute);

  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageResize(*this); }

  uint64_t GetWidth() const { return m_Width; }
  uint64_t GetHeight() const { return m_Height; }

private:
  uint64_t m_Width;
  uint64_t m_Height;
  bool m_KeepAspectRatioAttribute;
};

} // namespace NmMediaProcessing
