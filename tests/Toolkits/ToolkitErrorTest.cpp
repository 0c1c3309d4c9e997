#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Common/Error/Error.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitProperties.h"

using namespace NmToolkit;

namespace {

TEST(ToolkitErrorTest, NamesCodesArgumentsAndStableText) {
  const CmFileError<6> file("ToolkitSourcePlugin_cam");
  EXPECT_EQ(file.GetErrorName(), "NmToolkit::ImFileError");
  EXPECT_EQ(file.GetErrorCode(), 6u);
  EXPECT_EQ(file.GetArguments(), std::vector<std::string>{"ToolkitSourcePlugin_cam"});
  EXPECT_EQ(file.GetDescription(), "Could not open file ToolkitSourcePlugin_cam!");
  EXPECT_EQ(file.GetInnerError(), nullptr);
  const char* first = file.what();
  const char* second = file.what();
  EXPECT_STREQ(first, "Could not open file ToolkitSourcePlugin_cam!");
  EXPECT_EQ(first, second) << "the text is kept, so both pointers stay valid";

  EXPECT_EQ(CmConfigurationError<2>().GetErrorName(), "NmToolkit::ImConfigurationError");
  EXPECT_EQ(CmNotConnectedError<1>().GetErrorName(), "NmToolkit::ImNotConnectedError");
  EXPECT_EQ(CmInvalidOperationError<2>("x").GetErrorName(), "NmToolkit::ImInvalidOperationError");
  EXPECT_EQ(CmInvalidArgumentError<2>("x").GetErrorName(), "NmToolkit::ImInvalidArgumentError");
  EXPECT_EQ(ToolkitErrorName(typeid(int)), "int");

  // A copy, as made when an exception travels, owns the same text and inner error.
  auto inner = std::make_shared<CmNotConnectedError<1>>();
  const CmToolkitExceptionBase<ImInvalidOperationError> outer(0, "Operation %1% failed", {"Op"},
                                                              inner);
  const CmToolkitExceptionBase<ImInvalidOperationError> copy(outer);
  EXPECT_EQ(copy.GetInnerError(), inner.get());
  EXPECT_STREQ(copy.what(), "Operation Op failed");
}

TEST(ToolkitErrorTest, FormatFailuresFallBackToTheFormatText) {
  const CmToolkitExceptionBase<ImInvalidArgumentError> missing(
      2, "Expected a value for argument %1%!", {});
  const std::string text = missing.what();
  EXPECT_EQ(text.rfind("Expected a value for argument %1%!; ", 0), 0u) << text;
  EXPECT_GT(text.size(), std::string("Expected a value for argument %1%!; ").size());

  const CmToolkitExceptionBase<ImConfigurationError> extra(0, "No arguments!", {"one"});
  EXPECT_EQ(std::string(extra.what()).rfind("No arguments!; ", 0), 0u);
  const CmToolkitExceptionBase<ImConfigurationError> broken(0, "Bad %", {});
  EXPECT_EQ(std::string(broken.what()).rfind("Bad %; ", 0), 0u);
  // A percent sign inside an argument is text, not format.
  EXPECT_STREQ(CmFileError<6>("100%1%").what(), "Could not open file 100%1%!");
}

TEST(ToolkitErrorTest, ToolkitAndMediaErrorTreesAreSeparate) {
  bool caughtAsToolkit = false;
  try {
    try {
      throw NmError::CmError("here", "media");
    } catch (const ImToolkitError&) {
      caughtAsToolkit = true;
    }
  } catch (const NmError::CmError&) {
  }
  EXPECT_FALSE(caughtAsToolkit);

  bool caughtAsMedia = false;
  try {
    try {
      throw CmNotConnectedError<1>();
    } catch (const NmError::CmError&) {
      caughtAsMedia = true;
    }
  } catch (const ImToolkitError& error) {
    EXPECT_STREQ(error.what(), "Not connected to toolkit!");
  }
  EXPECT_FALSE(caughtAsMedia);
}

TEST(ToolkitErrorTest, PropertySetOwnsAndClonesItsValues) {
  CmVZKSourceToolkitProperties set;
  EXPECT_EQ(set.GetProperty("Privacy_Mask"), nullptr);
  set.SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>("2x1;10"));
  set.SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>("1x1;1"));
  set.SetProperty("Transcoded", std::make_unique<CmBooleanProperty>(true));
  set.SetProperty("Next_Begin_Time", std::make_unique<CmUTCTimeProperty>(-5));
  EXPECT_EQ(set.GetCount(), 3u) << "setting twice keeps one entry";

  std::unique_ptr<ImPropertySet> clone(set.Clone());
  set.SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>("changed"));
  const auto* mask = dynamic_cast<const ImStringProperty*>(clone->GetProperty("Privacy_Mask"));
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(mask->GetValue(), "1x1;1") << "a clone is deep";
  EXPECT_TRUE(dynamic_cast<const ImBooleanProperty*>(clone->GetProperty("Transcoded"))->GetValue());
  EXPECT_EQ(
      dynamic_cast<const ImUTCTimeProperty*>(clone->GetProperty("Next_Begin_Time"))->GetValue(),
      -5);
  const CmVZKSourceToolkitProperties copy(set);
  EXPECT_EQ(dynamic_cast<const ImStringProperty*>(copy.GetProperty("Privacy_Mask"))->GetValue(),
            "changed");
  EXPECT_FALSE(copy.HasProperty("Sequence_Number"));
}

} // namespace
