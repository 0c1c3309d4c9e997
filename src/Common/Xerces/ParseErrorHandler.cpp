#include "Common/Xerces/ParseErrorHandler.h"

#include <new>

#include <xercesc/dom/DOMError.hpp>
#include <xercesc/dom/DOMLocator.hpp>

#include "Common/Xerces/Xerces.h"

namespace NmXerces {

bool CmParseErrorHandler::handleError(const xercesc::DOMError& error) {
  if (error.getSeverity() != xercesc::DOMError::DOM_SEVERITY_FATAL_ERROR) {
    return true;
  }
  ++m_Count;
  if (m_Count <= MaximumReported) {
    // Called from inside the parser, which must not see our exceptions: out
    // of memory costs the report its words, not the error its count.
    try {
      const xercesc::DOMLocator* where = error.getLocation();
      m_Text << "Fatal parse error in '" << (where ? FromXmlText(where->getURI()) : std::string())
             << "'"
             << ", line " << (where ? where->getLineNumber() : 0) << ", position "
             << (where ? where->getColumnNumber() : 0)
             << ", message: " << FromXmlText(error.getMessage()) << "." << std::endl;
    } catch (const std::bad_alloc&) {
    }
  }
  // Parsing goes on after a fatal error so that the report lists several,
  // but a text that keeps failing (an entity bomb reports every expansion
  // past the limit) is not worth reading to its end: the report is the same.
  return m_Count < MaximumBeforeGivingUp;
}

} // namespace NmXerces
