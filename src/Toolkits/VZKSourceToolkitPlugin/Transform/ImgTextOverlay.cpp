#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgTextOverlay.h"

#include "MediaProcessing/Image/TextOverlay.h"

namespace NmToolkit {

void CmImgTextOverlay::ReadConfiguration() {
  CmImageTransform::ReadConfiguration();
  const std::string text = GetConfigurationValue("overlay", std::string());
  // The text is painted once per picture size, so an unchanged text keeps
  // the overlay that has already painted it.
  const auto* current = dynamic_cast<const NmMediaProcessing::CmTextOverlay*>(GetTransformation());
  if (current != nullptr && current->GetText() == text) {
    return;
  }
  SetTransformation([&] {
    return std::make_unique<NmMediaProcessing::CmTextOverlay>(
        text, NmMediaProcessing::CmOverlayParameters());
  });
}

} // namespace NmToolkit
