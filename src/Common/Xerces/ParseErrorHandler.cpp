#include "Common/Xerces/ParseErrorHandler.h"

#include <xercesc/dom/DOMError.hpp>
#include <xercesc/dom/DOMLocator.hpp>

#include "Common/Xerces/Xerces.h"

namespace NmXerces {

bool CmParseErrorHandler::handleError(const xercesc::DOMError& error) {
  if (error.getSeverity() != xercesc::DOMError::DOM_SEVERITY_FATAL_ERROR) {
    return true;
  }
  if (m_Count < MaximumReported) {
    const xercesc::DOMLocator* where = error.getLocation();
    m_Text << "Fatal parse error in '" << (where ? FromXmlText(where->getURI()) : std::string())
           << "'"
           << ", line " << (where ? where->getLineNumber() : 0) << ", position "
           << (where ? where->getColumnNumber() : 0)
           << ", message: " << FromXmlText(error.getMessage()) << "." << std::endl;
  }
  ++m_Count;
  // Parsing goes on after a fatal error so that the report lists several,
  // but a text that keeps failing (an entity bomb reports every expansion
  // past the limit) is not worth reading to its end: the report is the same.
  return m_Count < MaximumBeforeGivingUp;
}

} // namespace NmXerces
