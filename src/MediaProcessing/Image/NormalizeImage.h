#pragma once

#include <memory>

#include "MediaProcessing/Image/ImageTransformation.h"

namespace NmMediaProcessing {

// Turns and mirrors an image until its stored orientation equals the target,
// in one pass over the pixels where a turn is involved.
class CmNormalizeImageOrientation : public CmBaseImageTransformation<ImImageTransformation> {
public:
  explicit CmNormalizeImageOrientation(const Orientation& target) : m_Target(target) {}

  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmNormalizeImageOrientation(*this); }

private:
  Orientation m_Target;
};

// Makes an image progressive, brings it to the target orientation and, when
// asked, stretches it to square pixels.
class CmNormalizeImage : public CmBaseImageTransformation<ImImageTransformation> {
public:
  // The deinterlacer is cloned; without one a CmImageDeinterlace is used.
  CmNormalizeImage(bool correctAspectRatio, const Orientation& target,
                   const ImImageTransformation& deinterlacer);
  CmNormalizeImage(bool correctAspectRatio, const Orientation& target,
                   bool halveAspectForSingleField = false);
  CmNormalizeImage(const CmNormalizeImage& other);

  void Execute(CmImage& image) override;
  void Execute(const CmImage& source, CmImage& destination) override;
  ImImageTransformation* Clone() const override { return new CmNormalizeImage(*this); }

private:
  void CorrectAspectRatio(CmImage& image) const;

  bool m_CorrectAspectRatio;
  Orientation m_Target;
  std::unique_ptr<ImImageTransformation> m_Deinterlacer;
};

} // namespace NmMediaProcessing
