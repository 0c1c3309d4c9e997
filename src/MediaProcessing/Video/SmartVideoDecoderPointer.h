#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "MediaProcessing/Video/VideoDecoder.h"
#include "MediaProcessing/Video/VideoFactory.h"

namespace NmMediaProcessing {

// Where codec decoders come from: CmVideoFactory::CreateFromCodec, or a
// stand-in that a test scripts.
using CmVideoFactoryMaker = std::function<std::unique_ptr<ImVideoFactory>(uint32_t codec)>;

// Owns the codec decoder of the codec value now in use.
class CmSmartVideoDecoderPointer {
public:
  CmSmartVideoDecoderPointer();
  explicit CmSmartVideoDecoderPointer(CmVideoFactoryMaker makeFactory);

  // Makes the decoder of the codec's family and only then lets the old one go,
  // so that a codec that cannot be made leaves the present decoder in place.
  void SetCodec(uint32_t codec);
  // Raises an integrity error (code 1) when no decoder is set.
  ImVideoDecoder* operator->() const;
  // Raises an integrity error (code 2) for codec 0. Only the value counts: two
  // values of one family still call for a new decoder.
  bool NeedsCodecUpdate(uint32_t codec) const;
  bool IsSet() const { return m_Decoder != nullptr; }
  uint32_t GetCodec() const { return m_Codec; }
  void Clear();

private:
  CmVideoFactoryMaker m_MakeFactory;
  std::unique_ptr<ImVideoDecoder> m_Decoder;
  uint32_t m_Codec = 0;
};

} // namespace NmMediaProcessing
