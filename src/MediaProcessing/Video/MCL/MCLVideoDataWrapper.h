#pragma once

#include "Codecs/MCL/VideoData.h"
#include "MediaProcessing/Image/Image.h"

namespace NmMediaProcessing {

// Describes one CmImage to the MCL codecs, so that they write straight into
// its planes. The image must outlive the wrapper.
class CmMCLVideoDataWrapper : public MCL::VideoData {
public:
  // With a valid image, its format, attributes and planes are taken at once.
  explicit CmMCLVideoDataWrapper(CmImage& image);

  CmImage& GetImage() { return m_Image; }
  const CmImage& GetImage() const { return m_Image; }

  // Size and format of the image; refuses formats and sizes the codecs cannot write.
  void SetImage(const CmImage& image);
  // Raises when an image of this format cannot have this size: 4:2:0 needs
  // both even, 4:2:2 an even width.
  static void CheckDimensions(ColorFormat format, uint64_t width, uint64_t height);
  // Picture structure, pixel aspect and time from the image's attributes.
  void SetAttributes(const CmStandardImageAttributes& attributes);
  // The same three, back into image attributes.
  void UpdateAttributes(CmStandardImageAttributes& attributes) const;
  // Points the planes at the image's memory; call again after it is reallocated.
  void BindPlanes();

  static MCL::ColorFormat ToMCLFormat(ColorFormat format);
  // BGR32 comes back as BGR32: the codecs never write an alpha channel.
  static ColorFormat FromMCLFormat(MCL::ColorFormat format);
  static MCL::PictureStructure ToPictureStructure(Interlacing interlacing);
  static Interlacing FromPictureStructure(MCL::PictureStructure structure);

private:
  CmImage& m_Image;
};

} // namespace NmMediaProcessing
