#include <algorithm>

#include "Codecs/Primitives/H264IntraPrediction.h"

namespace NmPrimitives::NmReference {

namespace {

uint8_t Clip(int value) {
  return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

} // namespace

namespace {

// The samples around a block: p(x, -1) for x from -1 and p(-1, y) for y
// from 0, as the clauses name them.
struct SmEdge {
  int top[17]; // top[0] is p[-1,-1], top[1 + x] is p[x,-1]
  int left[16];
  int At(int x, int y) const { return y < 0 ? top[1 + x] : left[y]; }
};

SmEdge ReadEdge(const uint8_t* dst, ptrdiff_t stride, int size, const SmH264IntraNeighbours& n,
                int topCount) {
  SmEdge e{};
  if (n.hasCorner) {
    e.top[0] = dst[-stride - 1];
  }
  if (n.hasTop) {
    for (int x = 0; x < size; ++x) {
      e.top[1 + x] = dst[-stride + x];
    }
    for (int x = size; x < topCount; ++x) {
      e.top[1 + x] = n.hasTopRight ? dst[-stride + x] : dst[-stride + size - 1];
    }
  }
  if (n.hasLeft) {
    for (int y = 0; y < size; ++y) {
      e.left[y] = dst[y * stride - 1];
    }
  }
  return e;
}

template <typename F> void Fill(uint8_t* dst, ptrdiff_t stride, int size, F value) {
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      dst[y * stride + x] = static_cast<uint8_t>(value(x, y));
    }
  }
}

int Dc(const SmEdge& e, const SmH264IntraNeighbours& n, int size, int log2) {
  int sum = 0;
  if (n.hasTop && n.hasLeft) {
    for (int i = 0; i < size; ++i) {
      sum += e.top[1 + i] + e.left[i];
    }
    return (sum + size) >> (log2 + 1);
  }
  if (n.hasLeft || n.hasTop) {
    for (int i = 0; i < size; ++i) {
      sum += n.hasLeft ? e.left[i] : e.top[1 + i];
    }
    return (sum + size / 2) >> log2;
  }
  return 128;
}

// The directional modes 3 to 8 shared by 4x4 and 8x8 blocks (8.3.1.2.4 to
// 8.3.1.2.9, 8.3.2.2.5 to 8.3.2.2.10), on the (filtered) edge.
int Directional(const SmEdge& e, int mode, int x, int y, int size) {
  const auto p = [&e](int px, int py) { return e.At(px, py); };
  const int last = size - 1;
  switch (mode) {
  case 3: // diagonal down left
    if (x == last && y == last) {
      return (p(2 * last, -1) + 3 * p(2 * last + 1, -1) + 2) >> 2;
    }
    return (p(x + y, -1) + 2 * p(x + y + 1, -1) + p(x + y + 2, -1) + 2) >> 2;
  case 4: // diagonal down right
    if (x > y) {
      return (p(x - y - 2, -1) + 2 * p(x - y - 1, -1) + p(x - y, -1) + 2) >> 2;
    }
    if (x < y) {
      return (p(-1, y - x - 2) + 2 * p(-1, y - x - 1) + p(-1, y - x) + 2) >> 2;
    }
    return (p(0, -1) + 2 * p(-1, -1) + p(-1, 0) + 2) >> 2;
  case 5: { // vertical right
    const int z = 2 * x - y;
    if (z >= 0 && z % 2 == 0) {
      return (p(x - (y >> 1) - 1, -1) + p(x - (y >> 1), -1) + 1) >> 1;
    }
    if (z > 0) {
      return (p(x - (y >> 1) - 2, -1) + 2 * p(x - (y >> 1) - 1, -1) + p(x - (y >> 1), -1) + 2) >> 2;
    }
    if (z == -1) {
      return (p(-1, 0) + 2 * p(-1, -1) + p(0, -1) + 2) >> 2;
    }
    return (p(-1, y - 2 * x - 1) + 2 * p(-1, y - 2 * x - 2) + p(-1, y - 2 * x - 3) + 2) >> 2;
  }
  case 6: { // horizontal down
    const int z = 2 * y - x;
    if (z >= 0 && z % 2 == 0) {
      return (p(-1, y - (x >> 1) - 1) + p(-1, y - (x >> 1)) + 1) >> 1;
    }
    if (z > 0) {
      return (p(-1, y - (x >> 1) - 2) + 2 * p(-1, y - (x >> 1) - 1) + p(-1, y - (x >> 1)) + 2) >> 2;
    }
    if (z == -1) {
      return (p(-1, 0) + 2 * p(-1, -1) + p(0, -1) + 2) >> 2;
    }
    return (p(x - 2 * y - 1, -1) + 2 * p(x - 2 * y - 2, -1) + p(x - 2 * y - 3, -1) + 2) >> 2;
  }
  case 7: // vertical left
    if (y % 2 == 0) {
      return (p(x + (y >> 1), -1) + p(x + (y >> 1) + 1, -1) + 1) >> 1;
    }
    return (p(x + (y >> 1), -1) + 2 * p(x + (y >> 1) + 1, -1) + p(x + (y >> 1) + 2, -1) + 2) >> 2;
  default: { // 8, horizontal up
    const int z = x + 2 * y;
    const int limit = 2 * last - 1; // 5 for 4x4, 13 for 8x8
    if (z < limit && z % 2 == 0) {
      return (p(-1, y + (x >> 1)) + p(-1, y + (x >> 1) + 1) + 1) >> 1;
    }
    if (z < limit) {
      return (p(-1, y + (x >> 1)) + 2 * p(-1, y + (x >> 1) + 1) + p(-1, y + (x >> 1) + 2) + 2) >> 2;
    }
    if (z == limit) {
      return (p(-1, last - 1) + 3 * p(-1, last) + 2) >> 2;
    }
    return p(-1, last);
  }
  }
}

} // namespace

void H264PredictIntra4x4(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  const SmEdge e = ReadEdge(dst, stride, 4, n, 8);
  switch (mode) {
  case 0:
    Fill(dst, stride, 4, [&](int x, int) { return e.top[1 + x]; });
    return;
  case 1:
    Fill(dst, stride, 4, [&](int, int y) { return e.left[y]; });
    return;
  case 2: {
    const int dc = Dc(e, n, 4, 2);
    Fill(dst, stride, 4, [&](int, int) { return dc; });
    return;
  }
  default:
    Fill(dst, stride, 4, [&](int x, int y) { return Directional(e, mode, x, y, 4); });
    return;
  }
}

void H264PredictIntra8x8(uint8_t* dst, ptrdiff_t stride, int mode, const SmH264IntraNeighbours& n) {
  const SmEdge raw = ReadEdge(dst, stride, 8, n, 16);
  // Reference sample filtering (8.3.2.2.1).
  SmEdge e = raw;
  const auto t = [&raw](int x) { return raw.top[1 + x]; };
  if (n.hasTop) {
    e.top[1] = n.hasCorner ? (raw.top[0] + 2 * t(0) + t(1) + 2) >> 2 : (3 * t(0) + t(1) + 2) >> 2;
    for (int x = 1; x < 15; ++x) {
      e.top[1 + x] = (t(x - 1) + 2 * t(x) + t(x + 1) + 2) >> 2;
    }
    e.top[16] = (t(14) + 3 * t(15) + 2) >> 2;
  }
  if (n.hasCorner) {
    if (n.hasTop && n.hasLeft) {
      e.top[0] = (t(0) + 2 * raw.top[0] + raw.left[0] + 2) >> 2;
    } else if (n.hasTop) {
      e.top[0] = (3 * raw.top[0] + t(0) + 2) >> 2;
    } else if (n.hasLeft) {
      e.top[0] = (3 * raw.top[0] + raw.left[0] + 2) >> 2;
    }
  }
  if (n.hasLeft) {
    e.left[0] = n.hasCorner ? (raw.top[0] + 2 * raw.left[0] + raw.left[1] + 2) >> 2
                            : (3 * raw.left[0] + raw.left[1] + 2) >> 2;
    for (int y = 1; y < 7; ++y) {
      e.left[y] = (raw.left[y - 1] + 2 * raw.left[y] + raw.left[y + 1] + 2) >> 2;
    }
    e.left[7] = (raw.left[6] + 3 * raw.left[7] + 2) >> 2;
  }
  switch (mode) {
  case 0:
    Fill(dst, stride, 8, [&](int x, int) { return e.top[1 + x]; });
    return;
  case 1:
    Fill(dst, stride, 8, [&](int, int y) { return e.left[y]; });
    return;
  case 2: {
    const int dc = Dc(e, n, 8, 3);
    Fill(dst, stride, 8, [&](int, int) { return dc; });
    return;
  }
  default:
    Fill(dst, stride, 8, [&](int x, int y) { return Directional(e, mode, x, y, 8); });
    return;
  }
}

void H264PredictIntra16x16(uint8_t* dst, ptrdiff_t stride, int mode,
                           const SmH264IntraNeighbours& n) {
  const SmEdge e = ReadEdge(dst, stride, 16, n, 16);
  switch (mode) {
  case 0:
    Fill(dst, stride, 16, [&](int x, int) { return e.top[1 + x]; });
    return;
  case 1:
    Fill(dst, stride, 16, [&](int, int y) { return e.left[y]; });
    return;
  case 2: {
    const int dc = Dc(e, n, 16, 4);
    Fill(dst, stride, 16, [&](int, int) { return dc; });
    return;
  }
  default: {
    int h = 0, v = 0;
    for (int i = 0; i < 8; ++i) {
      h += (i + 1) * (e.At(8 + i, -1) - e.At(6 - i, -1));
      v += (i + 1) * (e.At(-1, 8 + i) - e.At(-1, 6 - i));
    }
    const int a = 16 * (e.At(-1, 15) + e.At(15, -1));
    const int b = (5 * h + 32) >> 6;
    const int c = (5 * v + 32) >> 6;
    Fill(dst, stride, 16,
         [&](int x, int y) { return Clip((a + b * (x - 7) + c * (y - 7) + 16) >> 5); });
    return;
  }
  }
}

void H264PredictIntraChroma8x8(uint8_t* dst, ptrdiff_t stride, int mode,
                               const SmH264IntraNeighbours& n) {
  const SmEdge e = ReadEdge(dst, stride, 8, n, 8);
  switch (mode) {
  case 0: { // DC per 4x4 block (8.3.4.1 to 8.3.4.3)
    for (int by = 0; by < 2; ++by) {
      for (int bx = 0; bx < 2; ++bx) {
        int top = 0, left = 0;
        for (int i = 0; i < 4; ++i) {
          top += e.top[1 + 4 * bx + i];
          left += e.left[4 * by + i];
        }
        int dc = 128;
        const bool corner = (bx == 0) == (by == 0);
        if (corner) {
          if (n.hasTop && n.hasLeft) {
            dc = (top + left + 4) >> 3;
          } else if (n.hasLeft) {
            dc = (left + 2) >> 2;
          } else if (n.hasTop) {
            dc = (top + 2) >> 2;
          }
        } else if (bx > 0) {
          if (n.hasTop) {
            dc = (top + 2) >> 2;
          } else if (n.hasLeft) {
            dc = (left + 2) >> 2;
          }
        } else {
          if (n.hasLeft) {
            dc = (left + 2) >> 2;
          } else if (n.hasTop) {
            dc = (top + 2) >> 2;
          }
        }
        Fill(dst + 4 * by * stride + 4 * bx, stride, 4, [&](int, int) { return dc; });
      }
    }
    return;
  }
  case 1:
    Fill(dst, stride, 8, [&](int, int y) { return e.left[y]; });
    return;
  case 2:
    Fill(dst, stride, 8, [&](int x, int) { return e.top[1 + x]; });
    return;
  default: {
    int h = 0, v = 0;
    for (int i = 0; i < 4; ++i) {
      h += (i + 1) * (e.At(4 + i, -1) - e.At(2 - i, -1));
      v += (i + 1) * (e.At(-1, 4 + i) - e.At(-1, 2 - i));
    }
    const int a = 16 * (e.At(-1, 7) + e.At(7, -1));
    const int b = (34 * h + 32) >> 6;
    const int c = (34 * v + 32) >> 6;
    Fill(dst, stride, 8,
         [&](int x, int y) { return Clip((a + b * (x - 3) + c * (y - 3) + 16) >> 5); });
    return;
  }
  }
}

} // namespace NmPrimitives::NmReference
