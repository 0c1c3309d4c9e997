#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Codecs/H264/NalUnits.h"
#include "Codecs/H264/ParameterSets.h"
#include "Codecs/H264/SliceHeader.h"
#include "support/ExternalTools.h"

using namespace NmH264;
using NmTestSupport::CmTempDirectory;

namespace {

std::string Capture(const std::string& command) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return out;
  }
  char buffer[4096];
  size_t n = 0;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
    out.append(buffer, n);
  }
  pclose(pipe);
  return out;
}

// What ffprobe says of the stream's first video stream, key=value lines.
std::map<std::string, std::string> ProbeStream(const std::string& path) {
  std::map<std::string, std::string> values;
  const std::string text =
      Capture("ffprobe -v error -select_streams v:0 -show_entries "
              "stream=width,height,profile,level,refs,sample_aspect_ratio -of default=nw=1 '" +
              path + "'");
  size_t at = 0;
  while (at < text.size()) {
    const size_t end = text.find('\n', at);
    const std::string line =
        text.substr(at, end == std::string::npos ? std::string::npos : end - at);
    const size_t equals = line.find('=');
    if (equals != std::string::npos) {
      values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    at = end == std::string::npos ? text.size() : end + 1;
  }
  return values;
}

// The parameter sets and the slices of a whole Annex B stream.
struct SmParsedStream {
  std::array<std::unique_ptr<SmSequenceParameterSet>, 32> sps;
  std::array<std::unique_ptr<SmPictureParameterSet>, 256> pps;
  std::vector<SmSliceHeader> slices;
  std::string pictureTypes; // one letter per picture: I, P or B (of its first slice)
  int failures = 0;
};

void Parse(const std::vector<uint8_t>& stream, SmParsedStream& parsed) {
  size_t position = 0;
  SmNalUnit unit;
  std::vector<uint8_t> rbsp;
  std::array<const SmSequenceParameterSet*, 32> spsTable{};
  std::array<const SmPictureParameterSet*, 256> ppsTable{};
  while (NextAnnexBUnit(stream.data(), stream.size(), position, true, unit)) {
    ExtractPayload(unit.data + 1, unit.size - 1, rbsp);
    CmBitReader reader(rbsp.data(), rbsp.size());
    if (unit.GetType() == NalSequenceParameterSet) {
      auto sps = std::make_unique<SmSequenceParameterSet>();
      parsed.failures += ParseSequenceParameterSet(reader, *sps) != ParseOk;
      spsTable[sps->id] = sps.get();
      parsed.sps[sps->id] = std::move(sps);
    } else if (unit.GetType() == NalPictureParameterSet) {
      auto pps = std::make_unique<SmPictureParameterSet>();
      parsed.failures += ParsePictureParameterSet(reader, spsTable.data(), *pps) != ParseOk;
      ppsTable[pps->id] = pps.get();
      parsed.pps[pps->id] = std::move(pps);
    } else if (unit.IsSlice()) {
      SmSliceHeader header;
      const SmSequenceParameterSet* sps = nullptr;
      const SmPictureParameterSet* pps = nullptr;
      parsed.failures += ParseSliceHeader(reader, unit.data[0], {spsTable.data(), ppsTable.data()},
                                          header, sps, pps) != ParseOk;
      if (header.firstMbInSlice == 0) {
        parsed.pictureTypes += "PBI"[header.sliceType];
      }
      parsed.slices.push_back(header);
    }
  }
}

} // namespace

TEST(H264Headers, ParameterSetsAndSliceHeadersOfEncodedStreams) {
  if (!NmTestSupport::HaveProgram("ffmpeg") || !NmTestSupport::HaveProgram("ffprobe")) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  CmTempDirectory directory;
  struct SmCase {
    const char* size;
    const char* options;
    const char* sar; // the sample aspect ratio given to the encoder
    int slicesPerPicture;
  } cases[] = {
      // Baseline, slices, several references, cropping and a sample aspect.
      {"100x60", "profile=baseline:slices=3:ref=4:keyint=5", "5/3", 3},
      // High without CABAC: pyramid of B pictures, weighted prediction,
      // the 8x8 transform and the default matrices.
      {"96x64", "cabac=0:bframes=3:b-pyramid=normal:weightp=2:weightb=1:8x8dct=1:cqm=jvt:ref=5",
       "1/1", 1},
      // Intra refresh instead of key pictures; a sample aspect from the table.
      {"64x48", "cabac=0:intra-refresh=1:keyint=6", "12/11", 1},
  };
  for (const SmCase& c : cases) {
    SCOPED_TRACE(c.options);
    const std::string path = directory / "stream.264";
    ASSERT_TRUE(NmTestSupport::Run(std::string("ffmpeg -y -f lavfi -i testsrc2=size=") + c.size +
                                   ":rate=25 -frames:v 14 -vf setsar=" + c.sar +
                                   " -pix_fmt yuv420p -c:v libx264 "
                                   "-x264-params '" +
                                   c.options + "' -f h264 '" + path + "'"));
    SmParsedStream parsed;
    Parse(NmTestSupport::ReadBytes(path), parsed);
    EXPECT_EQ(parsed.failures, 0);
    ASSERT_TRUE(parsed.sps[0] != nullptr);
    const SmSequenceParameterSet& sps = *parsed.sps[0];
    const auto probe = ProbeStream(path);
    EXPECT_EQ(std::to_string(sps.GetVisibleWidth()), probe.at("width"));
    EXPECT_EQ(std::to_string(sps.GetVisibleHeight()), probe.at("height"));
    EXPECT_EQ(std::to_string(sps.levelIdc), probe.at("level"));
    EXPECT_EQ(std::to_string(sps.vui.sarWidth) + ":" + std::to_string(sps.vui.sarHeight),
              probe.at("sample_aspect_ratio"));
    // Picture types in decoding order, against ffprobe's frames, which come
    // in display order: the same counts of each.
    std::string types = Capture("ffprobe -v error -show_entries frame=pict_type -of csv=p=0 '" +
                                path + "' | tr -d '\\n,'");
    std::string ours = parsed.pictureTypes;
    std::sort(types.begin(), types.end());
    std::sort(ours.begin(), ours.end());
    EXPECT_EQ(ours, types);
    EXPECT_EQ(parsed.slices.size(), parsed.pictureTypes.size() * c.slicesPerPicture);
    // Every slice after the first of its picture starts further on.
    for (size_t i = 1; i < parsed.slices.size(); ++i) {
      if (parsed.slices[i].firstMbInSlice != 0) {
        EXPECT_GT(parsed.slices[i].firstMbInSlice, parsed.slices[i - 1].firstMbInSlice);
      }
    }
    if (std::string(c.options).find("cqm=jvt") != std::string::npos) {
      SmScalingMatrices matrices;
      DeriveScalingMatrices(sps, *parsed.pps[0], matrices);
      EXPECT_TRUE(sps.scaling.present || parsed.pps[0]->scaling.present);
      EXPECT_EQ(matrices.list4x4[0], DefaultScaling4x4Intra);
      EXPECT_EQ(matrices.list4x4[5], DefaultScaling4x4Inter);
      EXPECT_EQ(matrices.list8x8[0], DefaultScaling8x8Intra);
      EXPECT_EQ(matrices.list8x8[1], DefaultScaling8x8Inter);
    }
    if (std::string(c.options).find("weightp=2") != std::string::npos) {
      bool weighted = false;
      for (const SmSliceHeader& slice : parsed.slices) {
        weighted = weighted || slice.hasExplicitWeights;
      }
      EXPECT_TRUE(weighted);
    }
  }
}
