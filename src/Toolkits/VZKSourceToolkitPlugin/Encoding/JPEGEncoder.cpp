#include "Toolkits/VZKSourceToolkitPlugin/Encoding/JPEGEncoder.h"

#include <algorithm>
#include <memory>
#include <new>

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/NormalizeImage.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ItemImage.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/MediaData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"

namespace NmToolkit {

using namespace NmMediaProcessing;

void CmJPEGEncoder::ReadConfiguration() {
  // Beyond 32 bits is no quality; the encoder refuses anything above 100.
  m_Quality =
      std::min(ConfigurationCount(GetConfigurationNumber("quality", 75)), uint64_t{UINT32_MAX});
  m_Normalize = GetConfigurationValue("normalize", "true") == "true";
  m_KeepPixelAspectRatio = GetConfigurationValue("keep_pixel_aspect_ratio", "true") == "true";
  m_PassNonBitmaps = GetConfigurationValue("non_bitmap_pass_through", "false") == "true";
}

void CmJPEGEncoder::ProcessData(ImData* in, ImData** out) {
  const auto* picture = dynamic_cast<const ImImage*>(in);
  if (picture == nullptr) {
    if (!m_PassNonBitmaps) {
      throw CmInvalidOperationError<0>(GetElementName());
    }
    *out = in;
    return;
  }
  CmVZKSourceToolkitProperties properties;
  CopyPassedProperties(in, properties);
  std::unique_ptr<CmGenericVideoByteDataBlock> block;
  try {
    CmImage image = ImageOfItem(*picture);
    if (m_Normalize) {
      // Progressive and upright, so that any viewer shows the JPEG as it is
      // meant; square pixels unless the file is to carry the pixel shape.
      CmNormalizeImage(!m_KeepPixelAspectRatio, Orientation()).Execute(image);
    }
    block = m_Encoder.Encode(image, static_cast<uint32_t>(m_Quality), m_KeepPixelAspectRatio);
  } catch (const NmError::CmError&) {
    block.reset();
  } catch (const std::bad_alloc&) {
    block.reset();
  }
  auto result = std::make_unique<CmMediaDataVector>(
      std::make_unique<CmVZKSourceToolkitProperties>(properties));
  if (block) {
    // The element copies the bytes, so the encoder's block can go.
    std::unique_ptr<ImMediaData> element =
        std::make_unique<CmMediaData>(block->GetData(), block->GetLength(),
                                      std::make_unique<CmVZKSourceToolkitProperties>(properties));
    result->AddElement(std::move(element),
                       std::make_unique<CmVZKSourceToolkitProperties>(properties));
  }
  *out = result.release();
}

} // namespace NmToolkit
