#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgColorFormatConvert.h"

#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ItemImage.h"

namespace NmToolkit {

using namespace NmMediaProcessing;

CmImgColorFormatConvert::CmImgColorFormatConvert(const NmXerces::CmXmlNodePtr& node)
    : CmImageTransform(node), m_Formats{{"Gray", Gray},
                                        {"RGB24", RGB24},
                                        {"BGR24", BGR24},
                                        {"RGB32", RGB32},
                                        {"BGR32", BGR32},
                                        {"YCbCr420_Planar", YCbCr420_Planar},
                                        {"YCbCr422_Planar", YCbCr422_Planar},
                                        {"YCbCr444_Planar", YCbCr444_Planar},
                                        {"RGBA", RGBA},
                                        {"BGRA", BGRA}} {}

void CmImgColorFormatConvert::ReadConfiguration() {
  CmImageTransform::ReadConfiguration();
  const auto found = m_Formats.find(GetConfigurationValue("format", "Gray"));
  // A name nobody knows still gives pictures: grey ones.
  const ColorFormat format = found != m_Formats.end() ? found->second : Gray;
  const uint64_t alignment = ConfigurationCount(GetConfigurationNumber("row_alignment", 0));
  SetTransformation([&] { return std::make_unique<CmImageColorFormatConvert>(format, alignment); });
}

} // namespace NmToolkit
