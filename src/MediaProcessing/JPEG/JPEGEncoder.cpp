#include "MediaProcessing/JPEG/JPEGEncoder.h"

#include <algorithm>
#include <cstring>

#include "Codecs/Primitives/ColorConvert.h"
#include "Codecs/Primitives/JPEGForwardDCT.h"
#include "Codecs/Primitives/JPEGHuffmanEncode.h"
#include "MediaProcessing/JPEG/JPEGStandardTables.h"

namespace {

namespace NmTables = NmJPEGStandardTables;

constexpr int MaxDimension = 65535;
// 4:2:0: four luma blocks and one of each chroma.
constexpr size_t MaxBlocksPerMcu = 6;

// Horizontal and vertical sampling factors of the first component; the
// chroma components always have 1 and 1.
void LumaFactors(JColor color, JSampling sampling, int& h, int& v) {
  h = 1;
  v = 1;
  if (color == JColorGray) {
    return;
  }
  if (sampling == JSampling420) {
    h = 2;
    v = 2;
  } else if (sampling == JSampling422) {
    h = 2;
  }
}

// Size of the chroma planes of a source in `sampling`.
void ChromaSize(JSampling sampling, int width, int height, int& cw, int& ch) {
  cw = sampling == JSampling444 ? width : (width + 1) / 2;
  ch = sampling == JSampling420 ? (height + 1) / 2 : height;
}

void PutWord(std::vector<uint8_t>& body, uint32_t value) {
  body.push_back(static_cast<uint8_t>(value >> 8));
  body.push_back(static_cast<uint8_t>(value));
}

} // namespace

CJPEGEncoder::CJPEGEncoder() = default;
CJPEGEncoder::~CJPEGEncoder() = default;

JStatus CJPEGEncoder::SetSource(const uint8_t* data, int step, int width, int height, int channels,
                                JColor color, JSampling sampling, int precision) {
  m_Source = SmSource();
  if (data == nullptr || width < 1 || height < 1 || width > MaxDimension || height > MaxDimension) {
    return JStatusFailed;
  }
  if (precision != 8) {
    return JStatusUnsupported;
  }
  const bool gray = channels == 1 && color == JColorGray;
  const bool rgb = (channels == 3 || channels == 4) && (color == JColorRGB || color == JColorBGR);
  if (!gray && !rgb) {
    return JStatusUnsupported;
  }
  if (step < width * channels) {
    return JStatusFailed;
  }
  m_Source.packed = true;
  m_Source.planes[0] = data;
  m_Source.steps[0] = step;
  return TakeSource(width, height, channels, color, sampling);
}

JStatus CJPEGEncoder::SetSource(const uint8_t* const planes[], const int steps[], int width,
                                int height, int planeCount, JColor color, JSampling sampling,
                                int precision) {
  m_Source = SmSource();
  if (planes == nullptr || steps == nullptr || width < 1 || height < 1 || width > MaxDimension ||
      height > MaxDimension) {
    return JStatusFailed;
  }
  if (precision != 8) {
    return JStatusUnsupported;
  }
  const bool gray = planeCount == 1 && color == JColorGray;
  const bool ycc =
      planeCount == 3 && color == JColorYCbCr &&
      (sampling == JSampling444 || sampling == JSampling422 || sampling == JSampling420);
  if (!gray && !ycc) {
    return JStatusUnsupported;
  }
  int cw = width;
  int ch = height;
  ChromaSize(sampling, width, height, cw, ch);
  for (int i = 0; i < planeCount; ++i) {
    if (planes[i] == nullptr || steps[i] < (i == 0 ? width : cw)) {
      return JStatusFailed;
    }
    m_Source.planes[i] = planes[i];
    m_Source.steps[i] = steps[i];
  }
  return TakeSource(width, height, planeCount, color, gray ? JSampling444 : sampling);
}

// The part of a source that a packed buffer and planes share.
JStatus CJPEGEncoder::TakeSource(int width, int height, int channels, JColor color,
                                 JSampling sampling) {
  m_Source.width = width;
  m_Source.height = height;
  m_Source.channels = channels;
  m_Source.color = color;
  m_Source.sampling = sampling;
  return JStatusOk;
}

JStatus CJPEGEncoder::SetDestination(CBaseStreamOutput* stream) {
  if (stream == nullptr) {
    return JStatusFailed;
  }
  m_Stream = stream;
  return JStatusOk;
}

JStatus CJPEGEncoder::SetParams(int mode, JColor color, JSampling sampling, int restartInterval,
                                int huffmanOptimize, int quality) {
  m_ParamsSet = false;
  if (mode != JModeBaseline || huffmanOptimize != 0) {
    // Extended, progressive and lossless coding and optimised tables are
    // not written.
    return JStatusUnsupported;
  }
  if (restartInterval < 0 || restartInterval > 65535 || quality < 0 || quality > 100) {
    return JStatusFailed;
  }
  if (color == JColorGray) {
    m_ComponentCount = 1;
    sampling = JSampling444;
  } else if (color == JColorYCbCr &&
             (sampling == JSampling444 || sampling == JSampling422 || sampling == JSampling420)) {
    m_ComponentCount = 3;
  } else {
    return JStatusUnsupported;
  }
  m_SecondTable = m_ComponentCount > 1;
  if (const JStatus s = m_QuantTables[0].Init(0, NmTables::LuminanceQuant, quality); s != 0) {
    return s;
  }
  NmPrimitives::MakeQuantReciprocals(m_QuantTables[0].natural, m_Reciprocals[0]);
  if (m_SecondTable) {
    if (const JStatus s = m_QuantTables[1].Init(1, NmTables::ChrominanceQuant, quality); s != 0) {
      return s;
    }
    NmPrimitives::MakeQuantReciprocals(m_QuantTables[1].natural, m_Reciprocals[1]);
  }
  const NmTables::SmHuffmanSpec* dc[2] = {&NmTables::LuminanceDC, &NmTables::ChrominanceDC};
  const NmTables::SmHuffmanSpec* ac[2] = {&NmTables::LuminanceAC, &NmTables::ChrominanceAC};
  for (int t = 0; t < (m_SecondTable ? 2 : 1); ++t) {
    for (CJPEGEncoderHuffmanTable* table : {&m_DCTables[t], &m_ACTables[t]}) {
      if (const JStatus s = table->Create(); s != JStatusOk) {
        return s;
      }
    }
    if (const JStatus s = m_DCTables[t].Init(t, 0, dc[t]->bits, dc[t]->values); s != 0) {
      return s;
    }
    if (const JStatus s = m_ACTables[t].Init(t, 1, ac[t]->bits, ac[t]->values); s != 0) {
      return s;
    }
  }
  if (const JStatus s = m_HuffmanState.Create(); s != JStatusOk) {
    return s;
  }
  int h = 1;
  int v = 1;
  LumaFactors(color, sampling, h, v);
  m_McuWidth = 8 * h;
  m_McuHeight = 8 * v;
  for (int c = 0; c < m_ComponentCount; ++c) {
    CJPEGColorComponent& component = m_Components[c];
    component.id = c + 1;
    component.hSampling = c == 0 ? h : 1;
    component.vSampling = c == 0 ? v : 1;
    component.quantSelector = c == 0 ? 0 : 1;
    component.dcSelector = c == 0 ? 0 : 1;
    component.acSelector = c == 0 ? 0 : 1;
  }
  m_Mode = mode;
  m_Color = color;
  m_Sampling = sampling;
  m_RestartInterval = restartInterval;
  m_HuffmanOptimize = huffmanOptimize;
  m_Quality = quality;
  m_ParamsSet = true;
  return JStatusOk;
}

JStatus CJPEGEncoder::SetComment(size_t size, const char* text) {
  if (size > 65533 || (size > 0 && text == nullptr)) {
    return JStatusFailed;
  }
  m_Comment.assign(text, text + size);
  return JStatusOk;
}

// Whether source and parameters describe a picture that can be coded.
JStatus CJPEGEncoder::CheckReady() const {
  if (!m_ParamsSet || m_Stream == nullptr || m_Source.width == 0) {
    return JStatusFailed;
  }
  if (m_Source.packed) {
    // Packed colour converts to either; packed grey only codes as grey.
    return m_Source.color == JColorGray && m_Color != JColorGray ? JStatusUnsupported : JStatusOk;
  }
  if (m_Source.color != m_Color || (m_Color == JColorYCbCr && m_Source.sampling != m_Sampling)) {
    return JStatusUnsupported;
  }
  return JStatusOk;
}

JStatus CJPEGEncoder::WriteMarkerSegment(uint8_t marker, const uint8_t* body, size_t size) {
  JStatus s = m_Output.WriteByte(0xFF);
  if (s == JStatusOk) {
    s = m_Output.WriteByte(marker);
  }
  if (s == JStatusOk) {
    s = m_Output.WriteWord(static_cast<uint16_t>(size + 2));
  }
  for (size_t i = 0; i < size && s == JStatusOk; ++i) {
    s = m_Output.WriteByte(body[i]);
  }
  return s;
}

JStatus CJPEGEncoder::WriteHeader(int xDensity, int yDensity) {
  if (const JStatus s = CheckReady(); s != JStatusOk) {
    return s;
  }
  if (xDensity < 0 || xDensity > 65535 || yDensity < 0 || yDensity > 65535) {
    return JStatusFailed;
  }
  if (const JStatus s = m_Output.Attach(m_Stream); s != JStatusOk) {
    return s;
  }
  m_McusX = (m_Source.width + m_McuWidth - 1) / m_McuWidth;
  m_McusY = (m_Source.height + m_McuHeight - 1) / m_McuHeight;
  return WriteFrameAndTables(xDensity, yDensity);
}

JStatus CJPEGEncoder::WriteFrameAndTables(int xDensity, int yDensity) {
  JStatus s = m_Output.WriteWord(0xFFD8);
  if (s != JStatusOk) {
    return s;
  }
  std::vector<uint8_t> body;
  if (m_Color == JColorGray || m_Color == JColorYCbCr) {
    body = {'J', 'F', 'I', 'F', 0, 1, 2, 0};
    PutWord(body, static_cast<uint32_t>(xDensity));
    PutWord(body, static_cast<uint32_t>(yDensity));
    body.push_back(0);
    body.push_back(0);
    if ((s = WriteMarkerSegment(0xE0, body.data(), body.size())) != JStatusOk) {
      return s;
    }
  } else {
    // RGB and CMYK families say so in Adobe's segment.
    body = {'A', 'd', 'o', 'b', 'e', 0,
            100, 0,   0,   0,   0,   static_cast<uint8_t>(m_Color == JColorYCCK ? 2 : 0)};
    if ((s = WriteMarkerSegment(0xEE, body.data(), body.size())) != JStatusOk) {
      return s;
    }
  }
  if (!m_Comment.empty() &&
      (s = WriteMarkerSegment(0xFE, reinterpret_cast<const uint8_t*>(m_Comment.data()),
                              m_Comment.size())) != JStatusOk) {
    return s;
  }
  for (int t = 0; t < (m_SecondTable ? 2 : 1); ++t) {
    body.assign(1, static_cast<uint8_t>(t));
    for (int k = 0; k < 64; ++k) {
      body.push_back(static_cast<uint8_t>(m_QuantTables[t].raw[k]));
    }
    if ((s = WriteMarkerSegment(0xDB, body.data(), body.size())) != JStatusOk) {
      return s;
    }
  }
  body = {static_cast<uint8_t>(m_Precision)};
  PutWord(body, static_cast<uint32_t>(m_Source.height));
  PutWord(body, static_cast<uint32_t>(m_Source.width));
  body.push_back(static_cast<uint8_t>(m_ComponentCount));
  for (int c = 0; c < m_ComponentCount; ++c) {
    const CJPEGColorComponent& component = m_Components[c];
    body.push_back(static_cast<uint8_t>(component.id));
    body.push_back(static_cast<uint8_t>(component.hSampling << 4 | component.vSampling));
    body.push_back(static_cast<uint8_t>(component.quantSelector));
  }
  if ((s = WriteMarkerSegment(0xC0, body.data(), body.size())) != JStatusOk) {
    return s;
  }
  if (m_RestartInterval != 0) {
    body.clear();
    PutWord(body, static_cast<uint32_t>(m_RestartInterval));
    if ((s = WriteMarkerSegment(0xDD, body.data(), body.size())) != JStatusOk) {
      return s;
    }
  }
  body.clear();
  for (int t = 0; t < (m_SecondTable ? 2 : 1); ++t) {
    for (const CJPEGEncoderHuffmanTable* table : {&m_DCTables[t], &m_ACTables[t]}) {
      body.push_back(static_cast<uint8_t>(table->tableClass << 4 | table->id));
      body.insert(body.end(), table->bits, table->bits + 16);
      int count = 0;
      for (const uint8_t n : table->bits) {
        count += n;
      }
      body.insert(body.end(), table->vals, table->vals + count);
    }
  }
  if ((s = WriteMarkerSegment(0xC4, body.data(), body.size())) != JStatusOk) {
    return s;
  }
  body = {static_cast<uint8_t>(m_ComponentCount)};
  for (int c = 0; c < m_ComponentCount; ++c) {
    const CJPEGColorComponent& component = m_Components[c];
    body.push_back(static_cast<uint8_t>(component.id));
    body.push_back(static_cast<uint8_t>(component.dcSelector << 4 | component.acSelector));
  }
  body.push_back(0);
  body.push_back(static_cast<uint8_t>(m_SpectralEnd));
  body.push_back(static_cast<uint8_t>(m_SuccessiveApproximation));
  return WriteMarkerSegment(0xDA, body.data(), body.size());
}

// The sample rows of one MCU row for each component, as wide as the MCUs
// reach and as high as the component's blocks in an MCU. Rows and columns
// beyond the picture repeat its last ones (T.81 A.2.4 leaves the padding to
// the encoder; repeating keeps the edge blocks smooth). Rows that need no
// padding are used where they are.
JStatus CJPEGEncoder::PrepareStrips(int mcuRow, const uint8_t* rows[3], size_t strides[3]) {
  const int width = m_Source.width;
  const int height = m_Source.height;
  if (m_Source.packed && m_Source.color != JColorGray) {
    // Convert the rows of this MCU row into the components' strips.
    const int firstRow = mcuRow * m_McuHeight;
    const int rowCount = std::min(m_McuHeight, height - firstRow);
    uint8_t* strips[3] = {};
    for (int c = 0; c < m_ComponentCount; ++c) {
      const CJPEGColorComponent& component = m_Components[c];
      strides[c] = static_cast<size_t>(m_McusX) * component.hSampling * 8;
      const size_t size = strides[c] * component.vSampling * 8;
      if (const JStatus s = m_Components[c].AllocateBuffer(CJPEGColorComponent::SampleRows, size);
          s != JStatusOk) {
        return s;
      }
      strips[c] = m_Components[c].GetBuffer(CJPEGColorComponent::SampleRows);
      rows[c] = strips[c];
    }
    const NmPrimitives::SmPackedLayout layout{static_cast<size_t>(m_Source.channels),
                                              m_Source.color == JColorBGR};
    const NmPrimitives::SmYCbCrDestination destination{strips[0],  strides[0], strips[1],
                                                       strides[1], strips[2],  strides[2]};
    const NmPrimitives::SmChromaLayout chroma =
        m_Color == JColorGray        ? NmPrimitives::Chroma444
        : m_Sampling == JSampling420 ? NmPrimitives::Chroma420
        : m_Sampling == JSampling422 ? NmPrimitives::Chroma422
                                     : NmPrimitives::Chroma444;
    NmPrimitives::RgbToYCbCr(m_Source.planes[0] + static_cast<size_t>(firstRow) * m_Source.steps[0],
                             static_cast<size_t>(m_Source.steps[0]), layout, destination, chroma,
                             static_cast<size_t>(width), static_cast<size_t>(rowCount),
                             NmPrimitives::YCbCrJfif);
    for (int c = 0; c < m_ComponentCount; ++c) {
      const CJPEGColorComponent& component = m_Components[c];
      const int filledWidth = c == 0 || chroma == NmPrimitives::Chroma444 ? width : (width + 1) / 2;
      const int filledRows =
          c == 0 || chroma != NmPrimitives::Chroma420 ? rowCount : (rowCount + 1) / 2;
      const int stripRows = component.vSampling * 8;
      for (int y = 0; y < stripRows; ++y) {
        uint8_t* row = strips[c] + y * strides[c];
        if (y >= filledRows) {
          std::memcpy(row, strips[c] + (filledRows - 1) * strides[c], strides[c]);
          continue;
        }
        std::memset(row + filledWidth, row[filledWidth - 1], strides[c] - filledWidth);
      }
    }
    return JStatusOk;
  }
  // Planes, or packed grey, which is a plane.
  int cw = width;
  int ch = height;
  ChromaSize(m_Sampling, width, height, cw, ch);
  for (int c = 0; c < m_ComponentCount; ++c) {
    const CJPEGColorComponent& component = m_Components[c];
    const size_t stripWidth = static_cast<size_t>(m_McusX) * component.hSampling * 8;
    const int stripRows = component.vSampling * 8;
    const int planeWidth = c == 0 ? width : cw;
    const int planeHeight = c == 0 ? height : ch;
    const int firstRow = mcuRow * stripRows;
    const uint8_t* plane = m_Source.planes[c];
    const size_t step = static_cast<size_t>(m_Source.steps[c]);
    if (stripWidth == static_cast<size_t>(planeWidth) && firstRow + stripRows <= planeHeight) {
      rows[c] = plane + static_cast<size_t>(firstRow) * step;
      strides[c] = step;
      continue;
    }
    if (const JStatus s =
            m_Components[c].AllocateBuffer(CJPEGColorComponent::SampleRows, stripWidth * stripRows);
        s != JStatusOk) {
      return s;
    }
    uint8_t* strip = m_Components[c].GetBuffer(CJPEGColorComponent::SampleRows);
    for (int y = 0; y < stripRows; ++y) {
      const uint8_t* source = plane + std::min(firstRow + y, planeHeight - 1) * step;
      uint8_t* row = strip + y * stripWidth;
      std::memcpy(row, source, static_cast<size_t>(planeWidth));
      std::memset(row + planeWidth, source[planeWidth - 1], stripWidth - planeWidth);
    }
    rows[c] = strip;
    strides[c] = stripWidth;
  }
  return JStatusOk;
}

JStatus CJPEGEncoder::FlushBits() {
  uint8_t* space = nullptr;
  if (const JStatus s = m_Output.Reserve(2, space); s != JStatusOk) {
    return s;
  }
  SmHuffmanEncodeState& state = *m_HuffmanState.Get();
  NmPrimitives::SmHuffmanBitWriter writer{state.bits, state.count};
  m_Output.Commit(static_cast<uint32_t>(NmPrimitives::FlushHuffmanBits(writer, space)));
  state.bits = 0;
  state.count = 0;
  return JStatusOk;
}

JStatus CJPEGEncoder::WriteRestart() {
  if (const JStatus s = FlushBits(); s != JStatusOk) {
    return s;
  }
  if (const JStatus s = m_Output.WriteWord(static_cast<uint16_t>(0xFFD0 + (m_RestartNumber & 7)));
      s != JStatusOk) {
    return s;
  }
  ++m_RestartNumber;
  for (CJPEGColorComponent& component : m_Components) {
    component.lastDC = 0;
  }
  return JStatusOk;
}

JStatus CJPEGEncoder::EncodeMcuRow(int mcuRow) {
  const uint8_t* rows[3] = {};
  size_t strides[3] = {};
  if (const JStatus s = PrepareStrips(mcuRow, rows, strides); s != JStatusOk) {
    return s;
  }
  // Transform and quantise the whole row of blocks of each component first:
  // the kernel works best on many blocks at a time.
  int16_t* quantized[3] = {};
  for (int c = 0; c < m_ComponentCount; ++c) {
    CJPEGColorComponent& component = m_Components[c];
    const size_t blocksPerRow = static_cast<size_t>(m_McusX) * component.hSampling;
    const size_t blocks = blocksPerRow * component.vSampling;
    if (const JStatus s = component.AllocateBuffer(CJPEGColorComponent::Coefficients,
                                                   blocks * 64 * sizeof(int16_t));
        s != JStatusOk) {
      return s;
    }
    quantized[c] =
        reinterpret_cast<int16_t*>(component.GetBuffer(CJPEGColorComponent::Coefficients));
    for (int v = 0; v < component.vSampling; ++v) {
      NmPrimitives::ForwardDCTQuantizeBlocks(
          rows[c] + static_cast<size_t>(v) * 8 * strides[c], strides[c], blocksPerRow,
          m_Reciprocals[component.quantSelector], quantized[c] + v * blocksPerRow * 64);
    }
  }
  SmHuffmanEncodeState& state = *m_HuffmanState.Get();
  NmPrimitives::SmHuffmanBitWriter writer{state.bits, state.count};
  for (int mx = 0; mx < m_McusX; ++mx) {
    if (m_RestartInterval != 0 && m_McusCoded != 0 && m_McusCoded % m_RestartInterval == 0) {
      state.bits = writer.bits;
      state.count = writer.count;
      if (const JStatus s = WriteRestart(); s != JStatusOk) {
        return s;
      }
      writer = {0, 0};
    }
    NmPrimitives::SmHuffmanBlock mcu[MaxBlocksPerMcu];
    size_t count = 0;
    for (int c = 0; c < m_ComponentCount; ++c) {
      CJPEGColorComponent& component = m_Components[c];
      const size_t blocksPerRow = static_cast<size_t>(m_McusX) * component.hSampling;
      const NmPrimitives::SmHuffmanEncodeTable* dc = m_DCTables[component.dcSelector].GetTable();
      const NmPrimitives::SmHuffmanEncodeTable* ac = m_ACTables[component.acSelector].GetTable();
      for (int v = 0; v < component.vSampling; ++v) {
        for (int h = 0; h < component.hSampling; ++h) {
          const size_t index = v * blocksPerRow + static_cast<size_t>(mx) * component.hSampling + h;
          mcu[count++] = {quantized[c] + index * 64, &component.lastDC, dc, ac};
        }
      }
    }
    uint8_t* space = nullptr;
    if (const JStatus s = m_Output.Reserve(
            static_cast<uint32_t>(count * NmPrimitives::kMaxHuffmanBlockBytes), space);
        s != JStatusOk) {
      return s;
    }
    m_Output.Commit(
        static_cast<uint32_t>(NmPrimitives::EncodeBlocksSequential(mcu, count, writer, space)));
    ++m_McusCoded;
  }
  state.bits = writer.bits;
  state.count = writer.count;
  return JStatusOk;
}

JStatus CJPEGEncoder::WriteData() {
  if (const JStatus s = CheckReady(); s != JStatusOk) {
    return s;
  }
  if (m_McusX == 0) {
    // WriteHeader has not run for this picture.
    return JStatusFailed;
  }
  m_HuffmanState.Reset();
  m_McusCoded = 0;
  m_RestartNumber = 0;
  for (CJPEGColorComponent& component : m_Components) {
    component.lastDC = 0;
  }
  JStatus s = JStatusOk;
  for (int row = 0; row < m_McusY && s == JStatusOk; ++row) {
    s = EncodeMcuRow(row);
  }
  if (s == JStatusOk) {
    s = FlushBits();
  }
  if (s == JStatusOk) {
    s = m_Output.WriteWord(0xFFD9);
  }
  if (s == JStatusOk) {
    s = m_Output.Flush();
  }
  m_McusX = 0;
  return s;
}
