#pragma once

#include "MediaProcessing/Image/ImageTransformation.h"

namespace NmMediaProcessing {

// A quarter turn clockwise; the orientation gains the turn and the pixel
// aspect ratio is inverted with it.
class CmImageRotate90Right : public CmBaseImageTransformation<ImImageTransformation> {
public:
  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageRotate90Right(*this); }
};

} // namespace NmMediaProcessing
