// MPEG-4 pictures of odd width or height. ffmpeg's encoder only makes even
// sizes, so the streams here are even ones whose video object layer header
// is rewritten to one sample less: the macroblock count stays, and ffmpeg
// decodes them cropped. H.263 has no odd sizes to test: its custom picture
// format counts in steps of four.

#include <gtest/gtest.h>

#include "MPEG4/ClipSupport.h"
#include "MediaProcessing/Image/Image.h"
#include "MediaProcessing/Video/MPEG4/VideoDecoderMPEG4.h"

using namespace NmMPEG4Test;
using namespace NmMediaProcessing;
using NmTestSupport::CmTempDirectory;

namespace {

// Bits of a byte string, most significant first, read and overwritten in
// place.
class CmBitCursor {
public:
  CmBitCursor(std::vector<uint8_t>& bytes, size_t byte) : m_Bytes(bytes), m_Bit(byte * 8) {}
  uint32_t Read(int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i, ++m_Bit) {
      value = value << 1 | ((m_Bytes.at(m_Bit / 8) >> (7 - m_Bit % 8)) & 1);
    }
    return value;
  }
  void Write(uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i, ++m_Bit) {
      const uint8_t mask = static_cast<uint8_t>(0x80 >> (m_Bit % 8));
      m_Bytes.at(m_Bit / 8) = static_cast<uint8_t>(((value >> i) & 1) ? m_Bytes[m_Bit / 8] | mask
                                                                      : m_Bytes[m_Bit / 8] & ~mask);
    }
  }

private:
  std::vector<uint8_t>& m_Bytes;
  size_t m_Bit;
};

// Rewrites the size in every video object layer header of a rectangular
// MPEG-4 elementary stream (ISO/IEC 14496-2, 6.2.3; the encoder repeats the
// header before each intra picture). False when there is none.
bool SetLayerSize(std::vector<uint8_t>& stream, uint32_t width, uint32_t height) {
  bool found = false;
  for (size_t at = 0; at + 4 < stream.size(); ++at) {
    if (stream[at] != 0 || stream[at + 1] != 0 || stream[at + 2] != 1 ||
        (stream[at + 3] & 0xF0) != 0x20) {
      continue;
    }
    CmBitCursor bits(stream, at + 4);
    bits.Read(1 + 8); // random_accessible_vol, video_object_type_indication
    if (bits.Read(1) != 0) {
      bits.Read(4 + 3); // verid, priority
    }
    if (bits.Read(4) == 15) {
      bits.Read(16); // extended pixel aspect ratio
    }
    if (bits.Read(1) != 0) {
      bits.Read(2 + 1); // chroma_format, low_delay
      if (bits.Read(1) != 0) {
        bits.Read(79); // vbv parameters with their markers
      }
    }
    if (bits.Read(2) != 0) {
      return false; // not rectangular
    }
    bits.Read(1);
    uint32_t resolution = bits.Read(16);
    bits.Read(1);
    if (bits.Read(1) != 0) {
      int length = 1;
      while ((1u << length) < resolution) {
        ++length;
      }
      bits.Read(length); // fixed_vop_time_increment
    }
    bits.Read(1);
    bits.Write(width, 13);
    bits.Read(1);
    bits.Write(height, 13);
    found = true;
  }
  return found;
}

struct SmOddClip {
  std::string path;
  SmClip clip;
};

// A clip of the given size, made one sample wider and taller and then told
// to be this size.
SmOddClip MakeOddClip(const CmTempDirectory& dir, int width, int height) {
  SmOddClip odd;
  const std::string even = MakeClip(dir, "even.m4v", width + width % 2, height + height % 2, 8,
                                    "-c:v mpeg4 -bf 1 -g 4 -q:v 4 -f m4v");
  if (even.empty()) {
    return odd;
  }
  std::vector<uint8_t> stream = NmTestSupport::ReadBytes(even);
  if (!SetLayerSize(stream, static_cast<uint32_t>(width), static_cast<uint32_t>(height))) {
    return odd;
  }
  odd.path = dir / "odd.m4v";
  NmTestSupport::WriteBytes(odd.path, stream);
  odd.clip = Demux(odd.path);
  return odd;
}

// Every record fed as a toolkit feeds it, then the flush; the pictures that
// come out, or the first error raised.
struct SmOddDecode {
  std::vector<SmDecoded> pictures;
  std::string error;
  uint32_t code = 0;
};

SmOddDecode DecodeAll(const SmClip& clip, bool luminanceOnly) {
  CmVideoDecoderMPEG4 decoder;
  SmVideoDecodeParameters parameters = decoder.GetParameters();
  parameters.m_LuminanceOnly = luminanceOnly;
  decoder.SetParameters(parameters);
  SmOddDecode out;
  try {
    for (size_t i = 0; i <= clip.pictures.size(); ++i) {
      Feed(decoder, i < clip.pictures.size() ? &clip.pictures[i] : nullptr, static_cast<int32_t>(i),
           out.pictures);
    }
  } catch (const NmError::CmIntegrityError& error) {
    out.error = error.GetDescription();
    out.code = error.GetErrorCode();
  } catch (const NmError::CmError& error) {
    out.error = error.GetDescription();
  }
  return out;
}

TEST(MPEG4OddSize, EvenOnlyFormatsAreRefusedAndTheOthersDecodeAsFfmpeg) {
  for (const auto& [width, height] : {std::pair{95, 63}, {95, 64}, {96, 63}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    CmTempDirectory dir;
    const SmOddClip odd = MakeOddClip(dir, width, height);
    ASSERT_FALSE(odd.path.empty());
    const auto reference = ReferencePictures(dir, odd.path, width, height);
    ASSERT_EQ(reference.size(), 8u);
    ASSERT_EQ(odd.clip.pictures.size(), 8u);

    const SmOddDecode planar = DecodeAll(odd.clip, false);
    EXPECT_TRUE(planar.pictures.empty());
    EXPECT_EQ(planar.error,
              "The combination of image format and dimensions is not supported for MCL operations");
    EXPECT_EQ(planar.code, 3u);

    const SmOddDecode grey = DecodeAll(odd.clip, true);
    EXPECT_EQ(grey.error, "");
    ASSERT_EQ(grey.pictures.size(), reference.size());
    const size_t lumaSize = static_cast<size_t>(width * height);
    for (size_t f = 0; f < grey.pictures.size(); ++f) {
      const SmDecoded& picture = grey.pictures[f];
      EXPECT_EQ(picture.format, Gray);
      EXPECT_EQ(picture.width, static_cast<uint64_t>(width));
      EXPECT_EQ(picture.height, static_cast<uint64_t>(height));
      EXPECT_TRUE(
          std::equal(picture.samples.begin(), picture.samples.end(), reference[f].begin()) &&
          picture.samples.size() == lumaSize)
          << "picture " << f;
    }
  }
}

} // namespace
