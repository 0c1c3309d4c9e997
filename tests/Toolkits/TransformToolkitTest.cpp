#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "Common/Xerces/Xerces.h"
#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Items/ImageData.h"
#include "Toolkits/VZKSourceToolkitPlugin/Transform/SetProperty.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

using namespace NmToolkit;
using namespace NmToolkitTest;

namespace {

TEST(SyntheticLiveTest, ReplaysInOrderAndStartsOverAtTheEnd) {
  ScriptedJournal journal(BinaryDirectory());
  ASSERT_TRUE(journal.IsOpen());
  const std::string items = "<item begin='5000' payload='a'/><item begin='5010' payload='b'/>"
                            "<item begin='5020' payload='c'/>";
  CmVZKSourceToolkit root(
      RootConfiguration("<synthetic_live>" + ScriptedToolkit(items) + "</synthetic_live>").c_str());
  ASSERT_TRUE(root.IsConfigured());
  root.Connect(0);

  // In playback it is a plain pass-through.
  ASSERT_EQ(root.MoveLast(), StatusSuccess);
  ImData* raw = nullptr;
  ASSERT_EQ(root.GetData(&raw), StatusSuccess);
  EXPECT_EQ(Payload(std::unique_ptr<ImData>(raw)), "c");

  root.StartLiveStream();
  journal.Clear();
  // The first item is due a little after the start: with no time to wait,
  // the call comes back empty and the item stays where it is.
  EXPECT_EQ(root.GetLiveData(&raw, 0), StatusNoItem);
  EXPECT_EQ(raw, nullptr);
  EXPECT_EQ(journal.Text(), "MoveFirst;GetData;");
  journal.Clear();
  std::string delivered;
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(root.GetLiveData(&raw, 5000), StatusSuccess);
    delivered += Payload(std::unique_ptr<ImData>(raw));
  }
  EXPECT_EQ(delivered, "abcab") << "after the last item the replay starts over";
  EXPECT_EQ(journal.Text(), "GetData;MoveNext;GetData;MoveNext;GetData;MoveNext;"
                            "MoveFirst;GetData;MoveNext;GetData;MoveNext;")
      << "the same item is fetched again after an empty call, and the end restarts";

  root.StopLiveStream();
  EXPECT_EQ(journal.Text().find("StartLiveStream"), std::string::npos)
      << "live start and stop never reach the recording";
  EXPECT_EQ(journal.Text().find("StopLiveStream"), std::string::npos);
}

TEST(SetPropertyTest, AddsItsPropertyToPicturesOnly) {
  const auto document = NmXerces::CmXmlWrapper::LoadXml(
      "<set_property name='Label' value='first' value_update_key='label'>" + ScriptedToolkit() +
      "</set_property>");
  CmSetProperty toolkit(document->GetDocumentElement());
  CmPropertyNameSet supported;
  toolkit.Connect({"Sequence_Number"}, supported, 0);

  NmMediaProcessing::CmImage image;
  image.Allocate(8, 8, NmMediaProcessing::Gray);
  CmVZKSourceToolkitProperties properties;
  properties.SetProperty("Sequence_Number", std::make_unique<CmStringProperty>("17"));
  properties.SetProperty("Privacy_Mask", std::make_unique<CmStringProperty>("1x1;1"));
  CmImageData input(image, properties);

  ImData* output = nullptr;
  toolkit.ProcessData(&input, &output);
  std::unique_ptr<ImData> result(output);
  ASSERT_NE(dynamic_cast<CmImageData*>(output), nullptr);
  EXPECT_NE(output, &input);
  EXPECT_EQ(StringProperty(*output, "Label"), "first");
  EXPECT_EQ(StringProperty(*output, "Sequence_Number"), "17");
  EXPECT_EQ(StringProperty(*output, "Privacy_Mask"), "absent") << "only passed properties";
  EXPECT_EQ(dynamic_cast<CmImageData*>(output)->GetPlanePointer(0), input.GetPlanePointer(0))
      << "the picture is shared, not copied";

  toolkit.UpdateValue("label", "second");
  toolkit.ProcessData(&input, &output);
  result.reset(output);
  EXPECT_EQ(StringProperty(*output, "Label"), "second");

  // Encoded items are refused.
  toolkit.MoveFirst();
  try {
    toolkit.GetData(&output);
    ADD_FAILURE() << "a non-picture must be refused";
  } catch (const ImInvalidOperationError& error) {
    EXPECT_STREQ(error.what(), "Operation set_property could not be performed!");
  }
}

} // namespace
