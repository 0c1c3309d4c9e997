#pragma once

#include "MediaProcessing/Image/ImageTransformation.h"

namespace NmMediaProcessing {

// Mirrors the pixels and records the mirror in the orientation, so that the
// attribute keeps saying how the stored picture differs from the upright one.
class CmImageFlipVertically : public CmBaseImageTransformation<ImImageTransformation> {
public:
  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageFlipVertically(*this); }
};

class CmImageFlipHorizontally : public CmBaseImageTransformation<ImImageTransformation> {
public:
  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageFlipHorizontally(*this); }
};

} // namespace NmMediaProcessing
