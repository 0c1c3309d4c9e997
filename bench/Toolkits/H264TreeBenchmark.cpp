// A host's tree over an H.264 recording, end to end, beside the ffmpeg
// command that does the same work: 300 pictures of 1920 x 1080 H.264 High
// (x264's medium preset, B pictures) are decoded, scaled to 640 x 360 and
// encoded as JPEG, every picture, one thread each. Both run as programs (vzk
// and ffmpeg) over the same clip, each timed by the processor time its
// process used, so the load of a shared machine does not count. x264 makes
// the clip on the first run; it is kept beside the benchmark. The run ends
// with the ratio ffmpeg / ours.

#include <cstdio>
#include <fstream>
#include <string>

#include "ProgramRuns.h"

namespace {

using namespace NmProgramRuns;

constexpr int kPictures = 300;
constexpr const char* kClip = "H264Tree1080p.mp4";

struct SmClip : SmMaterial {
  std::string clip = (fs::current_path() / kClip).string();

  SmClip() {
    // A camera-like scene: moving test pattern with sensor noise. Made in
    // the scratch directory and moved here whole, so that a run cut short
    // leaves no clip that a later run would take for one.
    const std::string made = (directory / kClip).string();
    if (error.empty() && !std::ifstream(clip) &&
        (!System("ffmpeg -nostdin -y -f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v " +
                 std::to_string(kPictures) +
                 " -vf noise=alls=8:allf=t -pix_fmt yuv420p -c:v libx264 -preset medium " +
                 Quote(made)) ||
         !System("mv " + Quote(made) + " " + Quote(clip)))) {
      error = "ffmpeg could not make the clip";
    }
    ImportAndWriteTree(clip, 75, "");
  }
};

} // namespace

int main(int argc, char** argv) {
  return RunTreeBenchmark<SmClip>(&argc, argv, "H264Tree", kPictures);
}
