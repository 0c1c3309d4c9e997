#include "Common/Error/Error.h"

#include <cerrno>
#include <cstring>

namespace NmError {
namespace {

// The system's own text for an error number, or empty if it has none. The GNU
// strerror_r may hand back a static text instead of filling the buffer.
std::string SystemText(int number) {
  // The caller's errno is left as it was: an error is often built before the
  // code that failed has been told everything it wants to know.
  const int saved = errno;
  char buffer[512] = {0};
  const char* text = strerror_r(number, buffer, sizeof buffer);
  errno = saved;
  if (text == nullptr || *text == '\0' || std::strncmp(text, "Unknown error", 13) == 0) {
    return {};
  }
  return text;
}

std::string WithSystemText(std::string description, const std::string& text) {
  if (text.empty()) {
    description += " : Further error description unavaliable!";
  } else {
    description += " : ";
    description += text;
  }
  return description;
}

} // namespace

CmSystemError::CmSystemError(std::string location, std::string description)
    : CmError(std::move(location), std::move(description)), m_SystemErrorNumber(errno) {
  m_Description = WithSystemText(std::move(m_Description), SystemText(m_SystemErrorNumber));
}

CmSystemError::CmSystemError(std::string location, std::string description,
                             int32_t systemErrorNumber, const char* systemText)
    : CmError(std::move(location), std::move(description)), m_SystemErrorNumber(systemErrorNumber) {
  std::string text = systemText ? systemText : "";
  if (text.empty() && systemErrorNumber != 0) {
    text = SystemText(systemErrorNumber);
  }
  m_Description = WithSystemText(std::move(m_Description), text);
}

} // namespace NmError
