#pragma once

#include "MediaProcessing/Image/ImageTransformation.h"

namespace NmMediaProcessing {

// Cuts a rectangle out of an image. For reference-counted images no pixel
// moves: the planes are shared and only their views change.
class CmImageCrop : public CmBaseImageTransformation<ImImageTransformation> {
public:
  CmImageCrop(uint64_t x, uint64_t y, uint64_t width, uint64_t height);

  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageCrop(*this); }

private:
  uint64_t m_X;
  uint64_t m_Y;
  uint64_t m_Width;
  uint64_t m_Height;
};

} // namespace NmMediaProcessing
