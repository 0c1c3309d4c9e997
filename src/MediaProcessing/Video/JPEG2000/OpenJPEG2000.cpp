#include "MediaProcessing/Video/JPEG2000/OpenJPEG2000.h"

#include <openjpeg.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "Common/Error/Error.h"

namespace NmMediaProcessing {

namespace {

// The library reads through callbacks; this is the memory they read from.
struct SmMemoryReader {
  const uint8_t* data;
  uint64_t size;
  uint64_t position;
};

OPJ_SIZE_T Read(void* buffer, OPJ_SIZE_T count, void* user) {
  auto* reader = static_cast<SmMemoryReader*>(user);
  const uint64_t left = reader->size - reader->position;
  if (left == 0) {
    return static_cast<OPJ_SIZE_T>(-1);
  }
  const uint64_t n = std::min<uint64_t>(left, count);
  std::memcpy(buffer, reader->data + reader->position, n);
  reader->position += n;
  return n;
}

OPJ_OFF_T Skip(OPJ_OFF_T count, void* user) {
  auto* reader = static_cast<SmMemoryReader*>(user);
  if (count < 0) {
    const uint64_t back = std::min<uint64_t>(reader->position, static_cast<uint64_t>(-count));
    reader->position -= back;
    return -static_cast<OPJ_OFF_T>(back);
  }
  const uint64_t n = std::min<uint64_t>(reader->size - reader->position, count);
  reader->position += n;
  return static_cast<OPJ_OFF_T>(n);
}

OPJ_BOOL Seek(OPJ_OFF_T position, void* user) {
  auto* reader = static_cast<SmMemoryReader*>(user);
  if (position < 0 || static_cast<uint64_t>(position) > reader->size) {
    return OPJ_FALSE;
  }
  reader->position = static_cast<uint64_t>(position);
  return OPJ_TRUE;
}

void KeepMessage(const char* message, void* user) {
  auto* text = static_cast<std::string*>(user);
  *text = message ? message : "";
  while (!text->empty() && text->back() == '\n') {
    text->pop_back();
  }
}

void IgnoreMessage(const char* /*message*/, void* /*user*/) {}

struct CmStreamDeleter {
  void operator()(opj_stream_t* stream) const { opj_stream_destroy(stream); }
};
struct CmCodecDeleter {
  void operator()(opj_codec_t* codec) const { opj_destroy_codec(codec); }
};
struct CmImageDeleter {
  void operator()(opj_image_t* image) const { opj_image_destroy(image); }
};

const uint8_t JP2Signature[12] = {0x00, 0x00, 0x00, 0x0C, 0x6A, 0x50,
                                  0x20, 0x20, 0x0D, 0x0A, 0x87, 0x0A};
const uint8_t J2KSignature[4] = {0xFF, 0x4F, 0xFF, 0x51};

// One decoding session over the data; everything it made goes with it.
class CmSession {
public:
  CmSession(const uint8_t* data, uint64_t size, std::string& message)
      : m_Reader{data, size, 0}, m_Message(message) {}

  bool ReadHeader() {
    OPJ_CODEC_FORMAT format;
    if (m_Reader.size >= sizeof JP2Signature &&
        std::memcmp(m_Reader.data, JP2Signature, sizeof JP2Signature) == 0) {
      format = OPJ_CODEC_JP2;
    } else if (m_Reader.size >= sizeof J2KSignature &&
               std::memcmp(m_Reader.data, J2KSignature, sizeof J2KSignature) == 0) {
      format = OPJ_CODEC_J2K;
    } else {
      m_Message = "Neither a JPEG 2000 codestream nor a JP2 file";
      return false;
    }
    m_Stream.reset(opj_stream_create(OPJ_J2K_STREAM_CHUNK_SIZE, OPJ_TRUE));
    m_Codec.reset(opj_create_decompress(format));
    if (!m_Stream || !m_Codec) {
      m_Message = "Out of memory";
      return false;
    }
    opj_stream_set_user_data(m_Stream.get(), &m_Reader, nullptr);
    opj_stream_set_user_data_length(m_Stream.get(), m_Reader.size);
    opj_stream_set_read_function(m_Stream.get(), Read);
    opj_stream_set_skip_function(m_Stream.get(), Skip);
    opj_stream_set_seek_function(m_Stream.get(), Seek);
    opj_set_error_handler(m_Codec.get(), KeepMessage, &m_Message);
    opj_set_warning_handler(m_Codec.get(), IgnoreMessage, nullptr);
    opj_set_info_handler(m_Codec.get(), IgnoreMessage, nullptr);
    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    if (!opj_setup_decoder(m_Codec.get(), &parameters)) {
      return false;
    }
    opj_image_t* image = nullptr;
    const bool read = opj_read_header(m_Stream.get(), m_Codec.get(), &image);
    m_Image.reset(image);
    if (!read || !m_Image || m_Image->numcomps == 0 || m_Image->x1 <= m_Image->x0 ||
        m_Image->y1 <= m_Image->y0) {
      if (m_Message.empty()) {
        m_Message = "No picture in the header";
      }
      return false;
    }
    const uint64_t pixels =
        uint64_t{m_Image->x1 - m_Image->x0} * uint64_t{m_Image->y1 - m_Image->y0};
    if (pixels > CmOpenJPEG2000::MaxPixelCount) {
      m_Message = "Picture too large";
      return false;
    }
    return true;
  }

  bool Decode() {
    if (!opj_decode(m_Codec.get(), m_Stream.get(), m_Image.get()) ||
        !opj_end_decompress(m_Codec.get(), m_Stream.get())) {
      if (m_Message.empty()) {
        m_Message = "Decoding failed";
      }
      return false;
    }
    return true;
  }

  const opj_image_t& GetImage() const { return *m_Image; }

private:
  SmMemoryReader m_Reader;
  std::string& m_Message;
  std::unique_ptr<opj_stream_t, CmStreamDeleter> m_Stream;
  std::unique_ptr<opj_codec_t, CmCodecDeleter> m_Codec;
  std::unique_ptr<opj_image_t, CmImageDeleter> m_Image;
};

// Samples of any precision and sign to 8 bits.
class CmSampleScaler {
public:
  explicit CmSampleScaler(const opj_image_comp_t& component)
      : m_Offset(component.sgnd ? int64_t{1} << (component.prec - 1) : 0),
        m_Maximum((int64_t{1} << component.prec) - 1) {}

  uint8_t operator()(int32_t sample) const {
    const int64_t v = std::clamp<int64_t>(int64_t{sample} + m_Offset, 0, m_Maximum);
    return static_cast<uint8_t>((v * 255 + m_Maximum / 2) / m_Maximum);
  }

private:
  int64_t m_Offset;
  int64_t m_Maximum;
};

bool IsUsable(const opj_image_comp_t& component) {
  return component.data != nullptr && component.prec >= 1 && component.prec <= 16 &&
         component.w > 0 && component.h > 0;
}

// Component c into channel `channel` of a plane; the component's own size may
// differ from the plane's by the rounding of odd origins, so its last row and
// column stand in for any that are missing.
void CopyComponent(const opj_image_comp_t& component,
                   const ImImageMemoryAllocation::CmWriteablePlane& plane, uint64_t channel) {
  const CmSampleScaler scale(component);
  for (uint64_t y = 0; y < plane.height; ++y) {
    const int32_t* source =
        component.data + std::min<uint64_t>(y, component.h - 1) * uint64_t{component.w};
    uint8_t* target = plane.data + y * plane.rowStride + channel;
    const uint64_t common = std::min<uint64_t>(plane.width, component.w);
    for (uint64_t x = 0; x < common; ++x) {
      target[x * plane.pixelStride] = scale(source[x]);
    }
    for (uint64_t x = common; x < plane.width; ++x) {
      target[x * plane.pixelStride] = scale(source[component.w - 1]);
    }
  }
}

} // namespace

bool CmOpenJPEG2000::GetImageInfo(uint64_t& width, uint64_t& height) {
  m_LastMessage.clear();
  if (m_Data == nullptr) {
    return false;
  }
  CmSession session(m_Data, m_Size, m_LastMessage);
  if (!session.ReadHeader()) {
    return false;
  }
  width = session.GetImage().x1 - session.GetImage().x0;
  height = session.GetImage().y1 - session.GetImage().y0;
  return true;
}

bool CmOpenJPEG2000::DecodeImage(CmImage& image) {
  m_LastMessage.clear();
  if (m_Data == nullptr) {
    return false;
  }
  CmSession session(m_Data, m_Size, m_LastMessage);
  if (!session.ReadHeader() || !session.Decode()) {
    return false;
  }
  const opj_image_t& decoded = session.GetImage();
  const uint32_t count = decoded.numcomps;
  for (uint32_t i = 0; i < std::min<uint32_t>(count, 4); ++i) {
    if (!IsUsable(decoded.comps[i])) {
      m_LastMessage = "Component without usable samples";
      return false;
    }
  }
  const opj_image_comp_t* c = decoded.comps;
  if (c[0].dx != 1 || c[0].dy != 1) {
    m_LastMessage = "Subsampled first component";
    return false;
  }
  const uint64_t width = c[0].w;
  const uint64_t height = c[0].h;
  ColorFormat format = Gray;
  if (count >= 3) {
    const bool sameChroma = c[1].dx == c[2].dx && c[1].dy == c[2].dy;
    if (sameChroma && c[1].dx == 2 && c[1].dy == 2) {
      format = YCbCr420_Planar;
    } else if (sameChroma && c[1].dx == 2 && c[1].dy == 1) {
      format = YCbCr422_Planar;
    } else if (sameChroma && c[1].dx == 1 && c[1].dy == 1) {
      if (decoded.color_space == OPJ_CLRSPC_SYCC) {
        format = YCbCr444_Planar;
      } else {
        format = count >= 4 && c[3].dx == 1 && c[3].dy == 1 ? RGBA : RGB24;
      }
    } else {
      m_LastMessage = "Unsupported component sampling";
      return false;
    }
  }
  image.Reset();
  try {
    image.Allocate(width, height, format);
  } catch (const NmError::CmError& error) {
    // A size that the codestream allows but our images do not.
    m_LastMessage = error.GetDescription();
    return false;
  }
  auto& allocator = image.Allocator();
  if (format == RGB24 || format == RGBA) {
    const auto plane = allocator.GetWriteablePlane(0);
    for (uint64_t channel = 0; channel < (format == RGBA ? 4u : 3u); ++channel) {
      CopyComponent(c[channel], plane, channel);
    }
  } else {
    for (uint64_t i = 0; i < allocator.GetPlaneCount(); ++i) {
      CopyComponent(c[i], allocator.GetWriteablePlane(i), 0);
    }
  }
  // JPEG 2000 samples use their whole range.
  image.GetAttributes().subColorFormat =
      format == RGB24 || format == RGBA ? NotApplicable : SubColorFormatFullRange;
  return true;
}

} // namespace NmMediaProcessing
