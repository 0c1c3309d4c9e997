#include "MediaProcessing/Video/GenericVideoDecoder.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"
#include "MediaProcessing/GenericByteData/RawVideoByteDataAccess.h"
#include "MediaProcessing/Image/ImageRotate90Right.h"

namespace NmMediaProcessing {

namespace {

const NmTimeStamp::CmTimeStamp WireZero;

bool IsSplittable(Interlacing interlacing) {
  return interlacing == InterleavedTopFirst || interlacing == InterleavedBottomFirst ||
         interlacing == SeparateTopFirst || interlacing == SeparateBottomFirst;
}

} // namespace

CmGenericVideoDecoder::CmGenericVideoDecoder() {
  m_FrameTracker.Reset();
}

CmGenericVideoDecoder::CmGenericVideoDecoder(CmVideoFactoryMaker makeFactory)
    : m_Decoder(std::move(makeFactory)) {
  m_FrameTracker.Reset();
}

CmGenericVideoDecoder::~CmGenericVideoDecoder() = default;

void CmGenericVideoDecoder::Reset() {
  m_FrameTracker.Reset();
  m_CurrentImageId = 0;
  m_ImageIndex = 0;
  m_ExtrapolationBase = 0;
  m_ExtrapolationTime = WireZero;
  m_CallAgain = false;
  m_PendingField.Reset();
  if (m_Decoder.IsSet()) {
    m_Decoder->Reset();
  }
  const SmVideoDecodeParameters parameters = m_Parameters;
  SetParameters(parameters);
}

void CmGenericVideoDecoder::SetParameters(const SmVideoDecodeParameters& parameters) {
  m_Parameters = parameters;
  if (m_Parameters.m_DecodeMode == SmVideoDecodeParameters::DecodeSyncFramesOnly) {
    m_Parameters.m_LowDelay = true;
  }
  if (m_Decoder.IsSet()) {
    m_Decoder->SetParameters(m_Parameters);
  }
}

NmTimeStamp::CmTimeStamp CmGenericVideoDecoder::PrepareFrame(const CmRawVideoByteDataAccess& view) {
  if (!m_CallAgain) {
    m_CurrentImageId = m_FrameTracker.GetNewId(view);
    m_ImageIndex = 0;
    m_ExtrapolationBase = 0;
    return view.GetTime();
  }
  // The same source once more: the next image of a block takes the block's
  // time for it; beyond the block's own times, one millisecond after the last
  // time known for each further image.
  m_CurrentImageId = m_FrameTracker.GetContinuationId();
  const uint64_t count = view.GetImageCount();
  if (m_ImageIndex < count) {
    NmTimeStamp::CmTimeStamp time;
    if (view.GetTimeStampForImage(m_ImageIndex, time)) {
      return time;
    }
    m_ExtrapolationBase = 1;
    m_ExtrapolationTime = view.GetTime();
  } else if (m_ImageIndex == count) {
    m_ExtrapolationBase = count;
    NmTimeStamp::CmTimeStamp last;
    m_ExtrapolationTime =
        count > 0 && view.GetTimeStampForImage(count - 1, last) ? last : view.GetTime();
  }
  const int64_t step =
      static_cast<int64_t>(m_ImageIndex) - static_cast<int64_t>(m_ExtrapolationBase) + 1;
  return m_ExtrapolationTime + NmTimeStamp::CmTimeSpan::FromMilliseconds(step);
}

bool CmGenericVideoDecoder::Decode(const CmGenericByteData& source, CmImage& image, bool& callAgain,
                                   bool& gotImage) {
  if (m_PendingField.IsValid()) {
    image = m_PendingField;
    m_PendingField.Reset();
    callAgain = m_CallAgain;
    gotImage = true;
    return true;
  }
  callAgain = false;
  gotImage = false;
  SmVideoDecodeResult result;
  bool succeeded = true;
  bool clearTracker = false;

  if (source.IsEmpty()) {
    if (!m_Decoder.IsSet()) {
      m_CallAgain = false;
      return true;
    }
    succeeded = m_Decoder->Decode(nullptr, 0, 0, WireZero, image, result);
  } else {
    const CmRawVideoByteDataAccess view(source, false);
    VZK_REQUIRE(view.IsValid(), "Invalid source data for decoding",
                NmError::CmIntegrityErrorCode::InvalidArgument);
    bool drained = false;
    const bool codecChanged = m_Decoder.IsSet() && m_Decoder.NeedsCodecUpdate(view.GetCodec());
    if (codecChanged) {
      // The old codec may still hold frames; they come out first, and the
      // caller comes back with the same source until none is left.
      SmVideoDecodeResult drain;
      if (m_Decoder->Decode(nullptr, 0, 0, WireZero, image, drain) && drain.m_ImageProduced) {
        drain.m_CallAgain = true;
        result = drain;
        drained = true;
      }
    }
    if (!drained) {
      if (!m_Decoder.IsSet() || codecChanged) {
        m_Decoder.SetCodec(view.GetCodec());
        m_Decoder->SetParameters(m_Parameters);
        m_CallAgain = false;
      }
      const NmTimeStamp::CmTimeStamp time = PrepareFrame(view);
      succeeded = m_Decoder->Decode(view.GetData(), view.GetDataSize(), m_CurrentImageId, time,
                                    image, result);
      if (succeeded && result.m_ImageProduced && result.m_CallAgain &&
          m_Parameters.m_DecodeMode == SmVideoDecodeParameters::DecodeSyncFramesOnly) {
        // Only the sync frame is wanted: what the codec still holds for this
        // source is thrown away, and so nothing is left to call again for.
        m_Decoder->Reset();
        result.m_CallAgain = false;
        clearTracker = true;
      }
    }
  }

  if (!result.m_NothingConsumed) {
    ++m_ImageIndex;
  }
  callAgain = result.m_CallAgain;
  m_CallAgain = result.m_CallAgain;
  if (!succeeded) {
    return false;
  }
  if (!result.m_ImageProduced) {
    return true;
  }
  if (!image.IsValid()) {
    gotImage = false;
    return false;
  }
  gotImage = true;
  Deliver(image, result, callAgain);
  if (clearTracker) {
    m_FrameTracker.ClearFrames();
  }
  return true;
}

void CmGenericVideoDecoder::Deliver(CmImage& image, const SmVideoDecodeResult& result,
                                    bool& callAgain) {
  CmStandardImageAttributes attributes = image.GetAttributes();
  const bool known = m_FrameTracker.Apply(result.m_ImageId, attributes);
  if (!known || (m_ExtrapolationBase != 0 && attributes.timeStamp > m_ExtrapolationTime)) {
    // The time stamp is only an estimate.
    attributes.attribute3 = 1;
  }
  const uint32_t rotation = attributes.orientation.rotation;
  if (attributes.interlacing != Progressive && (rotation == 1 || rotation == 3)) {
    // Fields are rows of the upright picture; a picture stored on its side
    // must be turned before they mean anything.
    // The turn refuses interlaced pictures, so it sees a progressive one and
    // the interlacing comes back afterwards.
    const Interlacing interlacing = attributes.interlacing;
    image.GetAttributes() = attributes;
    image.GetAttributes().interlacing = Progressive;
    CmImageRotate90Right().Execute(image);
    attributes = image.GetAttributes();
    attributes.orientation = attributes.orientation.GetNormalForm();
    attributes.interlacing = interlacing;
  }
  image.GetAttributes() = attributes;

  if (m_Parameters.m_SplitFields && IsSplittable(attributes.interlacing)) {
    CmImage first;
    CmImage second;
    image.SplitFields(first, second);
    image = first;
    m_PendingField = second;
    callAgain = true;
  }
}

} // namespace NmMediaProcessing
