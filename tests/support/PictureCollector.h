#pragma once

#include <cstdint>
#include <vector>

#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/VideoData.h"
#include "Codecs/MCL/VideoProcessing.h"

namespace NmTestSupport {

// The post-processing stage of a decoder under test: keeps each picture that
// comes out, its planes one after the other with tight rows (as ffmpeg writes
// raw video), with its time, frame id and structure.
class CmPictureCollector : public MCL::VideoProcessing {
public:
  MCL::Status GetFrame(MCL::MediaData* input, MCL::MediaData*) override {
    const auto* picture = dynamic_cast<MCL::VideoData*>(input);
    if (picture == nullptr) {
      return MCL::StatusNullPointer;
    }
    std::vector<uint8_t> samples;
    for (int c = 0; c < picture->GetPlaneCount(); ++c) {
      for (int32_t y = 0; y < picture->GetPlaneHeight(c); ++y) {
        const uint8_t* row = picture->GetPlanePointer(c) + y * picture->GetPlanePitch(c);
        samples.insert(samples.end(), row, row + picture->GetPlaneWidth(c));
      }
    }
    pictures.push_back(std::move(samples));
    times.push_back(picture->GetTime());
    frameIds.push_back(picture->GetFrameId());
    structures.push_back(picture->GetPictureStructure());
    return MCL::StatusOk;
  }

  std::vector<std::vector<uint8_t>> pictures;
  std::vector<double> times;
  std::vector<int32_t> frameIds;
  std::vector<int32_t> structures; // which field first, or which lone field
};

} // namespace NmTestSupport
