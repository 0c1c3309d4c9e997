// Arbitrary bytes as a media file for the media plug-in, as a host drives it:
// the input is the file followed by a script and the script's length in the
// last byte. The script's first byte is unused here (the whole file is there
// before Connect, as a media file is read once), its second says which
// properties are asked for; the rest are the calls. Everything libavformat
// makes of the bytes must become records or a toolkit error.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Support/PluginUnderTest.h"
#include "Support/SourceSession.h"

namespace {

const NmFuzz::CmPluginUnderTest& Plugin() {
  static const NmFuzz::CmPluginUnderTest plugin("ToolkitSourcePlugin_media.so");
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
  script.Byte();
  const uint8_t properties = script.Byte();

  NmFuzz::CmMemoryFile file;
  file.Append(data, fileSize);
  const std::string xml =
      "<toolkit type=\"source\"><provider>media</provider><config><media url=\"" + file.Path() +
      "\"/></config></toolkit>";
  auto toolkit = Plugin().Create(xml);
  if (!toolkit) {
    __builtin_trap();
  }
  NmFuzz::CmSession session(*toolkit, file, nullptr, 0);
  session.Connect(properties);
  session.Run(script);
  session.Disconnect();
  return 0;
}
