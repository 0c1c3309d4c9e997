// Arbitrary text through the XML wrapper: whatever parses is walked the way
// the toolkit tree reads its configuration, and written out again.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Common/Xerces/Xerces.h"

namespace {

using NmXerces::CmXmlNodePtr;

void Walk(const CmXmlNodePtr& node, int depth) {
  if (depth > 64) {
    return;
  }
  node->GetName();
  std::string value;
  node->GetValue(value);
  try {
    double number = 0;
    node->GetValue(number);
  } catch (const NmXerces::CmXmlError&) {
  }
  for (const char* name : {"provider", "type", "file", "_update_key"}) {
    std::string attribute;
    if (node->GetAttributeValue(name, attribute)) {
      try {
        int number = 0;
        node->GetAttributeValue(name, number);
      } catch (const NmXerces::CmXmlError&) {
      }
    }
  }
  for (const char* path : {"toolkit", "config/toolkit", "./toolkit", "/toolkit/config"}) {
    try {
      node->SelectSingleNode(path);
    } catch (const NmXerces::CmXmlError&) {
    }
  }
  std::vector<CmXmlNodePtr> children;
  node->GetChildren(children);
  for (const CmXmlNodePtr& child : children) {
    Walk(child, depth + 1);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  NmXerces::CmXmlDocumentPtr document;
  try {
    document = NmXerces::CmXmlWrapper::LoadXml(text);
  } catch (const NmXerces::CmXmlError&) {
    return 0;
  }
  for (const char* path : {"/toolkit/config", "toolkit", "//toolkit", "/toolkit/config/*", "a/b"}) {
    try {
      document->SelectSingleNode(path);
    } catch (const NmXerces::CmXmlError&) {
    }
  }
  const CmXmlNodePtr root = document->GetDocumentElement();
  if (root) {
    Walk(root, 0);
    root->SetAttributeValue("fuzz", text.substr(0, 16));
  }
  try {
    const std::string written = document->ToString("UTF-8");
    NmXerces::CmXmlWrapper::LoadXml(written);
  } catch (const NmXerces::CmXmlError&) {
  }
  return 0;
}
