// How much heap one H.264 decoder holds at its peak on 1080p with sixteen
// reference frames, beside what its frame store must hold: the frames it
// keeps (the decoded picture buffer and the picture in progress), each
// 1920 x 1088 luma and two quarter-size chroma planes, and the same planes
// with the border that prediction reads beyond the edges. Every allocation of
// the process is counted through the allocator's own entry points, by the
// size that the allocator really gives (malloc_usable_size), so the peak
// is exact. x264 makes the stream on the first run; it is kept beside the
// tool. An argument limits the access units decoded (for a run under
// valgrind's massif, which tells where the heap goes).

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "Codecs/H264/Picture.h"
#include "H264/H264BenchmarkStreams.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void* __libc_valloc(size_t size);
void* __libc_pvalloc(size_t size);
void __libc_free(void* pointer);
}

namespace {

std::atomic<int64_t> g_Current{0};
std::atomic<int64_t> g_Peak{0};

void Count(void* pointer, bool allocated) {
  if (pointer == nullptr) {
    return;
  }
  const auto size = static_cast<int64_t>(malloc_usable_size(pointer));
  if (!allocated) {
    g_Current.fetch_sub(size, std::memory_order_relaxed);
    return;
  }
  const int64_t now = g_Current.fetch_add(size, std::memory_order_relaxed) + size;
  int64_t peak = g_Peak.load(std::memory_order_relaxed);
  while (now > peak && !g_Peak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
  }
}

void* Counted(void* pointer) {
  Count(pointer, true);
  return pointer;
}

} // namespace

extern "C" {
void* malloc(size_t size) {
  return Counted(__libc_malloc(size));
}
void* calloc(size_t count, size_t size) {
  return Counted(__libc_calloc(count, size));
}
void* realloc(void* pointer, size_t size) {
  Count(pointer, false);
  void* moved = __libc_realloc(pointer, size);
  // A failed realloc leaves the block where it was.
  return Counted(moved != nullptr || size == 0 ? moved : pointer);
}
void free(void* pointer) {
  Count(pointer, false);
  __libc_free(pointer);
}
void* memalign(size_t alignment, size_t size) {
  return Counted(__libc_memalign(alignment, size));
}
void* aligned_alloc(size_t alignment, size_t size) {
  return Counted(__libc_memalign(alignment, size));
}
int posix_memalign(void** out, size_t alignment, size_t size) {
  void* pointer = __libc_memalign(alignment, size);
  if (pointer == nullptr) {
    return 12; // ENOMEM
  }
  *out = Counted(pointer);
  return 0;
}
void* valloc(size_t size) {
  return Counted(__libc_valloc(size));
}
void* pvalloc(size_t size) {
  return Counted(__libc_pvalloc(size));
}
}

int main(int argc, char** argv) {
  constexpr double MiB = 1024.0 * 1024.0;
  constexpr int Width = 1920, Height = 1088;
  constexpr int Macroblocks = (Width / 16) * (Height / 16);
  NmH264Bench::CmPackets packets = NmH264Bench::MadePackets(
      "Ref16High1080p.264",
      "-profile:v high -x264-params ref=16:bframes=3:b-pyramid=normal:8x8dct=1:weightp=2");
  if (packets.empty()) {
    std::printf("the stream could not be made\n");
    return 1;
  }
  if (argc > 1 && std::atoi(argv[1]) > 0) {
    packets.resize(std::min<size_t>(packets.size(), static_cast<size_t>(std::atoi(argv[1]))));
  }
  const int64_t before = g_Current.load();
  g_Peak.store(before);
  int pictures = 0;
  int32_t dpbSize = 0;
  size_t frames = 0;
  int32_t extraFrames = 0;
  pictures = NmH264Bench::DecodeWithOurs(packets, 1, [&](const MCL::TaskSupplier& supplier) {
    dpbSize = supplier.GetDpbSize();
    frames = supplier.GetFrameCount();
    extraFrames = supplier.GetExtraFrames();
  });
  const int64_t peak = g_Peak.load() - before;
  const int64_t left = g_Current.load() - before;
  const double planes = static_cast<double>(Width) * Height * 1.5;
  const double store = static_cast<double>(frames) * planes;
  constexpr int Border = NmH264::CmPicture::LumaBorder;
  const double padded = static_cast<double>(Width + 2 * Border) * (Height + 2 * Border) +
                        2.0 * (Width / 2 + Border) * (Height / 2 + Border);
  const double paddedStore = static_cast<double>(frames) * padded;
  std::printf("pictures decoded:        %d of %zu packets\n", pictures, packets.size());
  std::printf("decoded picture buffer:  %d frames; the store held %zu frames (%d extra)\n", dpbSize,
              frames, extraFrames);
  std::printf("heap at the peak:        %.2f MiB\n", peak / MiB);
  std::printf("frame store planes:      %.2f MiB (%zu x 1920 x 1088 x 1.5)\n", store / MiB, frames);
  std::printf("overhead beyond planes:  %.2f MiB, %.0f KiB a frame held, %.0f bytes a "
              "macroblock of a frame held\n",
              (peak - store) / MiB, (peak - store) / 1024.0 / static_cast<double>(frames),
              (peak - store) / static_cast<double>(frames) / Macroblocks);
  std::printf("frame store with borders: %.2f MiB\n", paddedStore / MiB);
  std::printf("overhead beyond those:   %.2f MiB, %.0f KiB a frame held, %.0f bytes a "
              "macroblock of a frame held\n",
              (peak - paddedStore) / MiB,
              (peak - paddedStore) / 1024.0 / static_cast<double>(frames),
              (peak - paddedStore) / static_cast<double>(frames) / Macroblocks);
  std::printf("heap left after the decoder went: %lld bytes\n", static_cast<long long>(left));
  return 0;
}
