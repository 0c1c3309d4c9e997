#pragma once

#include <ostream>

#include "CommandLine.h"

namespace NmVzkTool {

// Each returns the exit status: 0 when all went well, 1 on failure. Results
// go to `out`, messages to `err`; progress only when `err` is a terminal.
int RunTree(const SmRunOptions& options, std::ostream& out, std::ostream& err, bool onTerminal);
int ImportMedia(const SmImportOptions& options, std::ostream& out, std::ostream& err);
int ShowRecordingInfo(const SmInfoOptions& options, std::ostream& out, std::ostream& err);

// The configuration of a tree that reads MEDIA through the "media" plug-in,
// or through the "recording" plug-in for a .gbd file, with no toolkit between.
std::string ImportConfiguration(const std::string& media);

} // namespace NmVzkTool
