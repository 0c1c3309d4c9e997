// The recording plug-in as a host drives it, over a file that grows while it
// is read. The input is a recording followed by a script and the script's
// length in the last byte. The script's first byte says how much of the
// recording is on disk before Connect, its second which properties are asked
// for and whether a privacy mask is configured; the rest are the calls.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Support/PluginUnderTest.h"
#include "Support/SourceSession.h"

using namespace NmToolkit;

namespace {

const NmFuzz::CmPluginUnderTest& Plugin() {
  static const NmFuzz::CmPluginUnderTest plugin("ToolkitSourcePlugin_recording.so");
  return plugin;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  NmFuzz::SmSplitInput input = NmFuzz::SplitInput(data, size);
  const size_t fileSize = input.fileSize;
  NmFuzz::CmScript& script = input.script;
  const uint8_t heldBack = script.Byte();
  const uint8_t properties = script.Byte();

  NmFuzz::CmMemoryFile file;
  const size_t initial = fileSize - fileSize * heldBack / 255;
  file.Append(data, initial);
  std::string xml = "<toolkit type=\"source\"><provider>recording</provider><config><recording "
                    "file=\"" +
                    file.Path() + "\"";
  if (properties & 8) {
    xml += " privacy_mask=\"2x1;10\"";
  }
  xml += "/></config></toolkit>";

  auto toolkit = Plugin().Create(xml);
  if (!toolkit) {
    __builtin_trap();
  }
  NmFuzz::CmSession session(*toolkit, file, data + initial, fileSize - initial);
  session.Connect(properties);
  session.Run(script);
  session.Disconnect();
  return 0;
}
