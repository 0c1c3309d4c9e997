#pragma once

#include "MediaProcessing/Image/ImageTransformation.h"

namespace NmMediaProcessing {

// Converts an image to a target colour format. Conversions that only relabel
// or share planes cost no pixel work.
class CmImageColorFormatConvert : public CmBaseImageTransformation<ImImageTransformation> {
public:
  // alignment 0 leaves the row alignment to the allocator.
  explicit CmImageColorFormatConvert(ColorFormat target, uint64_t alignment = 0);

  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageColorFormatConvert(*this); }

private:
  void PerformConversionRGB(const CmImage& source, CmImage& destination);
  void PerformConversionYCbCr(const CmImage& source, CmImage& destination);
  void PerformConversionRGBToYCbCr(const CmImage& source, CmImage& destination);
  void PerformConversionYCbCrToRGB(const CmImage& source, CmImage& destination);
  // Full-range 4:2:0 and 4:2:2 to RGB with chroma enlarged by linear
  // interpolation, one band of rows at a time.
  void ConvertInBlocks(const CmImage& source, CmImage& destination);
  void ResampleChromaByFields(const CmImage& source, CmImage& destination);

  ColorFormat m_Target;
  uint64_t m_Alignment;
};

} // namespace NmMediaProcessing
