#include <sys/random.h>

#include <cerrno>

#include "Common/GUID/GUID.h"

namespace NmGUID {

bool CmGUIDOS::Generate(std::array<uint8_t, 16>& bytes) {
  size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t got = getrandom(bytes.data() + filled, bytes.size() - filled, 0);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    filled += static_cast<size_t>(got);
  }
  return true;
}

} // namespace NmGUID
