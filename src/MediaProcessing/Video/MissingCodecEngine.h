#pragma once

#include <string>

namespace NmMediaProcessing {

// Raised by a factory whose codec engine is not part of this build yet: the
// record type is known and selected, but nothing pretends to decode it.
// An integrity error with code NotImplemented.
[[noreturn]] void RaiseMissingCodecEngine(std::string location, const std::string& what);

} // namespace NmMediaProcessing
