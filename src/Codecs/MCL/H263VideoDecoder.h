#pragma once

#include "Codecs/MCL/LibavVideoDecoder.h"

namespace MCL {

// H.263 baseline and H.263+ (version 2) with its optional annexes.
class H263VideoDecoder : public LibavVideoDecoder {
public:
  H263VideoDecoder() : LibavVideoDecoder(Engine::H263) {}
};

} // namespace MCL
