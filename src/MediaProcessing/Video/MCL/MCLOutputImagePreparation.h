#pragma once

#include "MediaProcessing/Image/Image.h"

namespace NmMediaProcessing {

// Readies the caller's image for an MCL decoder to write into, and puts it
// back as it was unless a picture was delivered into it.
//
// The codecs write BGR only, so RGB24 and RGB32 images are relabelled to the
// BGR form they then receive. An image of any other format is set aside and
// the decoder allocates afresh; so is one whose time the codecs cannot carry
// (before 1970). The destructor restores, so that an exception leaves the
// caller's image untouched too.
class CmMCLOutputImagePreparation {
public:
  explicit CmMCLOutputImagePreparation(CmImage& image);
  ~CmMCLOutputImagePreparation();
  CmMCLOutputImagePreparation(const CmMCLOutputImagePreparation&) = delete;
  CmMCLOutputImagePreparation& operator=(const CmMCLOutputImagePreparation&) = delete;

  // A picture went into the image: keep it as it is now.
  void Keep() { m_Keep = true; }

private:
  CmImage& m_Image;
  CmImage m_Saved;
  bool m_HasSaved = false;
  // The format the image had before relabelling; ColorFormatNone if untouched.
  ColorFormat m_RelabelledFrom = ColorFormatNone;
  bool m_Keep = false;
};

} // namespace NmMediaProcessing
