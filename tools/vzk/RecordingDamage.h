#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "RecordingIndex.h"

namespace NmVzkTool {

// The recording files that a tree reads: the file of every toolkit element
// whose provider is the recording plug-in, in document order.
std::vector<std::string> RecordingFilesOf(const std::string& xml);

// Where a recording holds no records, one phrase a range ("120 bytes at
// offset 4096"), the first `most` of them and a count of the rest.
std::string DescribeRanges(const std::vector<NmRecording::SmByteRange>& ranges, size_t most = 5);

// Indexes each recording as the recording plug-in does and says on `err`
// what was skipped in it; with `tail`, bytes after the last whole record
// count too, as they do in a finished file. True when anything was skipped.
bool ReportRecordingDamage(const std::vector<std::string>& recordings, bool tail,
                           std::ostream& err);

} // namespace NmVzkTool
