#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "MediaProcessing/Image/Image.h"

namespace NmMediaProcessing {

// Which pixels of a picture of any size are hidden.
class ImMaskDefinition {
public:
  virtual ~ImMaskDefinition() = default;
  virtual bool IsEmpty() const = 0;
  virtual bool IsEqual(const ImMaskDefinition& other) const = 0;
  virtual bool IsMaskedAtPosition(uint64_t width, uint64_t height, uint64_t x,
                                  uint64_t y) const = 0;
  // A Gray image (sub-colour format 3) of width x height with maskedValue on
  // hidden pixels and unmaskedValue elsewhere.
  virtual void CreateMaskImage(uint64_t width, uint64_t height, uint8_t maskedValue,
                               uint8_t unmaskedValue, CmImage& image) const = 0;
  virtual void CreateMaskImage(uint64_t width, uint64_t height, CmImage& image) const = 0;
  virtual void CreateInverseMaskImage(uint64_t width, uint64_t height, CmImage& image) const = 0;
  virtual std::unique_ptr<ImMaskDefinition> Clone() const = 0;
};

// Checks arguments once for every definition; subclasses answer the questions.
class CmMaskDefinitionBase : public ImMaskDefinition {
public:
  bool IsEmpty() const override { return IsEmptyImpl(); }
  bool IsEqual(const ImMaskDefinition& other) const override;
  bool IsMaskedAtPosition(uint64_t width, uint64_t height, uint64_t x, uint64_t y) const override;
  void CreateMaskImage(uint64_t width, uint64_t height, uint8_t maskedValue, uint8_t unmaskedValue,
                       CmImage& image) const override;
  void CreateMaskImage(uint64_t width, uint64_t height, CmImage& image) const override {
    CreateMaskImage(width, height, 255, 0, image);
  }
  void CreateInverseMaskImage(uint64_t width, uint64_t height, CmImage& image) const override {
    CreateMaskImage(width, height, 0, 255, image);
  }
  std::unique_ptr<ImMaskDefinition> Clone() const override { return CloneImpl(); }

protected:
  virtual bool IsEmptyImpl() const = 0;
  virtual bool IsEqualImpl(const ImMaskDefinition& other) const = 0;
  virtual bool IsMaskedAtPositionImpl(uint64_t width, uint64_t height, uint64_t x,
                                      uint64_t y) const = 0;
  // Per pixel by default; the image is allocated and not empty.
  virtual void CreateMaskImageImpl(uint64_t width, uint64_t height, uint8_t maskedValue,
                                   uint8_t unmaskedValue, CmImage& image) const;
  virtual std::unique_ptr<ImMaskDefinition> CloneImpl() const = 0;
};

// Masks nothing.
class CmAllEmptyMaskDefinition : public CmMaskDefinitionBase {
protected:
  bool IsEmptyImpl() const override { return true; }
  bool IsEqualImpl(const ImMaskDefinition&) const override { return false; }
  bool IsMaskedAtPositionImpl(uint64_t, uint64_t, uint64_t, uint64_t) const override {
    return false;
  }
  std::unique_ptr<ImMaskDefinition> CloneImpl() const override {
    return std::make_unique<CmAllEmptyMaskDefinition>();
  }
};

// A grid of cells laid over the picture whatever its resolution; a cell that
// is not 0 is hidden.
class CmGridBasedMaskDefinition : public CmMaskDefinitionBase {
public:
  static constexpr uint64_t MaximumDimension = 10000;

  // grid holds columns * rows bytes, row after row.
  CmGridBasedMaskDefinition(uint64_t columns, uint64_t rows, std::vector<uint8_t> grid);

  uint64_t GetColumns() const { return m_Columns; }
  uint64_t GetRows() const { return m_Rows; }
  const std::vector<uint8_t>& GetGrid() const { return m_Grid; }

protected:
  bool IsEmptyImpl() const override { return m_Grid.empty(); }
  bool IsEqualImpl(const ImMaskDefinition& other) const override;
  bool IsMaskedAtPositionImpl(uint64_t width, uint64_t height, uint64_t x,
                              uint64_t y) const override;
  void CreateMaskImageImpl(uint64_t width, uint64_t height, uint8_t maskedValue,
                           uint8_t unmaskedValue, CmImage& image) const override;
  std::unique_ptr<ImMaskDefinition> CloneImpl() const override {
    return std::make_unique<CmGridBasedMaskDefinition>(*this);
  }

private:
  uint64_t m_Columns = 0;
  uint64_t m_Rows = 0;
  std::vector<uint8_t> m_Grid;
};

// First pixel of cell c when G cells share P pixels; 0 when either is 0.
uint64_t CellStart(uint64_t pixels, uint64_t cells, uint64_t cell);
// The cell that holds pixel x, for P >= G; agrees with CellStart at every edge.
uint64_t CellOfPixel(uint64_t pixels, uint64_t cells, uint64_t x);

} // namespace NmMediaProcessing
