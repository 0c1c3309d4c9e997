#include "MediaProcessing/Image/NormalizeImage.h"

#include <cmath>

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ImageColorFormatConvert.h"
#include "MediaProcessing/Image/ImageDeinterlace.h"
#include "MediaProcessing/Image/ImageFlip.h"
#include "MediaProcessing/Image/ImageResize.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {

// Which stored axes must be mirrored to make the flags of `current` those of
// `target` at the same rotation: at rotation 1 a mirror of the stored rows
// changes the horizontal flag.
struct SmMirrors {
  bool rows;
  bool columns;
};

SmMirrors GetMirrors(const Orientation& current, const Orientation& target) {
  const bool verticalDiffers = current.flippedVertically != target.flippedVertically;
  const bool horizontalDiffers = current.flippedHorizontally != target.flippedHorizontally;
  if (current.rotation == 0) {
    return {verticalDiffers, horizontalDiffers};
  }
  return {horizontalDiffers, verticalDiffers};
}

// Subsampled chroma that would be mirrored across an odd size, or turned,
// cannot keep its place; such images go through 4:4:4.
bool NeedsFullChroma(const CmImage& image, bool mirrorRows, bool mirrorColumns, bool turn) {
  const ColorFormat format = image.GetColorFormat();
  const bool oddWidth = image.GetWidth() % 2 == 1;
  const bool oddHeight = image.GetHeight() % 2 == 1;
  if (format == YCbCr422_Planar) {
    return turn || (mirrorColumns && oddWidth);
  }
  if (format == YCbCr420_Planar) {
    return (turn && (oddWidth || oddHeight)) || (mirrorColumns && oddWidth) ||
           (mirrorRows && oddHeight);
  }
  return false;
}

Helpers::FlipAxis ToAxis(const SmMirrors& mirrors) {
  if (mirrors.rows && mirrors.columns) {
    return Helpers::FlipBoth;
  }
  return mirrors.rows ? Helpers::FlipRows : Helpers::FlipColumns;
}

} // namespace

void CmNormalizeImageOrientation::Execute(CmImage& image) {
  const Orientation current = image.GetAttributes().orientation.GetNormalForm();
  const Orientation target = m_Target.GetNormalForm();
  if (current.rotation != target.rotation) {
    CmBaseImageTransformation::Execute(image);
    return;
  }
  const SmMirrors mirrors = GetMirrors(current, target);
  if (!mirrors.rows && !mirrors.columns) {
    return;
  }
  if (mirrors.rows && !mirrors.columns) {
    CmImageFlipVertically().Execute(image);
  } else if (!mirrors.rows && mirrors.columns) {
    CmImageFlipHorizontally().Execute(image);
  } else if (NeedsFullChroma(image, true, true, false)) {
    CmBaseImageTransformation::Execute(image);
  } else {
    Helpers::FlipPlaneContents(image.Allocator(), Helpers::FlipBoth);
    image.GetAttributes().orientation.FlipVertically();
    image.GetAttributes().orientation.FlipHorizontally();
  }
}

void CmNormalizeImageOrientation::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  const Orientation current = source.GetAttributes().orientation.GetNormalForm();
  const Orientation target = m_Target.GetNormalForm();
  if (current.rotation == target.rotation) {
    const SmMirrors mirrors = GetMirrors(current, target);
    if (!mirrors.rows && !mirrors.columns) {
      destination = source;
      return;
    }
    if (NeedsFullChroma(source, mirrors.rows, mirrors.columns, false)) {
      CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, destination);
      Execute(destination);
      return;
    }
    destination.Allocate(source.GetWidth(), source.GetHeight(), source.GetColorFormat());
    const ImImageMemoryAllocation& from = source.Allocator();
    ImImageMemoryAllocation& to = destination.Allocator();
    for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
      Helpers::FlipPlaneContents(from.GetPlane(p), to.GetWriteablePlane(p), ToAxis(mirrors));
    }
    destination.CopyAttributes(source);
    Orientation& orientation = destination.GetAttributes().orientation;
    if (mirrors.rows) {
      orientation.FlipVertically();
    }
    if (mirrors.columns) {
      orientation.FlipHorizontally();
    }
    return;
  }

  VZK_REQUIRE(source.GetAttributes().interlacing == Progressive, "Cannot rotate interlaced images",
              CmIntegrityErrorCode::InvalidPointer);
  if (NeedsFullChroma(source, true, true, true)) {
    CmImage full;
    CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, full);
    Execute(full, destination);
    return;
  }
  // A quarter turn clockwise is a transpose that mirrors the result's
  // columns, a counter-clockwise one mirrors its rows; a flag that still
  // differs after the turn toggles the mirror of the axis that carries it.
  Orientation turned = source.GetAttributes().orientation;
  bool flipColumns = false;
  bool flipRows = false;
  if (target.rotation == 1) {
    flipColumns = true;
    turned.AddRotation(1);
  } else {
    flipRows = true;
    turned.AddRotation(3);
  }
  const SmMirrors mirrors = GetMirrors(turned.GetNormalForm(), target);
  if (mirrors.rows) {
    flipRows = !flipRows;
    turned.FlipVertically();
  }
  if (mirrors.columns) {
    flipColumns = !flipColumns;
    turned.FlipHorizontally();
  }
  destination.Allocate(source.GetHeight(), source.GetWidth(), source.GetColorFormat());
  const ImImageMemoryAllocation& from = source.Allocator();
  ImImageMemoryAllocation& to = destination.Allocator();
  for (uint64_t p = 0; p < from.GetPlaneCount(); ++p) {
    Helpers::Transpose(from.GetPlane(p), to.GetWriteablePlane(p), flipColumns, flipRows);
  }
  destination.CopyAttributes(source);
  destination.GetAttributes().orientation = turned;
  destination.GetAttributes().aspectRatio = 1.0 / source.GetAttributes().aspectRatio;
}

CmNormalizeImage::CmNormalizeImage(bool correctAspectRatio, const Orientation& target,
                                   const ImImageTransformation& deinterlacer)
    : m_CorrectAspectRatio(correctAspectRatio), m_Target(target),
      m_Deinterlacer(deinterlacer.Clone()) {}

CmNormalizeImage::CmNormalizeImage(bool correctAspectRatio, const Orientation& target,
                                   bool halveAspectForSingleField)
    : m_CorrectAspectRatio(correctAspectRatio), m_Target(target),
      m_Deinterlacer(std::make_unique<CmImageDeinterlace>(halveAspectForSingleField)) {}

CmNormalizeImage::CmNormalizeImage(const CmNormalizeImage& other)
    : CmBaseImageTransformation(other), m_CorrectAspectRatio(other.m_CorrectAspectRatio),
      m_Target(other.m_Target), m_Deinterlacer(other.m_Deinterlacer->Clone()) {}

void CmNormalizeImage::CorrectAspectRatio(CmImage& image) const {
  if (!m_CorrectAspectRatio) {
    return;
  }
  const double r = image.GetAttributes().aspectRatio;
  uint64_t width = image.GetWidth();
  uint64_t height = image.GetHeight();
  // Adding 0.5 and truncating rounds; absurd ratios end in the resize's
  // range message rather than in an overflowing conversion.
  const auto rounded = [](double v) { return static_cast<uint64_t>(std::min(v, 1e12) + 0.5); };
  if (r >= 1.0) {
    width = rounded(static_cast<double>(width) * r);
  } else if (r > 1e-9) {
    height = rounded(static_cast<double>(height) / r);
  }
  if (width != image.GetWidth() || height != image.GetHeight()) {
    CmImageResize(width, height, false).Execute(image);
  }
}

void CmNormalizeImage::Execute(CmImage& image) {
  if (image.GetAttributes().interlacing != Progressive) {
    m_Deinterlacer->Execute(image);
  }
  CmNormalizeImageOrientation(m_Target).Execute(image);
  CorrectAspectRatio(image);
}

void CmNormalizeImage::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  if (source.GetAttributes().interlacing != Progressive) {
    m_Deinterlacer->Execute(source, destination);
    CmNormalizeImageOrientation(m_Target).Execute(destination);
  } else if (source.GetAttributes().orientation == m_Target) {
    // Shared; a correction below gives the destination planes of its own.
    destination = source;
  } else {
    CmNormalizeImageOrientation(m_Target).Execute(source, destination);
  }
  CorrectAspectRatio(destination);
}

} // namespace NmMediaProcessing
