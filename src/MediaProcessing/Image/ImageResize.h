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

  // Makes Execute give only the part at (x, y) of the given size of the
  // resized picture, the same to the bit as cropping the whole would, at the
  // cost of that part alone: an overlay enlarged far beyond the picture it
  // covers is computed only where it shows.
  void SetOutputWindow(uint64_t x, uint64_t y, uint64_t width, uint64_t height);

  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageResize(*this); }

  uint64_t GetWidth() const { return m_Width; }
  uint64_t GetHeight() const { return m_Height; }

private:
  struct SmWindow {
    uint64_t x = 0, y = 0, width = 0, height = 0;
  };

  bool HasWindow() const;
  // The window resized directly, for windows that a crop of the whole would
  // not first turn into full chroma resolution.
  void ExecuteWindow(const CmImage& source, CmImage& destination, int32_t mode, bool superSampling);
  void ExecuteOddChromaWindow(const CmImage& source, CmImage& destination);
  void CopyResizedAttributes(const CmImage& source, CmImage& destination) const;

  uint64_t m_Width;
  uint64_t m_Height;
  bool m_KeepAspectRatioAttribute;
  SmWindow m_Window;
};

} // namespace NmMediaProcessing
