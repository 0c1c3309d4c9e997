// A source plug-in for tests of hosts: it delivers decoded pictures (image
// items) as its configuration describes them, with rows padded beyond their
// width, in playback and in live mode.
//
//   <config><picture format="5" width="7" height="5" time="1000" seed="1"
//                    interlacing="0" aspect="1" padding="3" mask="2x1;10"
//                    broken="1"/>...</config>
//
// "mask" becomes the picture's "Privacy_Mask" when that is asked for at
// Connect; a "broken" picture names planes that it does not have.

#include <memory>
#include <string>
#include <vector>

#include "Common/Xerces/Xerces.h"
#include "PicturePattern.h"
#include "vzk/vzk.h"

using namespace NmToolkit;

namespace {

struct SmPictureScript {
  uint32_t format = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t interlacing = 0;
  double aspect = 1.0;
  int64_t time = 0;
  uint32_t seed = 0;
  uint32_t padding = 0;
  std::string mask;
  bool hasMask = false;
  bool broken = false;
};

class CmTextProperty : public ImStringProperty {
public:
  explicit CmTextProperty(std::string value) : m_Value(std::move(value)) {}
  ImProperty* Clone() const override { return new CmTextProperty(m_Value); }
  std::string GetValue() const override { return m_Value; }

private:
  std::string m_Value;
};

class CmPicture : public ImImage {
public:
  CmPicture(const SmPictureScript& script, bool withNumber, bool withMask, size_t number)
      : m_Script(script) {
    const auto shapes = NmTestPictures::PlaneShapes(script.format, script.width, script.height);
    for (uint32_t p = 0; p < shapes.size(); ++p) {
      const auto& shape = shapes[p];
      const uint32_t rowBytes = shape.width * shape.pixelStride;
      Plane plane{shape, rowBytes + script.padding, {}};
      plane.bytes.assign(size_t{plane.stride} * shape.height, NmTestPictures::PaddingByte);
      for (uint32_t y = 0; y < shape.height; ++y) {
        for (uint32_t x = 0; x < rowBytes; ++x) {
          plane.bytes[size_t{y} * plane.stride + x] =
              NmTestPictures::PatternByte(script.seed, p, x, y);
        }
      }
      m_Planes.push_back(std::move(plane));
    }
    if (withNumber) {
      m_Number = std::make_unique<CmTextProperty>(std::to_string(number));
    }
    if (withMask && script.hasMask) {
      m_Mask = std::make_unique<CmTextProperty>(script.mask);
    }
  }
  int64_t GetBeginTime() const override { return m_Script.time; }
  int64_t GetEndTime() const override { return m_Script.time; }
  size_t GetDataSize() const override { return 0; }
  const uint8_t* GetDataPointer() const override { return nullptr; }
  const ImProperty* GetProperty(const std::string& name) const override {
    if (name == NmPropertyNames::SequenceNumber) {
      return m_Number.get();
    }
    return name == NmPropertyNames::PrivacyMask ? m_Mask.get() : nullptr;
  }
  size_t GetPayloadSize() const override { return 0; }
  const uint8_t* GetPayloadPointer() const override { return nullptr; }
  uint32_t GetColorFormat() const override { return m_Script.format; }
  uint32_t GetInterlacing() const override { return m_Script.interlacing; }
  double GetPixelAspectRatio() const override { return m_Script.aspect; }
  uint32_t GetWidth() const override { return m_Script.width; }
  uint32_t GetHeight() const override { return m_Script.height; }
  const uint8_t* GetPlanePointer(uint32_t plane) const override {
    return plane < m_Planes.size() && !m_Script.broken ? m_Planes[plane].bytes.data() : nullptr;
  }
  uint32_t GetPlaneWidth(uint32_t plane) const override { return At(plane).shape.width; }
  uint32_t GetPlaneHeight(uint32_t plane) const override { return At(plane).shape.height; }
  uint32_t GetPlaneStride(uint32_t plane) const override { return At(plane).stride; }

private:
  struct Plane {
    NmTestPictures::SmPlaneShape shape{0, 0, 0};
    uint32_t stride = 0;
    std::vector<uint8_t> bytes;
  };
  // A plane this picture does not have is empty.
  const Plane& At(uint32_t plane) const {
    static const Plane none;
    return plane < m_Planes.size() ? m_Planes[plane] : none;
  }
  SmPictureScript m_Script;
  std::vector<Plane> m_Planes;
  std::unique_ptr<CmTextProperty> m_Number;
  std::unique_ptr<CmTextProperty> m_Mask;
};

class CmPictureSource : public ImPlaybackSourceToolkit, public ImLiveSourceToolkit {
public:
  explicit CmPictureSource(const char* xml) {
    const auto document = NmXerces::CmXmlWrapper::LoadXml(xml ? xml : "");
    const auto config = document->SelectSingleNode("/toolkit/config");
    if (!config) {
      return;
    }
    std::vector<NmXerces::CmXmlNodePtr> nodes;
    config->GetChildren(nodes);
    for (const auto& node : nodes) {
      SmPictureScript script;
      std::string aspect, broken;
      node->GetAttributeValue("format", script.format);
      node->GetAttributeValue("width", script.width);
      node->GetAttributeValue("height", script.height);
      node->GetAttributeValue("interlacing", script.interlacing);
      node->GetAttributeValue("time", script.time);
      node->GetAttributeValue("seed", script.seed);
      node->GetAttributeValue("padding", script.padding);
      if (node->GetAttributeValue("aspect", aspect)) {
        script.aspect = std::atof(aspect.c_str());
      }
      script.hasMask = node->GetAttributeValue("mask", script.mask);
      script.broken = node->GetAttributeValue("broken", broken) && broken == "1";
      m_Pictures.push_back(script);
    }
  }

  void Connect(const CmPropertyNameSet& requested, CmPropertyNameSet& supported,
               uint64_t) override {
    m_Numbered = requested.count(NmPropertyNames::SequenceNumber) != 0;
    if (m_Numbered) {
      supported.insert(NmPropertyNames::SequenceNumber);
    }
    m_Masked = requested.count(NmPropertyNames::PrivacyMask) != 0;
    if (m_Masked) {
      supported.insert(NmPropertyNames::PrivacyMask);
    }
  }
  void Connect(uint64_t argument) override {
    CmPropertyNameSet supported;
    Connect({}, supported, argument);
  }
  void Disconnect() override {}
  void UpdateValues(const CmKeyValueList&) override {}
  void UpdateValue(const std::string&, const std::string&) override {}

  void StartLiveStream() override { m_LivePosition = 0; }
  void StopLiveStream() override {}
  uint32_t GetLiveData(ImData** out, uint32_t) override {
    *out = nullptr;
    return m_LivePosition < m_Pictures.size() ? Deliver(m_LivePosition++, out) : StatusNoItem;
  }

  uint32_t MoveFirst() override { return MoveToIndex(0); }
  uint32_t MoveLast() override { return MoveToIndex(static_cast<long>(m_Pictures.size()) - 1); }
  uint32_t MoveNext() override { return MoveToIndex(m_Position + 1); }
  uint32_t MovePrevious() override { return MoveToIndex(m_Position - 1); }
  uint32_t MoveNextSequence() override { return StatusNoItem; }
  uint32_t MovePreviousSequence() override { return StatusNoItem; }
  uint32_t MoveTo(int64_t time, SmMoveMode) override {
    for (size_t i = 0; i < m_Pictures.size(); ++i) {
      if (m_Pictures[i].time >= time) {
        return MoveToIndex(static_cast<long>(i));
      }
    }
    return StatusNoItem;
  }
  uint32_t GetData(ImData** out) override {
    *out = nullptr;
    return m_Position < 0 ? StatusNoItem : Deliver(static_cast<size_t>(m_Position), out);
  }

private:
  uint32_t MoveToIndex(long index) {
    if (index < 0 || index >= static_cast<long>(m_Pictures.size())) {
      return StatusNoItem;
    }
    m_Position = index;
    return StatusSuccess;
  }
  uint32_t Deliver(size_t index, ImData** out) const {
    *out = new CmPicture(m_Pictures[index], m_Numbered, m_Masked, index + 1);
    return StatusSuccess;
  }

  std::vector<SmPictureScript> m_Pictures;
  bool m_Numbered = false;
  bool m_Masked = false;
  long m_Position = -1;
  size_t m_LivePosition = 0;
};

} // namespace

VZK_PLUGIN_EXPORT ImToolkit* CreateInstance(const char* xml) {
  try {
    return new CmPictureSource(xml);
  } catch (...) {
    return nullptr;
  }
}

VZK_PLUGIN_EXPORT void DeleteInstance(ImToolkit* toolkit) {
  delete toolkit;
}
