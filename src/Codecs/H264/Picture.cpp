#include "Codecs/H264/Picture.h"

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace NmH264 {

namespace {

constexpr size_t HugePage = size_t{2} << 20;

std::atomic<size_t> g_MappedSampleBytes{0};

// Zeroed sample memory. Prediction reads blocks at scattered places of
// several reference pictures, each of them megabytes large: in pages of
// 4 KiB a 1080p picture spans some 900 of them, and together with its
// references it outgrows the processor's translation buffers, so that
// reference reads miss there as well as in the caches. Pictures of a
// huge page and more are therefore laid on huge pages where the system
// grants them. A last huge page filled only in part costs memory; where
// that would be more than an eighth, the remainder stays in small pages.
std::unique_ptr<uint8_t[], CmPicture::SmFreeSamples> AllocateSamples(size_t bytes) {
  const auto roundUp = [bytes](size_t unit) { return (bytes + unit - 1) / unit * unit; };
  if (bytes < HugePage) {
    void* memory = nullptr;
    if (posix_memalign(&memory, 64, bytes) != 0) {
      throw std::bad_alloc();
    }
    std::memset(memory, 0, bytes);
    return std::unique_ptr<uint8_t[], CmPicture::SmFreeSamples>(static_cast<uint8_t*>(memory));
  }
  size_t rounded = roundUp(HugePage);
  if (rounded - bytes > bytes / 8) {
    rounded = roundUp(4096);
  }
  // One huge page more than needed, then what lies before the first huge
  // page boundary and after the picture goes back: fresh mappings are zero.
  const size_t span = rounded + HugePage;
  void* base = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) {
    throw std::bad_alloc();
  }
  const auto address = reinterpret_cast<uintptr_t>(base);
  const uintptr_t start = (address + HugePage - 1) & ~(uintptr_t{HugePage} - 1);
  const size_t lead = start - address;
  if (lead > 0) {
    munmap(base, lead);
  }
  if (span - lead > rounded) {
    munmap(reinterpret_cast<void*>(start + rounded), span - lead - rounded);
  }
  madvise(reinterpret_cast<void*>(start), rounded, MADV_HUGEPAGE);
  g_MappedSampleBytes.fetch_add(rounded, std::memory_order_relaxed);
  return std::unique_ptr<uint8_t[], CmPicture::SmFreeSamples>(reinterpret_cast<uint8_t*>(start),
                                                              CmPicture::SmFreeSamples{rounded});
}

} // namespace

void CmPicture::SmFreeSamples::operator()(uint8_t* memory) const {
  if (mapped == 0) {
    std::free(memory);
    return;
  }
  munmap(memory, mapped);
  g_MappedSampleBytes.fetch_sub(mapped, std::memory_order_relaxed);
}

size_t CmPicture::GetMappedSampleBytes() {
  return g_MappedSampleBytes.load(std::memory_order_relaxed);
}

void CmPicture::Allocate(uint32_t widthInMbs, uint32_t heightInMbs, bool monochrome) {
  if (m_Memory && widthInMbs == m_WidthInMbs && heightInMbs == m_HeightInMbs &&
      monochrome == m_Monochrome) {
    m_Motion.Release();
    return;
  }
  m_WidthInMbs = widthInMbs;
  m_HeightInMbs = heightInMbs;
  m_Monochrome = monochrome;
  const size_t lumaStride = widthInMbs * 16 + 2 * LumaBorder;
  const size_t lumaRows = heightInMbs * 16 + 2 * LumaBorder;
  const size_t chromaStride = widthInMbs * 8 + LumaBorder;
  const size_t chromaRows = heightInMbs * 8 + LumaBorder;
  const size_t lumaBytes = lumaStride * lumaRows;
  const size_t chromaBytes = chromaStride * chromaRows;
  m_Memory = AllocateSamples(lumaBytes + 2 * chromaBytes);
  m_Stride[0] = static_cast<ptrdiff_t>(lumaStride);
  m_Origin[0] = m_Memory.get() + LumaBorder * lumaStride + LumaBorder;
  for (int c = 1; c < 3; ++c) {
    uint8_t* base = m_Memory.get() + lumaBytes + static_cast<size_t>(c - 1) * chromaBytes;
    m_Stride[c] = static_cast<ptrdiff_t>(chromaStride);
    m_Origin[c] = base + LumaBorder / 2 * chromaStride + LumaBorder / 2;
    // A monochrome picture is shown with neutral chroma.
    std::memset(base, 128, chromaBytes);
  }
  m_Motion.Release();
}

void CmPicture::Fill(uint8_t value) {
  const int planes = m_Monochrome ? 1 : 3;
  for (int c = 0; c < planes; ++c) {
    const uint32_t width = c == 0 ? m_WidthInMbs * 16 : m_WidthInMbs * 8;
    const uint32_t height = c == 0 ? m_HeightInMbs * 16 : m_HeightInMbs * 8;
    for (uint32_t y = 0; y < height; ++y) {
      std::memset(m_Origin[c] + y * m_Stride[c], value, width);
    }
  }
}

void CmPicture::ExtendBorders() {
  ExtendBordersOfLines(0, static_cast<int32_t>(m_HeightInMbs * 16));
}

void CmPicture::ExtendBordersOfLines(int32_t firstLine, int32_t endLine) {
  const int planes = m_Monochrome ? 1 : 3;
  for (int c = 0; c < planes; ++c) {
    const ptrdiff_t border = c == 0 ? LumaBorder : LumaBorder / 2;
    const ptrdiff_t width = c == 0 ? m_WidthInMbs * 16 : m_WidthInMbs * 8;
    const ptrdiff_t stride = m_Stride[c];
    uint8_t* origin = m_Origin[c];
    const ptrdiff_t first = c == 0 ? firstLine : firstLine / 2;
    const ptrdiff_t end = c == 0 ? endLine : endLine / 2;
    for (ptrdiff_t y = first; y < end; ++y) {
      uint8_t* row = origin + y * stride;
      std::memset(row - border, row[0], static_cast<size_t>(border));
      std::memset(row + width, row[width - 1], static_cast<size_t>(border));
    }
    const ptrdiff_t height = c == 0 ? m_HeightInMbs * 16 : m_HeightInMbs * 8;
    for (ptrdiff_t y = 1; y <= border && first < end; ++y) {
      if (first == 0) {
        std::memcpy(origin - y * stride - border, origin - border,
                    static_cast<size_t>(width + 2 * border));
      }
      if (end == height) {
        std::memcpy(origin + (height - 1 + y) * stride - border,
                    origin + (height - 1) * stride - border, static_cast<size_t>(width + 2 * border));
      }
    }
  }
}

void CmPicture::PublishLines(int32_t lines) {
  m_ReadyLines.store(lines, std::memory_order_release);
  m_ReadyLines.notify_all();
}

void CmPicture::WaitForLine(int32_t line) const {
  const int32_t needed = line >= static_cast<int32_t>(m_HeightInMbs * 16) ? INT32_MAX : line + 1;
  for (int32_t ready = m_ReadyLines.load(std::memory_order_acquire); ready < needed;
       ready = m_ReadyLines.load(std::memory_order_acquire)) {
    m_ReadyLines.wait(ready, std::memory_order_acquire);
  }
}

CmPicture& CmPicture::GetField(int parity) {
  std::unique_ptr<CmPicture>& field = m_Fields[parity];
  if (field == nullptr) {
    field = std::make_unique<CmPicture>();
    field->m_Parity = parity;
    field->m_Frame = this;
  }
  field->Allocate(m_WidthInMbs, m_HeightInMbs / 2, m_Monochrome);
  return *field;
}

namespace {

// Copies every other line of a frame plane to or from a field plane.
void CopyFieldLines(uint8_t* frame, ptrdiff_t frameStride, uint8_t* field, ptrdiff_t fieldStride,
                    int parity, size_t width, size_t fieldHeight, bool toFrame) {
  for (size_t y = 0; y < fieldHeight; ++y) {
    uint8_t* frameRow = frame + (2 * static_cast<ptrdiff_t>(y) + parity) * frameStride;
    uint8_t* fieldRow = field + static_cast<ptrdiff_t>(y) * fieldStride;
    if (toFrame) {
      std::memcpy(frameRow, fieldRow, width);
    } else {
      std::memcpy(fieldRow, frameRow, width);
    }
  }
}

} // namespace

void CmPicture::WeaveField(int parity) {
  const CmPicture& field = *m_Fields[parity];
  const int planes = m_Monochrome ? 1 : 3;
  for (int c = 0; c < planes; ++c) {
    const size_t width = c == 0 ? m_WidthInMbs * 16 : m_WidthInMbs * 8;
    const size_t fieldHeight = c == 0 ? field.m_HeightInMbs * 16 : field.m_HeightInMbs * 8;
    CopyFieldLines(m_Origin[c], m_Stride[c], field.m_Origin[c], field.m_Stride[c], parity, width,
                   fieldHeight, true);
  }
}

void CmPicture::SplitIntoFields() {
  const int planes = m_Monochrome ? 1 : 3;
  for (int parity = 0; parity < 2; ++parity) {
    CmPicture& field = GetField(parity);
    for (int c = 0; c < planes; ++c) {
      const size_t width = c == 0 ? m_WidthInMbs * 16 : m_WidthInMbs * 8;
      const size_t fieldHeight = c == 0 ? field.m_HeightInMbs * 16 : field.m_HeightInMbs * 8;
      CopyFieldLines(m_Origin[c], m_Stride[c], field.m_Origin[c], field.m_Stride[c], parity, width,
                     fieldHeight, false);
    }
    field.ExtendBorders();
  }
}

void CmPicture::RepeatField(int parity) {
  const int planes = m_Monochrome ? 1 : 3;
  for (int c = 0; c < planes; ++c) {
    const size_t width = c == 0 ? m_WidthInMbs * 16 : m_WidthInMbs * 8;
    const ptrdiff_t height = c == 0 ? m_HeightInMbs * 16 : m_HeightInMbs * 8;
    for (ptrdiff_t y = 0; y + 1 < height; y += 2) {
      uint8_t* present = m_Origin[c] + (y + parity) * m_Stride[c];
      uint8_t* missing = m_Origin[c] + (y + 1 - parity) * m_Stride[c];
      std::memcpy(missing, present, width);
    }
  }
}

} // namespace NmH264
