#include "Commands.h"
#include "PluginHost.h"
#include "RecordingInfo.h"

namespace NmVzkTool {

int ShowRecordingInfo(const SmInfoOptions& options, std::ostream& out, std::ostream& err) {
  try {
    PrintRecordingInfo(options, out);
    return 0;
  } catch (const CmRunError& error) {
    err << "vzk: " << error.what() << "\n";
    return 1;
  }
}

} // namespace NmVzkTool
