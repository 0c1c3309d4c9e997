// The recording plug-in as a host drives it, over a file that grows while it
// is read. The input is a recording followed by a script and the script's
// length in the last byte. The script's first byte says how much of the
// recording is on disk before Connect, its second which properties are asked
// for and whether a privacy mask is configured; the rest are the calls.

#include <cstddef>
#include <cstdint>
#include <string>

#include "Support/SourceSession.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const NmFuzz::CmPluginUnderTest plugin("ToolkitSourcePlugin_recording.so");
  if (size == 0) {
    return 0;
  }
  NmFuzz::SmSplitInput input = NmFuzz::SplitInput(data, size);
  const uint8_t heldBack = input.script.Byte();
  const uint8_t properties = input.script.Byte();
  NmFuzz::CmMemoryFile file;
  const size_t initial = input.fileSize - input.fileSize * heldBack / 255;
  file.Append(data, initial);
  const std::string xml =
      "<toolkit type=\"source\"><provider>recording</provider><config><recording file=\"" +
      file.Path() + "\"" + (properties & 8 ? " privacy_mask=\"2x1;10\"" : "") +
      "/></config></toolkit>";
  NmFuzz::RunSession(plugin, xml, file, data + initial, input.fileSize - initial, properties,
                     input.script);
  return 0;
}
