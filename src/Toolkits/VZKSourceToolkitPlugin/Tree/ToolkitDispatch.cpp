#include <cstring>
#include <memory>
#include <string>

#include "Toolkits/VZKSourceToolkitPlugin/Decoding/ConditionalVideoDecoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/KeyFramesOnlyVideoDecoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Decoding/VideoDecoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Encoding/JPEGEncoder.h"
#include "Toolkits/VZKSourceToolkitPlugin/Stream/SyntheticLive.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/ApplyPrivacyMask.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgColorFormatConvert.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgCrop.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgResize.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/ImgTextOverlay.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/SetProperty.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

namespace NmToolkit {
namespace {

using CmToolkitCreator = std::unique_ptr<ImSourceToolkit> (*)(const NmXerces::CmXmlNodePtr& node);

template <typename Toolkit>
std::unique_ptr<ImSourceToolkit> Create(const NmXerces::CmXmlNodePtr& node) {
  return std::make_unique<Toolkit>(node);
}

struct SmToolkitEntry {
  const char* name;
  // Null while the toolkit is not built yet: the name then fails like an
  // unknown one, at Connect.
  CmToolkitCreator create;
};

// Transform toolkits, tried first and in this order.
constexpr SmToolkitEntry TransformToolkits[] = {
    {"image_resize", &Create<CmImgResize>},
    {"image_boxed_resize", &Create<CmImgBoxedResize>},
    {"image_filled_resize", &Create<CmImgFilledResize>},
    {"text_overlay", &Create<CmImgTextOverlay>},
    {"image_color_format_convert", &Create<CmImgColorFormatConvert>},
    {"image_crop", &Create<CmImgCrop>},
    {"jpeg_encoder", &Create<CmJPEGEncoder>},
    {"apply_privacy_mask", &Create<CmApplyPrivacyMask>},
    {"audio_decoder", nullptr},
    {"set_property", &Create<CmSetProperty>},
};

// Upstream toolkits of this library, tried after "toolkit".
constexpr SmToolkitEntry UpstreamToolkits[] = {
    {"video_decoder", &Create<CmVideoDecoder>},
    {"key_frames_only_video_decoder", &Create<CmKeyFramesOnlyVideoDecoder>},
    {"conditional_video_decoder", &Create<CmConditionalVideoDecoder>},
    {"synthetic_live", &Create<CmSyntheticLive>},
};

template <size_t N>
std::unique_ptr<ImSourceToolkit> CreateFrom(const SmToolkitEntry (&table)[N],
                                            const NmXerces::CmXmlNodePtr& node) {
  const std::string name = node->GetName();
  for (const SmToolkitEntry& entry : table) {
    // Exact comparison, by length and bytes.
    if (name.size() == std::strlen(entry.name) && name == entry.name) {
      return entry.create ? entry.create(node) : nullptr;
    }
  }
  return nullptr;
}

} // namespace

std::unique_ptr<ImSourceToolkit> CreateTransformToolkit(const NmXerces::CmXmlNodePtr& node) {
  return CreateFrom(TransformToolkits, node);
}

std::unique_ptr<ImSourceToolkit> CreateLibraryUpstreamToolkit(const NmXerces::CmXmlNodePtr& node) {
  return CreateFrom(UpstreamToolkits, node);
}

} // namespace NmToolkit
