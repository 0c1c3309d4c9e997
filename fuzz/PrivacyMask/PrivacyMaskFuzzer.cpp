// Mask texts from outside: parsing must never fail loudly, and whatever it
// accepts must paint exactly the pixels it names on any picture. The first
// four bytes choose the picture (width, height, format, range and
// orientation), the rest is the mask text.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "MediaProcessing/Image/ColorMaskingOverlay.h"
#include "Support/ByteReader.h"
#include "Support/Images.h"

using namespace NmMediaProcessing;

namespace {

using NmFuzz::Require;

const ColorFormat Formats[] = {Gray, RGB24,           BGR24,           BGR32,
                               RGBA, YCbCr420_Planar, YCbCr422_Planar, YCbCr444_Planar};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) {
    return 0;
  }
  const uint64_t width = data[0] % 48 + 1;
  const uint64_t height = data[1] % 48 + 1;
  const ColorFormat format = Formats[data[2] % std::size(Formats)];
  const uint8_t options = data[3];
  const std::string_view text(reinterpret_cast<const char*>(data + 4), size - 4);

  uint64_t columns = 0;
  uint64_t rows = 0;
  std::vector<uint8_t> grid;
  const bool parsed = ParseMaskGrid(text, columns, rows, grid);
  const auto repository = ParseMaskString(text);
  Require(parsed == (repository != nullptr));
  if (!parsed) {
    Require(columns == 0 && rows == 0 && grid.empty());
    return 0;
  }
  Require(grid.size() == columns * rows);

  std::unique_ptr<ImMaskDefinition> definition;
  CmTimeSpan span;
  repository->GetMaskAt(NmTimeStamp::CmTimeStamp(), true, definition, span);

  // The mask image and the per-pixel answer agree everywhere.
  CmImage maskImage;
  definition->CreateMaskImage(width, height, maskImage);
  const auto maskPlane = maskImage.Allocator().GetPlane(0);
  for (uint64_t y = 0; y < height; ++y) {
    for (uint64_t x = 0; x < width; ++x) {
      const bool masked = definition->IsMaskedAtPosition(width, height, x, y);
      Require(maskPlane.GetPixelAddress(x, y)[0] == (masked ? 255 : 0));
    }
  }

  CmImage image;
  image.Allocate(width, height, format);
  NmFuzz::FillPlanes(image, [](uint64_t p, uint64_t x, uint64_t y) { return x * 7 + y * 13 + p; });
  const bool packed = format != Gray && !IsMultiPlaneFormat(format);
  image.GetAttributes().subColorFormat =
      packed ? NotApplicable
             : ((options & 1) != 0 ? SubColorFormatVideoRange : SubColorFormatFullRange);
  image.GetAttributes().orientation = NmFuzz::OrientationFrom(options >> 1);
  const CmImage original(image);

  CmColorMaskingOverlay overlay(*repository, options, static_cast<uint8_t>(options * 3), 77);
  overlay.Execute(image);
  if (definition->IsEmpty()) {
    return 0;
  }
  const SmMaskColor colour = ConvertMaskColor(options, static_cast<uint8_t>(options * 3), 77,
                                              format, image.GetAttributes().subColorFormat);
  const auto painted = image.Allocator().GetPlane(0);
  const auto before = original.Allocator().GetPlane(0);
  for (uint64_t y = 0; y < height; ++y) {
    for (uint64_t x = 0; x < width; ++x) {
      const bool masked = definition->IsMaskedAtPosition(width, height, x, y);
      const uint8_t* now = painted.GetPixelAddress(x, y);
      if (masked) {
        Require(now[0] == colour.sample[0]);
      } else if (!IsMultiPlaneFormat(format)) {
        // Without shared chroma the mask grows nowhere.
        Require(now[0] == before.GetPixelAddress(x, y)[0]);
      }
    }
  }
  return 0;
}
