#include "MediaProcessing/Video/SmartVideoDecoderPointer.h"

#include "Common/Error/Error.h"
#include "Common/Error/Precondition.h"

namespace NmMediaProcessing {

CmSmartVideoDecoderPointer::CmSmartVideoDecoderPointer()
    : CmSmartVideoDecoderPointer(&CmVideoFactory::CreateFromCodec) {}

CmSmartVideoDecoderPointer::CmSmartVideoDecoderPointer(CmVideoFactoryMaker makeFactory)
    : m_MakeFactory(std::move(makeFactory)) {}

void CmSmartVideoDecoderPointer::SetCodec(uint32_t codec) {
  const std::unique_ptr<ImVideoFactory> factory = m_MakeFactory(codec);
  std::unique_ptr<ImVideoDecoder> decoder(factory->CreateDecoder());
  VZK_REQUIRE(decoder, "No codec pointer has been set",
              NmError::CmIntegrityErrorCode::InvalidPointer);
  m_Decoder = std::move(decoder);
  m_Codec = codec;
}

ImVideoDecoder* CmSmartVideoDecoderPointer::operator->() const {
  VZK_REQUIRE(m_Decoder, "No codec pointer has been set",
              NmError::CmIntegrityErrorCode::InvalidPointer);
  return m_Decoder.get();
}

bool CmSmartVideoDecoderPointer::NeedsCodecUpdate(uint32_t codec) const {
  VZK_REQUIRE(codec != 0, "Unknown codec type", NmError::CmIntegrityErrorCode::InvalidArgument);
  return codec != m_Codec;
}

void CmSmartVideoDecoderPointer::Clear() {
  m_Decoder.reset();
  m_Codec = 0;
}

} // namespace NmMediaProcessing
