// Arbitrary argument lists (split at zero bytes): the parser either accepts
// them or refuses them with a sentence, never anything else.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CommandLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> arguments(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {
      arguments.emplace_back();
    } else {
      arguments.back() += static_cast<char>(data[i]);
    }
  }
  try {
    NmVzkTool::ParseCommandLine(arguments);
  } catch (const NmVzkTool::CmUsageError& error) {
    const std::string text = error.what();
    if (text.empty() || (text.back() != '.' && text.back() != '!')) {
      __builtin_trap();
    }
  }
  return 0;
}
