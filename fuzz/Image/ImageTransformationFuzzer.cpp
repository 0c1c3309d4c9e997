// Arbitrary bytes as an image with arbitrary attributes and a transformation
// with arbitrary settings: each either succeeds with an image whose planes
// match its size, or refuses with an error of the media layer. Nothing else
// may happen: no crash, no other exception, no read outside a plane.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/ImageBoundingRectangleResize.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Image/ImageDeinterlace.h"
#include "MediaProcessing/Image/ImageFlip.h"
#include "MediaProcessing/Image/ImageResize.h"
#include "MediaProcessing/Image/ImageRotate90Right.h"
#include "MediaProcessing/Image/NormalizeImage.h"
#include "Support/ByteReader.h"
#include "Support/Images.h"

using namespace NmMediaProcessing;

namespace {

using CmReader = NmFuzz::CmByteReader;

std::unique_ptr<ImImageTransformation> ReadTransformation(CmReader& in) {
  const uint8_t kind = in.Byte() % 11;
  switch (kind) {
  case 0:
    return std::make_unique<CmImageColorFormatConvert>(static_cast<ColorFormat>(in.Byte() % 10),
                                                       in.Byte() % 2 ? 64 : 0);
  case 1:
    return std::make_unique<CmImageResize>(1 + in.Below(80), 1 + in.Below(80), in.Byte() % 2);
  case 2:
    return std::make_unique<CmImageBoundingRectangleResize>(in.Below(80), 1 + in.Below(80),
                                                            in.Byte() % 3, 0.25 + in.Byte() / 64.0);
  case 3:
    return std::make_unique<CmImageFilledRectangleResize>(1 + in.Below(80), 1 + in.Below(80),
                                                          0.25 + in.Byte() / 64.0, in.Byte() % 2);
  case 4:
    return std::make_unique<CmImageCrop>(in.Below(40), in.Below(40), 1 + in.Below(40),
                                         1 + in.Below(40));
  case 5:
    return std::make_unique<CmImageFlipVertically>();
  case 6:
    return std::make_unique<CmImageFlipHorizontally>();
  case 7:
    return std::make_unique<CmImageRotate90Right>();
  case 8:
    return std::make_unique<CmNormalizeImageOrientation>(NmFuzz::OrientationFrom(in.Byte()));
  case 9:
    return std::make_unique<CmNormalizeImage>(in.Byte() % 2, NmFuzz::OrientationFrom(in.Byte()),
                                              in.Byte() % 2);
  default:
    return std::make_unique<CmImageDeinterlaceCAVT>(in.Byte() % 2, in.Byte());
  }
}

void CheckPlanes(const CmImage& image) {
  if (!image.IsValid()) {
    return;
  }
  const auto& allocator = image.Allocator();
  for (uint64_t p = 0; p < allocator.GetPlaneCount(); ++p) {
    const SmPlaneSize expected =
        GetPlaneSize(image.GetColorFormat(), p, image.GetWidth(), image.GetHeight());
    const auto plane = allocator.GetPlane(p);
    NmFuzz::Require(plane.width == expected.width && plane.height == expected.height);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CmReader in(data, size);
  const auto format = static_cast<ColorFormat>(in.Byte() % 10);
  const uint64_t width = 1 + in.Below(48);
  const uint64_t height = 1 + in.Below(48);
  CmImage image;
  image.Allocate(width, height, format);
  auto& attributes = image.GetAttributes();
  attributes.subColorFormat = static_cast<SubColorFormat>(in.Byte() % 5);
  attributes.interlacing = static_cast<Interlacing>(in.Byte() % 8);
  attributes.orientation = NmFuzz::OrientationFrom(in.Byte());
  attributes.aspectRatio = 0.25 + in.Byte() / 32.0;
  std::unique_ptr<ImImageTransformation> transformation;
  try {
    transformation = ReadTransformation(in);
  } catch (const NmError::CmError&) {
    return 0;
  }
  transformation->SetOptions(in.Byte() % 8);
  size_t pixelBytes = 0;
  const uint8_t* pixels = in.Rest(pixelBytes);
  size_t next = 0;
  NmFuzz::FillPlanes(image, [&](auto...) { return pixelBytes ? pixels[next++ % pixelBytes] : 0; });
  const bool inPlace = in.Byte() % 2;
  try {
    CmImage result;
    if (inPlace) {
      transformation->Execute(image);
      CheckPlanes(image);
    } else {
      transformation->Execute(image, result);
      CheckPlanes(result);
    }
  } catch (const NmError::CmError&) {
  }
  return 0;
}
