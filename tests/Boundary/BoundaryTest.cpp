// The plug-ins as a host meets them, under hostile conditions: configurations
// nested far beyond reason, and allocations that fail at every point of a
// whole session. Whatever happens, a call into a plug-in ends with a result,
// a status or a toolkit error, and never with anything else.

#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>

#include "FailingAllocator.h"
#include "support/ExternalTools.h"
#include "support/GenericByteDataBuilder.h"
#include "support/LoadedPlugin.h"
#include "vzk/vzk.h"

using namespace NmToolkit;
using NmFailingAllocator::CmCounted;

// The XML parser library is not exception-safe inside: when one of its own
// allocations fails it abandons what it had built so far (scanner state,
// half-made documents and parsers). That memory is lost inside the library,
// out of the plug-ins' reach; every other leak still fails the test. The
// plug-in keeps fontconfig loaded, whose caches are never freed.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libxerces-c\nleak:libfontconfig.so\n";
}

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
  return "print_suppressions=0";
}

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool Sanitized = true;
#else
constexpr bool Sanitized = false;
#endif

// Loaded, or the test stops and says why not.
#define LOAD(variable, name)                                                                       \
  const NmTestSupport::SmLoadedPlugin variable(name);                                              \
  ASSERT_NE(variable.create, nullptr) << variable.error

using CmLoadedPlugin = NmTestSupport::SmLoadedPlugin;
using NmTestSupport::BinaryDirectory;

std::string ConnectOutcome(const CmLoadedPlugin& plugin, const std::string& xml) {
  ImToolkit* root = plugin.create(xml.c_str());
  if (root == nullptr) {
    return "null";
  }
  std::string outcome = "connected";
  try {
    dynamic_cast<ImSourceToolkit&>(*root).Connect(0);
  } catch (const ImToolkitError& error) {
    outcome =
        error.GetErrorName() + " " + std::to_string(error.GetErrorCode()) + ": " + error.what();
  }
  plugin.destroy(root);
  return outcome;
}

// `levels` elements named `name` inside each other, around `core`.
std::string Nested(const std::string& open, const std::string& close, size_t levels,
                   const std::string& core = "") {
  std::string text;
  text.reserve((open.size() + close.size()) * levels + core.size());
  for (size_t i = 0; i < levels; ++i) {
    text += open;
  }
  text += core;
  for (size_t i = 0; i < levels; ++i) {
    text += close;
  }
  return text;
}

const std::string VzkRootOpen = "<toolkit type='source'><provider>vzk</provider><config>";
const std::string VzkRootClose = "</config></toolkit>";
const std::string ConfigurationFault =
    "NmToolkit::ImConfigurationError 0: Could not parse toolkit configuration xml!";

std::string ScriptedFarEnd() {
  return "<toolkit type='source'><provider>scripted</provider><config>"
         "<script supports='Sequence_Number'>"
         "<item begin='100' end='139' sequence='1' payload='first'>"
         "<property name='Sequence_Number' value='41'/></item>"
         "<item begin='140' end='179' sequence='1' payload='second'/>"
         "<item begin='180' end='219' sequence='2' payload='third'/>"
         "</script></config></toolkit>";
}

TEST(BoundaryTest, NestingBeyondTheLimitIsAConfigurationFaultAtConnect) {
  LOAD(plugin, "ToolkitSourcePlugin_vzk");

  // Right at the limit the tree is built and works; one more level is refused.
  // Far beyond it the reader refuses the same way (its own test, and the
  // command line's, go to tens of thousands of levels).
  const size_t limit = 64;
  const size_t outer = 2;  // the root's toolkit and config
  const size_t farEnd = 5; // toolkit, config, script, item and property of the far end
  const auto chain = [&](size_t levels) {
    return VzkRootOpen +
           Nested("<set_property name='a' value='b'>", "</set_property>", levels,
                  ScriptedFarEnd()) +
           VzkRootClose;
  };
  EXPECT_EQ(ConnectOutcome(plugin, chain(limit - outer - farEnd)), "connected");
  EXPECT_EQ(ConnectOutcome(plugin, chain(limit - outer - farEnd + 1)), ConfigurationFault);
  // Nested roots, two levels each, down to one level below the limit: every
  // one of them parses its part of the text again.
  const size_t rootLevels = (limit - farEnd) / 2;
  EXPECT_EQ(ConnectOutcome(plugin, Nested(VzkRootOpen, VzkRootClose, rootLevels, ScriptedFarEnd())),
            "connected");
  EXPECT_EQ(
      ConnectOutcome(plugin, Nested(VzkRootOpen, VzkRootClose, rootLevels + 1, ScriptedFarEnd())),
      ConfigurationFault);

  // The source plug-ins parse their own configuration through the same reader.
  LOAD(recording, "ToolkitSourcePlugin_recording");
  const std::string deep = "<toolkit type='source'><provider>recording</provider><config>"
                           "<recording file='/nonexistent'>" +
                           Nested("<a>", "</a>", 100000) + "</recording></config></toolkit>";
  EXPECT_EQ(ConnectOutcome(recording, deep),
            "NmToolkit::ImConfigurationError 0: The recording plug-in needs "
            "<config><recording file=\"...\"/></config>!");
}

// What a session came to, over all runs of a sweep.
struct SmTally {
  uint64_t runs = 0;
  uint64_t nullRoots = 0;
  uint64_t toolkitErrors = 0;
  uint64_t noItem = 0;
  uint64_t items = 0;
  uint64_t configurationFaults = 0;
  // "Operation ... could not be performed!", the answer for what is no
  // toolkit error.
  uint64_t operationFailures = 0;
};

// One session as a host drives it. Only the calls into the plug-in are
// counted; the session's own bookkeeping happens outside them.
class CmSession {
public:
  CmSession(const CmLoadedPlugin& plugin, const std::string& xml, SmTally& tally)
      : m_Plugin(plugin), m_Xml(xml), m_Tally(tally) {}

  void Run() {
    ImToolkit* root = nullptr;
    {
      CmCounted counted;
      root = m_Plugin.create(m_Xml.c_str());
    }
    if (root == nullptr) {
      ++m_Tally.nullRoots;
      return;
    }
    const bool failedWhileBuilding = NmFailingAllocator::HasFailed();
    auto* playback = dynamic_cast<ImPlaybackSourceToolkit*>(root);
    auto* live = dynamic_cast<ImLiveSourceToolkit*>(root);
    const CmPropertyNameSet requested{"Sequence_Number", "Has_Motion"};
    CmPropertyNameSet supported;
    std::string connectError;
    const bool connected = Call([&] { playback->Connect(requested, supported, 0); }, &connectError);
    if (failedWhileBuilding && !connected) {
      // Building the tree swallows what goes wrong; Connect names it.
      m_Tally.configurationFaults += connectError == ConfigurationFault;
    }
    if (connected) {
      Status([&] { return playback->MoveFirst(); });
      Data([&](ImData** out) { return playback->GetData(out); });
      Status([&] { return playback->MoveNext(); });
      Data([&](ImData** out) { return playback->GetData(out); });
      Status([&] { return playback->MoveTo(185, MoveClosest); });
      Data([&](ImData** out) { return playback->GetData(out); });
      Status([&] { return playback->MovePrevious(); });
      Status([&] { return playback->MovePreviousSequence(); });
      Status([&] { return playback->MoveNextSequence(); });
      Status([&] { return playback->MoveLast(); });
      Data([&](ImData** out) { return playback->GetData(out); });
      const CmKeyValueList values{{"key", "value"}, {"other", "value"}};
      Call([&] { playback->UpdateValue("key", "changed"); });
      Call([&] { playback->UpdateValues(values); });
      if (Call([&] { live->StartLiveStream(); })) {
        Data([&](ImData** out) { return live->GetLiveData(out, 0); });
        Data([&](ImData** out) { return live->GetLiveData(out, 0); });
        Call([&] { live->StopLiveStream(); });
      }
      Call([&] { playback->Disconnect(); });
    }
    CmCounted counted;
    m_Plugin.destroy(root);
  }

private:
  // False when the call reported a toolkit error. Anything else that comes
  // out of the plug-in leaves the session and fails the sweep.
  template <typename Operation> bool Call(Operation&& operation, std::string* error = nullptr) {
    try {
      CmCounted counted;
      operation();
      return true;
    } catch (const ImToolkitError& failure) {
      ++m_Tally.toolkitErrors;
      const std::string text = failure.what();
      EXPECT_FALSE(text.empty());
      if (failure.GetErrorName() == "NmToolkit::ImInvalidOperationError" &&
          text.rfind("Operation ", 0) == 0 && failure.GetErrorCode() == 0) {
        ++m_Tally.operationFailures;
        EXPECT_EQ(failure.GetArguments().size(), 1u);
      }
      EXPECT_EQ(failure.GetErrorName().rfind("NmToolkit::Im", 0), 0u) << failure.GetErrorName();
      if (error != nullptr) {
        *error =
            failure.GetErrorName() + " " + std::to_string(failure.GetErrorCode()) + ": " + text;
      }
      return false;
    }
  }
  template <typename Operation> void Status(Operation&& operation) {
    uint32_t status = StatusSuccess;
    if (Call([&] { status = operation(); })) {
      m_Tally.noItem += status != StatusSuccess;
    }
  }
  template <typename Operation> void Data(Operation&& operation) {
    ImData* raw = nullptr;
    uint32_t status = StatusSuccess;
    if (!Call([&] { status = operation(&raw); })) {
      EXPECT_EQ(raw, nullptr);
    }
    std::unique_ptr<ImData> item(raw);
    if (status == StatusSuccess && item) {
      ++m_Tally.items;
      // Reading the item must work: it is whole.
      EXPECT_GE(item->GetEndTime(), item->GetBeginTime());
      if (item->GetDataSize() > 0) {
        EXPECT_NE(item->GetDataPointer(), nullptr);
      }
    } else {
      m_Tally.noItem += status != StatusSuccess;
    }
  }

  const CmLoadedPlugin& m_Plugin;
  const std::string& m_Xml;
  SmTally& m_Tally;
};

std::string CurrentExceptionName() {
  try {
    throw;
  } catch (const std::exception& error) {
    return std::string(typeid(error).name()) + ": " + error.what();
  } catch (...) {
    const std::type_info* type = abi::__cxa_current_exception_type();
    return type ? type->name() : "unknown";
  }
}

// Runs `run(true)` once for every allocation it makes, failing that one, and
// gives the number of runs. Under the sanitizers a run with very many points
// is strided, with an offset that differs from run to run so that CI covers
// them all over time.
// With everyRunFails false a run may allocate a little less than the
// settled count, so its last points may not be met.
template <typename Run>
uint64_t FailEachAllocation(Run&& run, bool persistent = false, bool everyRunFails = true) {
  // Caches and the plug-in libraries that the factory loads settle in the
  // first runs; after that, every run allocates alike.
  for (int i = 0; i < 3; ++i) {
    NmFailingAllocator::Reset();
    run(false);
  }
  const uint64_t total = NmFailingAllocator::GetCount();
  EXPECT_GT(total, 10u);
  const uint64_t stride = Sanitized ? std::max<uint64_t>(1, total / 3000) : 1;
  const uint64_t offset = Sanitized ? static_cast<uint64_t>(getpid()) % stride : 0;
  uint64_t runs = 0, injected = 0;
  for (uint64_t point = 1 + offset; point <= total; point += stride, ++runs) {
    NmFailingAllocator::Reset(point, persistent);
    try {
      run(true);
    } catch (...) {
      NmFailingAllocator::Reset();
      ADD_FAILURE() << "allocation " << point << " of " << total << " let "
                    << CurrentExceptionName() << " out of a call into the plug-in";
    }
    injected += NmFailingAllocator::HasFailed();
    NmFailingAllocator::Reset();
  }
  if (everyRunFails) {
    EXPECT_EQ(injected, runs) << "every run met its failing allocation";
  } else {
    EXPECT_GT(injected, 0u);
  }
  std::printf("%llu allocation points, %llu runs\n", static_cast<unsigned long long>(total),
              static_cast<unsigned long long>(runs));
  return runs;
}

// A whole session failed at every allocation, and what the sessions came to.
SmTally Sweep(const CmLoadedPlugin& plugin, const std::string& xml, bool persistent) {
  SmTally clean, tally;
  tally.runs = FailEachAllocation(
      [&](bool failing) { CmSession(plugin, xml, failing ? tally : clean).Run(); }, persistent);
  EXPECT_GT(clean.items, 0u) << "without failures the session delivers";
  EXPECT_EQ(clean.toolkitErrors, 0u);
  return tally;
}

const std::string PictureChain =
    VzkRootOpen +
    "<jpeg_encoder quality='70'>"
    "<set_property name='Has_Motion' value='true' value_update_key='key'>"
    "<image_resize width='16' height='12'>"
    "<toolkit type='source'><provider>pictures</provider><config>"
    "<picture format='5' width='32' height='24' time='100' seed='1'/>"
    "<picture format='5' width='32' height='24' time='140' seed='2'/>"
    "</config></toolkit></image_resize></set_property></jpeg_encoder>" +
    VzkRootClose;

const std::string ScriptedChain = VzkRootOpen + ScriptedFarEnd() + VzkRootClose;

TEST(BoundaryTest, EveryFailingAllocationEndsInAnAnswerOfTheInterfaces) {
  LOAD(plugin, "ToolkitSourcePlugin_vzk");
  for (const std::string* xml : {&ScriptedChain, &PictureChain}) {
    const SmTally tally = Sweep(plugin, *xml, false);
    // Each kind of answer occurs: allocation failures while building the tree
    // come back from Connect as the configuration fault, failures of the root
    // itself as null, of data and navigation as no item.
    EXPECT_GT(tally.nullRoots, 0u);
    EXPECT_GT(tally.configurationFaults, 0u);
    EXPECT_GT(tally.noItem, 0u);
    EXPECT_GT(tally.toolkitErrors, 0u);
    EXPECT_GT(tally.items, 0u);
  }
  // From the failing allocation on, every later one fails too: not even the
  // error that says so can be allocated then, and it comes anyway.
  EXPECT_GT(Sweep(plugin, ScriptedChain, true).operationFailures, 0u);
}

// A decoder hands its upstream over to the cache that it puts in front of it
// while it is being built. Whichever allocation of building or destroying the
// tree fails, the far end's toolkit goes back through its own library exactly
// once: none stays alive, and the sanitizers see any that goes twice.
TEST(BoundaryTest, AnUpstreamIsReleasedOnceWhereverBuildingItsDecoderFails) {
  LOAD(plugin, "ToolkitSourcePlugin_vzk");
  // The same file as the factory loads, so the same library and its count.
  void* scripted = dlopen((BinaryDirectory() + "/ToolkitSourcePlugin_scripted.so").c_str(),
                          RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(scripted, nullptr) << dlerror();
  const auto instances = reinterpret_cast<int (*)()>(dlsym(scripted, "ScriptedSourceInstances"));
  ASSERT_NE(instances, nullptr);

  for (const char* decoder :
       {"video_decoder", "key_frames_only_video_decoder", "conditional_video_decoder"}) {
    SCOPED_TRACE(decoder);
    const std::string xml =
        VzkRootOpen + "<" + decoder + ">" + ScriptedFarEnd() + "</" + decoder + ">" + VzkRootClose;
    FailEachAllocation(
        [&](bool) {
          {
            CmCounted counted;
            if (ImToolkit* root = plugin.create(xml.c_str())) {
              plugin.destroy(root);
            }
          }
          ASSERT_EQ(instances(), 0) << "allocation " << NmFailingAllocator::GetCount();
        },
        false, false);
  }
}

TEST(BoundaryTest, SourcePluginsAnswerFailingAllocationsThroughTheInterfaces) {
  using namespace NmTestSupport;
  CmTempDirectory scratch;
  CmBytes records;
  for (uint16_t i = 0; i < 6; ++i) {
    SmVideoPacketFields fields;
    fields.frameTime = 100 + 40 * i;
    fields.sync = i % 3 == 0;
    fields.syncTime = 100 + 40 * (i - i % 3);
    fields.sequenceNumber = static_cast<uint16_t>(i + (i >= 3 ? 5 : 0));
    fields.payload = Pattern(24, static_cast<uint8_t>(i));
    const CmBytes record = BuildVideoPacket(fields);
    records.insert(records.end(), record.begin(), record.end());
  }
  ASSERT_TRUE(WriteBytes(scratch / "r.gbd", records));
  LOAD(recording, "ToolkitSourcePlugin_recording");
  const std::string recordingXml =
      "<toolkit type='source'><provider>recording</provider><config><recording file='" +
      scratch / "r.gbd" + "' privacy_mask='2x1;10'/></config></toolkit>";
  SmTally tally = Sweep(recording, recordingXml, false);
  EXPECT_GT(tally.nullRoots, 0u);
  EXPECT_GT(tally.noItem, 0u);

  // The recording as the far end of a tree of the toolkit library.
  LOAD(plugin, "ToolkitSourcePlugin_vzk");
  tally = Sweep(plugin, VzkRootOpen + recordingXml + VzkRootClose, false);
  EXPECT_GT(tally.configurationFaults, 0u);

  ASSERT_TRUE(NmTestSupport::Run(
      "ffmpeg -nostdin -y -f lavfi -i testsrc=size=32x24:rate=10 -t 0.5 -c:v mjpeg " +
      scratch / "clip.avi"));
  LOAD(media, "ToolkitSourcePlugin_media");
  tally = Sweep(media,
                "<toolkit type='source'><provider>media</provider><config><media url='" +
                    scratch / "clip.avi" + "'/></config></toolkit>",
                false);
  EXPECT_GT(tally.nullRoots, 0u);
}

} // namespace
