#include "MediaProcessing/Video/MCL/MCLOutputImagePreparation.h"

namespace NmMediaProcessing {

CmMCLOutputImagePreparation::CmMCLOutputImagePreparation(CmImage& image) : m_Image(image) {
  // A reader of a shared copy must never see the decoder's writes.
  m_Image.ReleaseIfShared();
  const bool before1970 = m_Image.GetAttributes().timeStamp.GetMilliseconds() < 0;
  if (m_Image.IsValid()) {
    const ColorFormat format = m_Image.GetColorFormat();
    if ((format == RGB24 || format == RGB32) && !before1970) {
      m_Image.Allocator().ReinterpretFormat(format == RGB24 ? BGR24 : BGR32);
      m_RelabelledFrom = format;
    } else {
      m_Saved = m_Image;
      m_HasSaved = true;
      m_Image.Reset();
    }
  } else if (before1970) {
    m_Image.GetAttributes().timeStamp = NmTimeStamp::CmTimeStamp();
  }
}

CmMCLOutputImagePreparation::~CmMCLOutputImagePreparation() {
  if (m_Keep) {
    return;
  }
  if (m_HasSaved) {
    m_Image = m_Saved;
    m_Saved.Reset();
  } else if (m_RelabelledFrom != ColorFormatNone && m_Image.IsValid()) {
    const ColorFormat now = m_Image.GetColorFormat();
    if ((m_RelabelledFrom == RGB24 && now == BGR24) ||
        (m_RelabelledFrom == RGB32 && now == BGR32)) {
      m_Image.Allocator().ReinterpretFormat(m_RelabelledFrom);
    }
  }
}

} // namespace NmMediaProcessing
