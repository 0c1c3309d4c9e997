#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgResize.h"

#include <cmath>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBoundingRectangleResize.h"
#include "MediaProcessing/Image/ImageResize.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ItemImage.h"

namespace NmToolkit {

using namespace NmMediaProcessing;

void CmImgResize::ReadConfiguration() {
  CmImageTransform::ReadConfiguration();
  const uint64_t width = ConfigurationCount(GetConfigurationNumber("width", 640));
  const uint64_t height = ConfigurationCount(GetConfigurationNumber("height", 480));
  const bool keep = GetConfigurationValue("keep_pixel_aspect_ratio", "false") == "true";
  SetTransformation([&] { return std::make_unique<CmImageResize>(width, height, keep); });
}

void CmImgBoxedResize::ReadConfiguration() {
  CmImageTransform::ReadConfiguration();
  const uint64_t width = ConfigurationCount(GetConfigurationNumber("width", 640));
  const uint64_t height = ConfigurationCount(GetConfigurationNumber("height", 480));
  const bool allowUpscaling = GetConfigurationValue("allow_upscaling", "true") == "true";
  SetTransformation([&] {
    return std::make_unique<CmImageBoundingRectangleResize>(
        width, height, allowUpscaling ? BoundingFit : BoundingFitWithoutEnlarging, 1.0);
  });
}

void CmImgFilledResize::ReadConfiguration() {
  CmImageTransform::ReadConfiguration();
  const uint64_t width = ConfigurationCount(GetConfigurationNumber("width", 640));
  const uint64_t height = ConfigurationCount(GetConfigurationNumber("height", 480));
  const double ratio = GetConfigurationNumber("pixel_aspect_ratio", 1.0);
  const bool allowUpscaling = GetConfigurationValue("allow_upscaling", "true") == "true";
  SetTransformation([&] {
    // A shape of no size, or none at all, would turn every size computation
    // of the box into nonsense.
    VZK_REQUIRE(std::isfinite(ratio) && ratio > 0.0, "Pixel aspect ratio must be positive",
                NmError::CmIntegrityErrorCode::InvalidArgument);
    return std::make_unique<CmImageFilledRectangleResize>(width, height, ratio, allowUpscaling);
  });
}

} // namespace NmToolkit
