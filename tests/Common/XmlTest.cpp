#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Common/Xerces/Xerces.h"
#include "support/CaughtError.h"

using NmTestSupport::Caught;
using NmXerces::CmXmlDocumentPtr;
using NmXerces::CmXmlError;
using NmXerces::CmXmlNodePtr;
using NmXerces::CmXmlNodeWrapper;
using NmXerces::CmXmlWrapper;

namespace {

const char* const Config = R"(<?xml version="1.0" encoding="UTF-8"?>
<toolkit>
  <config version="2">
    <!-- a comment between elements -->
    <toolkit provider="vzk" type="decoder">
      <toolkit provider="recording" file="a.gbd"/>
    </toolkit>
    <item>first</item>
    <item>second</item>
    <group><item>nested</item></group>
  </config>
</toolkit>)";

std::vector<std::string> Names(const std::vector<CmXmlNodePtr>& nodes) {
  std::vector<std::string> names;
  for (const CmXmlNodePtr& node : nodes) {
    names.push_back(node->GetName());
  }
  return names;
}

// An attribute as T, or nothing when it is absent.
template <typename T> std::optional<T> Attribute(const CmXmlNodePtr& node, const char* name) {
  T value{};
  return node->GetAttributeValue(name, value) ? std::optional<T>(value) : std::nullopt;
}

// A node's value as T, or nothing when it has none.
template <typename T> std::optional<T> Value(const CmXmlNodePtr& node) {
  T value{};
  return node->GetValue(value) ? std::optional<T>(value) : std::nullopt;
}

std::string ValueOf(const CmXmlNodePtr& node) {
  std::string value;
  EXPECT_TRUE(node->GetValue(value));
  return value;
}

// What a selection found: the name and the provider, version or text, or
// "null" when nothing matched.
std::string Found(const CmXmlNodePtr& node) {
  if (!node) {
    return "null";
  }
  std::string detail;
  if (!node->GetAttributeValue("provider", detail) && !node->GetAttributeValue("version", detail)) {
    node->GetValue(detail);
  }
  return node->GetName() + (detail.empty() ? "" : " " + detail);
}

} // namespace

TEST(Xml, PathsFromTheDocumentAndFromNodes) {
  const CmXmlDocumentPtr document = CmXmlWrapper::LoadXml(Config);
  const CmXmlNodePtr config = document->SelectSingleNode("/toolkit/config");
  ASSERT_NE(config, nullptr);
  const CmXmlNodePtr decoder = config->SelectSingleNode("toolkit");
  ASSERT_NE(decoder, nullptr);
  // Path, the node it starts from (none: the document), and what it finds.
  // The first of several matches counts, in document order, but all matches
  // of a step are followed; relative paths go from the document or a node,
  // and an absolute path from a node still starts at the document element.
  // Descendants from the root and "." steps are known. Where nothing
  // matches, the answer is null and no error.
  const std::tuple<const char*, CmXmlNodePtr, const char*> table[] = {
      {"/toolkit/config", nullptr, "config 2"},
      {"/toolkit", nullptr, "toolkit"},
      {"/toolkit/config/item", nullptr, "item first"},
      {"/toolkit/config/group/item", nullptr, "item nested"},
      {"toolkit/config", nullptr, "config 2"},
      {"toolkit", config, "toolkit vzk"},
      {"toolkit/toolkit", config, "toolkit recording"},
      {"/toolkit/config", decoder, "config 2"},
      {"//item", nullptr, "item first"},
      {"./group", config, "group"},
      {"./absent", config, "null"},
      {"/toolkit/missing", nullptr, "null"},
      {"/config", nullptr, "null"},
      {"config", config, "null"},
      {"/toolkit/config/item/more", nullptr, "null"}};

  for (const auto& [path, from, found] : table) {
    EXPECT_EQ(Found(from ? from->SelectSingleNode(path) : document->SelectSingleNode(path)), found)
        << path;
  }

  // What the evaluator refuses is an error of the wrapper, located in the
  // document's selection.
  for (const std::string path : {"/toolkit/config/item[2]", "count(//item)", "/toolkit/", "", "/",
                                 "/toolkit//", "toolkit/con fig"}) {
    const auto e = Caught<CmXmlError>([&] { document->SelectSingleNode(path); });
    EXPECT_EQ(e->GetLocation().rfind(
                  "NmXerces::CmXmlDocumentWrapper::SelectSingleNode (line Xerces.cpp, ", 0),
              0u)
        << path << ": " << e->GetLocation();
    EXPECT_NE(e->GetDescription().find(path), std::string::npos) << e->GetDescription();
  }
}

TEST(Xml, FatalParseErrorsAreCollected) {
  // Many undeclared entities, each a fatal error after which parsing goes on;
  // the report names the first five.
  std::string text = "<a>";
  for (int i = 0; i < 300; ++i) {
    text += "<b>&e" + std::to_string(i) + ";</b>\n";
  }
  text += "</a>";
  const auto e = Caught<CmXmlError>([&] { CmXmlWrapper::LoadXml(text); });
  EXPECT_EQ(e->GetCode(), NmXerces::CmXmlErrorCode::ParseFailed);
  const std::string message = e->GetDescription();
  size_t count = 0;
  for (size_t at = message.find("Fatal parse error in '"); at != std::string::npos;
       at = message.find("Fatal parse error in '", at + 1)) {
    ++count;
  }
  EXPECT_EQ(count, 5u) << message;
  EXPECT_TRUE(message.find("'e4'") != std::string::npos && message.find("e5") == std::string::npos)
      << message;
  EXPECT_EQ(message.rfind("Fatal parse error in 'memory', line 1, position ", 0), 0u) << message;
  EXPECT_EQ(message.substr(message.size() - 2), ".\n");

  for (const std::string broken : {"", "<a>", "<a></b>", "not xml", "<a x='1' x='2'/>"}) {
    const auto refused = Caught<CmXmlError>([&] { CmXmlWrapper::LoadXml(broken); });
    EXPECT_EQ(refused->GetCode(), NmXerces::CmXmlErrorCode::ParseFailed) << broken;
    EXPECT_NE(std::string(refused->what()).find("Fatal parse error"), std::string::npos);
  }
}

TEST(Xml, EntityBombsAndDeepNestingAreRefused) {
  // Eight levels of tenfold expansion would make 10^8 characters.
  std::string bomb = "<!DOCTYPE a [<!ENTITY a0 \"xxxxxxxxxx\">";
  for (int level = 1; level < 8; ++level) {
    bomb += "<!ENTITY a" + std::to_string(level) + " \"";
    for (int i = 0; i < 10; ++i) {
      bomb += "&a" + std::to_string(level - 1) + ";";
    }
    bomb += "\">";
  }
  const std::string small = bomb + "]><a>&a1;</a>";
  bomb += "]><a>&a7;</a>";
  const auto expanded = Caught<CmXmlError>([&] { CmXmlWrapper::LoadXml(bomb); });
  EXPECT_EQ(expanded->GetCode(), NmXerces::CmXmlErrorCode::ParseFailed);
  EXPECT_NE(expanded->GetDescription().find("entity expansions"), std::string::npos);
  // A few expansions are fine.
  EXPECT_EQ(Value<std::string>(CmXmlWrapper::LoadXml(small)->GetDocumentElement()),
            std::string(100, 'x'));

  const unsigned limit = NmXerces::MaximumNestingDepth;
  // At the limit, with every kind of node beside the elements on each level
  // and many siblings that open and close: the count of open elements stays
  // exact.
  const auto repeat = [](const std::string& text, unsigned count) {
    std::string repeated;
    while (count-- > 0) {
      repeated += text;
    }
    return repeated;
  };
  const std::string siblings = repeat("<e/><e a='1'></e>text<!-- c --><![CDATA[<x>]]><?p i?>", 100);
  const auto nested = [&](unsigned levels, const std::string& inside = "") {
    return repeat("<n>" + inside, levels) + repeat("</n>", levels);
  };
  // The innermost <n> holds empty elements one level deeper.
  const CmXmlDocumentPtr fits = CmXmlWrapper::LoadXml(nested(limit - 1, siblings));
  unsigned depth = 1;
  for (CmXmlNodePtr child = fits->GetDocumentElement()->SelectSingleNode("n"); child;
       child = child->SelectSingleNode("n")) {
    ++depth;
  }
  EXPECT_EQ(depth, limit - 1);

  // Entities expand into elements that count like written ones: eight levels
  // in the entity, one more than fit.
  const std::string entity = "<!DOCTYPE n [<!ENTITY d '" + nested(8) + "'>]>" +
                             repeat("<n>", limit - 7) + "&d;" + repeat("</n>", limit - 7);
  for (const std::string& text :
       {nested(limit, siblings), "<a>" + nested(100000) + "</a>", entity}) {
    const auto e = Caught<CmXmlError>([&] { CmXmlWrapper::LoadXml(text); });
    EXPECT_EQ(e->GetCode(), NmXerces::CmXmlErrorCode::NestingTooDeep);
    EXPECT_EQ(e->GetDescription(), "The text nests elements deeper than 64 levels!");
  }
}

TEST(Xml, DocumentsOnSeveralThreadsOutsideEntitiesNeverFetched) {
  // Each thread has its own documents; only start-up is shared.
  std::vector<std::thread> threads;
  std::vector<int> good(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &good] {
      for (int i = 0; i < 50; ++i) {
        const CmXmlDocumentPtr document = CmXmlWrapper::LoadXml(Config);
        const CmXmlNodePtr item = document->SelectSingleNode("/toolkit/config/item");
        std::string value;
        if (item && item->GetValue(value) && value == "first" &&
            CmXmlWrapper::LoadXml(document->ToString("UTF-8"))->SelectSingleNode("//group")) {
          ++good[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(good, std::vector<int>(4, 50));

  const std::string text = "<!DOCTYPE a [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><a>&x;</a>";
  try {
    const CmXmlDocumentPtr document = CmXmlWrapper::LoadXml(text);
    std::string value;
    document->GetDocumentElement()->GetValue(value);
    EXPECT_EQ(value.find("root:"), std::string::npos);
  } catch (const CmXmlError&) {
    // Refusing the document is as good.
  }
}

TEST(Xml, TextConversionAtTheBoundary) {
  // Characters above 127 survive a round through the document.
  const std::string umlauts = "Gr\xC3\xBC\xC3\x9F"
                              "e \xE2\x82\xAC \xF0\x9F\x8E\xA5";
  const CmXmlDocumentPtr document = CmXmlWrapper::LoadXml("<a><b>" + umlauts + "</b></a>");
  EXPECT_EQ(ValueOf(document->SelectSingleNode("/a/b")), umlauts);

  const CmXmlNodePtr root = document->GetDocumentElement();
  root->SetAttributeValue("name", umlauts);
  EXPECT_EQ(Attribute<std::string>(root, "name"), umlauts);

  // Invalid UTF-8 reaches the DOM as "???".
  root->SetAttributeValue("bad", "ab\xC3\x28z");
  EXPECT_EQ(Attribute<std::string>(root, "bad"), "???");
  root->SetAttributeValue("cut", "ab\xE2\x82");
  EXPECT_EQ(Attribute<std::string>(root, "cut"), "???");
  EXPECT_EQ(NmXerces::ToXmlText("\xFF"), u"???");
  EXPECT_EQ(NmXerces::FromXmlText(u"\u00e9t\u00e9"), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(NmXerces::FromXmlText(nullptr), "");
}

TEST(Xml, ValuesAreTrimmedWhenTheyStartBlank) {
  const CmXmlDocumentPtr document = CmXmlWrapper::LoadXml(
      "<a><b>  padded \n</b><c>kept  </c><d>   \t\n </d><e/><f><![CDATA[ cdata ]]></f>"
      "<g><h>x</h>text</g><i><!-- c -->text</i><j>in\tside</j></a>");
  EXPECT_EQ(ValueOf(document->SelectSingleNode("/a/b")), "padded");
  // Not starting blank: kept as it is, trailing blanks too.
  EXPECT_EQ(ValueOf(document->SelectSingleNode("/a/c")), "kept  ");
  EXPECT_EQ(ValueOf(document->SelectSingleNode("/a/d")), "");
  EXPECT_EQ(ValueOf(document->SelectSingleNode("/a/f")), "cdata");
  EXPECT_EQ(ValueOf(document->SelectSingleNode("/a/j")), "in\tside");
  // Only the first child counts.
  std::string value = "unchanged";
  EXPECT_FALSE(document->SelectSingleNode("/a/e")->GetValue(value));
  EXPECT_FALSE(document->SelectSingleNode("/a/g")->GetValue(value));
  EXPECT_FALSE(document->SelectSingleNode("/a/i")->GetValue(value));
  EXPECT_EQ(value, "unchanged");
  EXPECT_FALSE(document->GetDocumentElement()->GetAttributeValue("none", value));
  EXPECT_EQ(value, "unchanged");
}

TEST(Xml, ConversionsAndTheirErrors) {
  const CmXmlDocumentPtr document = CmXmlWrapper::LoadXml(
      "<a n=' 12' f='2.5' neg='-3' t='true' z='0' w='12abc' big='99999999999' e=''>"
      "<i> 42 </i><d>-0.25</d><s>  some text </s><x>4x</x><b>yes</b></a>");
  const CmXmlNodePtr root = document->GetDocumentElement();

  int integer = 0;
  EXPECT_EQ(Value<int>(document->SelectSingleNode("/a/i")), 42);
  double real = 0;
  EXPECT_EQ(Value<double>(document->SelectSingleNode("/a/d")), -0.25);
  EXPECT_EQ(Value<std::string>(document->SelectSingleNode("/a/s")), "some text");

  EXPECT_EQ(Attribute<int>(root, "n"), 12);
  EXPECT_EQ(Attribute<float>(root, "f"), 2.5f);
  EXPECT_EQ(Attribute<bool>(root, "t"), true);
  EXPECT_EQ(Attribute<bool>(root, "z"), false);
  EXPECT_EQ(Attribute<int>(root, "absent"), std::nullopt);
  EXPECT_EQ(Attribute<std::string>(root, "e"), "");

  const auto expectError = [](const std::function<void()>& action, const std::string& message) {
    const auto e = Caught<CmXmlError>(action);
    EXPECT_EQ(e->GetCode(), NmXerces::CmXmlErrorCode::ConversionFailed);
    EXPECT_EQ(e->GetDescription(), message);
  };
  expectError([&] { document->SelectSingleNode("/a/x")->GetValue(integer); },
              "Error converting node value '4x' to type int!");
  expectError([&] { Value<bool>(document->SelectSingleNode("/a/b")); },
              "Error converting node value 'yes' to type bool!");
  expectError([&] { document->SelectSingleNode("/a/s")->GetValue(real); },
              "Error converting node value 'some text' to type double!");
  expectError([&] { root->GetAttributeValue("w", integer); },
              "Error converting attribute value '12abc' to type int!");
  expectError([&] { root->GetAttributeValue("big", integer); },
              "Error converting attribute value '99999999999' to type int!");
  expectError([&] { root->GetAttributeValue("e", integer); },
              "Error converting attribute value '' to type int!");
  expectError([&] { root->GetAttributeValue("f", integer); },
              "Error converting attribute value '2.5' to type int!");
  unsigned unsignedValue = 0;
  expectError([&] { root->GetAttributeValue("neg", unsignedValue); },
              "Error converting attribute value '-3' to type unsigned int!");
  EXPECT_EQ(unsignedValue, 0u);
  EXPECT_EQ(Attribute<long long>(root, "big"), 99999999999LL);
}

TEST(Xml, CreateAddChildChildrenAndToStringRoundTrip) {
  const CmXmlDocumentPtr created = CmXmlWrapper::Create("toolkit");
  const CmXmlNodePtr root = created->GetDocumentElement();
  ASSERT_NE(root, nullptr);
  std::vector<CmXmlNodePtr> children = {root};
  root->GetChildren(children);
  EXPECT_TRUE(children.empty());

  // Nodes of another document are copied in deeply.
  CmXmlNodePtr config;
  {
    const CmXmlDocumentPtr source =
        CmXmlWrapper::LoadXml("<config a='1'><!-- c -->text<x><y/></x>more<z/></config>");
    config = root->AddChild(source->GetDocumentElement());
  }
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(config->GetDocument(), created);
  config->GetChildren(children);
  EXPECT_EQ(Names(children), (std::vector<std::string>{"x", "z"}));
  EXPECT_EQ(Attribute<std::string>(config, "a"), "1");
  EXPECT_EQ(created->SelectSingleNode("/toolkit/config/x/y")->GetName(), "y");

  // Adding a node of the same document adds a copy; the original stays.
  const CmXmlNodePtr copy = root->AddChild(config);
  root->GetChildren(children);
  EXPECT_EQ(Names(children), (std::vector<std::string>{"config", "config"}));
  EXPECT_NE(copy->GetNode(), config->GetNode());
  copy->SetAttributeValue("a", "2");
  EXPECT_EQ(Attribute<std::string>(config, "a"), "1");

  // Nodes keep their document alive.
  CmXmlNodePtr orphan;
  {
    const CmXmlDocumentPtr temporary = CmXmlWrapper::LoadXml("<a><b>kept</b></a>");
    orphan = temporary->SelectSingleNode("/a/b");
  }
  EXPECT_EQ(ValueOf(orphan), "kept");

  EXPECT_THROW(CmXmlWrapper::Create("1 bad name"), CmXmlError);

  const CmXmlDocumentPtr document = CmXmlWrapper::LoadXml(Config);
  document->SelectSingleNode("/toolkit/config")->SetAttributeValue("added", "<&\"'>");
  const std::string text = document->ToString("UTF-8");
  EXPECT_EQ(text.rfind("<?xml", 0), 0u) << text;
  const CmXmlDocumentPtr again = CmXmlWrapper::LoadXml(text);
  EXPECT_EQ(again->ToString("UTF-8"), text);
  EXPECT_EQ(Attribute<std::string>(again->SelectSingleNode("/toolkit/config"), "added"), "<&\"'>");

  const std::string wide = document->ToString("UTF-16");
  EXPECT_NE(wide, text);
  EXPECT_EQ(CmXmlWrapper::LoadXml(wide)->ToString("UTF-8"), text);

  EXPECT_EQ(Caught<CmXmlError>([&] { document->ToString("no-such-encoding"); })->GetCode(),
            NmXerces::CmXmlErrorCode::SerializeFailed);
}

TEST(Xml, NullNodes) {
  const CmXmlDocumentPtr document = CmXmlWrapper::Create("root");
  CmXmlNodeWrapper null(document, nullptr);
  const auto expectIntegrity = [](const std::function<void()>& action, const char* message) {
    const auto e = Caught<NmError::CmIntegrityError>(action);
    EXPECT_EQ(e->GetErrorCode(), NmError::CmIntegrityErrorCode::InvalidPointer);
    EXPECT_STREQ(e->what(), message);
  };
  std::string value;
  expectIntegrity([&] { null.GetName(); }, "Error getting node name. Invalid DOM tree node given!");
  expectIntegrity([&] { null.GetValue(value); },
                  "Error getting node value. Invalid DOM tree node given!");
  expectIntegrity([&] { null.GetAttributeValue("a", value); },
                  "Error getting node attribute. Invalid DOM tree node given!");
  expectIntegrity([&] { null.SetAttributeValue("a", "b"); },
                  "Error setting node attribute. Invalid DOM tree node given!");
  expectIntegrity([&] { null.AddChild(document->GetDocumentElement()); },
                  "Error adding child node. Invalid DOM tree node given!");
  const CmXmlNodePtr root = document->GetDocumentElement();
  expectIntegrity([&] { root->AddChild(nullptr); },
                  "Error adding child node. Cannot add a null node!");
  expectIntegrity([&] { root->AddChild(std::make_shared<CmXmlNodeWrapper>(document, nullptr)); },
                  "Error adding child node. Cannot add a null node!");
  std::vector<CmXmlNodePtr> children;
  null.GetChildren(children);
  EXPECT_TRUE(children.empty());
  EXPECT_EQ(null.SelectSingleNode("a"), nullptr);
}
