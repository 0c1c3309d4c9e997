#pragma once

#include <memory>

#include "Codecs/MCL/VideoDecoder.h"

namespace MCL {

// A video decoder whose picture decoding is libavcodec's, speaking the MCL
// calling pattern and statuses. libavcodec stays behind the private state so
// that nothing of it reaches the headers of the rest of the library.
//
// Pictures leave with the earliest input time still waiting, not with
// libavcodec's reordered time stamps: records are stored in decoding order,
// each carrying the n-th smallest presentation time, so the n-th picture out
// is the one that owns the n-th smallest time.
class LibavVideoDecoder : public VideoDecoder {
public:
  ~LibavVideoDecoder() override;

  Status Init(BaseCodecParams* params) override;
  // Takes the whole input as one coded picture (with any headers in front)
  // and hands the next picture that may leave to the post-processing stage:
  // 0 with a picture, -996 without. A null input flushes; the input stays
  // unconsumed while libavcodec has pictures to give out first.
  Status GetFrame(MediaData* input, MediaData* output) override;
  // The coded size of the latest picture headers seen.
  Status GetInfo(BaseCodecParams* params) override;
  Status Close() override;
  Status Reset() override;

protected:
  enum class Engine { MPEG4, H263 };
  explicit LibavVideoDecoder(Engine engine);

private:
  struct State;
  Status Feed(const uint8_t* data, size_t size, double time, int32_t frameId);
  Status Deliver(MediaData* output);
  void DropTimesOfDroppedPictures();

  Engine m_Engine;
  std::unique_ptr<State> m_State;
};

} // namespace MCL
