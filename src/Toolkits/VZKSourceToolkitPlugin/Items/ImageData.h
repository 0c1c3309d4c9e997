#pragma once

#include "MediaProcessing/Image/Image.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/ToolkitProperties.h"

namespace NmToolkit {

// A decoded picture as an item: the image (its planes shared by count) and
// the properties that travel with it. Its time is the image's time stamp.
class CmImageData : public ImImage {
public:
  CmImageData(const NmMediaProcessing::CmImage& image,
              const CmVZKSourceToolkitProperties& properties);

  int64_t GetBeginTime() const override;
  int64_t GetEndTime() const override { return GetBeginTime(); }
  // A picture has no record bytes.
  size_t GetDataSize() const override { return 0; }
  const uint8_t* GetDataPointer() const override { return nullptr; }
  size_t GetPayloadSize() const override { return 0; }
  const uint8_t* GetPayloadPointer() const override { return nullptr; }
  const ImProperty* GetProperty(const std::string& name) const override {
    return m_Properties.GetProperty(name);
  }

  uint32_t GetColorFormat() const override;
  uint32_t GetInterlacing() const override;
  double GetPixelAspectRatio() const override;
  uint32_t GetWidth() const override;
  uint32_t GetHeight() const override;
  const uint8_t* GetPlanePointer(uint32_t plane) const override;
  uint32_t GetPlaneWidth(uint32_t plane) const override;
  uint32_t GetPlaneHeight(uint32_t plane) const override;
  uint32_t GetPlaneStride(uint32_t plane) const override;

  NmMediaProcessing::CmImage& GetImage() { return m_Image; }
  const NmMediaProcessing::CmImage& GetImage() const { return m_Image; }
  const CmVZKSourceToolkitProperties& GetProperties() const { return m_Properties; }

private:
  NmMediaProcessing::CmImage m_Image;
  CmVZKSourceToolkitProperties m_Properties;
};

} // namespace NmToolkit
