#include "MediaProcessing/StreamCollector/StreamCollectorError.h"

namespace NmMediaProcessing {

std::string StreamCollectorLocation(const std::string& function, const char* file, int line) {
  return function + " (line " + NmError::ComponentRelativeFile(file) + ", " + std::to_string(line) +
         ")";
}

} // namespace NmMediaProcessing
