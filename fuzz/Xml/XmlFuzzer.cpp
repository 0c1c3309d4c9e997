// Arbitrary text through the XML wrapper: whatever parses is walked the way
// the toolkit tree reads its configuration, and written out again.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Common/Xerces/Xerces.h"
#include "Support/ByteReader.h"

namespace {

using NmXerces::CmXmlNodePtr;

// The wrapper's own errors are answers; anything else is a finding.
template <typename F> void Tolerating(F&& f) {
  NmFuzz::Tolerate<NmXerces::CmXmlError>(f);
}

void Walk(const CmXmlNodePtr& node, int depth) {
  if (depth > 64) {
    return;
  }
  node->GetName();
  std::string value;
  node->GetValue(value);
  Tolerating([&] {
    double number = 0;
    node->GetValue(number);
  });
  for (const char* name : {"provider", "type", "file", "_update_key"}) {
    std::string attribute;
    if (node->GetAttributeValue(name, attribute)) {
      Tolerating([&] {
        int number = 0;
        node->GetAttributeValue(name, number);
      });
    }
  }
  for (const char* path : {"toolkit", "config/toolkit", "./toolkit", "/toolkit/config"}) {
    Tolerating([&] { node->SelectSingleNode(path); });
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
    Tolerating([&] { document->SelectSingleNode(path); });
  }
  const CmXmlNodePtr root = document->GetDocumentElement();
  if (root) {
    Walk(root, 0);
    root->SetAttributeValue("fuzz", text.substr(0, 16));
  }
  Tolerating([&] { NmXerces::CmXmlWrapper::LoadXml(document->ToString("UTF-8")); });
  return 0;
}
