#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitProperties.h"

using namespace NmToolkit;

namespace {

TEST(ToolkitErrorTest, NamesCodesArgumentsAndStableText) {
  const CmFileError<6> file("ToolkitSourcePlugin_cam");
  EXPECT_EQ(file.GetErrorName(), "NmToolkit::ImFileError");
  EXPECT_EQ(file.GetErrorCode(), 6u);
  EXPECT_EQ(file.GetArguments(), std::vector<std::string>{"ToolkitSourcePlugin_cam"});
  EXPECT_EQ(file.GetInnerError(), nullptr);
  const char* first = file.what();
  EXPECT_STREQ(first, "Could not open file ToolkitSourcePlugin_cam!");
  EXPECT_EQ(first, file.what()) << "the text is kept, so both pointers stay valid";

  // A copy, as made when an exception travels, owns the same text and inner error.
  auto inner = std::make_shared<CmNotConnectedError<1>>();
  const CmToolkitExceptionBase<ImInvalidOperationError> outer(0, "Operation %1% failed", {"Op"},
                                                              inner);
  const CmToolkitExceptionBase<ImInvalidOperationError> copy(outer);
  EXPECT_EQ(copy.GetInnerError(), inner.get());
  EXPECT_STREQ(copy.what(), "Operation Op failed");

  // A format that does not fit its arguments falls back to the format text.
  for (const auto& [format, arguments] :
       std::vector<std::pair<std::string, std::vector<std::string>>>{
           {"Expected a value for argument %1%!", {}}, {"No arguments!", {"one"}}, {"Bad %", {}}}) {
    const CmToolkitExceptionBase<ImConfigurationError> error(0, format, arguments);
    EXPECT_EQ(std::string(error.what()).rfind(format + "; ", 0), 0u) << error.what();
  }
  // A percent sign inside an argument is text, not format.
  EXPECT_STREQ(CmFileError<6>("100%1%").what(), "Could not open file 100%1%!");
}

TEST(ToolkitErrorTest, PropertySetOwnsAndClonesItsValues) {
  CmVZKSourceToolkitProperties set;
  EXPECT_EQ(set.GetProperty("Privacy_Mask"), nullptr);
  set.SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>("2x1;10"));
  set.SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>("1x1;1"));
  set.SetProperty("Next_Begin_Time", std::make_unique<CmUTCTimeProperty>(-5));
  EXPECT_EQ(set.GetCount(), 2u) << "setting twice keeps one entry";

  std::unique_ptr<ImPropertySet> clone(set.Clone());
  set.SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>("changed"));
  const auto* mask = dynamic_cast<const ImStringProperty*>(clone->GetProperty("Privacy_Mask"));
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(mask->GetValue(), "1x1;1") << "a clone is deep";
  EXPECT_EQ(
      dynamic_cast<const ImUTCTimeProperty*>(clone->GetProperty("Next_Begin_Time"))->GetValue(),
      -5);
  const CmVZKSourceToolkitProperties copy(set);
  EXPECT_EQ(dynamic_cast<const ImStringProperty*>(copy.GetProperty("Privacy_Mask"))->GetValue(),
            "changed");
}

} // namespace
