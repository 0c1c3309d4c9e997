#include "MediaProcessing/JPEG/SimpleJPEGEncoderWrapper.h"

#include "MediaProcessing/GenericByteData/ImageFormBits.h"

namespace NmMediaProcessing {

std::unique_ptr<CmGenericVideoByteDataBlock>
CmSimpleJPEGEncoderWrapper::Encode(const CmImage& image, uint32_t quality, bool writeAspectRatio) {
  const uint8_t* data = nullptr;
  uint64_t size = 0;
  if (!m_Encoder.Encode(image, quality, data, size, writeAspectRatio)) {
    return nullptr;
  }
  const CmStandardImageAttributes& attributes = image.GetAttributes();
  bool interlaced = false;
  bool topFieldFirst = false;
  uint32_t layout = 0;
  NmImageFormBits::InterlacingToBits(attributes.interlacing, interlaced, topFieldFirst, layout);
  // The block has room for a quarter turn and two mirrors only.
  const Orientation orientation = attributes.orientation.GetNormalForm();
  uint32_t flags = 0;
  if (orientation.flippedVertically) {
    flags |= NmImageFormBits::FlippedVertically;
  }
  if (orientation.flippedHorizontally) {
    flags |= NmImageFormBits::FlippedHorizontally;
  }
  if (orientation.rotation == 1) {
    flags |= NmImageFormBits::RotatedQuarterTurn;
  }
  auto block = std::make_unique<CmGenericVideoByteDataBlock>(true);
  const bool written =
      block->Allocate(size) && block->SetType(1) && block->CopyPayloadFrom(data, size) &&
      block->SetImageWidth(static_cast<uint32_t>(image.GetWidth())) &&
      block->SetImageHeight(static_cast<uint32_t>(image.GetHeight())) &&
      block->SetComponentCount(image.GetColorFormat() == Gray ? 1 : 3) && block->SetImageCount(1) &&
      // A block of one image begins and ends at its time.
      block->SetBeginTime(attributes.timeStamp) && block->SetEndTime(attributes.timeStamp) &&
      block->SetInterlacing(interlaced, topFieldFirst, layout) &&
      block->SetPictureFormat(NmImageFormBits::DecodePictureFormat(flags));
  return written ? std::move(block) : nullptr;
}

} // namespace NmMediaProcessing
