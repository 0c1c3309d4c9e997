#pragma once

#include <cstdint>

#include "Common/TimeStamp/TimeStamp.h"
#include "MediaProcessing/GenericByteData/GenericByteData.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/DecodedFrameTracker.h"
#include "MediaProcessing/Video/SmartVideoDecoderPointer.h"
#include "MediaProcessing/Video/VideoDecodeParameters.h"

namespace NmMediaProcessing {

// Decodes generic byte data of any video codec. It keeps one codec decoder as
// long as the codec stays the same, feeds it, and puts the attributes that
// the byte data carried (interlacing, orientation, time) on the image that
// leaves the codec, however many calls later that is.
//
// A call either takes a fresh source or, when the previous call set
// callAgain, wants the same source once more: the codec holds more output
// for it (the further images of a block, a codec being drained before a
// change, or the second field of a split image).
class CmGenericVideoDecoder {
public:
  CmGenericVideoDecoder();
  // Codec decoders come from the given maker instead of the codec factories.
  explicit CmGenericVideoDecoder(CmVideoFactoryMaker makeFactory);
  virtual ~CmGenericVideoDecoder();
  CmGenericVideoDecoder(const CmGenericVideoDecoder&) = delete;
  CmGenericVideoDecoder& operator=(const CmGenericVideoDecoder&) = delete;

  // An empty source flushes what the codec holds. False: the codec failed on
  // this input, and the caller may go on with the next. Raises for a record
  // that is no valid video and for a codec that cannot be made.
  virtual bool Decode(const CmGenericByteData& source, CmImage& image, bool& callAgain,
                      bool& gotImage);
  virtual void Reset();
  virtual const SmVideoDecodeParameters& GetParameters() const { return m_Parameters; }
  // Decoding sync frames only forces low delay: a reordering codec would
  // otherwise hold the only frame it is given.
  virtual void SetParameters(const SmVideoDecodeParameters& parameters);

  // The codec value of the present codec decoder, 0 without one.
  uint32_t GetCodec() const { return m_Decoder.IsSet() ? m_Decoder.GetCodec() : 0; }
  const CmDecodedFrameTracker& GetFrameTracker() const { return m_FrameTracker; }

protected:
  SmVideoDecodeParameters m_Parameters;
  CmSmartVideoDecoderPointer m_Decoder;
  CmDecodedFrameTracker m_FrameTracker;
  int32_t m_CurrentImageId = 0;
  uint64_t m_ImageIndex = 0;
  uint64_t m_ExtrapolationBase = 0;
  NmTimeStamp::CmTimeStamp m_ExtrapolationTime;
  bool m_CallAgain = false;
  CmImage m_PendingField;

private:
  // Chooses the id and time of the image the codec will be fed for.
  NmTimeStamp::CmTimeStamp PrepareFrame(const CmRawVideoByteDataAccess& view);
  // Puts the frame's attributes on a produced image, turns it upright if its
  // fields need that, and splits it into fields when asked to.
  void Deliver(CmImage& image, const SmVideoDecodeResult& result, bool& callAgain);
};

} // namespace NmMediaProcessing
