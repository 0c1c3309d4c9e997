// vzk run over real plug-ins: playback and live, its limits, and its failures.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include "Common/Xerces/Xerces.h"
#include "VzkTestSupport.h"

using namespace NmVzkTest;

namespace {

class VzkRun : public ::testing::Test {
protected:
  void SetUp() override {
    m_Recording = m_Scratch.Path("raw.gbd");
    m_Frames = MakeRawJPEGRecording(m_Recording, 12);
    ASSERT_EQ(m_Frames.size(), 12u);
    // Bare JPEGs are timed from the moment the file was last written.
    const timespec times[2] = {{kBase / 1000, 0}, {kBase / 1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, m_Recording.c_str(), times, 0), 0);
    m_Tree = m_Scratch.Write("tree.xml", RecordingTree(m_Recording));
  }

  // Runs and returns the JPEG files written, in order.
  std::vector<std::vector<uint8_t>> Pulled(std::vector<std::string> arguments,
                                           SmResult* result = nullptr) {
    const std::string out = m_Scratch.Path("out-" + std::to_string(++m_Runs));
    arguments.insert(arguments.begin(), {"run", m_Tree, "--out", out});
    const SmResult run = RunVzk(arguments);
    if (result != nullptr) {
      *result = run;
    }
    EXPECT_EQ(run.status, 0) << run.err;
    std::vector<std::vector<uint8_t>> files;
    for (const std::string& name : ListDirectory(out)) {
      if (name.rfind("jpeg-", 0) == 0) {
        files.push_back(ReadBytes(out + "/" + name));
      }
    }
    return files;
  }

  std::vector<std::vector<uint8_t>> Slice(size_t first, size_t count) const {
    return {m_Frames.begin() + first, m_Frames.begin() + first + count};
  }

  static constexpr int64_t kBase = 1700000000000;
  static std::string At(int64_t milliseconds) { return std::to_string(kBase + milliseconds); }

  CmScratch m_Scratch;
  std::string m_Recording;
  std::string m_Tree;
  std::vector<std::vector<uint8_t>> m_Frames;
  int m_Runs = 0;
};

TEST_F(VzkRun, PlaybackWritesEveryRecordAndKeepsToItsLimits) {
  SmResult result;
  EXPECT_EQ(Pulled({"--request", "Sequence_Number"}, &result), m_Frames);
  EXPECT_EQ(result.out.rfind("12 items in ", 0), 0u) << result.out;
  EXPECT_NE(result.out.find("12 JPEG records"), std::string::npos);
  EXPECT_NE(result.out.find("; 0 errors."), std::string::npos);
  // The list names every item, its times and its file; raw JPEGs come 40 ms apart.
  const std::string list = ReadText(m_Scratch.Path("out-1/items.txt"));
  EXPECT_NE(list.find("# item\tbegin_ms\tend_ms\tkind\tbytes\tfile\tSequence_Number\n"),
            std::string::npos);
  EXPECT_NE(list.find("\n3\t" + At(80) + "\t" + At(119) + "\traw JPEG\t" +
                      std::to_string(m_Frames[2].size()) + "\tjpeg-000003.jpg\t\n"),
            std::string::npos);

  EXPECT_EQ(Pulled({"--count", "5"}), Slice(0, 5));
  EXPECT_EQ(Pulled({"--from", At(200)}), Slice(5, 7));
  EXPECT_EQ(Pulled({"--from", At(190)}), Slice(5, 7));
  EXPECT_EQ(Pulled({"--from", "-5000", "--count", "1"}), Slice(0, 1));
  // Media time: items beginning within 0.2 s of the first, that is 0 to 160 ms.
  EXPECT_EQ(Pulled({"--duration", "0.2"}), Slice(0, 5));
  EXPECT_EQ(Pulled({"--from", At(400), "--duration", "0.08", "--count", "9"}), Slice(10, 2));
  EXPECT_EQ(Pulled({"--count", "100"}), m_Frames);

  const SmResult beyond =
      ExpectRun({"run", m_Tree, "--from", At(100000)}, 0,
                "vzk: The tree has no item at or after " + At(100000) + " ms.\n");
  EXPECT_EQ(beyond.out.rfind("0 items in ", 0), 0u);

  // Without --out, items are pulled and dropped: the timing run.
  const SmResult timing = ExpectSuccess({"run", m_Tree, "--count", "4"});
  EXPECT_EQ(timing.out.rfind("4 items in ", 0), 0u);
  EXPECT_EQ(timing.out.find("Output in"), std::string::npos);
}

// Live replay is the examples' to run; here nothing is appended, and the
// wall-clock limit ends the run with nothing.
TEST_F(VzkRun, LiveWallClockLimit) {
  const SmResult idle = ExpectSuccess({"run", m_Tree, "--mode", "live", "--duration", "0.3"});
  EXPECT_EQ(idle.out.rfind("0 items in ", 0), 0u);
}

TEST_F(VzkRun, InterruptedLiveRunKeepsWhatItWrote) {
  // The recording plug-in's live mode waits for records that never come, so
  // only the signal ends this run. Items before it must be complete.
  const std::string growing = m_Scratch.Path("growing.gbd");
  WriteBytes(growing, m_Frames[0]);
  const std::string out = m_Scratch.Path("stopped");
  CmRunningVzk run({"run", m_Scratch.Write("growing.xml", RecordingTree(growing)), "--mode", "live",
                    "--out", out});
  for (int i = 0; i < 500 && !Exists(out + "/jpeg-000002.jpg"); ++i) {
    WriteBytes(growing, m_Frames[1 + i % 11], true);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(Exists(out + "/jpeg-000002.jpg"));
  run.Signal(SIGINT);
  const SmResult result = run.Wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.err.find("vzk: Stopped by request.\n"), std::string::npos) << result.err;
  const size_t items = std::stoul(result.out);
  EXPECT_GE(items, 2u);
  // The list is closed properly: a header and one whole line for every item.
  const std::string list = ReadText(out + "/items.txt");
  EXPECT_EQ(static_cast<size_t>(std::count(list.begin(), list.end(), '\n')), items + 1);
  // Live starts behind what the file held: the first item is an appended one.
  const std::vector<uint8_t> first = ReadBytes(out + "/jpeg-000001.jpg");
  EXPECT_NE(std::find(m_Frames.begin() + 1, m_Frames.end(), first), m_Frames.end());
}

TEST_F(VzkRun, FailuresExitNonZeroWithTheToolkitsMessage) {
  // Each cause of a tree that cannot be built is named as such.
  const std::string root = "<toolkit type='source'><provider>vzk</provider><config>";
  const std::string farEnd =
      "<toolkit type='source'><provider>scripted</provider><config/></toolkit>";
  std::string open, close;
  for (int i = 0; i < 30000; ++i) {
    open += "<set_property>";
    close += "</set_property>";
  }
  const std::string cause = m_Scratch.Path("cause.xml");
  const std::pair<std::string, std::string> causes[] = {
      {root, "is not well-formed XML"},
      {root + "<video_mixer/></config></toolkit>",
       "In " + cause + ", the element \"video_mixer\" is no toolkit that the library knows."},
      {root + open + farEnd + close + "</config></toolkit>",
       "nests its elements deeper than 64 levels, more than a configuration may."},
      {root + "<set_property><video_mixer/></set_property></config></toolkit>",
       "the element \"video_mixer\" is no toolkit that the library knows."},
      {root + "<set_property>" + farEnd + "</set_property><set_property>" + farEnd +
           "</set_property></config></toolkit>",
       "a \"config\" element holds 2 toolkit elements (\"set_property\", \"set_property\"), "
       "where one is allowed."},
      {root + "<set_property><toolkit type='source'><provider> Missing </provider><config/>"
              "</toolkit></set_property></config></toolkit>",
       "the plug-in of the provider \"missing\" cannot be loaded."},
      {root + "<image_resize/></config></toolkit>",
       "the toolkit element \"image_resize\" has no upstream element inside it."},
      {root + "<audio_decoder>" + farEnd + "</audio_decoder></config></toolkit>",
       "\"audio_decoder\" names a toolkit that this build does not have yet."},
  };
  for (const auto& [xml, hint] : causes) {
    WriteText(cause, xml);
    const SmResult result = ExpectRun({"run", cause}, 1, hint);
    EXPECT_NE(result.err.find("could not be built: Could not parse toolkit configuration xml! "
                              "(NmToolkit::ImConfigurationError 0)."),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.err.find("not built yet"), std::string::npos) << result.err;
  }

  const std::string gone = m_Scratch.Write("gone.xml", RecordingTree(m_Scratch.Path("gone.gbd")));
  const std::string none = m_Scratch.Path("none");
  const std::pair<std::vector<std::string>, std::string> failures[] = {
      {{"run", none},
       "vzk: The configuration file " + none + " cannot be read: No such file or directory.\n"},
      {{"run", gone},
       "could not connect: Could not open recording '" + m_Scratch.Path("gone.gbd") +
           "'! (NmToolkit::ImFileError 6)."},
      {{"run", m_Tree, "--plugin", none},
       "vzk: The toolkit plug-in " + none + " cannot be found: No such file or directory.\n"},
      {{"run", m_Tree, "--plugin", BinaryDirectory() + "/ToolkitSourcePlugin_nodelete.so"},
       "is no toolkit plug-in: it lacks CreateInstance or DeleteInstance."},
      {{"run", m_Tree, "--plugin", m_Tree}, "cannot be loaded: "},
      {{"run", m_Tree, "--out", m_Tree + "/sub"},
       "vzk: The output directory " + m_Tree + "/sub cannot be made: " + m_Tree + " is a file.\n"},
  };
  for (const auto& [arguments, told] : failures) {
    ExpectRun(arguments, 1, told);
  }

  // An item the tree cannot make is counted and reported; the others are written.
  const std::string scripted =
      m_Scratch.Write("scripted.xml", TreeOver("scripted", "<script><item begin='1' payload='one'/>"
                                                           "<item kind='status' status='7'/>"
                                                           "<item begin='3' kind='outofband' "
                                                           "payload='three'/></script>"));
  const SmResult partly = ExpectRun({"run", scripted, "--out", m_Scratch.Path("partly")}, 1,
                                    "vzk: Item 2 was not delivered (status 7): the tree could not "
                                    "make it.\n");
  EXPECT_NE(partly.out.find("3 items in"), std::string::npos);
  EXPECT_NE(partly.out.find("2 other items; 1 error."), std::string::npos) << partly.out;
  EXPECT_EQ(ReadText(m_Scratch.Path("partly/item-000001.bin")), "one");
  EXPECT_EQ(ReadText(m_Scratch.Path("partly/item-000002.bin")), "three");
  EXPECT_NE(ReadText(m_Scratch.Path("partly/items.txt")).find("\t3\t3\tout-of-band data\t5\t"),
            std::string::npos);
}

} // namespace

namespace {

// The example trees parse, and every one over the demo recording runs, with a
// contact sheet drawn in the same process as the toolkits' text overlays.
TEST(VzkExamples, EveryExampleIsWellFormedAndRuns) {
  CmScratch scratch;
  const std::string recording = scratch.Path("sample.gbd");
  const auto frames = MakeRawJPEGRecording(recording, 3, 320, 240);
  const std::string examples = std::string(VZK_SOURCE_DIR) + "/examples";
  int runnable = 0;
  for (const std::string& name : ListDirectory(examples)) {
    if (name.size() < 4 || name.substr(name.size() - 4) != ".xml") {
      continue;
    }
    std::string text = ReadText(examples + "/" + name);
    EXPECT_NO_THROW(NmXerces::CmXmlWrapper::LoadXml(text)) << name;
    const std::string demoPath = "build/demo/sample.gbd";
    const size_t at = text.find("file=\"" + demoPath + "\"");
    if (at == std::string::npos) {
      continue; // a tree for the SDK's example host
    }
    ++runnable;
    text.replace(at + 6, demoPath.size(), recording);
    WriteText(scratch.Path(name), text);
    const std::string out = scratch.Path(name + ".out");
    std::vector<std::string> arguments = {"run", scratch.Path(name), "--out", out};
    if (name == "live-replay.xml") {
      arguments.insert(arguments.end(), {"--mode", "live", "--count", "2"});
    } else {
      arguments.insert(arguments.end(), {"--request", "Privacy_Mask", "--contact-sheet",
                                         scratch.Path(name + ".png")});
    }
    const SmResult result = RunVzk(arguments);
    EXPECT_EQ(result.status, 0) << name << ": " << result.err;
    const size_t files = ListDirectory(out).size();
    // Every item's file, and items.txt.
    EXPECT_EQ(files, name == "live-replay.xml" ? 3u : 4u) << name;
  }
  EXPECT_EQ(runnable, 5);
  EXPECT_EQ(ReadBytes(scratch.Path("jpeg-records-to-files.xml.out/jpeg-000003.jpg")), frames[2]);
}

} // namespace
