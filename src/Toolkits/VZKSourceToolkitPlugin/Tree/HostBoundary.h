#pragma once

#include <cxxabi.h>

#include <cstdint>

#include "vzk/Toolkit.h"
#include "vzk/ToolkitError.h"

namespace NmToolkit {

// Where the host enters this library nothing but toolkit errors may leave:
// out of memory, the errors of the media layer and whatever a foreign plug-in
// upstream throws become the answer that the interfaces have for a failure.

// "Operation %1% could not be performed!" for `operation`. Should there be no
// memory to build that error, an equal one that needs none is thrown instead.
[[noreturn]] void ThrowOperationFailed(const char* operation);

// For Connect, Disconnect, the updates and the live switches: a toolkit error
// passes unchanged, any other failure becomes ThrowOperationFailed.
template <typename Operation> void RunAtHostBoundary(const char* operation, Operation&& run) {
  try {
    run();
  } catch (const ImToolkitError&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    // A cancelled thread must go on unwinding.
    throw;
  } catch (...) {
    ThrowOperationFailed(operation);
  }
}

// For navigation and data: a failure is no item, as a failure inside decoding
// is, and misuse (a toolkit error) is still reported as such.
template <typename Operation> uint32_t RunStatusAtHostBoundary(Operation&& run) {
  try {
    return run();
  } catch (const ImToolkitError&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return StatusNoItem;
  }
}

} // namespace NmToolkit
