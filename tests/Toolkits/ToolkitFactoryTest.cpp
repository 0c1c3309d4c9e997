#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitFactory.h"

using namespace NmToolkit;
using namespace NmToolkitTest;

namespace {

template <typename Error>
std::string CreateError(CmToolkitFactory& factory, const std::string& xml,
                        uint32_t* code = nullptr) {
  try {
    ImToolkit* toolkit = factory.CreateInstance(xml.c_str());
    factory.DeleteInstance(toolkit);
  } catch (const Error& error) {
    if (code) {
      *code = error.GetErrorCode();
    }
    return error.what();
  }
  return "no error";
}

// The library's name follows from type and provider: a type other than the
// two exact words names no library at all.
TEST(ToolkitFactoryTest, NamesLibrariesFromTypeAndProvider) {
  CmToolkitFactory factory;
  uint32_t code = 99;
  EXPECT_EQ(CreateError<ImFileError>(factory, ScriptedToolkit(DefaultItems, "", "Source"), &code),
            "Could not open file !");
  EXPECT_EQ(code, 6u);
  EXPECT_EQ(
      CreateError<ImFileError>(factory, ScriptedToolkit(DefaultItems, "", "source", "nosuch")),
      "Could not open file ToolkitSourcePlugin_nosuch!");
  for (const auto& [xml, text, expectedCode] :
       std::vector<std::tuple<std::string, std::string, uint32_t>>{
           {"<toolkit><provider>x</provider></toolkit>", "Toolkit type is not specified!", 1},
           {"<other type='source'/>", "Toolkit type is not specified!", 1},
           {"<toolkit type='source'/>", "Toolkit provider is not specified!", 2},
           {"<toolkit type='source'><provider><x/></provider></toolkit>",
            "Toolkit provider is not specified!", 2},
           {"<toolkit type='source'><provider>", "Could not parse toolkit configuration xml!",
            0}}) {
    EXPECT_EQ(CreateError<ImConfigurationError>(factory, xml, &code), text) << xml;
    EXPECT_EQ(code, expectedCode) << xml;
  }

  // Broken libraries: all end in the same file error, naming the library.
  EXPECT_EQ(CreateError<ImFileError>(factory, ScriptedToolkit("", "", "source", "nodelete")),
            "Could not open file ToolkitSourcePlugin_nodelete!");
  EXPECT_FALSE(factory.IsLibraryLoaded("ToolkitSourcePlugin_nodelete"));
  EXPECT_EQ(CreateError<ImFileError>(factory, ScriptedToolkit("", "", "source", "nullcreate")),
            "Could not open file ToolkitSourcePlugin_nullcreate!");
  EXPECT_TRUE(factory.IsLibraryLoaded("ToolkitSourcePlugin_nullcreate"));
  EXPECT_EQ(factory.GetToolkitCount("ToolkitSourcePlugin_nullcreate"), 1u)
      << "a null toolkit is recorded too";
}

TEST(ToolkitFactoryTest, LoadsEachLibraryOnceAndDeletesThroughIt) {
  ScriptedJournal journal(BinaryDirectory());
  ASSERT_TRUE(journal.IsOpen());
  journal.Clear();
  const int before = journal.Instances();
  {
    CmToolkitFactory factory;
    // Provider text is trimmed and lower-cased.
    ImToolkit* first = factory.CreateInstance(
        ScriptedToolkit(DefaultItems, "", "source", " \n Scripted\t").c_str());
    ImToolkit* second = factory.CreateInstance(ScriptedToolkit().c_str());
    ImToolkit* exported =
        factory.CreateInstance(ScriptedToolkit(DefaultItems, "", "export").c_str());
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    ASSERT_NE(exported, nullptr);
    EXPECT_NE(dynamic_cast<ImPlaybackSourceToolkit*>(first), nullptr);
    EXPECT_EQ(factory.GetToolkitCount("ToolkitSourcePlugin_scripted"), 2u);
    EXPECT_EQ(factory.GetToolkitCount("ToolkitExportPlugin_scripted"), 1u);
    EXPECT_EQ(journal.Instances(), before + 2);

    factory.DeleteInstance(first);
    EXPECT_EQ(journal.Instances(), before + 1);
    EXPECT_TRUE(factory.IsLibraryLoaded("ToolkitSourcePlugin_scripted"))
        << "a library stays loaded when a toolkit goes";
    factory.DeleteInstance(first);
    factory.DeleteInstance(nullptr);
    int foreign = 0;
    factory.DeleteInstance(reinterpret_cast<ImToolkit*>(&foreign));
    EXPECT_EQ(journal.Instances(), before + 1) << "unknown pointers are ignored";
    factory.DeleteInstance(second);
    EXPECT_EQ(journal.Instances(), before);
    EXPECT_EQ(factory.GetToolkitCount("ToolkitSourcePlugin_scripted"), 0u);
    EXPECT_TRUE(factory.IsLibraryLoaded("ToolkitSourcePlugin_scripted"));
    // `exported` is left for the factory's destructor.
  }
  // The export library keeps a journal of its own.
  EXPECT_EQ(journal.Text(), "CreateInstance;CreateInstance;Delete;Delete;");
}

} // namespace
