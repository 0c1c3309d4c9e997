#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Common/Error/Error.h"
#include "Common/Xerces/Xerces.h"
#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitErrors.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"

using namespace NmToolkit;
using namespace NmToolkitTest;

namespace {

// A toolkit of this library built from its own element, as every derived
// toolkit is; it reads one key and can be told to fail in ProcessData.
class CmProbeToolkit : public CmVZKSourceToolkit {
public:
  explicit CmProbeToolkit(const NmXerces::CmXmlNodePtr& node) : CmVZKSourceToolkit(node) {}

  void ReadConfiguration() override {
    ++readings;
    width = GetConfigurationNumber("width", -1);
    label = GetConfigurationValue("label", std::string("none"));
  }
  void ProcessData(ImData* in, ImData** out) override {
    ++processed;
    if (failure == "media") {
      throw NmError::CmError(VZK_LOCATION, "decoder broke");
    }
    if (failure == "toolkit") {
      throw CmInvalidArgumentError<2>("inner");
    }
    CmVZKSourceToolkit::ProcessData(in, out);
  }

  int readings = 0;
  int processed = 0;
  double width = 0;
  std::string label;
  std::string failure;
};

struct ProbeTree {
  explicit ProbeTree(const std::string& attributes, const std::string& items = DefaultItems) {
    document = NmXerces::CmXmlWrapper::LoadXml("<probe " + attributes + ">" +
                                               ScriptedToolkit(items) + "</probe>");
    probe = std::make_unique<CmProbeToolkit>(document->GetDocumentElement());
  }
  NmXerces::CmXmlDocumentPtr document;
  std::unique_ptr<CmProbeToolkit> probe;
};

// The payload of an item handed over, which goes with the call.
std::string Taken(ImData* item) {
  return Payload(std::unique_ptr<ImData>(item));
}

template <typename Error, typename Call> std::string ErrorText(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return "no error";
}

class RootToolkitTest : public ::testing::Test {
protected:
  void SetUp() override {
    journal = std::make_unique<ScriptedJournal>(BinaryDirectory());
    ASSERT_TRUE(journal->IsOpen()) << "test plug-ins must lie beside the test program";
    journal->Clear();
  }
  std::unique_ptr<ScriptedJournal> journal;
};

TEST_F(RootToolkitTest, StateTableGovernsEveryOperation) {
  CmVZKSourceToolkit root(RootConfiguration(ScriptedToolkit()).c_str());
  ASSERT_TRUE(root.IsConfigured());
  ImData* item = nullptr;

  const std::string notConnected = "Not connected to toolkit!";
  const std::vector<std::pair<std::string, std::function<void()>>> calls = {
      {"MoveNext", [&] { root.MoveNext(); }},
      {"MoveTo", [&] { root.MoveTo(1, MoveAfter); }},
      {"GetData", [&] { root.GetData(&item); }},
      {"StartLiveStream", [&] { root.StartLiveStream(); }},
      {"StopLiveStream", [&] { root.StopLiveStream(); }},
      {"GetLiveData", [&] { root.GetLiveData(&item, 5); }}};
  for (const auto& [name, call] : calls) {
    EXPECT_EQ(ErrorText<ImNotConnectedError>(call), notConnected) << name;
  }
  // Disconnecting an unconnected root reaches nothing upstream.
  root.Disconnect();
  root.UpdateValue("k", "v");
  EXPECT_EQ(journal->Text(), "CreateInstance;UpdateValue(k=v);");

  root.Connect(42);
  EXPECT_EQ(root.MoveFirst(), StatusSuccess);
  EXPECT_EQ(Taken((root.GetData(&item), item)), "a");
  EXPECT_EQ(root.MovePrevious(), StatusNoItem);
  EXPECT_EQ(root.MoveLast(), StatusSuccess);
  EXPECT_EQ(root.MoveNext(), StatusNoItem);
  EXPECT_EQ(Taken((root.GetData(&item), item)), "e");
  EXPECT_EQ(root.MovePreviousSequence(), StatusSuccess);
  EXPECT_EQ(Taken((root.GetData(&item), item)), "c");
  EXPECT_EQ(root.MoveNextSequence(), StatusSuccess);
  EXPECT_EQ(Taken((root.GetData(&item), item)), "e");
  EXPECT_EQ(ErrorText<ImInvalidOperationError>([&] { root.GetLiveData(&item, 5); }),
            "Operation GetLiveData is not allowed in playback mode!");
  // The modes are forwarded as they are (the decoding toolkits' tests follow
  // each to its picture); a mode outside them is a programming error.
  EXPECT_DEATH(root.MoveTo(0, static_cast<SmMoveMode>(5)), "");

  root.StartLiveStream();
  EXPECT_TRUE(root.IsLive());
  for (const auto& [name, call] : calls) {
    if (name.find("Live") == std::string::npos) {
      EXPECT_EQ(ErrorText<ImInvalidOperationError>(call),
                "Operation " + name + " is not allowed in live mode!");
    }
  }
  std::string live;
  while (root.GetLiveData(&item, 7) == StatusSuccess) {
    live += Taken(item);
  }
  EXPECT_EQ(live, "abcde");
  // Starting again forwards again.
  root.StartLiveStream();
  EXPECT_EQ(Taken((root.GetLiveData(&item, 7), item)), "a");

  // Disconnect in live mode leaves the live flag; a new Connect clears it.
  root.Disconnect();
  EXPECT_FALSE(root.IsConnected());
  EXPECT_TRUE(root.IsLive());
  EXPECT_EQ(ErrorText<ImNotConnectedError>([&] { root.GetLiveData(&item, 5); }), notConnected);
  root.Connect(43);
  EXPECT_FALSE(root.IsLive());
  root.StopLiveStream();
  const std::string text = journal->Text();
  EXPECT_NE(text.find("Connect(42);MoveFirst;GetData;"), std::string::npos) << text;
  EXPECT_NE(text.find("GetLiveData(7);"), std::string::npos) << text;
  EXPECT_NE(text.find("Disconnect;Connect(43);StopLiveStream;"), std::string::npos) << text;
}

TEST_F(RootToolkitTest, PropertiesAgreedAtConnect) {
  const CmPropertyNameSet requested = {"Sequence_Number", "Custom_Property", "Has_Motion"};

  // Under a "toolkit" element the plug-in's answer stands, foreign names included.
  CmVZKSourceToolkit root(RootConfiguration(ScriptedToolkit()).c_str());
  CmPropertyNameSet supported;
  root.Connect(requested, supported, 1);
  EXPECT_EQ(supported, (CmPropertyNameSet{"Custom_Property", "Sequence_Number"}));

  // A second Connect does nothing, not even to `supported`.
  CmPropertyNameSet untouched = {"marker"};
  root.Connect(requested, untouched, 2);
  EXPECT_EQ(untouched, CmPropertyNameSet{"marker"});
  EXPECT_EQ(journal->Text().find("Connect(2)"), std::string::npos);

  // A toolkit of this library passes on every known name that was requested,
  // whatever the upstream said, and nothing else (the transform toolkits'
  // tests follow the copies onto their pictures).
  ProbeTree tree("");
  CmPropertyNameSet probeSupported;
  tree.probe->Connect(requested, probeSupported, 3);
  EXPECT_EQ(probeSupported, (CmPropertyNameSet{"Has_Motion", "Sequence_Number"}));
}

TEST_F(RootToolkitTest, UpdateKeysDriveReadConfiguration) {
  ProbeTree tree("width='10' width_update_key='w' label='plain'");
  CmProbeToolkit& probe = *tree.probe;

  // Before any reading the update key is unknown: stored, forwarded, no reading.
  probe.UpdateValue("w", "20");
  EXPECT_EQ(probe.readings, 0);
  probe.Connect(0);
  EXPECT_EQ(probe.readings, 1);
  EXPECT_EQ(probe.width, 20) << "a value under the update key beats the attribute";
  EXPECT_EQ(probe.label, "plain");

  probe.UpdateValue("w", "20");
  EXPECT_EQ(probe.readings, 1) << "an equal value causes no reading";
  probe.UpdateValue("w", "abc");
  EXPECT_EQ(probe.readings, 2);
  EXPECT_EQ(probe.width, 0) << "non-numeric text reads as 0";
  probe.UpdateValue("label", "other");
  EXPECT_EQ(probe.readings, 2) << "label has no update key";

  probe.UpdateValues({{"w", "abc"}, {"x", "1"}, {"w", "40"}});
  EXPECT_EQ(probe.readings, 3) << "one reading for the whole list";
  EXPECT_EQ(probe.width, 40);
  probe.UpdateValues({{"x", "2"}, {"y", "3"}});
  EXPECT_EQ(probe.readings, 3);
  probe.UpdateValues({});
  EXPECT_EQ(probe.readings, 3);

  EXPECT_EQ(journal->Text().substr(journal->Text().find("UpdateValue(w=20)")),
            "UpdateValue(w=20);Connect(0);UpdateValue(w=20);UpdateValue(w=abc);"
            "UpdateValue(label=other);UpdateValues(w=abc,x=1,w=40,);UpdateValues(x=2,y=3,);"
            "UpdateValues();");
}

TEST_F(RootToolkitTest, FetchAndProcessConvertsErrorsAndStatuses) {
  const std::string items = "<item kind='null'/><item kind='status' status='7'/>"
                            "<item kind='outofband' payload='oob'/><item payload='m'/>";
  ProbeTree tree("", items);
  CmProbeToolkit& probe = *tree.probe;
  probe.Connect(0);
  ImData* item = reinterpret_cast<ImData*>(0x1);

  probe.MoveFirst();
  EXPECT_EQ(ErrorText<ImInvalidArgumentError>([&] { probe.GetData(&item); }),
            "Expected a value for argument probe!");
  EXPECT_EQ(item, nullptr);
  probe.MoveNext();
  EXPECT_EQ(probe.GetData(&item), 7u) << "foreign statuses pass unchanged";
  EXPECT_EQ(probe.processed, 0);

  probe.MoveNext();
  probe.failure = "media";
  EXPECT_EQ(ErrorText<ImInvalidOperationError>([&] { probe.GetData(&item); }),
            "Operation probe could not be performed!")
      << "in playback every item goes through ProcessData";
  probe.failure = "toolkit";
  EXPECT_EQ(ErrorText<ImInvalidArgumentError>([&] { probe.GetData(&item); }),
            "Expected a value for argument inner!");

  probe.failure.clear();
  probe.StartLiveStream();
  probe.failure = "media";
  EXPECT_EQ(ErrorText<ImInvalidArgumentError>([&] { probe.GetLiveData(&item, 0); }),
            "Expected a value for argument probe!");
  EXPECT_EQ(probe.GetLiveData(&item, 0), 7u);
  const int before = probe.processed;
  ASSERT_EQ(probe.GetLiveData(&item, 0), StatusSuccess);
  EXPECT_EQ(probe.processed, before) << "out-of-band items skip ProcessData in live mode";
  EXPECT_NE(dynamic_cast<ImOutOfBandData*>(item), nullptr);
  EXPECT_EQ(Taken(item), "oob");
  probe.failure.clear();
  ASSERT_EQ(probe.GetLiveData(&item, 0), StatusSuccess);
  EXPECT_EQ(Taken(item), "m");
  EXPECT_EQ(probe.GetLiveData(&item, 0), StatusNoItem);
  EXPECT_EQ(ErrorText<ImInvalidArgumentError>([&] { probe.GetLiveData(nullptr, 0); }),
            "Expected a value for argument out!");
}

TEST_F(RootToolkitTest, BadConfigurationShowsAtConnect) {
  const std::string parseError = "Could not parse toolkit configuration xml!";
  const auto connectError = [&](const std::string& xml) {
    CmVZKSourceToolkit root(xml.c_str());
    EXPECT_FALSE(root.IsConfigured()) << xml;
    return ErrorText<ImConfigurationError>([&] { root.Connect(0); });
  };
  // A toolkit that is not built yet fails like an unknown one; names compare
  // exactly; a plug-in that the factory refuses (its own test tells why) or
  // that makes no source fails alike.
  for (const std::string& xml :
       {std::string("<toolkit><config>"), std::string(), RootConfiguration("<unknown_element/>"),
        RootConfiguration("<audio_decoder/>"), RootConfiguration("<Toolkit type='source'/>"),
        RootConfiguration(ScriptedToolkit(DefaultItems, "", "source", "nosuch")),
        RootConfiguration(ScriptedToolkit(DefaultItems, "", "source", "notsource")),
        RootConfiguration("<toolkit><provider>scripted</provider></toolkit>"),
        RootConfiguration("<toolkit type='source'/>")}) {
    EXPECT_EQ(connectError(xml), parseError) << xml;
  }
  {
    ScriptedJournal broken(BinaryDirectory(), "ToolkitSourcePlugin_notsource.so");
    auto deleted = reinterpret_cast<int (*)()>(
        dlsym(dlopen((BinaryDirectory() + "/ToolkitSourcePlugin_notsource.so").c_str(),
                     RTLD_NOW | RTLD_NOLOAD),
              "BrokenPluginDeletedCount"));
    ASSERT_NE(deleted, nullptr);
    EXPECT_EQ(deleted(), 1) << "a toolkit that is no source goes back through its library";
  }

  // Two children: the first is fully built, then the root records failure;
  // the first is still deleted with the root.
  journal->Clear();
  EXPECT_EQ(connectError(RootConfiguration(ScriptedToolkit() + ScriptedToolkit())), parseError);
  EXPECT_EQ(journal->Text(), "CreateInstance;Delete;");
  EXPECT_EQ(journal->Instances(), 0);

  // An unknown element deep in the tree, after a good sibling.
  journal->Clear();
  NmXerces::CmXmlDocumentPtr document = NmXerces::CmXmlWrapper::LoadXml(
      "<probe>" + ScriptedToolkit() + "<no_such_toolkit/>" + ScriptedToolkit() + "</probe>");
  {
    CmProbeToolkit probe(document->GetDocumentElement());
    EXPECT_FALSE(probe.IsConfigured());
    EXPECT_EQ(ErrorText<ImConfigurationError>([&] { probe.Connect(0); }), parseError);
  }
  EXPECT_EQ(journal->Text(), "CreateInstance;Delete;")
      << "one toolkit is built before the unknown element and none after it";

  // An empty config is a configured root without a chain: it connects and
  // fails when asked for data.
  CmVZKSourceToolkit empty(RootConfiguration("").c_str());
  EXPECT_TRUE(empty.IsConfigured());
  empty.Connect(0);
  ImData* item = nullptr;
  EXPECT_EQ(ErrorText<ImInvalidOperationError>([&] { empty.GetData(&item); }),
            "Operation GetData could not be performed!");
}

} // namespace
