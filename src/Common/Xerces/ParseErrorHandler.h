#pragma once

#include <sstream>
#include <string>

#include <xercesc/dom/DOMErrorHandler.hpp>

namespace NmXerces {

// Collects the fatal errors of one parse; parsing always goes on so that the
// report names more than the first fault.
class CmParseErrorHandler : public xercesc::DOMErrorHandler {
public:
  static constexpr unsigned MaximumReported = 5;
  static constexpr unsigned MaximumBeforeGivingUp = 100;

  bool handleError(const xercesc::DOMError& error) override;
  unsigned GetErrorCount() const { return m_Count; }
  std::string GetText() const { return m_Text.str(); }

private:
  unsigned m_Count = 0;
  std::ostringstream m_Text;
};

} // namespace NmXerces
