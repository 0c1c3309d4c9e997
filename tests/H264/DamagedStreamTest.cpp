#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "H264/ReferenceDecoding.h"

using namespace NmH264Test;

namespace {

// An x264 stream of noisy pictures cut into access units, and ffmpeg's
// pictures of it.
struct SmClip {
  std::vector<AccessUnit> accessUnits;
  Frames pictures;
};

SmClip MakeClip(const std::string& settings, int frames,
                const std::string& filter = "noise=alls=12:allf=t",
                const std::string& size = "64x48") {
  const SmEncoded encoded =
      EncodeWithX264({size, "yuv420p", settings + ":aud=1", frames, "medium", filter});
  return {AccessUnits(encoded.stream), encoded.pictures};
}

// One buffer a picture, as the toolkits feed records, then the flush.
Frames Decode(const std::vector<AccessUnit>& accessUnits, int32_t threads = 1) {
  return DecodeWithShell(Joined(accessUnits), threads);
}

} // namespace

// A P picture that lost the middle one of its three slices, or has it cut
// short, still leaves: the slices it has are its own, and the macroblocks
// that were lost or broke off come whole from the picture before it, in
// decoding order (in a frame of macroblock pairs: pair by pair, top before
// bottom, so some cuts break in a top macroblock). The next pictures, which
// predict from it, differ until the next IDR, and from there every picture
// is ffmpeg's again.
TEST(H264DamagedStream, ALostOrBrokenSliceIsFilledFromTheNearestReference) {
  REQUIRE_FFMPEG();
  for (const bool pairs : {false, true}) {
    SCOPED_TRACE(pairs ? "macroblock pairs" : "frame");
    // Without the loop filter, so that macroblocks meet their neighbours
    // untouched; x264 cuts the 3 rows of macroblocks (or of pairs, all of
    // them frame pairs in the plain pattern) into a slice each.
    const size_t width = 64, rowHeight = pairs ? 32 : 16;
    const SmClip clip =
        MakeClip(std::string("cabac=0:bframes=0:slices=3:keyint=6:no-deblock=1:ref=1") +
                     (pairs ? ":interlaced=1:tff=1" : ""),
                 12, pairs ? "null" : "noise=alls=12:allf=t", pairs ? "64x96" : "64x48");
    ASSERT_EQ(clip.accessUnits.size(), 12u);
    ASSERT_EQ(clip.pictures.size(), 12u);
    // Which of pictures 3 and 2 each luma macroblock of a slice equals, in
    // decoding order.
    const auto sources = [&](const Bytes& ours, size_t slice) {
      std::string found;
      for (size_t mb = 0; mb < width / 16 * (pairs ? 2 : 1); ++mb) {
        const size_t x = (pairs ? mb / 2 : mb) * 16,
                     y = slice * rowHeight + (pairs ? mb % 2 * 16 : 0);
        found += SourceOf(ours, clip.pictures[3], clip.pictures[2], "32", width, x, y);
      }
      return found;
    };
    for (const size_t percent : {0, 20, 35, 50, 65, 80}) {
      SCOPED_TRACE(percent == 0 ? "lost" : "cut at " + std::to_string(percent) + "%");
      std::vector<AccessUnit> damaged = clip.accessUnits;
      size_t slices = 0;
      for (auto unit = damaged[3].begin(); unit != damaged[3].end(); ++unit) {
        if (IsSlice(*unit) && ++slices == 2) {
          if (percent != 0) {
            unit->resize(4 + (unit->size() - 4) * percent / 100);
          } else {
            damaged[3].erase(unit);
          }
          break;
        }
      }
      const Frames ours = Decode(damaged);
      EXPECT_TRUE(Decode(damaged, 2) == ours) << "2 threads";
      ASSERT_EQ(ours.size(), 12u);
      // '=' where the two pictures agree.
      EXPECT_EQ(sources(ours[3], 0).find_first_of("2?"), std::string::npos);
      EXPECT_EQ(sources(ours[3], 2).find_first_of("2?"), std::string::npos);
      const std::string middle = sources(ours[3], 1);
      if (percent != 0) {
        // Those before the break are the picture's own, the rest come whole
        // from the picture before.
        EXPECT_NE(middle.find_first_of('2'), std::string::npos) << middle;
        EXPECT_EQ(middle.find('?'), std::string::npos) << middle;
        EXPECT_EQ(middle.find('3', middle.find('2')), std::string::npos) << middle;
      } else {
        EXPECT_EQ(middle.find_first_of("3?"), std::string::npos) << middle;
      }
      for (size_t f = 0; f < 12; ++f) {
        EXPECT_EQ(ours[f].size(), clip.pictures[0].size());
        if (f < 3 || f >= 6) {
          EXPECT_EQ(ours[f], clip.pictures[f]) << "picture " << f;
        }
      }
    }
  }
}

// Slices dropped, cut short, with bits flipped, swapped, or the second one
// repeated at the end (which decodes its rows again), in the
// first group only: decoding goes on, every picture that leaves has the
// stream's size, and from the next IDR on every picture is ffmpeg's of the
// intact stream. In CAVLC, and in CABAC with frames of field and frame
// macroblock pairs; pictures big enough, and slices beginning inside rows,
// for the loop filter's thread to run behind: concealment, slices that
// decode past the start of the next one, slices out of order and the
// recovery reset give with two threads what they give with one.
TEST(H264DamagedStream, DamageCostsNothingBeyondTheNextIdr) {
  REQUIRE_FFMPEG();
  const char* const group = "bframes=2:b-pyramid=normal:slices=4:keyint=10:min-keyint=10:ref=3";
  for (const SmClip& clip :
       {MakeClip(std::string("cabac=0:") + group, 30, "noise=alls=12:allf=t", "176x144"),
        MakeClip(std::string("cabac=1:interlaced=1:") + group, 30,
                 std::string(Combing) + ",noise=alls=12:allf=t", "176x144")}) {
    ASSERT_EQ(clip.pictures.size(), 30u);
    std::mt19937 random(11);
    for (int kind = 0; kind < 5; ++kind) {
      for (int round = 0; round < (kind < 3 ? 8 : 2); ++round) {
        SCOPED_TRACE(testing::Message() << "damage " << kind << " round " << round);
        std::vector<AccessUnit> damaged = clip.accessUnits;
        size_t counted = 0;
        // The access units of the first group, after its IDR.
        for (size_t a = 1; a < 10; ++a) {
          std::vector<Bytes>& units = damaged[a];
          std::vector<size_t> slices;
          for (size_t u = 0; u < units.size(); ++u) {
            if (IsSlice(units[u])) {
              slices.push_back(u);
            }
          }
          if (kind == 3 && random() % 2 == 0) {
            std::swap(units[slices[0]], units[slices[1]]);
          } else if (kind == 4 && random() % 2 == 0) {
            units.insert(units.begin() + static_cast<std::ptrdiff_t>(slices.back()) + 1,
                         units[slices[1]]);
          }
          for (size_t u = 0; u < units.size() && kind < 3; ++u) {
            if (!IsSlice(units[u])) {
              continue;
            }
            Bytes& unit = units[u];
            if (kind == 0 && ++counted % (2 + round % 3) == 0) {
              units.erase(units.begin() + static_cast<std::ptrdiff_t>(u--));
            } else if (kind == 1 && random() % 3 == 0) {
              unit.resize(5 + random() % (unit.size() - 5));
            } else if (kind == 2) {
              for (int flips = 0; flips < 1 + round; ++flips) {
                // Past the start code and the unit's header byte.
                const size_t at = 5 + random() % (unit.size() - 5);
                unit[at] ^= static_cast<uint8_t>(1u << (random() % 8));
              }
            }
          }
        }
        const Frames ours = Decode(damaged);
        // Concealment and the recovery reset with the loop filter on its own
        // thread give the same pictures.
        EXPECT_TRUE(Decode(damaged, 2) == ours);
        ASSERT_GE(ours.size(), 20u);
        for (const Bytes& picture : ours) {
          EXPECT_EQ(picture.size(), clip.pictures[0].size());
        }
        for (size_t f = 0; f < 20; ++f) {
          EXPECT_EQ(ours[ours.size() - 20 + f], clip.pictures[10 + f]) << "picture " << 10 + f;
        }
      }
    }
  }
}

// An intra-refresh stream joined in the middle, as a live stream is: the
// decoder starts at the recovery point instead of waiting for an IDR that
// does not come, keeps the pictures before the one the point names hidden,
// and shows ffmpeg's pictures from there on. Before the recovery point, whose
// access unit repeats the parameter sets, nothing can be decoded.
TEST(H264DamagedStream, AStreamJoinedAtARecoveryPointShowsPicturesOnceTheyAreRight) {
  REQUIRE_FFMPEG();
  const SmClip clip = MakeClip("cabac=1:bframes=0:keyint=8:intra-refresh=1", 30);
  ASSERT_EQ(clip.pictures.size(), 30u);
  // From the middle of the first refresh period.
  const std::vector<AccessUnit> joined(clip.accessUnits.begin() + 5, clip.accessUnits.end());
  const Frames ours = Decode(joined);
  ASSERT_GE(ours.size(), 12u);
  ASSERT_LT(ours.size(), 22u) << "the pictures before recovery stay hidden";
  for (size_t f = 0; f < ours.size(); ++f) {
    EXPECT_EQ(ours[f], clip.pictures[30 - ours.size() + f]) << "picture " << f;
  }
}
