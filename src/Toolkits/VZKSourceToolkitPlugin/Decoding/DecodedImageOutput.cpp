#include "Toolkits/VZKSourceToolkitPlugin/Decoding/DecodedImageOutput.h"

#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageDeinterlace.h"
#include "MediaProcessing/Image/NormalizeImage.h"
#include "vzk/ToolkitError.h"

namespace NmToolkit {

using namespace NmMediaProcessing;

namespace {

// The deinterlacer's threshold on the difference between a row and its
// neighbours' mean above which a row counts as combed.
constexpr uint32_t CAVTThreshold = 12;

} // namespace

CmDecodedImageOutput::CmDecodedImageOutput() {
  Configure(false, false, true, false);
}

void CmDecodedImageOutput::Configure(bool luminanceOnly, bool normalizeAspectRatio,
                                     bool deinterlaceCAVT, bool flippedVertically) {
  m_LuminanceOnly = luminanceOnly;
  Orientation target;
  target.flippedVertically = flippedVertically;
  if (deinterlaceCAVT) {
    m_Transformation = std::make_unique<CmNormalizeImage>(
        normalizeAspectRatio, target, CmImageDeinterlaceCAVT(!normalizeAspectRatio, CAVTThreshold));
  } else {
    m_Transformation = std::make_unique<CmNormalizeImage>(normalizeAspectRatio, target);
  }
}

CmImage CmDecodedImageOutput::Transform(const CmImage& image) const {
  CmImage source = image;
  if (m_LuminanceOnly && source.IsValid() && source.GetColorFormat() != Gray) {
    CmImage gray;
    CmImageColorFormatConvert(Gray).Execute(source, gray);
    source = gray;
  }
  CmImage result;
  m_Transformation->Execute(source, result);
  return result;
}

void CmDecodedImageOutput::BuildPerFrameNames(const std::set<std::string>& passedProperties) {
  m_PerFrameNames.clear();
  for (const char* name : {NmPropertyNames::SequenceNumber, NmPropertyNames::HasMotion,
                           NmPropertyNames::RecordedSignatures, NmPropertyNames::ExportedSignatures,
                           NmPropertyNames::ExportDisallowed}) {
    if (passedProperties.count(name) != 0) {
      m_PerFrameNames.insert(name);
    }
  }
}

void CmDecodedImageOutput::CopyPerFrameProperties(const ImData* item,
                                                  CmVZKSourceToolkitProperties& out) const {
  if (item == nullptr) {
    return;
  }
  for (const std::string& name : m_PerFrameNames) {
    try {
      if (const ImProperty* property = item->GetProperty(name)) {
        out.SetProperty(name, std::unique_ptr<ImProperty>(property->Clone()));
      }
    } catch (const ImToolkitError&) {
      // The property is left out; the picture still goes.
    }
  }
}

} // namespace NmToolkit
