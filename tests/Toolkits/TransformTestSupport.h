#pragma once

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "PicturePattern.h"
#include "Toolkits/ToolkitTestSupport.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "vzk/vzk.h"

// Chains of transform toolkits over the picture and scripted test sources.
namespace NmToolkitTest {

// One picture of the "pictures" source.
struct SmPicture {
  uint32_t format;
  uint32_t width;
  uint32_t height;
  int64_t time;
  uint32_t seed;
  uint32_t padding = 0;
  uint32_t interlacing = 0;
  std::string mask = "";
  bool broken = false;
  bool hasMask = false;
};

inline SmPicture WithMask(SmPicture picture, const std::string& mask) {
  picture.mask = mask;
  picture.hasMask = true;
  return picture;
}

// A picture that names planes it does not have.
inline SmPicture Broken(SmPicture picture) {
  picture.broken = true;
  return picture;
}

// Any upstream, as configuration text.
struct SmUpstream {
  std::string xml;
};

inline std::string PicturesToolkit(const std::vector<SmPicture>& pictures) {
  std::string config;
  for (const SmPicture& p : pictures) {
    config += "<picture format='" + std::to_string(p.format) + "' width='" +
              std::to_string(p.width) + "' height='" + std::to_string(p.height) + "' time='" +
              std::to_string(p.time) + "' seed='" + std::to_string(p.seed) + "' padding='" +
              std::to_string(p.padding) + "' interlacing='" + std::to_string(p.interlacing) + "'" +
              (p.hasMask ? " mask='" + p.mask + "'" : std::string()) +
              (p.broken ? " broken='1'" : "") + "/>";
  }
  return "<toolkit type='source'><provider>pictures</provider><config>" + config +
         "</config></toolkit>";
}

// The scripted source's default items: the first is "a" at 1000.
inline SmUpstream ScriptedItems() {
  return {ScriptedToolkit()};
}

// A root over one transform element (name and keys, as "image_crop width='2'")
// over a source, connected.
class CmTransformChain {
public:
  CmTransformChain(const std::string& element, const std::vector<SmPicture>& pictures,
                   const NmToolkit::CmPropertyNameSet& requested = {})
      : CmTransformChain(SmUpstream{PicturesToolkit(pictures)}, element, requested) {}
  CmTransformChain(const SmUpstream& upstream, const std::string& element,
                   const NmToolkit::CmPropertyNameSet& requested = {})
      : m_Root(RootConfiguration("<" + element + ">" + upstream.xml + "</" +
                                 element.substr(0, element.find(' ')) + ">")
                   .c_str()) {
    EXPECT_TRUE(m_Root.IsConfigured()) << element;
    m_Root.Connect(requested, m_Supported, 0);
  }

  NmToolkit::CmVZKSourceToolkit& Root() { return m_Root; }

  // The first item, or the next one.
  std::unique_ptr<NmToolkit::ImData> Fetch(bool first = true) {
    EXPECT_EQ(first ? m_Root.MoveFirst() : m_Root.MoveNext(), NmToolkit::StatusSuccess);
    NmToolkit::ImData* raw = nullptr;
    EXPECT_EQ(m_Root.GetData(&raw), NmToolkit::StatusSuccess);
    return std::unique_ptr<NmToolkit::ImData>(raw);
  }

private:
  NmToolkit::CmVZKSourceToolkit m_Root;
  NmToolkit::CmPropertyNameSet m_Supported;
};

inline const NmToolkit::ImImage& AsImage(const std::unique_ptr<NmToolkit::ImData>& item) {
  const auto* image = dynamic_cast<const NmToolkit::ImImage*>(item.get());
  if (image == nullptr) {
    ADD_FAILURE() << "not a picture";
    throw std::runtime_error("not a picture");
  }
  return *image;
}

inline std::string Size(const std::unique_ptr<NmToolkit::ImData>& item) {
  const auto* image = dynamic_cast<const NmToolkit::ImImage*>(item.get());
  return image ? std::to_string(image->GetWidth()) + "x" + std::to_string(image->GetHeight())
               : "no picture";
}

// Byte `x` (counted in bytes) of row `y` of a plane.
inline uint8_t Byte(const NmToolkit::ImImage& image, uint32_t plane, uint32_t x, uint32_t y) {
  return image.GetPlanePointer(plane)[size_t{y} * image.GetPlaneStride(plane) + x];
}

// A JPEG decoded by libjpeg-turbo, as grey or RGB; empty when it does not decode.
struct SmDecoded {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> pixels;
};

inline SmDecoded Decode(const uint8_t* jpeg, size_t size, bool gray) {
  SmDecoded decoded;
  tjhandle handle = tjInitDecompress();
  int subsampling = 0;
  int colourspace = 0;
  if (tjDecompressHeader3(handle, jpeg, static_cast<unsigned long>(size), &decoded.width,
                          &decoded.height, &subsampling, &colourspace) == 0) {
    const int format = gray ? TJPF_GRAY : TJPF_RGB;
    decoded.pixels.resize(size_t(decoded.width) * decoded.height * tjPixelSize[format]);
    if (tjDecompress2(handle, jpeg, static_cast<unsigned long>(size), decoded.pixels.data(),
                      decoded.width, 0, decoded.height, format, TJFLAG_ACCURATEDCT) != 0) {
      decoded = SmDecoded();
    }
  }
  tjDestroy(handle);
  return decoded;
}

// The first JPEG element of an encoder's item, which must hold `expectedCount`.
inline const NmToolkit::ImMediaData* Element(const NmToolkit::ImData* item,
                                             size_t expectedCount = 1) {
  const auto* vector = dynamic_cast<const NmToolkit::ImMediaDataVector*>(item);
  EXPECT_NE(vector, nullptr);
  std::vector<NmToolkit::ImMediaData*> elements;
  if (vector != nullptr) {
    vector->GetElements(elements);
  }
  EXPECT_EQ(elements.size(), expectedCount);
  return elements.empty() ? nullptr : elements[0];
}

inline SmDecoded DecodeElement(const NmToolkit::ImData* item, bool gray) {
  const NmToolkit::ImMediaData* element = Element(item);
  return element ? Decode(element->GetPayloadPointer(), element->GetPayloadSize(), gray)
                 : SmDecoded();
}

// Bytes of plane 0 that differ from the source picture's pattern.
inline size_t ChangedBytes(const NmToolkit::ImImage& image, const SmPicture& source) {
  const auto shape =
      NmTestPictures::PlaneShapes(image.GetColorFormat(), image.GetWidth(), image.GetHeight())[0];
  size_t changed = 0;
  for (uint32_t y = 0; y < shape.height; ++y) {
    for (uint32_t x = 0; x < shape.width * shape.pixelStride; ++x) {
      changed += Byte(image, 0, x, y) != NmTestPictures::PatternByte(source.seed, 0, x, y);
    }
  }
  return changed;
}

// The first item of the chain is refused with the element's name.
inline void ExpectRefused(CmTransformChain& chain, const std::string& element) {
  ASSERT_EQ(chain.Root().MoveFirst(), NmToolkit::StatusSuccess);
  NmToolkit::ImData* raw = nullptr;
  try {
    chain.Root().GetData(&raw);
    delete raw;
    ADD_FAILURE() << element << " must refuse what is no picture";
  } catch (const NmToolkit::ImInvalidOperationError& error) {
    EXPECT_EQ(std::string(error.what()),
              "Operation " + element.substr(0, element.find(' ')) + " could not be performed!");
  }
}

} // namespace NmToolkitTest
