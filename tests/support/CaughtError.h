#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

// Runs the call and hands back a copy of the error of type E that it throws,
// so that a test checks the message, code and location in a line each. A
// call that throws nothing fails the test and ends it.
namespace NmTestSupport {

template <typename E, typename Call> std::optional<E> Caught(Call&& call) {
  try {
    call();
  } catch (const E& error) {
    return error;
  }
  ADD_FAILURE() << "no error was thrown";
  throw std::logic_error("no error was thrown");
}

} // namespace NmTestSupport
