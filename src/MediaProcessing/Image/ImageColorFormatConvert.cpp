#include "MediaProcessing/Image/ImageColorFormatConvert.h"

#include <algorithm>

#include "Codecs/Primitives/ChromaResample.h"
#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/PlaneCopy.h"
#include "Codecs/Primitives/Resize.h"
#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/Image/ImageBufferHelpers.h"
#include "MediaProcessing/Image/ReferenceCountingImageAllocator.h"

namespace NmMediaProcessing {

using NmError::CmIntegrityError;
using NmError::CmIntegrityErrorCode;
namespace Helpers = CmImageBufferHelpers;

namespace {

bool IsPlanar(ColorFormat format) {
  return format == Gray || format == YCbCr420_Planar || format == YCbCr422_Planar ||
         format == YCbCr444_Planar;
}
bool IsPacked(ColorFormat format) {
  return format == RGB24 || format == BGR24 || format == RGB32 || format == BGR32 ||
         format == RGBA || format == BGRA;
}
bool IsBlueFirst(ColorFormat format) {
  return format == BGR24 || format == BGR32 || format == BGRA;
}
bool HasAlpha(ColorFormat format) {
  return format == RGBA || format == BGRA;
}
bool IsInterleaved(Interlacing interlacing) {
  return interlacing == InterleavedTopFirst || interlacing == InterleavedBottomFirst;
}
bool IsSubColorFormatLegal(ColorFormat format, SubColorFormat sub) {
  return IsPlanar(format) ? sub != NotApplicable : sub == NotApplicable;
}

NmPrimitives::SmChromaLayout GetChromaLayout(ColorFormat format) {
  switch (format) {
  case YCbCr420_Planar:
    return NmPrimitives::Chroma420;
  case YCbCr422_Planar:
    return NmPrimitives::Chroma422;
  default:
    return NmPrimitives::Chroma444;
  }
}

NmPrimitives::SmPackedLayout GetPackedLayout(ColorFormat format, uint64_t pixelStride) {
  return {static_cast<size_t>(pixelStride), IsBlueFirst(format)};
}

// Rows of one band of ConvertInBlocks: small enough that the enlarged chroma
// of a band stays in the cache while it is converted.
constexpr uint64_t BlockRows = 16;

} // namespace

CmImageColorFormatConvert::CmImageColorFormatConvert(ColorFormat target, uint64_t alignment)
    : m_Target(target), m_Alignment(alignment) {}

void CmImageColorFormatConvert::Execute(CmImage& image) {
  const ColorFormat format = image.GetColorFormat();
  const SubColorFormat sub = image.GetAttributes().subColorFormat;
  VZK_REQUIRE(!IsPlanar(format) || sub != NotApplicable,
              "Sub-color-format must not be set to NotApplicable for YCbCr or Gray "
              "scale images",
              CmIntegrityErrorCode::Unknown);
  VZK_REQUIRE(!IsPacked(format) || sub == NotApplicable,
              "Sub-color-format must be set to NotApplicable for RGB images",
              CmIntegrityErrorCode::Unknown);
  ImImageMemoryAllocation& allocator = image.Allocator();
  if (format == m_Target) {
    return;
  }
  if (!MatchesAlignment(allocator, m_Alignment)) {
    CmBaseImageTransformation::Execute(image);
    return;
  }
  const bool thirtyTwoBit = format == RGB32 || format == BGR32;
  const bool sameOrder = IsBlueFirst(format) == IsBlueFirst(m_Target);
  if (thirtyTwoBit && HasAlpha(m_Target) && sameOrder) {
    allocator.ReinterpretFormat(m_Target);
    Helpers::SetAlphaChannel(allocator, 255);
  } else if (HasAlpha(format) && (m_Target == RGB32 || m_Target == BGR32) && sameOrder) {
    allocator.ReinterpretFormat(m_Target);
  } else if ((format == RGB24 && m_Target == BGR24) || (format == BGR24 && m_Target == RGB24) ||
             (format == RGB32 && m_Target == BGR32) || (format == BGR32 && m_Target == RGB32) ||
             (format == RGBA && m_Target == BGRA) || (format == BGRA && m_Target == RGBA)) {
    Helpers::SwapChannels(allocator);
  } else if ((format == RGB32 && m_Target == BGRA) || (format == BGR32 && m_Target == RGBA)) {
    Helpers::SwapChannels(allocator);
    allocator.ReinterpretFormat(m_Target);
    Helpers::SetAlphaChannel(allocator, 255);
  } else if (format == Gray && IsMultiPlaneFormat(m_Target)) {
    allocator.ReinterpretFormat(m_Target);
    Helpers::SetPlane(128, allocator.GetWriteablePlane(1));
    Helpers::SetPlane(128, allocator.GetWriteablePlane(2));
  } else if (IsMultiPlaneFormat(format) && m_Target == Gray) {
    allocator.ReinterpretFormat(m_Target);
  } else {
    CmBaseImageTransformation::Execute(image);
  }
}

void CmImageColorFormatConvert::Execute(const CmImage& source, CmImage& destination) {
  if (&source == &destination) {
    Execute(destination);
    return;
  }
  const ColorFormat format = source.GetColorFormat();
  const SubColorFormat sub = source.GetAttributes().subColorFormat;
  if (format == m_Target && IsSubColorFormatLegal(format, sub)) {
    if (MatchesAlignment(source.Allocator(), m_Alignment)) {
      destination = source;
    } else {
      destination.Allocate(source.GetWidth(), source.GetHeight(), format, m_Alignment);
      Helpers::CopyAllocatorContents(source.Allocator(), destination.Allocator());
      destination.CopyAttributes(source);
    }
    return;
  }
  if (IsPlanar(format) && IsPlanar(m_Target)) {
    PerformConversionYCbCr(source, destination);
  } else if (IsPacked(format) && IsPacked(m_Target)) {
    PerformConversionRGB(source, destination);
  } else if (IsPlanar(format) && IsPacked(m_Target)) {
    if (format == YCbCr420_Planar && IsInterleaved(source.GetAttributes().interlacing)) {
      // Interleaved 4:2:0 chroma belongs to the fields; 4:2:2 rows are whole
      // picture rows and can be converted as they are.
      CmImage upsampled;
      CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, upsampled);
      PerformConversionYCbCrToRGB(upsampled, destination);
      return;
    }
    PerformConversionYCbCrToRGB(source, destination);
  } else if (IsPacked(format) && IsPlanar(m_Target)) {
    PerformConversionRGBToYCbCr(source, destination);
  } else {
    throw CmIntegrityError(VZK_LOCATION, "Unable to convert between the given formats",
                           CmIntegrityErrorCode::Unknown);
  }
}

void CmImageColorFormatConvert::PerformConversionRGB(const CmImage& source, CmImage& destination) {
  VZK_REQUIRE(source.GetAttributes().subColorFormat == NotApplicable,
              "Sub-color-format must be set to NotApplicable for RGB/BGR image types",
              CmIntegrityErrorCode::Unknown);
  const ColorFormat format = source.GetColorFormat();
  destination.Allocate(source.GetWidth(), source.GetHeight(), m_Target, m_Alignment);
  const ImImageMemoryAllocation::CmPlane from = source.Allocator().GetPlane(0);
  const ImImageMemoryAllocation::CmWriteablePlane to = destination.Allocator().GetWriteablePlane(0);
  const bool fromWide = from.pixelStride == 4;
  const bool toWide = to.pixelStride == 4;
  if (IsBlueFirst(format) != IsBlueFirst(m_Target)) {
    Helpers::SwapChannels(source.Allocator(), destination.Allocator());
  } else if (!fromWide && toWide) {
    NmPrimitives::Copy3To4(from.data, from.rowStride, to.data, to.rowStride, from.width,
                           from.height, 255);
  } else if (fromWide && !toWide) {
    NmPrimitives::Copy4To3(from.data, from.rowStride, to.data, to.rowStride, from.width,
                           from.height);
  } else if (fromWide && toWide) {
    NmPrimitives::CopyPlane(from.data, from.rowStride, to.data, to.rowStride, 4 * from.width,
                            from.height);
    if (HasAlpha(m_Target) && !HasAlpha(format)) {
      Helpers::SetAlphaChannel(destination.Allocator(), 255);
    }
  } else {
    throw CmIntegrityError(VZK_LOCATION, "Unable to convert between the given RGB formats",
                           CmIntegrityErrorCode::Unknown);
  }
  destination.CopyAttributes(source);
}

void CmImageColorFormatConvert::PerformConversionYCbCr(const CmImage& source,
                                                       CmImage& destination) {
  const SubColorFormat sub = source.GetAttributes().subColorFormat;
  VZK_REQUIRE(sub != NotApplicable,
              "Sub-color-format must not be set to NotApplicable for YCbCr images",
              CmIntegrityErrorCode::Unknown);
  const ColorFormat format = source.GetColorFormat();
  const ImImageMemoryAllocation& from = source.Allocator();
  if (format == Gray && IsMultiPlaneFormat(m_Target)) {
    destination.Allocate(source.GetWidth(), source.GetHeight(), m_Target, m_Alignment);
    ImImageMemoryAllocation& to = destination.Allocator();
    Helpers::CopyPlaneContents(from.GetPlane(0), to.GetWriteablePlane(0));
    Helpers::SetPlane(128, to.GetWriteablePlane(1));
    Helpers::SetPlane(128, to.GetWriteablePlane(2));
  } else if (IsMultiPlaneFormat(format) && m_Target == Gray) {
    const ImImageMemoryAllocation::CmPlane luma = from.GetPlane(0);
    destination.Allocate(luma.width, luma.height, Gray, m_Alignment);
    Helpers::CopyPlaneContents(luma, destination.Allocator().GetWriteablePlane(0));
  } else if ((format == YCbCr420_Planar && m_Target == YCbCr422_Planar) ||
             (format == YCbCr422_Planar && m_Target == YCbCr420_Planar)) {
    if (IsInterleaved(source.GetAttributes().interlacing)) {
      ResampleChromaByFields(source, destination);
      return;
    }
    destination.Allocate(source.GetWidth(), source.GetHeight(), m_Target, m_Alignment);
    ImImageMemoryAllocation& to = destination.Allocator();
    Helpers::CopyPlaneContents(from.GetPlane(0), to.GetWriteablePlane(0));
    for (uint64_t p = 1; p < 3; ++p) {
      const ImImageMemoryAllocation::CmPlane s = from.GetPlane(p);
      const ImImageMemoryAllocation::CmWriteablePlane d = to.GetWriteablePlane(p);
      if (format == YCbCr420_Planar) {
        NmPrimitives::Chroma420To422(s.data, s.rowStride, d.data, d.rowStride, d.width, d.height);
      } else {
        NmPrimitives::Chroma422To420(s.data, s.rowStride, d.data, d.rowStride, s.width, s.height);
      }
    }
  } else if (IsMultiPlaneFormat(format) && IsMultiPlaneFormat(m_Target)) {
    if (IsInterleaved(source.GetAttributes().interlacing) &&
        (format == YCbCr420_Planar || m_Target == YCbCr420_Planar)) {
      // Interleaved 4:2:0 chroma belongs to the fields: go through 4:2:2,
      // whose rows are whole picture rows.
      CmImage intermediate;
      CmImageColorFormatConvert(YCbCr422_Planar).Execute(source, intermediate);
      CmImageColorFormatConvert(m_Target, m_Alignment).Execute(intermediate, destination);
      return;
    }
    destination.Allocate(source.GetWidth(), source.GetHeight(), m_Target, m_Alignment);
    ImImageMemoryAllocation& to = destination.Allocator();
    Helpers::CopyPlaneContents(from.GetPlane(0), to.GetWriteablePlane(0));
    // Nearest neighbour: a smaller plane takes the even rows and columns, a
    // larger one repeats them.
    for (uint64_t p = 1; p < 3; ++p) {
      const ImImageMemoryAllocation::CmPlane s = from.GetPlane(p);
      const ImImageMemoryAllocation::CmWriteablePlane d = to.GetWriteablePlane(p);
      for (uint64_t y = 0; y < d.height; ++y) {
        const uint64_t sourceRow = d.height == s.height ? y : d.height < s.height ? 2 * y : y / 2;
        const uint8_t* in = s.data + sourceRow * s.rowStride;
        uint8_t* out = d.data + y * d.rowStride;
        if (d.width == s.width) {
          NmPrimitives::CopyPlane(in, s.rowStride, out, d.rowStride, d.width, 1);
        } else if (d.width < s.width) {
          NmPrimitives::ChromaHalveColumns(in, s.rowStride, out, d.rowStride, d.width, 1);
        } else {
          NmPrimitives::ChromaDoubleColumns(in, s.rowStride, out, d.rowStride, d.width, 1);
        }
      }
    }
  } else {
    throw CmIntegrityError(VZK_LOCATION, "Unable to convert between the given YCbCr formats",
                           CmIntegrityErrorCode::Unknown);
  }
  destination.CopyAttributes(source);
}

void CmImageColorFormatConvert::PerformConversionRGBToYCbCr(const CmImage& source,
                                                            CmImage& destination) {
  VZK_REQUIRE(source.GetAttributes().subColorFormat == NotApplicable,
              "Sub-color-format must be set to NotApplicable for RGB/BGR image types",
              CmIntegrityErrorCode::Unknown);
  const ColorFormat format = source.GetColorFormat();
  const ImImageMemoryAllocation::CmPlane from = source.Allocator().GetPlane(0);
  // Grey is full-range luma; 24-bit RGB keeps full range in 4:4:4, and
  // everything else goes to the video range that video encoders expect.
  SubColorFormat result = SubColorFormatVideoRange;
  if (m_Target == Gray || (from.pixelStride == 3 && m_Target == YCbCr444_Planar)) {
    result = SubColorFormatFullRange;
  }
  destination.Allocate(source.GetWidth(), source.GetHeight(), m_Target, m_Alignment);
  ImImageMemoryAllocation& to = destination.Allocator();
  NmPrimitives::SmYCbCrDestination planes{};
  const ImImageMemoryAllocation::CmWriteablePlane luma = to.GetWriteablePlane(0);
  planes.y = luma.data;
  planes.yStride = luma.rowStride;
  if (m_Target != Gray) {
    const ImImageMemoryAllocation::CmWriteablePlane cb = to.GetWriteablePlane(1);
    const ImImageMemoryAllocation::CmWriteablePlane cr = to.GetWriteablePlane(2);
    planes.cb = cb.data;
    planes.cbStride = cb.rowStride;
    planes.cr = cr.data;
    planes.crStride = cr.rowStride;
  }
  NmPrimitives::RgbToYCbCr(from.data, from.rowStride, GetPackedLayout(format, from.pixelStride),
                           planes, GetChromaLayout(m_Target), from.width, from.height,
                           static_cast<NmPrimitives::SmYCbCrMatrix>(result));
  destination.CopyAttributes(source);
  destination.GetAttributes().subColorFormat = result;
}

void CmImageColorFormatConvert::PerformConversionYCbCrToRGB(const CmImage& source,
                                                            CmImage& destination) {
  const SubColorFormat sub = source.GetAttributes().subColorFormat;
  VZK_REQUIRE(sub != NotApplicable,
              "Sub-color-format must not be set to NotApplicable for YCbCr images",
              CmIntegrityErrorCode::Unknown);
  VZK_REQUIRE(sub <= SubColorFormatPlainGray,
              "Unable to convert from the given YCbCr format to the given RGB format",
              CmIntegrityErrorCode::Unknown);
  const ColorFormat format = source.GetColorFormat();
  if (format == Gray) {
    // Grey is YCbCr without colour: neutral chroma gives R = G = B.
    CmImage full;
    CmImageColorFormatConvert(YCbCr444_Planar).Execute(source, full);
    PerformConversionYCbCrToRGB(full, destination);
    return;
  }
  if ((format == YCbCr420_Planar || format == YCbCr422_Planar) && sub == SubColorFormatFullRange) {
    ConvertInBlocks(source, destination);
    return;
  }
  destination.Allocate(source.GetWidth(), source.GetHeight(), m_Target, m_Alignment);
  const ImImageMemoryAllocation& from = source.Allocator();
  const ImImageMemoryAllocation::CmPlane y = from.GetPlane(0);
  const ImImageMemoryAllocation::CmPlane cb = from.GetPlane(1);
  const ImImageMemoryAllocation::CmPlane cr = from.GetPlane(2);
  const ImImageMemoryAllocation::CmWriteablePlane to = destination.Allocator().GetWriteablePlane(0);
  NmPrimitives::YCbCrToRgb({y.data, y.rowStride, cb.data, cb.rowStride, cr.data, cr.rowStride},
                           GetChromaLayout(format), to.data, to.rowStride,
                           GetPackedLayout(m_Target, to.pixelStride), y.width, y.height,
                           static_cast<NmPrimitives::SmYCbCrMatrix>(sub));
  destination.CopyAttributes(source);
  destination.GetAttributes().subColorFormat = NotApplicable;
}

void CmImageColorFormatConvert::ConvertInBlocks(const CmImage& source, CmImage& destination) {
  const ColorFormat format = source.GetColorFormat();
  const ImImageMemoryAllocation& from = source.Allocator();
  const ImImageMemoryAllocation::CmPlane y = from.GetPlane(0);
  const ImImageMemoryAllocation::CmPlane chroma[2] = {from.GetPlane(1), from.GetPlane(2)};
  // Chroma is enlarged by exactly two (each way for 4:2:0); an odd picture
  // uses all but the last column or row of that.
  const uint64_t wideWidth = 2 * chroma[0].width;
  const uint64_t wideHeight = format == YCbCr420_Planar ? 2 * chroma[0].height : chroma[0].height;
  const uint64_t resizeScratch = NmPrimitives::GetResizeScratchSize(
      chroma[0].width, chroma[0].height, wideWidth, wideHeight, 1, NmPrimitives::ResizeLinear);
  const uint64_t bandBytes = wideWidth * BlockRows;
  uint8_t* scratch = GetScratch(resizeScratch + 2 * bandBytes);
  uint8_t* bands[2] = {scratch + resizeScratch, scratch + resizeScratch + bandBytes};

  destination.Allocate(source.GetWidth(), source.GetHeight(), m_Target, m_Alignment);
  const ImImageMemoryAllocation::CmWriteablePlane to = destination.Allocator().GetWriteablePlane(0);
  const NmPrimitives::SmPackedLayout layout = GetPackedLayout(m_Target, to.pixelStride);
  for (uint64_t top = 0; top < y.height; top += BlockRows) {
    const uint64_t rows = std::min(BlockRows, y.height - top);
    for (int c = 0; c < 2; ++c) {
      ThrowStatus(NmPrimitives::ResizePlane(
          chroma[c].data, chroma[c].rowStride, chroma[c].width, chroma[c].height, bands[c],
          wideWidth, wideWidth, wideHeight, 1, NmPrimitives::ResizeLinear, scratch, resizeScratch,
          NmPrimitives::SmResizeWindow::Rows(wideWidth, top, top + rows)));
    }
    NmPrimitives::YCbCrToRgb(
        {y.data + top * y.rowStride, y.rowStride, bands[0], wideWidth, bands[1], wideWidth},
        NmPrimitives::Chroma444, to.data + top * to.rowStride, to.rowStride, layout, y.width, rows,
        NmPrimitives::YCbCrJfif);
  }
  destination.CopyAttributes(source);
  destination.GetAttributes().subColorFormat = NotApplicable;
}

void CmImageColorFormatConvert::ResampleChromaByFields(const CmImage& source,
                                                       CmImage& destination) {
  const uint64_t width = source.GetWidth();
  const uint64_t height = source.GetHeight();
  const ColorFormat format = source.GetColorFormat();
  if (height % 4 == 3) {
    // One more row, a copy of the last row of the same field, makes the
    // height a multiple of 4; the result is cropped back.
    CmImage padded;
    padded.Allocate(width, height + 1, format);
    padded.CopyAttributes(source);
    const uint64_t planeCount = source.Allocator().GetPlaneCount();
    for (uint64_t p = 0; p < planeCount; ++p) {
      const ImImageMemoryAllocation::CmPlane s = source.Allocator().GetPlane(p);
      const ImImageMemoryAllocation::CmWriteablePlane d = padded.Allocator().GetWriteablePlane(p);
      NmPrimitives::CopyPlane(s.data, s.rowStride, d.data, d.rowStride, s.width, s.height);
      if (p == 0 || format == YCbCr422_Planar) {
        NmPrimitives::CopyPlane(s.data + (s.height - 2) * s.rowStride, s.rowStride,
                                d.data + s.height * d.rowStride, d.rowStride, s.width, 1);
      }
    }
    CmImage converted;
    ResampleChromaByFields(padded, converted);
    auto cropped = std::make_unique<CmReferenceCountingImageAllocator>();
    cropped->CopyFrom(converted.Allocator());
    cropped->Crop(0, 0, width, height);
    destination.SetAllocator(std::move(cropped));
    destination.CopyAttributes(source);
    return;
  }
  destination.Allocate(width, height, m_Target, m_Alignment);
  const ImImageMemoryAllocation& from = source.Allocator();
  ImImageMemoryAllocation& to = destination.Allocator();
  Helpers::CopyPlaneContents(from.GetPlane(0), to.GetWriteablePlane(0));
  // Whole groups of four rows go field by field; the rows after the last
  // group take the plain form.
  const uint64_t grouped = height - height % 4;
  for (uint64_t p = 1; p < 3; ++p) {
    const ImImageMemoryAllocation::CmPlane s = from.GetPlane(p);
    const ImImageMemoryAllocation::CmWriteablePlane d = to.GetWriteablePlane(p);
    if (format == YCbCr420_Planar) {
      NmPrimitives::Chroma420To422Interleaved(s.data, s.rowStride, d.data, d.rowStride, d.width,
                                              grouped);
      NmPrimitives::Chroma420To422(s.data + grouped / 2 * s.rowStride, s.rowStride,
                                   d.data + grouped * d.rowStride, d.rowStride, d.width,
                                   height - grouped);
    } else {
      NmPrimitives::Chroma422To420Interleaved(s.data, s.rowStride, d.data, d.rowStride, s.width,
                                              grouped);
      NmPrimitives::Chroma422To420(s.data + grouped * s.rowStride, s.rowStride,
                                   d.data + grouped / 2 * d.rowStride, d.rowStride, s.width,
                                   height - grouped);
    }
  }
  destination.CopyAttributes(source);
}

} // namespace NmMediaProcessing
