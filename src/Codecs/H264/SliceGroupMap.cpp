#include "Codecs/H264/SliceGroupMap.h"

#include <algorithm>

namespace NmH264 {

bool BuildSliceGroupMap(const SmSequenceParameterSet& sps, const SmPictureParameterSet& pps,
                        uint32_t changeCycle, std::vector<uint8_t>& map, SmMacroblockOrder order) {
  const int64_t w = sps.widthInMbs;
  const int64_t h = sps.heightInMapUnits;
  const int64_t units = w * h;
  const int64_t groups = pps.numSliceGroups;
  std::vector<uint8_t> unitMap(static_cast<size_t>(units), 0);
  const auto at = [&unitMap](int64_t i) -> uint8_t& { return unitMap[static_cast<size_t>(i)]; };
  const int64_t flag = pps.sliceGroupChangeDirection ? 1 : 0;
  const int64_t unitsInGroup0 =
      std::min<int64_t>(int64_t{changeCycle} * pps.sliceGroupChangeRate, units);
  const int64_t upperLeft = flag != 0 ? units - unitsInGroup0 : unitsInGroup0;
  switch (pps.sliceGroupMapType) {
  case 0: { // interleaved runs
    int64_t i = 0;
    do {
      for (int64_t group = 0; group < groups && i < units;
           i += pps.runLengthMinus1[static_cast<size_t>(group++)] + 1) {
        for (int64_t j = 0; j <= pps.runLengthMinus1[static_cast<size_t>(group)] && i + j < units;
             ++j) {
          at(i + j) = static_cast<uint8_t>(group);
        }
      }
    } while (i < units);
    break;
  }
  case 1: // dispersed
    for (int64_t i = 0; i < units; ++i) {
      at(i) = static_cast<uint8_t>(((i % w) + (((i / w) * groups) / 2)) % groups);
    }
    break;
  case 2: // foreground rectangles over a left-over group
    std::fill(unitMap.begin(), unitMap.end(), static_cast<uint8_t>(groups - 1));
    for (int64_t group = groups - 2; group >= 0; --group) {
      const int64_t topLeft = pps.topLeft[static_cast<size_t>(group)];
      const int64_t bottomRight = pps.bottomRight[static_cast<size_t>(group)];
      // The picture parameter set was checked against the sequence it came
      // with; a later sequence of another size may not hold its rectangles.
      if (bottomRight >= units || topLeft > bottomRight || topLeft % w > bottomRight % w) {
        return false;
      }
      for (int64_t y = topLeft / w; y <= bottomRight / w; ++y) {
        for (int64_t x = topLeft % w; x <= bottomRight % w; ++x) {
          at(y * w + x) = static_cast<uint8_t>(group);
        }
      }
    }
    break;
  case 3: { // box-out, a spiral from the centre
    std::fill(unitMap.begin(), unitMap.end(), uint8_t{1});
    int64_t x = (w - flag) / 2, y = (h - flag) / 2;
    int64_t left = x, top = y, right = x, bottom = y;
    int64_t xDir = flag - 1, yDir = flag;
    for (int64_t k = 0, vacant = 0; k < unitsInGroup0; k += vacant) {
      vacant = at(y * w + x) == 1 ? 1 : 0;
      if (vacant != 0) {
        at(y * w + x) = 0;
      }
      if (xDir == -1 && x == left) {
        left = std::max<int64_t>(left - 1, 0);
        x = left;
        xDir = 0;
        yDir = 2 * flag - 1;
      } else if (xDir == 1 && x == right) {
        right = std::min(right + 1, w - 1);
        x = right;
        xDir = 0;
        yDir = 1 - 2 * flag;
      } else if (yDir == -1 && y == top) {
        top = std::max<int64_t>(top - 1, 0);
        y = top;
        xDir = 1 - 2 * flag;
        yDir = 0;
      } else if (yDir == 1 && y == bottom) {
        bottom = std::min(bottom + 1, h - 1);
        y = bottom;
        xDir = 2 * flag - 1;
        yDir = 0;
      } else {
        x += xDir;
        y += yDir;
      }
    }
    break;
  }
  case 4: // raster scan
    for (int64_t i = 0; i < units; ++i) {
      at(i) = static_cast<uint8_t>(i < upperLeft ? flag : 1 - flag);
    }
    break;
  case 5: { // wipe, column by column
    int64_t k = 0;
    for (int64_t j = 0; j < w; ++j) {
      for (int64_t i = 0; i < h; ++i) {
        at(i * w + j) = static_cast<uint8_t>(k++ < upperLeft ? flag : 1 - flag);
      }
    }
    break;
  }
  default: // explicit
    if (static_cast<int64_t>(pps.sliceGroupId.size()) != units) {
      return false;
    }
    for (int64_t i = 0; i < units; ++i) {
      at(i) = pps.sliceGroupId[static_cast<size_t>(i)];
    }
    break;
  }
  // Map units to macroblocks: one each in frame-only sequences and in field
  // pictures, else a map unit spans a macroblock and the one below it, which
  // in a frame of pairs are the two of a pair.
  const bool oneEach = sps.frameMbsOnly || order == SmMacroblockOrder::Field;
  const int64_t mbs = oneEach ? units : w * sps.GetFrameHeightInMbs();
  map.resize(static_cast<size_t>(mbs));
  for (int64_t i = 0; i < mbs; ++i) {
    map[static_cast<size_t>(i)] = oneEach ? at(i)
                                  : order == SmMacroblockOrder::Pairs
                                      ? at(i / 2)
                                      : at((i / (2 * w)) * w + (i % w));
  }
  return true;
}

} // namespace NmH264
