#pragma once

#include <gtest/gtest.h>

#include <optional>

// Runs the call and hands back a copy of the error of type E that it throws,
// so that a test checks the message, code and location in a line each. A
// call that throws nothing is a failure of the test and gives nothing back.
namespace NmTestSupport {

template <typename E, typename Call> std::optional<E> Caught(Call&& call) {
  try {
    call();
  } catch (const E& error) {
    return error;
  }
  ADD_FAILURE() << "no error was thrown";
  return std::nullopt;
}

} // namespace NmTestSupport
