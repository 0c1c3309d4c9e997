#include "Common/Xerces/Xerces.h"

#include <cctype>
#include <cstdint>
#include <mutex>
#include <new>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/TranscodingException.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "Common/Error/Precondition.h"
#include "Common/Xerces/ParseErrorHandler.h"

using namespace xercesc;

namespace NmXerces {
namespace {

// The parser library counts its start-ups. It is started once at first use
// and stopped when this library unloads; every document holds one more
// start-up of its own, so that a document released late (from a plug-in
// torn down at unload) never meets a stopped parser library.
// Constant-initialised with a trivial destructor, so it is usable before any
// static constructor runs and after every static destructor.
constinit std::mutex platformLock;

std::mutex& PlatformLock() {
  return platformLock;
}

class CmXercesPlatform {
public:
  static void Acquire() {
    std::lock_guard guard(PlatformLock());
    try {
      XMLPlatformUtils::Initialize();
    } catch (const OutOfMemoryException&) {
      throw std::bad_alloc();
    }
  }
  static void Release() {
    std::lock_guard guard(PlatformLock());
    XMLPlatformUtils::Terminate();
  }
  static void EnsureInitialized() { static CmXercesPlatform platform; }

private:
  CmXercesPlatform() { Acquire(); }
  ~CmXercesPlatform() { Release(); }
};

constexpr XMLSize_t MaximumEntityExpansions = 10000;

// Memory for each parser and the documents it builds. Running out of it
// throws std::bad_alloc: the parser library takes its own OutOfMemoryException
// as a reason to skip every clean-up and abandons the whole state of the parse,
// while any other exception unwinds it properly.
class CmParserMemory : public MemoryManager {
public:
  MemoryManager* getExceptionMemoryManager() override { return XMLPlatformUtils::fgMemoryManager; }
  void* allocate(XMLSize_t size) override { return ::operator new(size); }
  void deallocate(void* memory) override { ::operator delete(memory); }

  // Never destroyed: documents may be released from other libraries' static
  // destructors, in any order.
  static CmParserMemory& Get() {
    alignas(CmParserMemory) static unsigned char storage[sizeof(CmParserMemory)];
    static CmParserMemory* const memory = new (storage) CmParserMemory;
    return *memory;
  }
};

// Counts how deep the parser is while it builds the tree, and stops it one
// level past the limit. Entities expand into elements too, so only the parser
// itself can tell the depth of what a text describes.
class CmNestingLimitFilter : public DOMLSParserFilter {
public:
  FilterAction startElement(DOMElement*) override {
    if (++m_Depth > MaximumNestingDepth) {
      m_Exceeded = true;
      return FILTER_INTERRUPT;
    }
    return FILTER_ACCEPT;
  }
  // Called when an element ends.
  FilterAction acceptNode(DOMNode*) override {
    --m_Depth;
    return FILTER_ACCEPT;
  }
  DOMNodeFilter::ShowType getWhatToShow() const override { return DOMNodeFilter::SHOW_ELEMENT; }
  bool Exceeded() const { return m_Exceeded; }

private:
  unsigned m_Depth = 0;
  bool m_Exceeded = false;
};

// The handler, the filter and the security manager live on the stack of one
// parse, but the parser stays with its document.
void ForgetParseHelpers(DOMLSParser* parser) noexcept {
  try {
    DOMConfiguration* configuration = parser->getDomConfig();
    configuration->setParameter(XMLUni::fgDOMErrorHandler, static_cast<void*>(nullptr));
    configuration->setParameter(XMLUni::fgXercesSecurityManager, static_cast<void*>(nullptr));
    parser->setFilter(nullptr);
  } catch (...) {
    // A parse that ran out of memory leaves the parser believing it is still
    // parsing, and it refuses every setting. Such a parse ends in an
    // exception, and the parser goes with the document wrapper that holds it.
  }
}

bool IsAscii(const std::string& text) {
  for (const unsigned char c : text) {
    if (c >= 128) {
      return false;
    }
  }
  return true;
}

bool IsPlainPathPart(const std::string& part) {
  if (part.empty() || !std::isalpha(static_cast<unsigned char>(part[0]))) {
    return false;
  }
  for (const unsigned char c : part) {
    if (!std::isalnum(c) && c != '_') {
      return false;
    }
  }
  return true;
}

// Splits a plain path into its parts; false if it is not plain.
bool SplitPlainPath(const std::string& path, bool& absolute, std::vector<std::string>& parts) {
  absolute = !path.empty() && path[0] == '/';
  const std::string body = absolute ? path.substr(1) : path;
  if (body.empty()) {
    return false;
  }
  size_t start = 0;
  while (true) {
    const size_t slash = body.find('/', start);
    const std::string part = body.substr(start, slash == std::string::npos ? slash : slash - start);
    if (!IsPlainPathPart(part)) {
      return false;
    }
    parts.push_back(part);
    if (slash == std::string::npos) {
      return true;
    }
    start = slash + 1;
  }
}

std::vector<DOMNode*> ChildElementsNamed(DOMNode* parent, const std::u16string& name) {
  std::vector<DOMNode*> result;
  for (DOMNode* child = parent->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (child->getNodeType() == DOMNode::ELEMENT_NODE &&
        XMLString::equals(child->getNodeName(), name.c_str())) {
      result.push_back(child);
    }
  }
  return result;
}

// Walks a plain path from `context`; null when nothing matches.
DOMNode* WalkPlainPath(DOMDocument* document, DOMNode* context, bool absolute,
                       const std::vector<std::string>& parts) {
  std::vector<DOMNode*> current;
  size_t first = 0;
  if (absolute) {
    DOMElement* root = document->getDocumentElement();
    if (root == nullptr || FromXmlText(root->getNodeName()) != parts[0]) {
      return nullptr;
    }
    current.push_back(root);
    first = 1;
  } else {
    current.push_back(context);
  }
  for (size_t i = first; i < parts.size(); ++i) {
    const std::u16string name = ToXmlText(parts[i]);
    std::vector<DOMNode*> next;
    for (DOMNode* node : current) {
      const std::vector<DOMNode*> matches = ChildElementsNamed(node, name);
      next.insert(next.end(), matches.begin(), matches.end());
    }
    current.swap(next);
    if (current.empty()) {
      return nullptr;
    }
  }
  return current.empty() ? nullptr : current.front();
}

// Paths that are not plain go through the parser's own XPath evaluator, which
// knows a subset of the language; what it refuses becomes a CmXmlError.
DOMNode* EvaluatePath(DOMDocument* document, DOMNode* context, const std::string& path,
                      const std::string& location) {
  // The evaluator works from elements only. From the document node a relative
  // path means the same as the absolute one, and an absolute path does not
  // depend on its context element.
  std::string expressionText = path;
  if (context != nullptr && context->getNodeType() == DOMNode::DOCUMENT_NODE) {
    if (!path.empty() && path[0] != '/' && path[0] != '.') {
      expressionText = "/" + path;
    }
    context = document->getDocumentElement();
  }
  if (context == nullptr) {
    return nullptr;
  }
  try {
    DOMNode* resolverNode = document->getDocumentElement();
    std::unique_ptr<DOMXPathNSResolver, void (*)(DOMXPathNSResolver*)> resolver(
        document->createNSResolver(resolverNode), [](DOMXPathNSResolver* r) { r->release(); });
    const std::u16string expression = ToXmlText(expressionText);
    std::unique_ptr<DOMXPathResult, void (*)(DOMXPathResult*)> result(
        document->evaluate(expression.c_str(), context, resolver.get(),
                           DOMXPathResult::FIRST_ORDERED_NODE_TYPE, nullptr),
        [](DOMXPathResult* r) { r->release(); });
    return result ? result->getNodeValue() : nullptr;
  } catch (const DOMXPathException& e) {
    throw CmXmlError(location,
                     "Error evaluating path '" + path + "': " + FromXmlText(e.getMessage()),
                     CmXmlErrorCode::PathFailed);
  } catch (const DOMException& e) {
    throw CmXmlError(location,
                     "Error evaluating path '" + path + "': " + FromXmlText(e.getMessage()),
                     CmXmlErrorCode::PathFailed);
  } catch (const XMLException& e) {
    throw CmXmlError(location,
                     "Error evaluating path '" + path + "': " + FromXmlText(e.getMessage()),
                     CmXmlErrorCode::PathFailed);
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
}

DOMNode* SelectFrom(DOMDocument* document, DOMNode* context, const std::string& path,
                    const std::string& location) {
  bool absolute = false;
  std::vector<std::string> parts;
  if (SplitPlainPath(path, absolute, parts)) {
    return WalkPlainPath(document, context, absolute, parts);
  }
  return EvaluatePath(document, context, path, location);
}

bool IsBlankOrControl(unsigned char c) {
  return std::isspace(c) || std::iscntrl(c);
}

std::string Trim(const std::string& text) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && IsBlankOrControl(static_cast<unsigned char>(text[begin]))) {
    ++begin;
  }
  while (end > begin && IsBlankOrControl(static_cast<unsigned char>(text[end - 1]))) {
    --end;
  }
  return text.substr(begin, end - begin);
}

const char* const InvalidNodeGetName = "Error getting node name. Invalid DOM tree node given!";
const char* const InvalidNodeGetValue = "Error getting node value. Invalid DOM tree node given!";
const char* const InvalidNodeGetAttribute =
    "Error getting node attribute. Invalid DOM tree node given!";
const char* const InvalidNodeSetAttribute =
    "Error setting node attribute. Invalid DOM tree node given!";
const char* const InvalidNodeAddChild = "Error adding child node. Invalid DOM tree node given!";

void RequireNode(const DOMNode* node, const std::string& location, const char* message) {
  if (node == nullptr) {
    throw NmError::CmIntegrityError(location, message,
                                    NmError::CmIntegrityErrorCode::InvalidPointer);
  }
}

} // namespace

std::u16string ToXmlText(const std::string& utf8) {
  if (IsAscii(utf8)) {
    return std::u16string(utf8.begin(), utf8.end());
  }
  CmXercesPlatform::EnsureInitialized();
  try {
    TranscodeFromStr converted(reinterpret_cast<const XMLByte*>(utf8.data()), utf8.size(), "UTF-8");
    const XMLCh* text = converted.str();
    return text ? std::u16string(text, converted.length()) : std::u16string();
  } catch (const XMLException&) {
    // Malformed input raises UTFDataFormatException as well as
    // TranscodingException; both mean the text cannot be passed on.
    return u"???";
  } catch (const OutOfMemoryException&) {
    // The parser library's own word for it, which is no std::exception;
    // above this wrapper out of memory is always std::bad_alloc.
    throw std::bad_alloc();
  }
}

std::string FromXmlText(const char16_t* text) {
  if (text == nullptr) {
    return {};
  }
  bool ascii = true;
  size_t length = 0;
  for (; text[length] != 0; ++length) {
    ascii = ascii && text[length] < 128;
  }
  if (ascii) {
    return std::string(text, text + length);
  }
  CmXercesPlatform::EnsureInitialized();
  try {
    TranscodeToStr converted(text, length, "UTF-8");
    return std::string(reinterpret_cast<const char*>(converted.str()), converted.length());
  } catch (const XMLException&) {
    return "???";
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
}

template <> const char* XmlTypeName<std::string>() {
  return "std::string";
}
template <> const char* XmlTypeName<bool>() {
  return "bool";
}
template <> const char* XmlTypeName<int>() {
  return "int";
}
template <> const char* XmlTypeName<unsigned int>() {
  return "unsigned int";
}
template <> const char* XmlTypeName<long>() {
  return "long";
}
template <> const char* XmlTypeName<unsigned long>() {
  return "unsigned long";
}
template <> const char* XmlTypeName<long long>() {
  return "long long";
}
template <> const char* XmlTypeName<unsigned long long>() {
  return "unsigned long long";
}
template <> const char* XmlTypeName<float>() {
  return "float";
}
template <> const char* XmlTypeName<double>() {
  return "double";
}

void ThrowConversionError(const std::string& location, const char* what, const std::string& text,
                          const char* type) {
  throw CmXmlError(location, std::string(what) + text + "' to type " + type + "!",
                   CmXmlErrorCode::ConversionFailed);
}

// ---- CmXmlWrapper ----

CmXmlDocumentPtr CmXmlWrapper::Create(const std::string& root) {
  CmXercesPlatform::EnsureInitialized();
  const std::u16string name = ToXmlText(root);
  CmXmlDocumentPtr wrapper(new CmXmlDocumentWrapper);
  try {
    DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(u"Core LS");
    VZK_REQUIRE_AS(CmXmlError, implementation != nullptr,
                   "Failed to get DOM implementation with feature(s) 'Core LS'!",
                   CmXmlErrorCode::NoImplementation);
    // Should the shared pointer fail to allocate, it releases the document.
    wrapper->m_Document.reset(implementation->createDocument(nullptr, name.c_str(), nullptr),
                              CmXmlDocumentWrapper::CmDocumentRelease());
  } catch (const DOMException& e) {
    throw CmXmlError(VZK_LOCATION, FromXmlText(e.getMessage()), CmXmlErrorCode::ParseFailed);
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
  return wrapper;
}

DOMLSParser* CmXmlWrapper::GetParser() {
  CmXercesPlatform::EnsureInitialized();
  try {
    DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(u"LS");
    VZK_REQUIRE_AS(CmXmlError, implementation != nullptr,
                   "Failed to get DOM implementation with feature(s) 'LS'!",
                   CmXmlErrorCode::NoImplementation);
    return implementation->createLSParser(DOMImplementationLS::MODE_SYNCHRONOUS, nullptr,
                                          &CmParserMemory::Get());
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
}

CmXmlDocumentPtr CmXmlWrapper::LoadXml(const std::string& text) {
  CmXmlDocumentPtr wrapper(new CmXmlDocumentWrapper);
  wrapper->m_Parser.reset(GetParser());
  DOMLSParser* parser = wrapper->m_Parser.get();
  CmParseErrorHandler handler;
  CmNestingLimitFilter nesting;
  SecurityManager security;
  // Whatever way the parse ends, the parser must not keep pointers to them.
  struct CmHelpersForgotten {
    DOMLSParser* parser;
    ~CmHelpersForgotten() { ForgetParseHelpers(parser); }
  } forgotten{parser};
  DOMDocument* document = nullptr;
  try {
    DOMConfiguration* configuration = parser->getDomConfig();
    configuration->setParameter(XMLUni::fgDOMErrorHandler, &handler);
    // The wrapper releases the document itself, so it may outlive the parser's
    // next parse.
    configuration->setParameter(XMLUni::fgXercesUserAdoptsDOMDocument, true);
    // A configuration text never needs outside entities; refusing them keeps the
    // parser from reaching the file system or the network.
    configuration->setParameter(XMLUni::fgXercesLoadExternalDTD, false);
    configuration->setParameter(XMLUni::fgXercesDisableDefaultEntityResolution, true);
    // Entities declared in the text become plain text, so that a value that
    // uses one reads as text and not as an entity reference node.
    configuration->setParameter(XMLUni::fgDOMEntities, false);
    // Parsing goes on after a fatal error so that the report lists several.
    configuration->setParameter(XMLUni::fgXercesContinueAfterFatalError, true);
    // Nested entities can expand a few hundred bytes into gigabytes; no
    // configuration needs more than a handful of expansions.
    security.setEntityExpansionLimit(MaximumEntityExpansions);
    configuration->setParameter(XMLUni::fgXercesSecurityManager, &security);
    parser->setFilter(&nesting);

    MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()), text.size(), "memory",
                             false);
    Wrapper4InputSource input(&source, false);
    document = parser->parse(&input);
  } catch (const XMLException& e) {
    if (!nesting.Exceeded()) {
      throw CmXmlError(VZK_LOCATION, FromXmlText(e.getMessage()), CmXmlErrorCode::ParseFailed);
    }
  } catch (const DOMException& e) {
    // Stopping the parser from the filter ends here.
    if (!nesting.Exceeded()) {
      throw CmXmlError(VZK_LOCATION, FromXmlText(e.getMessage()), CmXmlErrorCode::ParseFailed);
    }
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
  wrapper->m_Document.reset(document, CmXmlDocumentWrapper::CmDocumentRelease());
  VZK_REQUIRE_AS(CmXmlError, !nesting.Exceeded(),
                 "The text nests elements deeper than " + std::to_string(MaximumNestingDepth) +
                     " levels!",
                 CmXmlErrorCode::NestingTooDeep);
  VZK_REQUIRE_AS(CmXmlError, handler.GetErrorCount() == 0, handler.GetText(),
                 CmXmlErrorCode::ParseFailed);
  return wrapper;
}

// ---- CmXmlDocumentWrapper ----

void CmXmlDocumentWrapper::CmParserRelease::operator()(DOMLSParser* parser) const {
  parser->release();
}

void CmXmlDocumentWrapper::CmDocumentRelease::operator()(DOMDocument* document) const {
  if (document != nullptr) {
    document->release();
  }
}

CmXmlDocumentWrapper::CmXmlDocumentWrapper() {
  CmXercesPlatform::EnsureInitialized();
  CmXercesPlatform::Acquire();
}

CmXmlDocumentWrapper::~CmXmlDocumentWrapper() {
  // The document goes before the parser that made it, and both before the
  // parser library may stop.
  m_Document.reset();
  m_Parser.reset();
  CmXercesPlatform::Release();
}

CmXmlNodePtr CmXmlDocumentWrapper::Wrap(DOMNode* node) {
  return node == nullptr ? nullptr : std::make_shared<CmXmlNodeWrapper>(shared_from_this(), node);
}

CmXmlNodePtr CmXmlDocumentWrapper::GetDocumentElement() {
  return m_Document ? Wrap(m_Document->getDocumentElement()) : nullptr;
}

CmXmlNodePtr CmXmlDocumentWrapper::SelectSingleNode(const std::string& path) {
  if (!m_Document) {
    return nullptr;
  }
  return Wrap(SelectFrom(m_Document.get(), m_Document.get(), path,
                         "NmXerces::CmXmlDocumentWrapper::SelectSingleNode (line Xerces.cpp, " +
                             std::to_string(__LINE__) + ")"));
}

std::string CmXmlDocumentWrapper::ToString(const std::string& encoding) {
  DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(u"LS");
  VZK_REQUIRE_AS(CmXmlError, implementation != nullptr, "Failed to get DOM implementation!",
                 CmXmlErrorCode::NoImplementation);
  try {
    std::unique_ptr<DOMLSSerializer, void (*)(DOMLSSerializer*)> serializer(
        implementation->createLSSerializer(), [](DOMLSSerializer* s) { s->release(); });
    std::unique_ptr<DOMLSOutput, void (*)(DOMLSOutput*)> output(
        implementation->createLSOutput(), [](DOMLSOutput* o) { o->release(); });
    MemBufFormatTarget target(1023);
    const std::u16string encodingText = ToXmlText(encoding);
    output->setEncoding(encodingText.c_str());
    output->setByteStream(&target);
    VZK_REQUIRE_AS(CmXmlError, serializer->write(m_Document.get(), output.get()),
                   "Error serializing document!", CmXmlErrorCode::SerializeFailed);
    return std::string(reinterpret_cast<const char*>(target.getRawBuffer()), target.getLen());
  } catch (const XMLException& e) {
    throw CmXmlError(VZK_LOCATION, FromXmlText(e.getMessage()), CmXmlErrorCode::SerializeFailed);
  } catch (const DOMException& e) {
    throw CmXmlError(VZK_LOCATION, FromXmlText(e.getMessage()), CmXmlErrorCode::SerializeFailed);
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
}

// ---- CmXmlNodeWrapper ----

std::string CmXmlNodeWrapper::GetName() const {
  RequireNode(m_Node, VZK_LOCATION, InvalidNodeGetName);
  return FromXmlText(m_Node->getNodeName());
}

bool CmXmlNodeWrapper::GetValue(std::string& out) const {
  RequireNode(m_Node, VZK_LOCATION, InvalidNodeGetValue);
  DOMNode* child = m_Node->getFirstChild();
  if (child == nullptr || (child->getNodeType() != DOMNode::TEXT_NODE &&
                           child->getNodeType() != DOMNode::CDATA_SECTION_NODE)) {
    return false;
  }
  std::string text = FromXmlText(child->getNodeValue());
  if (!text.empty() && IsBlankOrControl(static_cast<unsigned char>(text[0]))) {
    text = Trim(text);
  }
  out = text;
  return true;
}

bool CmXmlNodeWrapper::GetAttributeValue(const std::string& name, std::string& out) const {
  RequireNode(m_Node, VZK_LOCATION, InvalidNodeGetAttribute);
  if (m_Node->getNodeType() != DOMNode::ELEMENT_NODE) {
    return false;
  }
  const DOMElement* element = static_cast<const DOMElement*>(m_Node);
  const std::u16string attributeName = ToXmlText(name);
  const DOMAttr* attribute = element->getAttributeNode(attributeName.c_str());
  if (attribute == nullptr) {
    return false;
  }
  out = FromXmlText(attribute->getValue());
  return true;
}

void CmXmlNodeWrapper::SetAttributeValue(const std::string& name, const std::string& value) {
  RequireNode(m_Node, VZK_LOCATION, InvalidNodeSetAttribute);
  if (m_Node->getNodeType() != DOMNode::ELEMENT_NODE) {
    return;
  }
  const std::u16string attributeName = ToXmlText(name);
  const std::u16string attributeValue = ToXmlText(value);
  try {
    static_cast<DOMElement*>(m_Node)->setAttribute(attributeName.c_str(), attributeValue.c_str());
  } catch (const DOMException& e) {
    throw CmXmlError(VZK_LOCATION, FromXmlText(e.getMessage()), CmXmlErrorCode::ParseFailed);
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
}

CmXmlNodePtr CmXmlNodeWrapper::AddChild(const CmXmlNodePtr& node) {
  RequireNode(m_Node, VZK_LOCATION, InvalidNodeAddChild);
  VZK_REQUIRE(node && node->m_Node != nullptr, "Error adding child node. Cannot add a null node!",
              NmError::CmIntegrityErrorCode::InvalidPointer);
  try {
    DOMDocument* document = m_Document->GetDocument();
    DOMNode* copy = document->importNode(node->m_Node, true);
    m_Node->appendChild(copy);
    return m_Document->Wrap(copy);
  } catch (const DOMException& e) {
    throw CmXmlError(VZK_LOCATION, FromXmlText(e.getMessage()), CmXmlErrorCode::ParseFailed);
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
}

void CmXmlNodeWrapper::GetChildren(std::vector<CmXmlNodePtr>& out) const {
  out.clear();
  if (m_Node == nullptr) {
    return;
  }
  for (DOMNode* child = m_Node->getFirstChild(); child != nullptr;
       child = child->getNextSibling()) {
    if (child->getNodeType() == DOMNode::ELEMENT_NODE) {
      out.push_back(m_Document->Wrap(child));
    }
  }
}

CmXmlNodePtr CmXmlNodeWrapper::SelectSingleNode(const std::string& path) {
  if (m_Node == nullptr) {
    return nullptr;
  }
  return m_Document->Wrap(SelectFrom(m_Document->GetDocument(), m_Node, path,
                                     "NmXerces::CmXmlDocumentWrapper::SelectSingleNode (line "
                                     "Xerces.cpp, " +
                                         std::to_string(__LINE__) + ")"));
}

} // namespace NmXerces
