#pragma once

#include <memory>
#include <set>
#include <string>

#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Image/ImageTransformation.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitProperties.h"

namespace NmToolkit {

// What the decoding toolkits do to a picture between decoder and host, and
// the properties they copy per frame: the part the decoders share.
class CmDecodedImageOutput {
public:
  CmDecodedImageOutput();

  // Builds the output transformation from the configuration keys' values.
  void Configure(bool luminanceOnly, bool normalizeAspectRatio, bool deinterlaceCAVT,
                 bool flippedVertically);
  bool GetLuminanceOnly() const { return m_LuminanceOnly; }

  // The picture as it leaves: grey first when only luminance is wanted, then
  // deinterlaced, upright, flipped as configured. Raises NmError::CmError as
  // the transformations do.
  NmMediaProcessing::CmImage Transform(const NmMediaProcessing::CmImage& image) const;

  // The pass-through names among those passed on, fixed at Connect.
  void BuildPerFrameNames(const std::set<std::string>& passedProperties);
  // Clones each per-frame property that `item` has into `out`. An upstream
  // item that fails to answer only leaves the picture with fewer properties.
  void CopyPerFrameProperties(const ImData* item, CmVZKSourceToolkitProperties& out) const;
  const std::set<std::string>& GetPerFrameNames() const { return m_PerFrameNames; }

private:
  bool m_LuminanceOnly = false;
  std::unique_ptr<NmMediaProcessing::ImImageTransformation> m_Transformation;
  std::set<std::string> m_PerFrameNames;
};

} // namespace NmToolkit
