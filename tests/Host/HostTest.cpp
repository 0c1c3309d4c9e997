// A host as somebody else would write it: it sees the public headers only,
// loads the library by path and drives whole trees through it.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/LoadedPlugin.h"
#include "vzk/vzk.h"

using namespace NmToolkit;

namespace {

// The vzk plug-in, and the roots of trees it makes.
struct LoadedPlugin : NmTestSupport::SmLoadedPlugin {
  LoadedPlugin() : SmLoadedPlugin("ToolkitSourcePlugin_vzk") {}

  // The root of a tree of one `config` element's content.
  std::shared_ptr<ImPlaybackSourceToolkit> Root(const std::string& config) {
    ImToolkit* root = create(("<?xml version='1.0' encoding='UTF-8'?><toolkit type='source'>"
                              "<provider>vzk</provider><config>" +
                              config + "</config></toolkit>")
                                 .c_str());
    EXPECT_NE(root, nullptr);
    return std::shared_ptr<ImPlaybackSourceToolkit>(dynamic_cast<ImPlaybackSourceToolkit*>(root),
                                                    [this, root](auto*) { destroy(root); });
  }
};

std::string Scripted(const std::string& provider = "scripted") {
  return "<toolkit type='source'><provider>" + provider +
         "</provider><config><script supports='Sequence_Number,Vendor_Specific'>"
         "<item begin='100' end='139' payload='first'>"
         "<property name='Sequence_Number' value='41'/>"
         "<property name='Vendor_Specific' value='v'/></item>"
         "<item begin='140' end='179' payload='second'>"
         "<property name='Sequence_Number' value='42'/></item>"
         "<item begin='180' end='219' payload='third'/></script></config></toolkit>";
}

std::string Payload(ImData* raw) {
  const std::unique_ptr<ImData> item(raw);
  return std::string(reinterpret_cast<const char*>(item->GetDataPointer()), item->GetDataSize());
}

TEST(HostTest, PullsEveryItemInPlaybackAndLive) {
  LoadedPlugin plugin;
  ASSERT_NE(plugin.create, nullptr) << plugin.error;
  ASSERT_NE(plugin.destroy, nullptr);
  const auto playback = plugin.Root(Scripted());
  ASSERT_NE(playback, nullptr);
  auto* live = dynamic_cast<ImLiveSourceToolkit*>(playback.get());
  ASSERT_NE(live, nullptr);

  CmPropertyNameSet supported;
  playback->Connect({"Sequence_Number", "Vendor_Specific", "Has_Motion"}, supported, 7);
  EXPECT_EQ(supported, (CmPropertyNameSet{"Sequence_Number", "Vendor_Specific"}));
  std::string pulled;
  for (uint32_t status = playback->MoveFirst(); status == StatusSuccess;
       status = playback->MoveNext()) {
    ImData* raw = nullptr;
    ASSERT_EQ(playback->GetData(&raw), StatusSuccess);
    if (const auto* number =
            dynamic_cast<const ImStringProperty*>(raw->GetProperty("Sequence_Number"))) {
      pulled += number->GetValue() + ":";
    }
    pulled += std::to_string(raw->GetBeginTime()) + "=";
    pulled += Payload(raw) + ",";
  }
  EXPECT_EQ(pulled, "41:100=first,42:140=second,180=third,");

  live->StartLiveStream();
  std::string streamed;
  ImData* raw = nullptr;
  while (live->GetLiveData(&raw, 10) == StatusSuccess) {
    streamed += Payload(raw) + ",";
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

// Every configuration fault the root tells at Connect (its own test names
// them); through the exports, even text that is no XML at all, or none.
TEST(HostTest, BadConfigurationNeverFailsCreateInstance) {
  LoadedPlugin plugin;
  ASSERT_NE(plugin.create, nullptr);
  for (const char* text : {"", "<toolkit", static_cast<const char*>(nullptr)}) {
    ImToolkit* root = plugin.create(text);
    EXPECT_NE(root, nullptr);
    EXPECT_THROW(dynamic_cast<ImSourceToolkit&>(*root).Connect(0), ImConfigurationError);
    plugin.destroy(root);
  }
  plugin.destroy(nullptr);
}

// Pictures of the picture source, masked, written over, resized and encoded
// inside the plug-in.
TEST(HostTest, TransformsPicturesInsideThePlugin) {
  for (int round = 0; round < 2; ++round) {
    // Loaded and unloaded twice: text painting keeps its libraries' caches.
    LoadedPlugin plugin;
    ASSERT_NE(plugin.create, nullptr) << plugin.error;
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
      const auto playback = plugin.Root(chain);
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
        ASSERT_GT(elements[0]->GetPayloadSize(), 2u);
        EXPECT_EQ(elements[0]->GetPayloadPointer()[0] << 8 | elements[0]->GetPayloadPointer()[1],
                  0xFFD8);
      }
      // Items go before the library that made them.
      item.reset();
      playback->Disconnect();
    }
  }
}

} // namespace
