#include "MediaProcessing/GenericByteData/GenericByteDataOS.h"

#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace NmMediaProcessing {

namespace {

// Set once the kernel has refused process_vm_writev for policy reasons (a
// seccomp filter in a container, say); from then on the slower map check serves.
std::atomic<bool> g_KernelCopyUnavailable{false};

// One chunk per call stays below the kernel's limit for a single transfer.
constexpr size_t MaximumChunk = size_t{1} << 30;

// Lets the kernel copy within our own address space. The kernel checks both
// ranges as it goes and answers EFAULT instead of raising a signal, which is
// the whole point: a foreign buffer may be mapped read-only. Returns 1 on
// success, 0 on a fault, -1 when the call itself is not available.
int KernelCopy(void* destination, const void* source, size_t size) {
  const pid_t self = getpid();
  size_t done = 0;
  while (done < size) {
    const size_t chunk = size - done < MaximumChunk ? size - done : MaximumChunk;
    iovec local{const_cast<uint8_t*>(static_cast<const uint8_t*>(source)) + done, chunk};
    iovec remote{static_cast<uint8_t*>(destination) + done, chunk};
    const ssize_t written = process_vm_writev(self, &local, 1, &remote, 1, 0);
    if (written < 0) {
      if (errno == ENOSYS || errno == EPERM) {
        return -1;
      }
      return 0;
    }
    if (written == 0) {
      return 0;
    }
    done += static_cast<size_t>(written);
  }
  return 1;
}

// Whether every byte of [address, address + size) lies in mappings that grant
// the permission ('r' or 'w'), according to /proc/self/maps.
bool RangeHasPermission(const void* address, size_t size, char permission) {
  std::unique_ptr<FILE, int (*)(FILE*)> maps(std::fopen("/proc/self/maps", "re"), &std::fclose);
  if (!maps) {
    return false;
  }
  uintptr_t next = reinterpret_cast<uintptr_t>(address);
  const uintptr_t end = next + size;
  if (end < next) {
    return false;
  }
  char line[512];
  // Mappings are listed in ascending order, so one pass covers the range.
  while (next < end && std::fgets(line, sizeof line, maps.get()) != nullptr) {
    unsigned long begin = 0;
    unsigned long last = 0;
    char permissions[5] = {};
    if (std::sscanf(line, "%lx-%lx %4s", &begin, &last, permissions) != 3) {
      continue;
    }
    if (last <= next) {
      continue;
    }
    if (begin > next) {
      return false;
    }
    const bool granted = permission == 'r' ? permissions[0] == 'r' : permissions[1] == 'w';
    if (!granted) {
      return false;
    }
    next = last;
  }
  return next >= end;
}

bool Overlap(const void* a, const void* b, size_t size) {
  const auto x = reinterpret_cast<uintptr_t>(a);
  const auto y = reinterpret_cast<uintptr_t>(b);
  return x < y ? y - x < size : x - y < size;
}

bool CopyWithoutOverlap(void* destination, const void* source, size_t size) {
  if (!g_KernelCopyUnavailable.load(std::memory_order_relaxed)) {
    const int result = KernelCopy(destination, source, size);
    if (result >= 0) {
      return result == 1;
    }
    g_KernelCopyUnavailable.store(true, std::memory_order_relaxed);
  }
  if (!RangeHasPermission(source, size, 'r') || !RangeHasPermission(destination, size, 'w')) {
    return false;
  }
  std::memcpy(destination, source, size);
  return true;
}

} // namespace

bool CmGenericByteDataOS::IsWritable(void* address, size_t size) {
  if (address == nullptr) {
    return false;
  }
  if (!g_KernelCopyUnavailable.load(std::memory_order_relaxed)) {
    // Writing the bytes onto themselves: a transfer that stops at a read-only
    // page has only rewritten what was there.
    const int result = KernelCopy(address, address, size);
    if (result >= 0) {
      return result == 1;
    }
    g_KernelCopyUnavailable.store(true, std::memory_order_relaxed);
  }
  return RangeHasPermission(address, size, 'w');
}

bool CmGenericByteDataOS::WriteAllOrNothing(void* destination, const void* source, size_t size) {
  static const uintptr_t PageMask = ~(static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)) - 1);
  const auto first = reinterpret_cast<uintptr_t>(destination);
  const bool onePage = size == 0 || (first & PageMask) == ((first + size - 1) & PageMask);
  // Protection is per page, so a write within one page succeeds or fails as
  // a whole; one that straddles two is probed first, or the kernel would
  // write the part in front of a read-only page.
  if (!onePage && !IsWritable(destination, size)) {
    return false;
  }
  return SafeCopy(destination, source, size);
}

bool CmGenericByteDataOS::SafeCopy(void* destination, const void* source, size_t size) {
  if (size == 0 || destination == source) {
    return destination != nullptr && source != nullptr;
  }
  if (destination == nullptr || source == nullptr) {
    return false;
  }
  if (!Overlap(destination, source, size)) {
    return CopyWithoutOverlap(destination, source, size);
  }
  // The kernel copies front to back; an overlapping move goes through a
  // private buffer so that it behaves like memmove.
  std::unique_ptr<uint8_t[]> staging(new (std::nothrow) uint8_t[size]);
  if (!staging) {
    return false;
  }
  return CopyWithoutOverlap(staging.get(), source, size) &&
         CopyWithoutOverlap(destination, staging.get(), size);
}

} // namespace NmMediaProcessing
