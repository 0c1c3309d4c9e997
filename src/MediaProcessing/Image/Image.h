#pragma once

#include <memory>

#include "MediaProcessing/Image/BaseImage.h"
#include "MediaProcessing/Image/ImageAttributes.h"

namespace NmMediaProcessing {

// The image of the media layer: planes plus the attributes that say how to
// read them.
class CmImage : public CmBaseImage {
public:
  CmImage() = default;
  explicit CmImage(std::unique_ptr<ImImageMemoryAllocation> allocator);
  CmImage(const CmImage& other);
  CmImage& operator=(const CmImage& other);
  ~CmImage() override;

  void Reset() override;

  CmStandardImageAttributes& GetAttributes() { return m_Attributes; }
  const CmStandardImageAttributes& GetAttributes() const { return m_Attributes; }
  // Extended attributes are owned by the image and cloned on copy.
  const ImImageAttributes* GetExtendedAttributes() const { return m_ExtendedAttributes.get(); }
  void SetExtendedAttributes(std::unique_ptr<ImImageAttributes> attributes);
  // All attributes; the colour format is the allocator's and is not touched.
  void CopyAttributes(const CmImage& other);

  // The temporally first field goes to firstField, the other to secondField.
  void SplitFields(CmImage& firstField, CmImage& secondField) const;

private:
  CmStandardImageAttributes m_Attributes;
  std::unique_ptr<ImImageAttributes> m_ExtendedAttributes;
};

} // namespace NmMediaProcessing
