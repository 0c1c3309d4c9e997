#include "MediaProcessing/Image/BaseOverlayTransformation.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageCrop.h"
#include "MediaProcessing/Image/ImageResize.h"
#include "MediaProcessing/Image/NormalizeImage.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;

namespace {

// Rounding of all overlay geometry: add one half and truncate.
double RoundHalfUp(double value) {
  return std::floor(value + 0.5);
}

uint64_t ToSize(double value) {
  if (!(value > 0.0)) {
    return 0;
  }
  return value >= 4294967295.0 ? 4294967295ULL : static_cast<uint64_t>(value);
}

void Exchange(int& value) {
  if (value != 1) {
    value = 2 - value;
  }
}

} // namespace

CmBaseOverlayTransformation::CmBaseOverlayTransformation(const CmOverlayParameters& parameters)
    : m_Parameters(parameters) {
  const uint32_t flags = parameters.flags;
  VZK_REQUIRE((flags & OverlayScale) == 0 || parameters.scale > 0.0,
              "Scaling factor must be positive if scaling is enabled",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE((flags & OverlayLeft) == 0 || (flags & OverlayRight) == 0,
              "Overlay cannot be both left- and right-aligned",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE((flags & OverlayTop) == 0 || (flags & OverlayBottom) == 0,
              "Overlay cannot be both top- and bottom-aligned",
              CmIntegrityErrorCode::InvalidArgument);
  if (parameters.x == -1.0 && parameters.y == -1.0) {
    return;
  }
  VZK_REQUIRE((flags & OverlayLeft) != 0 && (flags & OverlayTop) != 0,
              "Exact positioning of overlay requires top and left flags to be set",
              CmIntegrityErrorCode::InvalidArgument);
  VZK_REQUIRE((flags & OverlayScale) == 0, "Exact positioned overlays cannot be scaled",
              CmIntegrityErrorCode::InvalidArgument);
  // NaN or infinite fractions would make every later position meaningless.
  VZK_REQUIRE(std::isfinite(parameters.x) && std::isfinite(parameters.y),
              "Exact overlay position must be a finite fraction",
              CmIntegrityErrorCode::InvalidArgument);
}

void CmBaseOverlayTransformation::GetActualOverlaySize(const CmImage& image, const CmImage& overlay,
                                                       bool clipToImage, uint64_t& width,
                                                       uint64_t& height) const {
  double ow = static_cast<double>(overlay.GetWidth());
  double oh = static_cast<double>(overlay.GetHeight());
  double a = overlay.GetAttributes().aspectRatio;
  Orientation orientation = overlay.GetAttributes().orientation;
  orientation.AddRotation(image.GetAttributes().orientation.rotation % 4);
  const bool swapped = orientation.rotation % 2 == 1;
  if (swapped) {
    std::swap(ow, oh);
    a = 1.0 / a;
  }
  double iw = static_cast<double>(image.GetWidth());
  double ih = static_cast<double>(image.GetHeight());
  VZK_REQUIRE(iw != 0 && ih != 0 && ow != 0 && oh != 0, "Invalid image for overlay",
              CmIntegrityErrorCode::InvalidArgument);
  const uint32_t flags = m_Parameters.flags;
  const double scale = m_Parameters.scale;
  double w = 0;
  double h = 0;
  if ((flags & OverlayPixelExact) != 0) {
    if ((flags & OverlayScale) == 0) {
      w = ow;
      h = oh;
    } else {
      w = RoundHalfUp(iw * scale);
      h = RoundHalfUp(ih * scale);
    }
  } else {
    a /= image.GetAttributes().aspectRatio;
    VZK_REQUIRE(std::isfinite(a) && a > 0.0, "Invalid image for overlay",
                CmIntegrityErrorCode::InvalidArgument);
    if ((flags & OverlayScale) != 0) {
      if (ow * ow * ih * a * a > oh * oh * iw) {
        w = RoundHalfUp(iw * scale);
        h = RoundHalfUp(iw * oh * scale / (ow * a));
      } else {
        h = RoundHalfUp(ih * scale);
        w = RoundHalfUp(ih * ow * a * scale / oh);
      }
    } else if (a > 1.0) {
      w = RoundHalfUp(ow * a);
      h = oh;
    } else {
      w = ow;
      h = RoundHalfUp(oh / a);
    }
  }
  if (clipToImage) {
    if (m_Parameters.x != -1.0) {
      // The fractions are the viewer's: on a turned image the viewer's
      // x runs along the stored rows' direction of y.
      double x = m_Parameters.x;
      double y = m_Parameters.y;
      if (image.GetAttributes().orientation.rotation % 2 == 1) {
        std::swap(x, y);
      }
      iw = std::min(iw, RoundHalfUp((1.0 - x) * iw));
      ih = std::min(ih, RoundHalfUp((1.0 - y) * ih));
    }
    w = std::min(w, iw);
    h = std::min(h, ih);
  }
  width = std::max<uint64_t>(1, ToSize(w));
  height = std::max<uint64_t>(1, ToSize(h));
}

bool CmBaseOverlayTransformation::IsOverlayMatching(const CmImage& image, const CmImage& overlay,
                                                    const CmImage& cached) const {
  VZK_REQUIRE(image.GetAttributes().interlacing == Progressive,
              "Overlays cannot be placed on interlaced images",
              CmIntegrityErrorCode::InvalidArgument);
  if (!cached.IsValid()) {
    return false;
  }
  if (cached.GetAttributes().orientation != image.GetAttributes().orientation) {
    return false;
  }
  uint64_t w = 0;
  uint64_t h = 0;
  GetActualOverlaySize(image, overlay, true, w, h);
  if (w == 0 || h == 0 || w != cached.GetWidth() || h != cached.GetHeight()) {
    return false;
  }
  if ((m_Parameters.flags & OverlayPixelExact) != 0) {
    return true;
  }
  // The aspect ratios agree when they differ by less than one pixel's worth.
  const double ia = image.GetAttributes().aspectRatio;
  const double ca = cached.GetAttributes().aspectRatio;
  const double dw = static_cast<double>(w);
  const double dh = static_cast<double>(h);
  if (ia > ca) {
    if (w > 1 && ia > dw * ca / (dw - 1)) {
      return false;
    }
    if (ia > (dh + 1) * ca / dh) {
      return false;
    }
  } else {
    if (dw * ca / (dw + 1) > ia) {
      return false;
    }
    if ((dh - 1) * ca / dh > ia) {
      return false;
    }
  }
  return true;
}

void CmBaseOverlayTransformation::GetStoredAlignment(const Orientation& imageOrientation,
                                                     SmStoredAlignment& alignment) const {
  const uint32_t flags = m_Parameters.flags;
  int& h = alignment.horizontal;
  int& v = alignment.vertical;
  h = (flags & OverlayLeft) != 0 ? 0 : ((flags & OverlayRight) != 0 ? 2 : 1);
  v = (flags & OverlayTop) != 0 ? 0 : ((flags & OverlayBottom) != 0 ? 2 : 1);
  alignment.horizontalReversed = false;
  alignment.verticalReversed = false;
  // The flags speak of what a viewer sees; carry them to the stored pixels.
  const Orientation orientation = imageOrientation.GetNormalForm();
  if (orientation.flippedHorizontally) {
    Exchange(h);
    alignment.horizontalReversed = true;
  }
  if (orientation.flippedVertically) {
    Exchange(v);
    alignment.verticalReversed = true;
  }
  if (orientation.rotation == 1) {
    std::swap(h, v);
    Exchange(h);
    std::swap(alignment.horizontalReversed, alignment.verticalReversed);
    alignment.horizontalReversed = !alignment.horizontalReversed;
  }
}

uint64_t CmBaseOverlayTransformation::SmStoredAlignment::Offset(int where, bool reversed,
                                                                uint64_t spare) {
  // Centring rounds towards the viewer's top left, which on an axis that is
  // stored reversed is the other way round.
  if (where == 0) {
    return 0;
  }
  if (where == 2) {
    return spare;
  }
  return reversed ? (spare + 1) / 2 : spare / 2;
}

SmOverlayRectangle CmBaseOverlayTransformation::Position(uint64_t iw, uint64_t ih,
                                                         const Orientation& imageOrientation,
                                                         uint64_t ow, uint64_t oh) const {
  SmOverlayRectangle rectangle;
  rectangle.width = std::min(ow, iw);
  rectangle.height = std::min(oh, ih);
  if (m_Parameters.x == -1.0 && m_Parameters.y == -1.0) {
    SmStoredAlignment alignment;
    GetStoredAlignment(imageOrientation, alignment);
    if (ow < iw) {
      rectangle.x =
          SmStoredAlignment::Offset(alignment.horizontal, alignment.horizontalReversed, iw - ow);
    }
    if (oh < ih) {
      rectangle.y =
          SmStoredAlignment::Offset(alignment.vertical, alignment.verticalReversed, ih - oh);
    }
    return rectangle;
  }
  // The exact fractions are the viewer's; each stored axis reads the viewer
  // axis that it shows, counted from the other end when it runs reversed.
  SmStoredAlignment alignment;
  GetStoredAlignment(imageOrientation, alignment);
  const bool turned = imageOrientation.GetNormalForm().rotation == 1;
  const double dw = static_cast<double>(iw);
  const double dh = static_cast<double>(ih);
  double fx = turned ? m_Parameters.y : m_Parameters.x;
  double fy = turned ? m_Parameters.x : m_Parameters.y;
  if (alignment.horizontalReversed) {
    fx = 1.0 - fx - static_cast<double>(ow) / dw;
  }
  if (alignment.verticalReversed) {
    fy = 1.0 - fy - static_cast<double>(oh) / dh;
  }
  // Rounding both the position and the clipped size may overshoot by a pixel;
  // the rectangle is kept inside the image rather than refused.
  const double x = std::clamp(RoundHalfUp(dw * fx), 0.0, static_cast<double>(iw - rectangle.width));
  const double y =
      std::clamp(RoundHalfUp(dh * fy), 0.0, static_cast<double>(ih - rectangle.height));
  rectangle.x = static_cast<uint64_t>(x);
  rectangle.y = static_cast<uint64_t>(y);
  return rectangle;
}

void CmBaseOverlayTransformation::PrepareOverlay(CmImage& result, const CmImage& image,
                                                 const CmImage& overlay,
                                                 uint32_t resizeMode) const {
  CmImage temporary;
  CmNormalizeImageOrientation(image.GetAttributes().orientation).Execute(overlay, temporary);
  uint64_t w = 0;
  uint64_t h = 0;
  GetActualOverlaySize(image, temporary, false, w, h);
  CmImageResize resize(w, h, false);
  if (resizeMode == 0) {
    resize.SetOptions(OptionFast);
  } else if (resizeMode == 2) {
    resize.SetOptions(OptionHighQuality);
  }
  uint64_t visibleWidth = 0;
  uint64_t visibleHeight = 0;
  GetActualOverlaySize(image, temporary, true, visibleWidth, visibleHeight);
  visibleWidth = std::min(visibleWidth, w);
  visibleHeight = std::min(visibleHeight, h);
  if (visibleWidth != w || visibleHeight != h) {
    // Only the part that shows is computed: an overlay scaled far beyond the
    // picture would otherwise be resized whole to be mostly thrown away. The
    // part that stays is the one at the aligned edge: a right-aligned overlay
    // loses its left columns.
    SmStoredAlignment alignment;
    GetStoredAlignment(image.GetAttributes().orientation, alignment);
    const uint64_t x = SmStoredAlignment::Offset(alignment.horizontal, alignment.horizontalReversed,
                                                 w - visibleWidth);
    const uint64_t y = SmStoredAlignment::Offset(alignment.vertical, alignment.verticalReversed,
                                                 h - visibleHeight);
    resize.SetOutputWindow(x, y, visibleWidth, visibleHeight);
  }
  resize.Execute(temporary, result);
}

ImImageMemoryAllocation& CmBaseOverlayTransformation::CmOverlayPlacement::PlaceOn(CmImage& target) {
  m_Placed = std::make_unique<CmStaticImageAllocator>(target.Allocator());
  m_Placed->Allocate(target.GetWidth(), target.GetHeight(), target.GetColorFormat(), 0);
  const SmOverlayRectangle rectangle =
      m_Owner.Position(target.GetWidth(), target.GetHeight(), target.GetAttributes().orientation,
                       m_Overlay.GetWidth(), m_Overlay.GetHeight());
  m_Placed->Crop(rectangle.x, rectangle.y, rectangle.width, rectangle.height);
  return *m_Placed;
}

} // namespace NmMediaProcessing
