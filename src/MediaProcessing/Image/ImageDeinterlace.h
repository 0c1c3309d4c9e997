#pragma once

#include "MediaProcessing/Image/ImageTransformation.h"

namespace NmMediaProcessing {

// Makes any image progressive by rearranging fields: interleaved rows stay,
// separate fields are woven together, a single field is shown at half aspect
// or stretched to full height.
class CmImageDeinterlace : public CmBaseImageTransformation<ImImageTransformation> {
public:
  explicit CmImageDeinterlace(bool halveAspectForSingleField)
      : m_HalveAspectForSingleField(halveAspectForSingleField) {}

  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageDeinterlace(*this); }

private:
  bool m_HalveAspectForSingleField;
};

// Rearranges as above, then filters the odd rows of every plane so that the
// comb of two fields taken at different times fades while detail stays.
class CmImageDeinterlaceCAVT : public CmBaseImageTransformation<ImImageTransformation> {
public:
  CmImageDeinterlaceCAVT(bool halveAspectForSingleField, uint32_t threshold)
      : m_HalveAspectForSingleField(halveAspectForSingleField), m_Threshold(threshold) {}

  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmImageDeinterlaceCAVT(*this); }

private:
  bool m_HalveAspectForSingleField;
  uint32_t m_Threshold;
};

} // namespace NmMediaProcessing
