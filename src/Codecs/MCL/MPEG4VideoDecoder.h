#pragma once

#include "Codecs/MCL/LibavVideoDecoder.h"

namespace MCL {

// MPEG-4 Part 2 video (Simple and Advanced Simple profiles, with B-VOPs,
// quarter-pel, global motion compensation and interlace).
class MPEG4VideoDecoder : public LibavVideoDecoder {
public:
  MPEG4VideoDecoder() : LibavVideoDecoder(Engine::MPEG4) {}
};

} // namespace MCL
