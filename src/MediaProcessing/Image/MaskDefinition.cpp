#include "MediaProcessing/Image/MaskDefinition.h"

#include <cfenv>
#include <cmath>
#include <typeinfo>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {

// Cell edges must not move with a caller's rounding mode, or the same mask
// would paint differently on different threads.
class CmDefaultFloatingPointEnvironment {
public:
  CmDefaultFloatingPointEnvironment() {
    std::fegetenv(&m_Saved);
    std::fesetenv(FE_DFL_ENV);
  }
  ~CmDefaultFloatingPointEnvironment() { std::fesetenv(&m_Saved); }
  CmDefaultFloatingPointEnvironment(const CmDefaultFloatingPointEnvironment&) = delete;
  CmDefaultFloatingPointEnvironment& operator=(const CmDefaultFloatingPointEnvironment&) = delete;

private:
  std::fenv_t m_Saved;
};

uint64_t CellStartInDefaultEnvironment(uint64_t pixels, uint64_t cells, uint64_t cell) {
  const double size = static_cast<double>(pixels) / static_cast<double>(cells);
  return static_cast<uint64_t>(std::floor(size * static_cast<double>(cell) + 0.5));
}

} // namespace

uint64_t CellStart(uint64_t pixels, uint64_t cells, uint64_t cell) {
  if (pixels == 0 || cells == 0) {
    return 0;
  }
  const CmDefaultFloatingPointEnvironment environment;
  return CellStartInDefaultEnvironment(pixels, cells, cell);
}

uint64_t CellOfPixel(uint64_t pixels, uint64_t cells, uint64_t x) {
  if (pixels == 0 || cells == 0) {
    return 0;
  }
  const CmDefaultFloatingPointEnvironment environment;
  const double position =
      static_cast<double>(cells) / static_cast<double>(pixels) * static_cast<double>(x);
  const uint64_t low = static_cast<uint64_t>(std::floor(position));
  const uint64_t a = CellStartInDefaultEnvironment(pixels, cells, low);
  const uint64_t b =
      CellStartInDefaultEnvironment(pixels, cells, static_cast<uint64_t>(std::ceil(position)));
  const uint64_t cell = (x > a && x >= b) ? low + 1 : low;
  return cell < cells ? cell : cells - 1;
}

bool CmMaskDefinitionBase::IsEqual(const ImMaskDefinition& other) const {
  if (&other == this) {
    return true;
  }
  const bool empty = IsEmpty();
  const bool otherEmpty = other.IsEmpty();
  if (!empty && !otherEmpty) {
    return IsEqualImpl(other);
  }
  return empty && otherEmpty;
}

bool CmMaskDefinitionBase::IsMaskedAtPosition(uint64_t width, uint64_t height, uint64_t x,
                                              uint64_t y) const {
  VZK_REQUIRE(width != 0 && height != 0, "Invalid mask position dimensions (width/height = 0)",
              CmIntegrityErrorCode::OutOfRange);
  VZK_REQUIRE(x < width && y < height, "Invalid mask positions (column/row outside of dimensions)",
              CmIntegrityErrorCode::OutOfRange);
  if (IsEmpty()) {
    return false;
  }
  return IsMaskedAtPositionImpl(width, height, x, y);
}

void CmMaskDefinitionBase::CreateMaskImage(uint64_t width, uint64_t height, uint8_t maskedValue,
                                           uint8_t unmaskedValue, CmImage& image) const {
  VZK_REQUIRE(width != 0 && height != 0, "Invalid mask image dimensions (width/height = 0)",
              CmIntegrityErrorCode::OutOfRange);
  VZK_REQUIRE(maskedValue != unmaskedValue,
              "Invalid mask indications values (must not be identical)",
              CmIntegrityErrorCode::OutOfRange);
  image.Allocate(width, height, Gray);
  image.GetAttributes().subColorFormat = SubColorFormatPlainGray;
  if (IsEmpty()) {
    Helpers::SetPlane(unmaskedValue, image.Allocator().GetWriteablePlane(0));
    return;
  }
  CreateMaskImageImpl(width, height, maskedValue, unmaskedValue, image);
}

void CmMaskDefinitionBase::CreateMaskImageImpl(uint64_t width, uint64_t height, uint8_t maskedValue,
                                               uint8_t unmaskedValue, CmImage& image) const {
  const ImImageMemoryAllocation::CmWriteablePlane plane = image.Allocator().GetWriteablePlane(0);
  for (uint64_t y = 0; y < height; ++y) {
    uint8_t* row = plane.data + y * plane.rowStride;
    for (uint64_t x = 0; x < width; ++x) {
      row[x] = IsMaskedAtPositionImpl(width, height, x, y) ? maskedValue : unmaskedValue;
    }
  }
}

CmGridBasedMaskDefinition::CmGridBasedMaskDefinition(uint64_t columns, uint64_t rows,
                                                     std::vector<uint8_t> grid) {
  if (columns == 0 && rows == 0) {
    VZK_REQUIRE(grid.empty(),
                "Invalid mask grid dimensions (columns/rows = 0) for non-empty grid vector",
                CmIntegrityErrorCode::OutOfRange);
    return;
  }
  VZK_REQUIRE(columns != 0 && rows != 0, "Invalid mask grid dimensions (columns/rows = 0)",
              CmIntegrityErrorCode::OutOfRange);
  VZK_REQUIRE(columns <= MaximumDimension && rows <= MaximumDimension,
              "Invalid mask grid dimensions (larger than allowed maximum)",
              CmIntegrityErrorCode::OutOfRange);
  VZK_REQUIRE(columns * rows == grid.size(),
              "Mask grid dimensions do not match the grid vector size",
              CmIntegrityErrorCode::OutOfRange);
  // A mask that hides nothing is no mask at all.
  bool anySet = false;
  for (const uint8_t cell : grid) {
    if (cell != 0) {
      anySet = true;
      break;
    }
  }
  if (!anySet) {
    return;
  }
  m_Columns = columns;
  m_Rows = rows;
  m_Grid = std::move(grid);
}

bool CmGridBasedMaskDefinition::IsEqualImpl(const ImMaskDefinition& other) const {
  if (typeid(other) != typeid(*this)) {
    return false;
  }
  const auto& grid = static_cast<const CmGridBasedMaskDefinition&>(other);
  return m_Columns == grid.m_Columns && m_Rows == grid.m_Rows && m_Grid == grid.m_Grid;
}

bool CmGridBasedMaskDefinition::IsMaskedAtPositionImpl(uint64_t width, uint64_t height, uint64_t x,
                                                       uint64_t y) const {
  if (width >= m_Columns && height >= m_Rows) {
    const uint64_t column = CellOfPixel(width, m_Columns, x);
    const uint64_t row = CellOfPixel(height, m_Rows, y);
    return m_Grid[m_Columns * row + column] != 0;
  }
  // A pixel of a picture smaller than the grid covers several cells; it is
  // hidden when any of them is, so no masked cell slips between pixels.
  const uint64_t kx = width < m_Columns ? m_Columns / width + 1 : 1;
  const uint64_t ky = height < m_Rows ? m_Rows / height + 1 : 1;
  for (uint64_t yy = ky * y; yy < ky * (y + 1); ++yy) {
    for (uint64_t xx = kx * x; xx < kx * (x + 1); ++xx) {
      if (IsMaskedAtPositionImpl(kx * width, ky * height, xx, yy)) {
        return true;
      }
    }
  }
  return false;
}

void CmGridBasedMaskDefinition::CreateMaskImageImpl(uint64_t width, uint64_t height,
                                                    uint8_t maskedValue, uint8_t unmaskedValue,
                                                    CmImage& image) const {
  if (width < m_Columns || height < m_Rows) {
    CmMaskDefinitionBase::CreateMaskImageImpl(width, height, maskedValue, unmaskedValue, image);
    return;
  }
  const ImImageMemoryAllocation::CmWriteablePlane plane = image.Allocator().GetWriteablePlane(0);
  Helpers::SetPlane(unmaskedValue, plane);
  // Painting goes by cell, so a large picture costs one fill per hidden cell.
  std::vector<uint64_t> columnStart(m_Columns + 1);
  std::vector<uint64_t> rowStart(m_Rows + 1);
  for (uint64_t c = 0; c < m_Columns; ++c) {
    columnStart[c] = CellStart(width, m_Columns, c);
  }
  columnStart[m_Columns] = width;
  for (uint64_t r = 0; r < m_Rows; ++r) {
    rowStart[r] = CellStart(height, m_Rows, r);
  }
  rowStart[m_Rows] = height;
  for (uint64_t r = 0; r < m_Rows; ++r) {
    for (uint64_t c = 0; c < m_Columns; ++c) {
      if (m_Grid[m_Columns * r + c] == 0) {
        continue;
      }
      const uint64_t x0 = columnStart[c];
      const uint64_t x1 = std::min(columnStart[c + 1], width);
      const uint64_t y0 = rowStart[r];
      const uint64_t y1 = std::min(rowStart[r + 1], height);
      if (x1 <= x0 || y1 <= y0) {
        continue;
      }
      ImImageMemoryAllocation::CmWriteablePlane cell = plane;
      cell.Crop(x0, y0, x1 - x0, y1 - y0);
      Helpers::SetPlane(maskedValue, cell);
    }
  }
}

} // namespace NmMediaProcessing
