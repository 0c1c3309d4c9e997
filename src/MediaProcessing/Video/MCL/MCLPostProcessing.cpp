#include "MediaProcessing/Video/MCL/MCLPostProcessing.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "Codecs/MCL/VideoData.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageResize.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"
#include "MediaProcessing/Video/MCL/MCLVideoDataWrapper.h"

namespace NmMediaProcessing {

namespace {

// A CmImage over the decoder's picture, without a copy.
CmImage ViewOf(const MCL::VideoData& picture, ColorFormat format) {
  std::vector<std::pair<uint64_t, uint8_t*>> buffers;
  for (int i = 0; i < picture.GetPlaneCount(); ++i) {
    buffers.emplace_back(picture.GetPlanePitch(i), picture.GetPlanePointer(i));
  }
  CmImage view(std::make_unique<CmStaticImageAllocator>(static_cast<uint64_t>(picture.GetWidth()),
                                                        static_cast<uint64_t>(picture.GetHeight()),
                                                        format, buffers));
  // Decoded luma and chroma are video range; the converters need to be told.
  if (format == Gray || IsMultiPlaneFormat(format)) {
    view.GetAttributes().subColorFormat = SubColorFormatVideoRange;
  }
  return view;
}

void CopyPlanes(const CmImage& source, CmImage& destination) {
  for (uint64_t i = 0; i < source.Allocator().GetPlaneCount(); ++i) {
    const ImImageMemoryAllocation::CmPlane from = source.Allocator().GetPlane(i);
    const ImImageMemoryAllocation::CmWriteablePlane to =
        destination.Allocator().GetWriteablePlane(i);
    const uint64_t rowBytes = from.width * from.pixelStride;
    for (uint64_t y = 0; y < from.height; ++y) {
      std::memcpy(to.data + y * to.rowStride, from.data + y * from.rowStride, rowBytes);
    }
  }
}

} // namespace

MCL::Status CmSpecialMCLVideoDecoderProcessing::Init(const MCL::VideoProcessingParams& params) {
  m_Active = false;
  return MCL::VideoProcessing::Init(params);
}

MCL::Status CmSpecialMCLVideoDecoderProcessing::GetFrame(MCL::MediaData* input,
                                                         MCL::MediaData* output) {
  auto* picture = dynamic_cast<MCL::VideoData*>(input);
  auto* target = dynamic_cast<MCL::VideoData*>(output);
  if (picture == nullptr || target == nullptr) {
    return MCL::StatusNullPointer;
  }
  if (m_SkipOutput) {
    target->SetTime(picture->GetTime());
    return MCL::StatusOk;
  }
  // Only a wrapper has an image behind it to allocate.
  auto* wrapper = dynamic_cast<CmMCLVideoDataWrapper*>(output);
  if (wrapper == nullptr) {
    return MCL::StatusNullPointer;
  }
  try {
    const ColorFormat sourceFormat =
        CmMCLVideoDataWrapper::FromMCLFormat(picture->GetColorFormat());
    const ColorFormat targetFormat = m_LuminanceOnly ? Gray : sourceFormat;
    const uint64_t width =
        std::max<uint64_t>(1, static_cast<uint64_t>(picture->GetWidth()) / m_ScaleDivisor);
    const uint64_t height =
        std::max<uint64_t>(1, static_cast<uint64_t>(picture->GetHeight()) / m_ScaleDivisor);

    CmMCLVideoDataWrapper::CheckDimensions(targetFormat, width, height);
    CmImage& image = wrapper->GetImage();
    if (!image.IsValid() || image.GetWidth() != width || image.GetHeight() != height ||
        image.GetColorFormat() != targetFormat) {
      image.Allocate(width, height, targetFormat);
    }

    const CmImage source = ViewOf(*picture, sourceFormat);
    if (targetFormat == sourceFormat && m_ScaleDivisor == 1) {
      CopyPlanes(source, image);
    } else if (m_ScaleDivisor == 1) {
      CmImageColorFormatConvert(targetFormat).Execute(source, image);
    } else if (targetFormat == sourceFormat) {
      CmImageResize(width, height, true).Execute(source, image);
    } else {
      CmImage converted;
      CmImageColorFormatConvert(targetFormat).Execute(source, converted);
      CmImageResize(width, height, true).Execute(converted, image);
    }

    // The wrapper keeps describing the image the caller gave; the picture's
    // own attributes travel back through it.
    wrapper->SetTime(picture->GetTime());
    wrapper->SetPictureStructure(picture->GetPictureStructure());
    wrapper->SetAspectRatio(picture->GetAspectHorizontal(), picture->GetAspectVertical());
    m_Active = true;
    return MCL::StatusOk;
  } catch (const std::bad_alloc&) {
    return MCL::StatusNoMemory;
  } catch (const NmError::CmIntegrityError& refusal) {
    m_Refusal = std::make_unique<NmError::CmIntegrityError>(refusal);
    return MCL::StatusFailed;
  } catch (...) {
    return MCL::StatusFailed;
  }
}

} // namespace NmMediaProcessing
