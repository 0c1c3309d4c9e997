#include "Codecs/H264/Concealment.h"

#include "Codecs/H264/DecodingRecords.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace NmH264 {
namespace {

const CmPicture* NearestReference(const CmPicture& picture,
                                  const std::vector<SmReferenceFrame>& references) {
  const CmPicture* nearest = nullptr;
  int64_t distance = std::numeric_limits<int64_t>::max();
  for (const SmReferenceFrame& reference : references) {
    const CmPicture* candidate = reference.picture;
    if (candidate == nullptr || candidate == &picture ||
        candidate->GetWidthInMbs() != picture.GetWidthInMbs() ||
        candidate->GetHeightInMbs() != picture.GetHeightInMbs() ||
        candidate->IsMonochrome() != picture.IsMonochrome()) {
      continue;
    }
    const int64_t gap = std::llabs(static_cast<int64_t>(candidate->GetPoc()) -
                                   static_cast<int64_t>(picture.GetPoc()));
    if (gap < distance) {
      distance = gap;
      nearest = candidate;
    }
  }
  return nearest;
}

// One square of a plane, copied from the same place of another picture or
// set to grey.
void FillSquare(const CmPicture* source, CmPicture& picture, int component, uint32_t x, uint32_t y,
                uint32_t side) {
  const ptrdiff_t stride = picture.GetStride(component);
  uint8_t* to = picture.GetPlane(component) + static_cast<ptrdiff_t>(y) * stride + x;
  for (uint32_t row = 0; row < side; ++row, to += stride) {
    if (source != nullptr) {
      const uint8_t* from = source->GetPlane(component) +
                            static_cast<ptrdiff_t>(y + row) * source->GetStride(component) + x;
      std::memcpy(to, from, side);
    } else {
      std::memset(to, 128, side);
    }
  }
}

} // namespace

uint32_t ConcealMissingMacroblocks(CmPicture& picture,
                                   const std::vector<SmReferenceFrame>& references) {
  const uint32_t width = picture.GetWidthInMbs();
  const uint32_t count = width * picture.GetHeightInMbs();
  SmMacroblockInfo* macroblocks = picture.GetMacroblocks();
  uint32_t concealed = 0;
  const CmPicture* source = nullptr;
  bool looked = false;
  for (uint32_t address = 0; address < count; ++address) {
    SmMacroblockInfo& mb = macroblocks[address];
    if (mb.slice == UntouchedSlice) {
      // Still an earlier picture's: the loop filter beside it and the
      // motion kept of it must see a macroblock without motion or
      // coefficients, as for every picture before.
      mb = SmMacroblockInfo{};
    } else if (mb.slice != 0) {
      continue;
    }
    if (!looked) {
      source = NearestReference(picture, references);
      looked = true;
    }
    const uint32_t x = address % width;
    const uint32_t y = address / width;
    FillSquare(source, picture, 0, x * 16, y * 16, 16);
    if (!picture.IsMonochrome()) {
      FillSquare(source, picture, 1, x * 8, y * 8, 8);
      FillSquare(source, picture, 2, x * 8, y * 8, 8);
    }
    ++concealed;
  }
  return concealed;
}

} // namespace NmH264
