#pragma once

#include <memory>

#include "MediaProcessing/Image/ImageResize.h"

namespace NmMediaProcessing {

// How a picture meets its box: fit inside, fit inside without enlarging, or
// cover the whole box.
enum ResizeBoundingMode : uint32_t {
  BoundingFit = 0,
  BoundingFitWithoutEnlarging = 1,
  BoundingCover = 2,
};

// Scales an image into (or over) a box while keeping the picture's shape,
// judged with the pixel aspect ratios of source and target. A box side of 0
// is derived from the other.
class CmImageBoundingRectangleResize : public CmBaseImageTransformation<ImImageTransformation> {
public:
  CmImageBoundingRectangleResize(uint64_t width, uint64_t height, uint32_t mode,
                                 double targetAspectRatio);
  // A copy does not take the cached resize; it makes its own on first use.
  CmImageBoundingRectangleResize(const CmImageBoundingRectangleResize& other);

  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override {
    return new CmImageBoundingRectangleResize(*this);
  }

private:
  uint64_t m_Width;
  uint64_t m_Height;
  uint32_t m_Mode;
  double m_TargetAspectRatio;
  std::unique_ptr<CmImageResize> m_Resize;
};

// Scales an image to fit a box and centres it on black of the box's size, so
// that the result always has the box's size.
class CmImageFilledRectangleResize : public CmBaseImageTransformation<ImImageTransformation> {
public:
  CmImageFilledRectangleResize(uint64_t width, uint64_t height, double targetAspectRatio,
                               bool allowEnlarge);

  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageFilledRectangleResize(*this); }

private:
  uint64_t m_Width;
  uint64_t m_Height;
  double m_TargetAspectRatio;
  CmImageBoundingRectangleResize m_Bounding;
};

} // namespace NmMediaProcessing
