#pragma once

#include <cstdint>
#include <memory>

#include "MediaProcessing/Image/ImageTransformation.h"
#include "MediaProcessing/Image/StaticImageAllocator.h"

namespace NmMediaProcessing {

// A transformation that paints on top of an image in place.
class ImImageOverlayTransformation : public ImImageTransformation {
public:
  virtual ImImageOverlayTransformation* CloneOverlay() const = 0;
};

// Overlays are in place by nature: the two-image form paints on a copy of the
// source that shares its planes until the first write.
template <>
class CmBaseImageTransformation<ImImageOverlayTransformation>
    : public ImImageOverlayTransformation {
public:
  CmBaseImageTransformation() = default;
  CmBaseImageTransformation(const CmBaseImageTransformation& other)
      : ImImageOverlayTransformation(other), m_Options(other.m_Options) {}
  CmBaseImageTransformation& operator=(const CmBaseImageTransformation&) = delete;
  ~CmBaseImageTransformation() override = default;

  void Execute(const CmImage& source, CmImage& destination) override {
    if (&source != &destination) {
      destination = source;
    }
    Execute(destination);
  }
  using ImImageOverlayTransformation::Execute;
  void SetOptions(uint32_t flags) override { m_Options |= flags; }
  uint32_t GetOptions() const { return m_Options; }

protected:
  void ClearOptions(uint32_t flags) { m_Options &= ~flags; }

private:
  uint32_t m_Options = 0;
};

enum OverlayFlags : uint32_t {
  OverlayLeft = 1,
  OverlayRight = 2,
  OverlayTop = 4,
  OverlayBottom = 8,
  OverlayScale = 16,
  OverlayPixelExact = 32,
};

struct CmOverlayParameters {
  double scale = 1.0; // size relative to the image when OverlayScale is set
  double x = -1.0;    // exact left edge as a fraction of the width, -1 when unused
  double y = -1.0;    // exact top edge as a fraction of the height
  uint32_t flags = 0;
};

struct SmOverlayRectangle {
  uint64_t x = 0;
  uint64_t y = 0;
  uint64_t width = 0;
  uint64_t height = 0;
};

// Size and position of an overlay from the image's size, pixel aspect and
// orientation; subclasses paint.
class CmBaseOverlayTransformation : public CmBaseImageTransformation<ImImageOverlayTransformation> {
public:
  explicit CmBaseOverlayTransformation(const CmOverlayParameters& parameters);
  ImImageTransformation* Clone() const override { return CloneOverlay(); }
  const CmOverlayParameters& GetParameters() const { return m_Parameters; }

  // The size the overlay takes on this image; with clipToImage no more than
  // the room that is left from its position to the image's edges.
  void GetActualOverlaySize(const CmImage& image, const CmImage& overlay, bool clipToImage,
                            uint64_t& width, uint64_t& height) const;
  // Can the cached overlay be laid on this image as it is?
  bool IsOverlayMatching(const CmImage& image, const CmImage& overlay,
                         const CmImage& cachedOverlay) const;
  // Turns the overlay to the image's orientation, sizes it and clips it.
  // resizeMode: 0 fast, 1 linear, 2 high quality.
  void PrepareOverlay(CmImage& result, const CmImage& image, const CmImage& overlay,
                      uint32_t resizeMode) const;
  // Where an overlay of ow x oh lands on an image of iw x ih in stored pixels;
  // always inside the image.
  SmOverlayRectangle Position(uint64_t imageWidth, uint64_t imageHeight,
                              const Orientation& imageOrientation, uint64_t overlayWidth,
                              uint64_t overlayHeight) const;

protected:
  // Wraps a target in a static allocator cropped to the overlay's rectangle,
  // so that painting sees the covered pixels and nothing else.
  class CmOverlayPlacement {
  public:
    CmOverlayPlacement(const CmBaseOverlayTransformation& owner, const CmImage& overlay)
        : m_Owner(owner), m_Overlay(overlay) {}
    ImImageMemoryAllocation& PlaceOn(CmImage& target);

  private:
    const CmBaseOverlayTransformation& m_Owner;
    const CmImage& m_Overlay;
    std::unique_ptr<CmStaticImageAllocator> m_Placed;
  };

  // Alignment along the stored axes (0 start, 1 centre, 2 end) for a viewer's
  // flags, and whether each stored axis runs against the viewer's.
  struct SmStoredAlignment {
    int horizontal = 1;
    int vertical = 1;
    bool horizontalReversed = false;
    bool verticalReversed = false;
    // Offset of the overlay along an axis with `spare` pixels left over.
    static uint64_t Offset(int where, bool reversed, uint64_t spare);
  };
  void GetStoredAlignment(const Orientation& orientation, SmStoredAlignment& alignment) const;

  CmOverlayParameters m_Parameters;
};

} // namespace NmMediaProcessing
