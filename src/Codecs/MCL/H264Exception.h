#pragma once

#include <exception>

#include "Codecs/MCL/Status.h"

namespace MCL {

// Thrown deep inside the H.264 engine and caught at its outer calls, which
// return the status it carries.
class h264_exception : public std::exception {
public:
  explicit h264_exception(Status status) : m_Status(status) {}
  Status GetStatus() const { return m_Status; }
  const char* what() const noexcept override { return "H.264 decoder exception"; }

private:
  Status m_Status;
};

} // namespace MCL
