// A host's tree over an MPEG-4 recording, end to end, beside the ffmpeg
// command that does the same work: 1280 x 720 MPEG-4 Part 2 with B pictures
// is decoded, scaled to 640 x 360 and encoded as JPEG, every picture, one
// thread each. Both run as programs (vzk and ffmpeg) over the same clip, each
// timed by the processor time its process used, so the load of a shared
// machine does not count. The run ends with the ratio ffmpeg / ours.

#include <cstdio>
#include <string>

#include "ProgramRuns.h"

namespace {

using namespace NmProgramRuns;

constexpr int kPictures = 50;

struct SmClip : SmMaterial {
  std::string clip = (directory / "camera.avi").string();

  SmClip() {
    // A camera-like scene: moving test pattern with sensor noise, two B
    // pictures between anchors, in closed groups (the B pictures that open a
    // group refer back across it and are lost when playback starts a group
    // afresh, which would fail the run).
    if (error.empty() &&
        !System("ffmpeg -nostdin -y -f lavfi -i testsrc2=size=1280x720:rate=25 -frames:v " +
                std::to_string(kPictures) +
                " -vf noise=alls=8:allf=t -pix_fmt yuv420p -c:v mpeg4 -bf 2 -flags +cgop "
                "-sc_threshold 1000000000 -q:v 4 -g 25 " +
                Quote(clip))) {
      error = "ffmpeg could not make the clip";
    }
    ImportAndWriteTree(clip, 75, "");
  }
};

} // namespace

int main(int argc, char** argv) {
  return RunTreeBenchmark<SmClip>(&argc, argv, "MPEG4Tree", kPictures);
}
