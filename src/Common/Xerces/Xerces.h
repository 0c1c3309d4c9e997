#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

#include "Common/Error/Error.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMNode;
class DOMLSParser;
XERCES_CPP_NAMESPACE_END

namespace NmXerces {

struct CmXmlErrorTag;
using CmXmlError = NmError::CmCodedError<CmXmlErrorTag>;

struct CmXmlErrorCode {
  enum Code : uint32_t {
    NoImplementation = 1,
    ParseFailed = 3,
    PathFailed = 4,
    SerializeFailed = 6,
    ConversionFailed = 11,
    NestingTooDeep = 12,
  };
};

// How deep elements may nest in a parsed document. Walking, copying,
// serialising and releasing a tree all recurse over its depth, so a deeper
// text is refused while it is parsed, before such a tree exists.
inline constexpr unsigned MaximumNestingDepth = 64;

class CmXmlNodeWrapper;
class CmXmlDocumentWrapper;
using CmXmlNodePtr = std::shared_ptr<CmXmlNodeWrapper>;
using CmXmlDocumentPtr = std::shared_ptr<CmXmlDocumentWrapper>;

// Text conversion at the parser boundary, UTF-8 on our side.
std::u16string ToXmlText(const std::string& utf8);
std::string FromXmlText(const char16_t* text);

// Names of the types that value conversion reports.
template <typename T> const char* XmlTypeName();

// Converts a text to T; false if the whole text is not a T.
template <typename T> bool ConvertXmlText(const std::string& text, T& out) {
  if constexpr (std::is_same_v<T, std::string>) {
    out = text;
    return true;
  } else if constexpr (std::is_same_v<T, bool>) {
    if (text == "true" || text == "1") {
      out = true;
    } else if (text == "false" || text == "0") {
      out = false;
    } else {
      return false;
    }
    return true;
  } else {
    // The stream reads "-1" as the largest unsigned value; a negative text is
    // no unsigned number.
    if constexpr (std::is_unsigned_v<T>) {
      if (text.find('-') != std::string::npos) {
        return false;
      }
    }
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    T value{};
    stream >> value;
    if (stream.fail() || !(stream >> std::ws).eof()) {
      return false;
    }
    out = value;
    return true;
  }
}

// A document and the parser that made it. Nodes share the wrapper, which
// keeps the document alive for as long as any node is held.
class CmXmlDocumentWrapper : public std::enable_shared_from_this<CmXmlDocumentWrapper> {
public:
  ~CmXmlDocumentWrapper();
  CmXmlDocumentWrapper(const CmXmlDocumentWrapper&) = delete;
  CmXmlDocumentWrapper& operator=(const CmXmlDocumentWrapper&) = delete;

  CmXmlNodePtr GetDocumentElement();
  // Null when nothing matches.
  CmXmlNodePtr SelectSingleNode(const std::string& path);
  std::string ToString(const std::string& encoding);

  xercesc::DOMDocument* GetDocument() const { return m_Document.get(); }
  CmXmlNodePtr Wrap(xercesc::DOMNode* node);

private:
  friend class CmXmlWrapper;
  struct CmParserRelease {
    void operator()(xercesc::DOMLSParser* parser) const;
  };
  struct CmDocumentRelease {
    void operator()(xercesc::DOMDocument* document) const;
  };
  CmXmlDocumentWrapper();

  std::unique_ptr<xercesc::DOMLSParser, CmParserRelease> m_Parser;
  std::shared_ptr<xercesc::DOMDocument> m_Document;
};

class CmXmlNodeWrapper {
public:
  CmXmlNodeWrapper(CmXmlDocumentPtr document, xercesc::DOMNode* node)
      : m_Document(std::move(document)), m_Node(node) {}

  std::string GetName() const;
  // Text of the first child if it is text or CDATA, trimmed when it starts blank.
  bool GetValue(std::string& out) const;
  bool GetAttributeValue(const std::string& name, std::string& out) const;
  void SetAttributeValue(const std::string& name, const std::string& value);
  // Imports a deep copy of `node` into this document and appends it.
  CmXmlNodePtr AddChild(const CmXmlNodePtr& node);
  void GetChildren(std::vector<CmXmlNodePtr>& out) const;
  // Like the document's, with relative paths starting from this node.
  CmXmlNodePtr SelectSingleNode(const std::string& path);

  template <typename T> bool GetValue(T& out) const;
  template <typename T> bool GetAttributeValue(const std::string& name, T& out) const;

  xercesc::DOMNode* GetNode() const { return m_Node; }
  const CmXmlDocumentPtr& GetDocument() const { return m_Document; }

private:
  CmXmlDocumentPtr m_Document;
  xercesc::DOMNode* m_Node;
};

class CmXmlWrapper {
public:
  // A new document whose document element is `root`.
  static CmXmlDocumentPtr Create(const std::string& root);
  static CmXmlDocumentPtr LoadXml(const std::string& text);
  static xercesc::DOMLSParser* GetParser();
};

[[noreturn]] void ThrowConversionError(const std::string& location, const char* what,
                                       const std::string& text, const char* type);

template <typename T> bool CmXmlNodeWrapper::GetValue(T& out) const {
  std::string text;
  if (!GetValue(text)) {
    return false;
  }
  if (!ConvertXmlText(text, out)) {
    ThrowConversionError(VZK_LOCATION, "Error converting node value '", text, XmlTypeName<T>());
  }
  return true;
}

template <typename T>
bool CmXmlNodeWrapper::GetAttributeValue(const std::string& name, T& out) const {
  std::string text;
  if (!GetAttributeValue(name, text)) {
    return false;
  }
  if (!ConvertXmlText(text, out)) {
    ThrowConversionError(VZK_LOCATION, "Error converting attribute value '", text,
                         XmlTypeName<T>());
  }
  return true;
}

} // namespace NmXerces
