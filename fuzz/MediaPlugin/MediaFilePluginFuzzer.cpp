// Arbitrary bytes as a media file for the media plug-in, as a host drives it:
// the input is the file followed by a script and the script's length in the
// last byte. The script's first byte is unused here (the whole file is there
// before Connect, as a media file is read once), its second says which
// properties are asked for; the rest are the calls. Everything libavformat
// makes of the bytes must become records or a toolkit error.

#include <cstddef>
#include <cstdint>
#include <string>

#include "Support/SourceSession.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const NmFuzz::CmPluginUnderTest plugin("ToolkitSourcePlugin_media.so");
  if (size == 0) {
    return 0;
  }
  NmFuzz::SmSplitInput input = NmFuzz::SplitInput(data, size);
  input.script.Byte();
  const uint8_t properties = input.script.Byte();
  NmFuzz::CmMemoryFile file;
  file.Append(data, input.fileSize);
  NmFuzz::RunSession(plugin,
                     "<toolkit type=\"source\"><provider>media</provider><config><media url=\"" +
                         file.Path() + "\"/></config></toolkit>",
                     file, nullptr, 0, properties, input.script);
  return 0;
}
