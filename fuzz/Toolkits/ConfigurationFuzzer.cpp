// Arbitrary configuration texts through the root toolkit: building the tree
// must never crash, and Connect either works or reports a toolkit error.

#include <cstddef>
#include <cstdint>
#include <string>

#include "Common/Error/Error.h"
#include "Support/ByteReader.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "vzk/ToolkitError.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  NmToolkit::CmVZKSourceToolkit root(text.c_str());
  NmFuzz::Tolerate<NmToolkit::ImToolkitError>([&] {
    NmToolkit::CmPropertyNameSet supported;
    root.Connect({"Sequence_Number", "Privacy_Mask", "Other"}, supported, 0);
    root.UpdateValues({{"a", "b"}, {"a", "c"}});
    NmToolkit::ImData* item = nullptr;
    if (root.MoveFirst() == NmToolkit::StatusSuccess && root.GetData(&item) == 0) {
      delete item;
    }
    root.Disconnect();
  });
  return 0;
}
