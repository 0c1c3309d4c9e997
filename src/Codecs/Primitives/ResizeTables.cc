#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <numbers>
#include <vector>

#include "Codecs/Primitives/Resize.h"

namespace NmPrimitives::NmResizeTables {

namespace {

constexpr size_t ScratchAlignment = 64;
constexpr double LanczosLobes = 3.0;

double Sinc(double x) {
  if (x == 0.0) {
    return 1.0;
  }
  const double a = std::numbers::pi * x;
  return std::sin(a) / a;
}

double Lanczos(double x) {
  return std::fabs(x) < LanczosLobes ? Sinc(x) * Sinc(x / LanczosLobes) : 0.0;
}

double Centre(size_t i, size_t srcLength, size_t dstLength) {
  return (static_cast<double>(i) + 0.5) * static_cast<double>(srcLength) /
             static_cast<double>(dstLength) -
         0.5;
}

// The source indices that output i reads, before they are clamped to the
// plane: [lo, hi].
void GetRawRange(size_t i, size_t srcLength, size_t dstLength, SmResizeMode mode, int64_t& lo,
                 int64_t& hi) {
  const int64_t s = static_cast<int64_t>(srcLength);
  const int64_t d = static_cast<int64_t>(dstLength);
  const int64_t n = static_cast<int64_t>(i);
  switch (mode) {
  case ResizeNearest:
    lo = hi = std::min((2 * n + 1) * s / (2 * d), s - 1);
    return;
  case ResizeLinear: {
    const double c = std::clamp(Centre(i, srcLength, dstLength), 0.0, static_cast<double>(s - 1));
    lo = static_cast<int64_t>(std::floor(c));
    hi = std::min(lo + 1, s - 1);
    return;
  }
  case ResizeSuperSample:
    // Output i covers [n * s, (n + 1) * s) in units where a source pixel is d wide.
    lo = n * s / d;
    hi = ((n + 1) * s + d - 1) / d - 1;
    return;
  default: {
    const double c = Centre(i, srcLength, dstLength);
    const double support = LanczosLobes * std::max(1.0, static_cast<double>(s) / d);
    lo = static_cast<int64_t>(std::ceil(c - support));
    hi = static_cast<int64_t>(std::floor(c + support));
    return;
  }
  }
}

void GetRange(size_t i, size_t srcLength, size_t dstLength, SmResizeMode mode, int64_t& lo,
              int64_t& hi) {
  GetRawRange(i, srcLength, dstLength, mode, lo, hi);
  const int64_t last = static_cast<int64_t>(srcLength) - 1;
  lo = std::clamp<int64_t>(lo, 0, last);
  hi = std::clamp<int64_t>(hi, 0, last);
}

// Weights of output i over source indices lo .. hi, summing to 1; indices
// outside the plane lend their weight to the edge pixel.
void GetWeights(size_t i, size_t srcLength, size_t dstLength, SmResizeMode mode, int64_t lo,
                int64_t hi, double* weights) {
  const int64_t s = static_cast<int64_t>(srcLength);
  const int64_t d = static_cast<int64_t>(dstLength);
  const int64_t n = static_cast<int64_t>(i);
  const size_t count = static_cast<size_t>(hi - lo + 1);
  std::fill(weights, weights + count, 0.0);
  switch (mode) {
  case ResizeNearest:
    weights[0] = 1.0;
    return;
  case ResizeLinear: {
    const double c = std::clamp(Centre(i, srcLength, dstLength), 0.0, static_cast<double>(s - 1));
    const double f = c - static_cast<double>(lo);
    weights[0] = 1.0 - f;
    if (count > 1) {
      weights[1] = f;
    }
    return;
  }
  case ResizeSuperSample:
    for (int64_t j = lo; j <= hi; ++j) {
      const int64_t overlap = std::min((n + 1) * s, (j + 1) * d) - std::max(n * s, j * d);
      weights[j - lo] = static_cast<double>(std::max<int64_t>(overlap, 0)) / static_cast<double>(s);
    }
    return;
  default: {
    int64_t rawLo = 0, rawHi = 0;
    GetRawRange(i, srcLength, dstLength, mode, rawLo, rawHi);
    const double c = Centre(i, srcLength, dstLength);
    const double stretch = std::max(1.0, static_cast<double>(s) / d);
    double sum = 0.0;
    for (int64_t j = rawLo; j <= rawHi; ++j) {
      const double w = Lanczos((static_cast<double>(j) - c) / stretch);
      weights[std::clamp<int64_t>(j, 0, s - 1) - lo] += w;
      sum += w;
    }
    for (size_t k = 0; k < count; ++k) {
      weights[k] /= sum;
    }
    return;
  }
  }
}

// Rounds to integers that sum to exactly 1 << WeightBits: the rounding error
// goes to the heaviest tap, where it matters least.
void Quantize(const double* weights, size_t count, int32_t* out) {
  int32_t sum = 0;
  size_t heaviest = 0;
  for (size_t k = 0; k < count; ++k) {
    out[k] = static_cast<int32_t>(std::lround(weights[k] * (1 << WeightBits)));
    sum += out[k];
    if (std::fabs(weights[k]) > std::fabs(weights[heaviest])) {
      heaviest = k;
    }
  }
  out[heaviest] += (1 << WeightBits) - sum;
}

size_t Aligned(size_t bytes) {
  return (bytes + ScratchAlignment - 1) / ScratchAlignment * ScratchAlignment;
}

struct SmSizes {
  size_t verticalTaps, horizontalTaps, outputBytes;
  size_t verticalFirst, verticalWeights, horizontalFirst, horizontalWeights, row, doubles;
  size_t pixelFirst, pixelWeights, packed;
  size_t Total() const {
    return ScratchAlignment + verticalFirst + verticalWeights + horizontalFirst +
           horizontalWeights + row + doubles + pixelFirst + pixelWeights + packed;
  }
};

SmSizes GetSizes(size_t srcWidth, size_t srcHeight, size_t dstWidth, size_t dstHeight,
                 size_t pixelBytes, SmResizeMode mode) {
  SmSizes s{};
  s.verticalTaps = GetTapCount(srcHeight, dstHeight, mode);
  s.horizontalTaps = GetTapCount(srcWidth, dstWidth, mode);
  s.outputBytes = dstWidth * pixelBytes;
  s.verticalFirst = Aligned(dstHeight * sizeof(int32_t));
  s.verticalWeights = Aligned(dstHeight * s.verticalTaps * sizeof(int32_t));
  s.horizontalFirst = Aligned(s.outputBytes * sizeof(int32_t));
  s.horizontalWeights = Aligned(s.outputBytes * s.horizontalTaps * sizeof(int32_t));
  s.row = Aligned((srcWidth * pixelBytes + 64) * sizeof(int32_t));
  s.doubles = Aligned(std::max(s.verticalTaps, s.horizontalTaps) * 2 * sizeof(double));
  s.pixelFirst = Aligned(dstWidth * sizeof(int32_t));
  s.pixelWeights = Aligned(dstWidth * s.horizontalTaps * sizeof(int32_t));
  s.packed = Aligned(s.outputBytes * GetPackedTapCount(s.horizontalTaps) * sizeof(int16_t));
  return s;
}

} // namespace

size_t GetScratchSize(size_t srcWidth, size_t srcHeight, size_t dstWidth, size_t dstHeight,
                      size_t pixelBytes, SmResizeMode mode) {
  return GetSizes(srcWidth, srcHeight, dstWidth, dstHeight, pixelBytes, mode).Total();
}

namespace {

bool IsKnownMode(SmResizeMode mode) {
  return mode == ResizeNearest || mode == ResizeLinear || mode == ResizeSuperSample ||
         mode == ResizeLanczos;
}

// One axis into first[] and weights[] (row-major, taps a row), with each
// range moved left where needed so that every tap index stays in the plane.
void FillAxis(size_t srcLength, size_t dstLength, SmResizeMode mode, size_t taps, int32_t* first,
              int32_t* weights, double* buffer) {
  for (size_t i = 0; i < dstLength; ++i) {
    int64_t lo = 0, hi = 0;
    GetRange(i, srcLength, dstLength, mode, lo, hi);
    const size_t count = static_cast<size_t>(hi - lo + 1);
    GetWeights(i, srcLength, dstLength, mode, lo, hi, buffer);
    const int64_t start = std::min<int64_t>(lo, static_cast<int64_t>(srcLength - taps));
    first[i] = static_cast<int32_t>(start);
    int32_t* row = weights + i * taps;
    std::fill(row, row + taps, 0);
    Quantize(buffer, count, row + (lo - start));
  }
}

// The axes built last, so that a run of pictures of one geometry computes its
// filters once: Lanczos weights cost a sine per tap, as much as a third of
// the resize itself. Held under a lock, as planes may be resized on several
// threads at once.
class CmAxisCache {
public:
  void Fill(size_t srcLength, size_t dstLength, SmResizeMode mode, size_t taps, int32_t* first,
            int32_t* weights, double* buffer) {
    std::lock_guard<std::mutex> lock(m_Lock);
    for (const SmEntry& entry : m_Entries) {
      if (entry.srcLength == srcLength && entry.dstLength == dstLength && entry.mode == mode &&
          entry.taps == taps) {
        std::copy(entry.first.begin(), entry.first.end(), first);
        std::copy(entry.weights.begin(), entry.weights.end(), weights);
        return;
      }
    }
    FillAxis(srcLength, dstLength, mode, taps, first, weights, buffer);
    SmEntry& entry = m_Entries[m_Next];
    m_Next = (m_Next + 1) % m_Entries.size();
    entry = {srcLength,
             dstLength,
             mode,
             taps,
             std::vector<int32_t>(first, first + dstLength),
             std::vector<int32_t>(weights, weights + dstLength * taps)};
  }

private:
  struct SmEntry {
    size_t srcLength = 0, dstLength = 0;
    SmResizeMode mode = ResizeNearest;
    size_t taps = 0;
    std::vector<int32_t> first, weights;
  };
  std::mutex m_Lock;
  std::array<SmEntry, 8> m_Entries;
  size_t m_Next = 0;
};

void FillAxisCached(size_t srcLength, size_t dstLength, SmResizeMode mode, size_t taps,
                    int32_t* first, int32_t* weights, double* buffer) {
  static CmAxisCache cache;
  cache.Fill(srcLength, dstLength, mode, taps, first, weights, buffer);
}

} // namespace

size_t GetPackedTapCount(size_t taps) {
  return (taps + 7) / 8 * 8;
}

size_t GetTapCount(size_t srcLength, size_t dstLength, SmResizeMode mode) {
  size_t taps = 1;
  for (size_t i = 0; i < dstLength; ++i) {
    int64_t lo = 0, hi = 0;
    GetRange(i, srcLength, dstLength, mode, lo, hi);
    taps = std::max(taps, static_cast<size_t>(hi - lo + 1));
  }
  return taps;
}

int32_t Check(const uint8_t* src, size_t srcWidth, size_t srcHeight, const uint8_t* dst,
              size_t dstWidth, size_t dstHeight, size_t pixelBytes, SmResizeMode mode,
              const uint8_t* scratch, const SmResizeWindow& window) {
  if (src == nullptr || dst == nullptr || scratch == nullptr) {
    return ResizeNullPointer;
  }
  if (srcWidth == 0 || srcHeight == 0 || dstWidth == 0 || dstHeight == 0 ||
      (pixelBytes != 1 && pixelBytes != 3 && pixelBytes != 4) || window.top >= window.bottom ||
      window.bottom > dstHeight || window.left >= window.right || window.right > dstWidth) {
    return ResizeBadSize;
  }
  if (!IsKnownMode(mode)) {
    return ResizeBadMode;
  }
  return ResizeOk;
}

bool Build(size_t srcWidth, size_t srcHeight, size_t dstWidth, size_t dstHeight, size_t pixelBytes,
           SmResizeMode mode, const SmResizeWindow& window, uint8_t* scratch, size_t scratchSize,
           SmLayout& layout) {
  const SmSizes s = GetSizes(srcWidth, srcHeight, dstWidth, dstHeight, pixelBytes, mode);
  if (scratchSize < s.Total()) {
    return false;
  }
  uint8_t* p =
      scratch + (ScratchAlignment - reinterpret_cast<uintptr_t>(scratch) % ScratchAlignment) %
                    ScratchAlignment;
  const auto take = [&p](size_t bytes) {
    uint8_t* at = p;
    p += bytes;
    return at;
  };
  layout.vertical.taps = s.verticalTaps;
  layout.vertical.first = reinterpret_cast<int32_t*>(take(s.verticalFirst));
  layout.vertical.weights = reinterpret_cast<int32_t*>(take(s.verticalWeights));
  layout.horizontal.taps = s.horizontalTaps;
  layout.horizontal.first = reinterpret_cast<int32_t*>(take(s.horizontalFirst));
  layout.horizontal.weights = reinterpret_cast<int32_t*>(take(s.horizontalWeights));
  layout.row = reinterpret_cast<int32_t*>(take(s.row));
  layout.packed = reinterpret_cast<int16_t*>(take(s.packed));
  double* buffer = reinterpret_cast<double*>(take(s.doubles));

  FillAxisCached(srcHeight, dstHeight, mode, s.verticalTaps, layout.vertical.first,
                 layout.vertical.weights, buffer);
  // The horizontal table per pixel first, then the window's columns spread
  // out to bytes and turned tap-major, so that the weights of one tap for
  // consecutive output bytes lie side by side. The row holds only the source
  // pixels that the window reads.
  int32_t* pixelFirst = reinterpret_cast<int32_t*>(take(s.pixelFirst));
  int32_t* pixelWeights = reinterpret_cast<int32_t*>(take(s.pixelWeights));
  const size_t taps = s.horizontalTaps;
  FillAxisCached(srcWidth, dstWidth, mode, taps, pixelFirst, pixelWeights, buffer);
  const auto [lowest, highest] =
      std::minmax_element(pixelFirst + window.left, pixelFirst + window.right);
  const int32_t origin = *lowest;
  layout.rowOrigin = static_cast<size_t>(origin) * pixelBytes;
  layout.rowBytes = (static_cast<size_t>(*highest - origin) + taps) * pixelBytes;
  layout.outputBytes = (window.right - window.left) * pixelBytes;
  for (size_t x = window.left; x < window.right; ++x) {
    for (size_t c = 0; c < pixelBytes; ++c) {
      const size_t o = (x - window.left) * pixelBytes + c;
      layout.horizontal.first[o] =
          (pixelFirst[x] - origin) * static_cast<int32_t>(pixelBytes) + static_cast<int32_t>(c);
      for (size_t k = 0; k < taps; ++k) {
        layout.horizontal.weights[k * layout.outputBytes + o] = pixelWeights[x * taps + k];
      }
    }
  }
  return true;
}

} // namespace NmPrimitives::NmResizeTables
