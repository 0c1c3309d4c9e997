// Damaged recordings through vzk: what still plays, what is told, and that
// every kind of damage ends in a sentence and an exit status, not a signal.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "RecordingDamage.h"
#include "VzkTestSupport.h"

using namespace NmVzkTest;

namespace {

class VzkRecordingDamage : public ::testing::Test {
protected:
  void SetUp() override {
    m_Frames = MakeRawJPEGRecording(m_Scratch.Path("clean.gbd"), 20);
    ASSERT_EQ(m_Frames.size(), 20u);
    // Frame 10's first segment claims 65535 bytes: its marker structure is
    // gone, and the index must find frame 11.
    for (size_t i = 0; i < m_Frames.size(); ++i) {
      std::vector<uint8_t> frame = m_Frames[i];
      if (i == 10) {
        m_Offset = m_Damaged.size();
        frame[4] = frame[5] = 0xFF;
      }
      m_Damaged.insert(m_Damaged.end(), frame.begin(), frame.end());
    }
    m_Path = m_Scratch.Path("damaged.gbd");
    WriteBytes(m_Path, m_Damaged);
  }

  std::string Tree(const std::string& name, const std::string& recording, bool decoded) {
    return m_Scratch.Write(name, RecordingTree(recording, decoded ? "video_decoder" : ""));
  }
  std::string Told() const {
    const std::string bytes = std::to_string(m_Frames[10].size());
    return "vzk: The recording " + m_Path + " is damaged: " + bytes +
           " bytes hold no valid record and were skipped (" + bytes + " bytes at offset " +
           std::to_string(m_Offset) + ").\n";
  }

  CmScratch m_Scratch;
  std::vector<std::vector<uint8_t>> m_Frames;
  std::vector<uint8_t> m_Damaged;
  size_t m_Offset = 0;
  std::string m_Path;
};

TEST_F(VzkRecordingDamage, RunImportAndInfoPlayTheRestAndTellTheSkippedBytes) {
  for (const bool decoded : {false, true}) {
    const SmResult run = ExpectRun(
        {"run", Tree("run.xml", m_Path, decoded), "--out", m_Scratch.Path("run")}, 1, Told());
    EXPECT_EQ(run.out.rfind("19 items in ", 0), 0u) << run.out;
  }
  EXPECT_EQ(ReadBytes(m_Scratch.Path("run/jpeg-000011.jpg")), m_Frames[11]);
  ExpectRun({"import", m_Path, m_Scratch.Path("copy.gbd")}, 1, Told());
  std::vector<uint8_t> expected;
  for (size_t i = 0; i < m_Frames.size(); ++i) {
    if (i != 10) {
      expected.insert(expected.end(), m_Frames[i].begin(), m_Frames[i].end());
    }
  }
  EXPECT_EQ(ReadBytes(m_Scratch.Path("copy.gbd")), expected);

  const SmResult info = ExpectSuccess({"info", m_Path});
  EXPECT_NE(info.out.find("  damaged:    " + std::to_string(m_Frames[10].size()) +
                          " bytes at offset " + std::to_string(m_Offset) +
                          " hold no valid record and were skipped\n"),
            std::string::npos)
      << info.out;
}

// A recording that ends in a record begun and never finished, an empty file
// and a directory each end in a sentence and status 0 or 1; length claims
// beyond the file are the plug-in's test, arbitrary files the fuzzers'.
TEST_F(VzkRecordingDamage, EveryNeighbourEndsInASentenceNeverASignal) {
  const std::string cut = m_Scratch.Path("clean.gbd");
  WriteBytes(cut, {0x00, 0x10, 0x00}, true);
  for (const bool decoded : {false, true}) {
    ExpectRun({"run", Tree("cut.xml", cut, decoded)}, 1, "is damaged: 3 bytes hold");
  }
  ExpectRun({"import", cut, m_Scratch.Path("cut.copy.gbd")}, 1, "is damaged: 3 bytes hold");
  const SmResult info = ExpectSuccess({"info", cut});
  EXPECT_NE(info.out.find("  damaged:    "), std::string::npos) << info.out;

  // An empty recording loses nothing.
  WriteText(m_Scratch.Path("empty.gbd"), "");
  const SmResult empty =
      ExpectSuccess({"run", Tree("empty.xml", m_Scratch.Path("empty.gbd"), true)});
  EXPECT_EQ(empty.err, "vzk: The tree has no items.\n");

  // A directory is no recording, for run and for import.
  const std::string directory = m_Scratch.Path("dir.gbd");
  ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
  ExpectRun({"run", Tree("dir.xml", directory, false)}, 1,
            "could not connect: Could not open recording '" + directory + "'!");
  ExpectRun({"import", directory, m_Scratch.Path("out.gbd")}, 1,
            "vzk: The media " + directory + " is a directory, not a file.\n");
}

TEST(VzkRecordingFiles, EveryRecordingElementOfATreeIsFound) {
  EXPECT_EQ(NmVzkTool::RecordingFilesOf(
                "<toolkit type='source'><provider>vzk</provider><config><video_decoder>"
                "<toolkit type='source'><provider> recording </provider><config>"
                "<recording file='a.gbd'/><recording file='ignored.gbd'/></config></toolkit>"
                "</video_decoder></config></toolkit>"),
            std::vector<std::string>{"a.gbd"});
  EXPECT_EQ(NmVzkTool::RecordingFilesOf(
                "<toolkit type='source'><provider>media</provider><config>"
                "<recording file='not-a-recording-plug-in.gbd'/></config></toolkit>"),
            std::vector<std::string>{});
  EXPECT_EQ(NmVzkTool::RecordingFilesOf("<not xml"), std::vector<std::string>{});
}

} // namespace
