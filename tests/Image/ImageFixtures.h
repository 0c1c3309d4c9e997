#pragma once

#include <deque>
#include <functional>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"
#include "support/ImageTestSupport.h"

namespace NmImageTest {

// A picture of noise; planar and grey pictures in video range unless told.
inline NmMediaProcessing::CmImage
MakeImage(uint64_t width, uint64_t height, NmMediaProcessing::ColorFormat format, uint32_t seed = 1,
          NmMediaProcessing::Interlacing interlacing = NmMediaProcessing::Progressive,
          std::optional<NmMediaProcessing::SubColorFormat> sub = std::nullopt) {
  using namespace NmMediaProcessing;
  CmImage image;
  image.Allocate(width, height, format);
  FillRandom(image, seed + static_cast<uint32_t>(width * 7 + height * 3 + format));
  image.GetAttributes().subColorFormat = sub.value_or(
      IsMultiPlaneFormat(format) || format == Gray ? SubColorFormatVideoRange : NotApplicable);
  image.GetAttributes().interlacing = interlacing;
  return image;
}

// The samples of every plane, row by row, without stride gaps: two images
// show the same picture when these are equal and their formats agree.
inline std::vector<std::vector<uint8_t>> Planes(const NmMediaProcessing::CmImage& image) {
  std::vector<std::vector<uint8_t>> planes;
  for (uint64_t i = 0; i < image.Allocator().GetPlaneCount(); ++i) {
    const auto plane = image.Allocator().GetPlane(i);
    std::vector<uint8_t>& out = planes.emplace_back();
    for (uint64_t y = 0; y < plane.height; ++y) {
      for (uint64_t x = 0; x < plane.width; ++x) {
        const uint8_t* pixel = plane.GetPixelAddress(x, y);
        out.insert(out.end(), pixel, pixel + plane.bytesPerPixel);
      }
    }
  }
  return planes;
}

// Column x of a plane: every row, or the rows listed.
inline std::vector<uint8_t> Column(const NmMediaProcessing::CmImage& image, uint64_t plane,
                                   uint64_t x, std::vector<uint64_t> rows = {}) {
  const auto p = image.Allocator().GetPlane(plane);
  if (rows.empty()) {
    rows.resize(p.height);
    std::iota(rows.begin(), rows.end(), 0);
  }
  std::vector<uint8_t> column;
  for (const uint64_t y : rows) {
    column.push_back(p.GetPixelAddress(x, y)[0]);
  }
  return column;
}

// Byte x of row y of plane p holds 64 p + 16 y + x (modulo 256): planes, rows
// and columns tell themselves apart from their neighbours.
inline void FillPattern(NmMediaProcessing::ImImageMemoryAllocation& allocation) {
  for (uint64_t p = 0; p < allocation.GetPlaneCount(); ++p) {
    const auto plane = allocation.GetWriteablePlane(p);
    for (uint64_t y = 0; y < plane.height; ++y) {
      for (uint64_t x = 0; x < plane.width * plane.pixelStride; ++x) {
        plane.data[y * plane.rowStride + x] = static_cast<uint8_t>(64 * p + 16 * y + x);
      }
    }
  }
}

// A rotation in quarter turns clockwise and the mirrors.
inline NmMediaProcessing::Orientation MakeOrientation(uint32_t rotation, bool vertical,
                                                      bool horizontal) {
  NmMediaProcessing::Orientation o;
  o.rotation = rotation;
  o.flippedVertically = vertical;
  o.flippedHorizontally = horizontal;
  return o;
}

inline bool SamePicture(const NmMediaProcessing::CmImage& a, const NmMediaProcessing::CmImage& b) {
  return a.GetColorFormat() == b.GetColorFormat() && a.GetWidth() == b.GetWidth() &&
         Planes(a) == Planes(b);
}

// What a transformation makes of a picture, the picture left as it is.
template <typename Transformation>
NmMediaProcessing::CmImage Applied(Transformation&& transformation,
                                   const NmMediaProcessing::CmImage& source) {
  NmMediaProcessing::CmImage result;
  transformation.Execute(source, result);
  return result;
}

// A bare allocator of the given shape, for the shape checks of helpers.
inline NmMediaProcessing::CmReferenceCountingImageAllocator
Allocated(uint64_t width, uint64_t height, NmMediaProcessing::ColorFormat format,
          uint64_t alignment = 0) {
  NmMediaProcessing::CmReferenceCountingImageAllocator allocator;
  if (alignment == 0) {
    allocator.Allocate(width, height, format);
  } else {
    allocator.Allocate(width, height, format, alignment);
  }
  return allocator;
}

// An allocator that lives to the end of the run, for refused calls that
// only need its shape.
inline NmMediaProcessing::CmReferenceCountingImageAllocator&
Kept(const NmMediaProcessing::CmReferenceCountingImageAllocator& allocator) {
  static std::deque<NmMediaProcessing::CmReferenceCountingImageAllocator> kept;
  return kept.emplace_back(allocator);
}

// One refused call: what it must throw, and optionally where.
struct SmRefusal {
  std::function<void()> call;
  std::string message;
  uint32_t code;
  std::string function = "";
};

template <typename Error = NmError::CmIntegrityError>
void ExpectRefusals(const std::vector<SmRefusal>& refusals) {
  for (const SmRefusal& r : refusals) {
    ExpectError<Error>(r.call, r.message, r.code, r.function);
  }
}

} // namespace NmImageTest
