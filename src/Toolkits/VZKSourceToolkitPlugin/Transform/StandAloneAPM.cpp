#include "Toolkits/VZKSourceToolkitPlugin/Transform/StandAloneAPM.h"

#include "Common/Error/Error.h"
#include "MediaProcessing/Image/ColorMaskingOverlay.h"

namespace NmToolkit {

using NmMediaProcessing::CmImage;
using NmMediaProcessing::ImImageTransformation;

namespace {

// Stands in for the overlay of a mask text that could not be read: hiding
// the whole picture is the only safe reading of a mask nobody understands.
class CmUnreadableMask
    : public NmMediaProcessing::CmBaseImageTransformation<ImImageTransformation> {
public:
  explicit CmUnreadableMask(std::string text) : m_Text(std::move(text)) {}

  using CmBaseImageTransformation::Execute;
  void Execute(const CmImage&, CmImage& destination) override {
    destination.Reset();
    throw NmError::CmIntegrityError(VZK_LOCATION,
                                    "Privacy mask is not readable: \"" + m_Text + "\"",
                                    NmError::CmIntegrityErrorCode::InvalidArgument);
  }
  ImImageTransformation* Clone() const override { return new CmUnreadableMask(*this); }

private:
  std::string m_Text;
};

// Enough of a bad text to recognise it in a message, however long it was.
std::string Excerpt(const std::string& text) {
  constexpr size_t Limit = 64;
  return text.size() <= Limit ? text : text.substr(0, Limit) + "...";
}

} // namespace

CmStandAloneAPM::CmStandAloneAPM(uint8_t red, uint8_t green, uint8_t blue)
    : m_Overlay(m_OwnOverlay), m_Red(red), m_Green(green), m_Blue(blue) {}

CmStandAloneAPM::CmStandAloneAPM(std::unique_ptr<ImImageTransformation>& overlaySlot, uint8_t red,
                                 uint8_t green, uint8_t blue)
    : m_Overlay(overlaySlot), m_Red(red), m_Green(green), m_Blue(blue) {
  m_Overlay.reset();
}

void CmStandAloneAPM::SetMask(const std::string& text) {
  if (m_Overlay && text == m_MaskText) {
    return;
  }
  m_Overlay.reset();
  m_MaskDefinition.reset();
  // Stored before anything can fail, so that the same bad text is not parsed
  // again for every item.
  m_MaskText = text;
  if (text.empty()) {
    return;
  }
  const auto repository = NmMediaProcessing::ParseMaskString(text);
  if (!repository) {
    m_Overlay = std::make_unique<CmUnreadableMask>(Excerpt(text));
    return;
  }
  NmMediaProcessing::CmTimeSpan span;
  repository->GetMaskAt(NmTimeStamp::CmTimeStamp(), true, m_MaskDefinition, span);
  m_Overlay = std::make_unique<NmMediaProcessing::CmColorMaskingOverlay>(*repository, m_Red,
                                                                         m_Green, m_Blue);
}

void CmStandAloneAPM::Apply(CmImage& image) {
  if (m_Overlay) {
    m_Overlay->Execute(image);
  }
}

} // namespace NmToolkit
