#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgCrop.h"

#include <algorithm>
#include <cmath>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ItemImage.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {

using NmMediaProcessing::CmImageCrop;
using NmMediaProcessing::ImImageTransformation;

namespace {

// A fraction of an image side, inside [low, high] and truncated. The bounds
// come from the image and hold whatever the key said.
uint64_t FractionOfSide(double fraction, double side, double low, double high) {
  return static_cast<uint64_t>(std::clamp(side * fraction, low, high));
}

} // namespace

void CmImgCrop::ReadConfiguration() {
  CmImageTransform::ReadConfiguration();
  m_Relative = GetConfigurationValue("relative", "true") == "true";
  m_OffsetX = GetConfigurationNumber("offset_x", 0.0);
  m_OffsetY = GetConfigurationNumber("offset_y", 0.0);
  m_Width = GetConfigurationNumber("width", 1.0);
  m_Height = GetConfigurationNumber("height", 1.0);
}

std::unique_ptr<ImImageTransformation> CmImgCrop::MakeCrop(uint64_t imageWidth,
                                                           uint64_t imageHeight) const {
  for (const double value : {m_OffsetX, m_OffsetY, m_Width, m_Height}) {
    VZK_REQUIRE(!std::isnan(value), "Cropping area is not a number",
                NmError::CmIntegrityErrorCode::InvalidArgument);
  }
  if (!m_Relative) {
    return std::make_unique<CmImageCrop>(ConfigurationCount(m_OffsetX),
                                         ConfigurationCount(m_OffsetY), ConfigurationCount(m_Width),
                                         ConfigurationCount(m_Height));
  }
  // An empty picture has no fractions: the crop then refuses it.
  const double w = static_cast<double>(std::max<uint64_t>(imageWidth, 1));
  const double h = static_cast<double>(std::max<uint64_t>(imageHeight, 1));
  const uint64_t width = FractionOfSide(m_Width, w, 1.0, w);
  const uint64_t height = FractionOfSide(m_Height, h, 1.0, h);
  const uint64_t x = FractionOfSide(m_OffsetX, w, 0.0, w - static_cast<double>(width));
  const uint64_t y = FractionOfSide(m_OffsetY, h, 0.0, h - static_cast<double>(height));
  return std::make_unique<CmImageCrop>(x, y, width, height);
}

void CmImgCrop::ProcessData(ImData* in, ImData** out) {
  const auto* picture = dynamic_cast<const ImImage*>(in);
  // Fractions need a picture to be fractions of, even when nothing is cut.
  if (m_Relative && picture == nullptr) {
    throw CmInvalidOperationError<0>(GetElementName());
  }
  SetTransformation([&] {
    return picture ? MakeCrop(picture->GetWidth(), picture->GetHeight())
                   : std::unique_ptr<ImImageTransformation>();
  });
  CmImageTransform::ProcessData(in, out);
  m_Transformation.reset();
}

} // namespace NmToolkit
