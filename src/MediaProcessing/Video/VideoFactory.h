#pragma once

#include <cstdint>
#include <memory>

#include "MediaProcessing/Video/VideoAnalyzer.h"
#include "MediaProcessing/Video/VideoDecoder.h"

namespace NmMediaProcessing {

// The stand-alone stream parser; only the H.264 family has one.
class ImVideoParser;

// Makes the decoder, the analyser and the parser of one codec family. The
// caller owns what is returned.
class ImVideoFactory {
public:
  virtual ~ImVideoFactory() = default;
  virtual ImVideoDecoder* CreateDecoder() = 0;
  virtual ImVideoAnalyzer* CreateAnalyzer() = 0;
  virtual ImVideoParser* CreateParser() = 0;
};

class CmVideoFactory {
public:
  // The factory of the family of a video codec value. Raises an integrity
  // error (code 1) for refused and unknown values.
  static std::unique_ptr<ImVideoFactory> CreateFromCodec(uint32_t codec);
};

} // namespace NmMediaProcessing
