// A host as somebody else would write it: it sees the public headers only,
// loads the library by path and drives a whole tree through it.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "vzk/vzk.h"

using namespace NmToolkit;


namespace {

std::string BinaryDirectory() {
  const char* build = std::getenv("VZK_BUILD_DIR");
  return std::string(build ? build : ".") + "/bin";
}

class LoadedPlugin {
public:
  explicit LoadedPlugin(const std::string& path) {
    m_Handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_Handle) {
      create = reinterpret_cast<VzkCreateInstanceFunction>(dlsym(m_Handle, "CreateInstance"));
      destroy = reinterpret_cast<VzkDeleteInstanceFunction>(dlsym(m_Handle, "DeleteInstance"));
    }
  }
  ~LoadedPlugin() {
    if (m_Handle) {
      dlclose(m_Handle);
    }
  }
  LoadedPlugin(const LoadedPlugin&) = delete;
  LoadedPlugin& operator=(const LoadedPlugin&) = delete;

  VzkCreateInstanceFunction create = nullptr;
  VzkDeleteInstanceFunction destroy = nullptr;

private:
  void* m_Handle = nullptr;
};

const std::string Items = "<item begin='100' end='139' payload='first'>"
                          "<property name='Sequence_Number' value='41'/>"
                          "<property name='Vendor_Specific' value='v'/></item>"
                          "<item begin='140' end='179' payload='second'>"
                          "<property name='Sequence_Number' value='42'/></item>"
                          "<item begin='180' end='219' payload='third'/>";

std::string Configuration(const std::string& provider = "scripted") {
  return "<?xml version='1.0' encoding='UTF-8'?><toolkit type='source'><provider>vzk</provider>"
         "<config><toolkit type='source'><provider>" +
         provider +
         "</provider><config><script supports='Sequence_Number,Vendor_Specific'>" + Items +
         "</script></config></toolkit></config></toolkit>";
}

struct ToolkitDeleter {
  VzkDeleteInstanceFunction destroy;
  void operator()(ImToolkit* toolkit) const { destroy(toolkit); }
};

std::string Payload(const ImData& item) {
  return std::string(reinterpret_cast<const char*>(item.GetDataPointer()), item.GetDataSize());
}

TEST(HostTest, PullsEveryItemInPlaybackAndLive) {
  LoadedPlugin plugin(BinaryDirectory() + "/ToolkitSourcePlugin_vzk.so");
  ASSERT_NE(plugin.create, nullptr) << dlerror();
  ASSERT_NE(plugin.destroy, nullptr);

  std::unique_ptr<ImToolkit, ToolkitDeleter> root(plugin.create(Configuration().c_str()),
                                                  ToolkitDeleter{plugin.destroy});
  ASSERT_NE(root, nullptr);
  auto* playback = dynamic_cast<ImPlaybackSourceToolkit*>(root.get());
  auto* live = dynamic_cast<ImLiveSourceToolkit*>(root.get());
  ASSERT_NE(playback, nullptr);
  ASSERT_NE(live, nullptr);

  CmPropertyNameSet supported;
  playback->Connect({"Sequence_Number", "Vendor_Specific", "Has_Motion"}, supported, 7);
  EXPECT_EQ(supported, (CmPropertyNameSet{"Sequence_Number", "Vendor_Specific"}));

  std::string pulled;
  for (uint32_t status = playback->MoveFirst(); status == StatusSuccess;
       status = playback->MoveNext()) {
    ImData* raw = nullptr;
    ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
    std::unique_ptr<ImData> item(raw);
    pulled += Payload(*item) + "@" + std::to_string(item->GetBeginTime()) + ",";
    if (const auto* number =
            dynamic_cast<const ImStringProperty*>(item->GetProperty("Sequence_Number"))) {
      pulled += number->GetValue() + ";";
    }
  }
  EXPECT_EQ(pulled, "first@100,41;second@140,42;third@180,");

  ASSERT_EQ(playback->MoveTo(150, MoveAtOrBefore), StatusSuccess);
  ImData* raw = nullptr;
  ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
  EXPECT_EQ(Payload(*std::unique_ptr<ImData>(raw)), "second");

  live->StartLiveStream();
  std::string streamed;
  while (live->GetLiveData(&raw, 10) == StatusSuccess) {
    streamed += Payload(*std::unique_ptr<ImData>(raw)) + ",";
  }
  EXPECT_EQ(streamed, "first,second,third,");
  try {
    playback->MoveFirst();
    ADD_FAILURE() << "navigation in live mode must be refused";
  } catch (const ImInvalidOperationError& error) {
    EXPECT_STREQ(error.what(), "Operation MoveFirst is not allowed in live mode!");
    EXPECT_EQ(error.GetErrorName(), "NmToolkit::ImInvalidOperationError");
  }
  live->StopLiveStream();
  playback->Disconnect();
}

TEST(HostTest, BadConfigurationNeverFailsCreateInstance) {
  LoadedPlugin plugin(BinaryDirectory() + "/ToolkitSourcePlugin_vzk.so");
  ASSERT_NE(plugin.create, nullptr);
  const std::string broken[] = {
      "",
      "<toolkit",
      "<toolkit><config><a/><b/></config></toolkit>",
      "<toolkit><config><image_resize><nonsense/></image_resize></config></toolkit>",
      Configuration("missing_plugin"),
      "<toolkit><config><toolkit><provider>scripted</provider></toolkit></config></toolkit>",
      "<toolkit><config><toolkit type='source'/></config></toolkit>",
  };
  for (const std::string& xml : broken) {
    std::unique_ptr<ImToolkit, ToolkitDeleter> root(plugin.create(xml.c_str()),
                                                    ToolkitDeleter{plugin.destroy});
    ASSERT_NE(root, nullptr) << xml;
    auto* source = dynamic_cast<ImSourceToolkit*>(root.get());
    ASSERT_NE(source, nullptr);
    try {
      source->Connect(0);
      ADD_FAILURE() << "Connect must report: " << xml;
    } catch (const ImConfigurationError& error) {
      EXPECT_STREQ(error.what(), "Could not parse toolkit configuration xml!");
      EXPECT_EQ(error.GetErrorCode(), 0u);
    }
  }
  plugin.destroy(nullptr);
  std::unique_ptr<ImToolkit, ToolkitDeleter> null(plugin.create(nullptr),
                                                  ToolkitDeleter{plugin.destroy});
  EXPECT_NE(null, nullptr);
}

} // namespace

namespace {

// Decoded pictures of the picture source, masked, written over, resized and
// encoded inside the plug-in.
TEST(HostTest, TransformsPicturesInsideThePlugin) {
  for (int round = 0; round < 2; ++round) {
    // Loaded and unloaded twice: text painting keeps its libraries' caches.
    LoadedPlugin plugin(BinaryDirectory() + "/ToolkitSourcePlugin_vzk.so");
    ASSERT_NE(plugin.create, nullptr) << dlerror();
    const std::string pictures =
        "<toolkit type='source'><provider>pictures</provider><config>"
        "<picture format='5' width='64' height='48' time='500' seed='3' padding='4'/>"
        "</config></toolkit>";
    for (const std::string& chain :
         {"<jpeg_encoder quality='80'><image_resize width='32' height='24'>" + pictures +
              "</image_resize></jpeg_encoder>",
          "<text_overlay overlay='Gate " + std::to_string(round) +
              "'><apply_privacy_mask mask='2x1;10'>" + pictures +
              "</apply_privacy_mask></text_overlay>"}) {
      std::unique_ptr<ImToolkit, ToolkitDeleter> root(
          plugin.create(("<toolkit type='source'><provider>vzk</provider><config>" + chain +
                         "</config></toolkit>")
                            .c_str()),
          ToolkitDeleter{plugin.destroy});
      auto* playback = dynamic_cast<ImPlaybackSourceToolkit*>(root.get());
      ASSERT_NE(playback, nullptr);
      playback->Connect(0);
      ASSERT_EQ(playback->MoveFirst(), StatusSuccess);
      ImData* raw = nullptr;
      ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
      std::unique_ptr<ImData> item(raw);
      EXPECT_EQ(item->GetBeginTime(), 500);
      if (const auto* image = dynamic_cast<const ImImage*>(item.get())) {
        EXPECT_EQ(image->GetWidth(), 64u);
        EXPECT_EQ(image->GetPlanePointer(0)[0], 16) << "the masked corner is black";
      } else {
        std::vector<ImMediaData*> elements;
        dynamic_cast<ImMediaDataVector&>(*item).GetElements(elements);
        ASSERT_EQ(elements.size(), 1u);
        const uint8_t* payload = elements[0]->GetPayloadPointer();
        ASSERT_GT(elements[0]->GetPayloadSize(), 2u);
        EXPECT_EQ(payload[0], 0xFF);
        EXPECT_EQ(payload[1], 0xD8);
      }
      // Items go before the library that made them.
      item.reset();
      playback->Disconnect();
    }
  }
}

} // namespace
