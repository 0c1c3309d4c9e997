// Marker parsing of CJPEGDecoder: everything before the entropy-coded data.
#include <algorithm>
#include <cstring>

#include "MediaProcessing/JPEG/JPEGDecoder.h"
#include "MediaProcessing/JPEG/JPEGStatus.h"

CJPEGDecoder::CJPEGDecoder() = default;

CJPEGDecoder::~CJPEGDecoder() {
  Clean();
}

void CJPEGDecoder::Clean() {
  m_Bits.Detach();
  m_Stream = nullptr;
  m_Source = {};
  m_SawFrame = false;
  m_Mode = JModeBaseline;
  m_Width = m_Height = m_ComponentCount = 0;
  m_Precision = 8;
  m_Color = JColorUnknown;
  m_Sampling = JSamplingOther;
  m_MaxH = m_MaxV = 1;
  m_McuWidth = m_McuHeight = 8;
  m_McusX = m_McusY = 0;
  // The components' buffers stay: the next frame of a video usually has the
  // same size, and reusing them spares an allocation and its page faults.
  for (auto& component : m_Components) {
    component.id = 0;
    component.hSampling = component.vSampling = 1;
    component.quantSelector = component.dcSelector = component.acSelector = 0;
    component.lastDC = 0;
  }
  m_BuffersReady = false;
  // Tables belong to one frame: the next must carry its own.
  for (int i = 0; i < 4; ++i) {
    m_QuantTables[i].Reset();
    m_DCTables[i].Reset();
    m_ACTables[i].Reset();
  }
  m_HuffmanState.Reset();
  m_RestartInterval = 0;
  m_SawJFIF = m_SawJFXX = m_SawExif = m_SawAdobe = false;
  m_JFIFVersion = m_DensityUnits = 0;
  m_XDensity = m_YDensity = 1;
  m_AdobeVersion = m_AdobeFlags0 = m_AdobeFlags1 = 0;
  m_AdobeTransform = -1;
  m_Scan = {};
  m_InScan = false;
  m_Truncated = false;
  m_Destination = {};
}

JStatus CJPEGDecoder::SetSource(CBaseStreamInput* stream) {
  if (stream == nullptr) {
    return JStatusFailed;
  }
  VZK_RETURN_IF_FAILED(m_Bits.Attach(stream));
  VZK_RETURN_IF_FAILED(m_HuffmanState.Create());
  m_HuffmanState.Reset();
  m_Stream = stream;
  return JStatusOk;
}

JStatus CJPEGDecoder::ReadHeader(int& width, int& height, int& channels, JColor& color,
                                 JSampling& sampling, int& precision, bool headerOnly) {
  if (m_Stream == nullptr) {
    return JStatusFailed;
  }
  uint8_t marker = 0;
  VZK_RETURN_IF_FAILED(ParseMarkers(headerOnly, marker));
  if (!m_SawFrame) {
    return JStatusFailed; // a scan without a frame
  }
  if (!headerOnly && marker != 0xDA) {
    return JStatusEndOfData;
  }
  DeriveColorAndSampling();
  width = m_Width;
  height = m_Height;
  channels = m_ComponentCount;
  color = m_Color;
  sampling = m_Sampling;
  precision = m_Precision;
  return JStatusOk;
}

JStatus CJPEGDecoder::NextMarker(uint8_t& marker) {
  uint8_t byte = 0;
  for (;;) {
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(byte));
    if (byte != 0xFF) {
      continue; // garbage between segments is passed over
    }
    do {
      VZK_RETURN_IF_FAILED(m_Bits.ReadByte(byte));
    } while (byte == 0xFF);
    if (byte != 0) {
      marker = byte;
      return JStatusOk;
    }
  }
}

JStatus CJPEGDecoder::ReadLength(uint32_t& remaining) {
  uint16_t length = 0;
  VZK_RETURN_IF_FAILED(m_Bits.ReadWord(length));
  if (length < 2) {
    return JStatusFailed;
  }
  remaining = length - 2u;
  return JStatusOk;
}

JStatus CJPEGDecoder::SkipSegment() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  return remaining == 0 ? JStatusOk : m_Bits.Seek(remaining, 1);
}

// Stops after SOS, at EOI, or after the frame header when asked to.
JStatus CJPEGDecoder::ParseMarkers(bool stopAtFrame, uint8_t& marker) {
  for (;;) {
    VZK_RETURN_IF_FAILED(NextMarker(marker));
    switch (marker) {
    case 0xC0:
    case 0xC1:
    case 0xC2:
    case 0xC3:
      if (m_SawFrame) {
        return JStatusSecondFrameHeader;
      }
      VZK_RETURN_IF_FAILED(ParseFrame(marker));
      if (stopAtFrame) {
        return JStatusOk;
      }
      break;
    case 0xC4:
      VZK_RETURN_IF_FAILED(ParseHuffmanTables());
      break;
    case 0xC5:
    case 0xC6:
    case 0xC7:
    case 0xC9:
    case 0xCA:
    case 0xCB:
    case 0xCD:
    case 0xCE:
    case 0xCF:
      return JStatusFailed; // hierarchical and arithmetic coding
    case 0xD0:
    case 0xD1:
    case 0xD2:
    case 0xD3:
    case 0xD4:
    case 0xD5:
    case 0xD6:
    case 0xD7:
    case 0xD8:
    case 0x01:
      break; // no length: stray restarts, SOI, TEM
    case 0xD9:
      return JStatusOk;
    case 0xDA:
      if (!m_SawFrame) {
        return JStatusFailed;
      }
      return ParseScan();
    case 0xDB:
      VZK_RETURN_IF_FAILED(ParseQuantTables());
      break;
    case 0xDD:
      VZK_RETURN_IF_FAILED(ParseRestartInterval());
      break;
    case 0xE0:
      VZK_RETURN_IF_FAILED(ParseApp0());
      break;
    case 0xE1:
      VZK_RETURN_IF_FAILED(ParseApp1());
      break;
    case 0xEE:
      VZK_RETURN_IF_FAILED(ParseApp14());
      break;
    default:
      // DAC's neighbours C8 and CC, DNL, DHP, EXP, JPG extensions, COM and
      // the other APPn carry a length and nothing that we use.
      VZK_RETURN_IF_FAILED(SkipSegment());
      break;
    }
  }
}

JStatus CJPEGDecoder::ParseFrame(uint8_t marker) {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  uint8_t precision = 0;
  uint16_t height = 0;
  uint16_t width = 0;
  uint8_t count = 0;
  VZK_RETURN_IF_FAILED(m_Bits.ReadByte(precision));
  VZK_RETURN_IF_FAILED(m_Bits.ReadWord(height));
  VZK_RETURN_IF_FAILED(m_Bits.ReadWord(width));
  VZK_RETURN_IF_FAILED(m_Bits.ReadByte(count));
  if (remaining != 6u + 3u * count || count == 0) {
    return JStatusFailed;
  }
  m_Mode = static_cast<JMode>(JModeBaseline + (marker - 0xC0));
  if (m_Mode == JModeLossless) {
    if (precision < 2 || precision > 16) {
      return JStatusFailed;
    }
    if (precision > 8) {
      return JStatusUnsupported; // samples wider than a byte
    }
  } else if (precision != 8) {
    return m_Mode == JModeBaseline || precision != 12 ? JStatusFailed : JStatusUnsupported;
  }
  if (count > 4) {
    return JStatusUnsupported;
  }
  if (width == 0) {
    return JStatusFailed;
  }
  if (height == 0) {
    return JStatusUnsupported; // the height would follow in a DNL segment
  }
  if (static_cast<uint64_t>(width) * height > MaximumPixels) {
    return JStatusUnsupported;
  }
  m_Precision = precision;
  m_Width = width;
  m_Height = height;
  m_ComponentCount = count;
  m_MaxH = m_MaxV = 1;
  for (int i = 0; i < count; ++i) {
    uint8_t id = 0;
    uint8_t factors = 0;
    uint8_t table = 0;
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(id));
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(factors));
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(table));
    CJPEGColorComponent& component = m_Components[i];
    component.id = id;
    component.hSampling = factors >> 4;
    component.vSampling = factors & 15;
    component.quantSelector = table;
    if (component.hSampling < 1 || component.hSampling > 4 || component.vSampling < 1 ||
        component.vSampling > 4 || table > 3) {
      return JStatusFailed;
    }
    for (int j = 0; j < i; ++j) {
      if (m_Components[j].id == id) {
        return JStatusFailed;
      }
    }
    if (count == 1) {
      component.hSampling = component.vSampling = 1;
    }
    m_MaxH = component.hSampling > m_MaxH ? component.hSampling : m_MaxH;
    m_MaxV = component.vSampling > m_MaxV ? component.vSampling : m_MaxV;
  }
  const int unit = m_Mode == JModeLossless ? 1 : 8;
  m_McuWidth = unit * m_MaxH;
  m_McuHeight = unit * m_MaxV;
  m_McusX = (m_Width + m_McuWidth - 1) / m_McuWidth;
  m_McusY = (m_Height + m_McuHeight - 1) / m_McuHeight;
  for (int i = 0; i < count; ++i) {
    const CJPEGColorComponent& component = m_Components[i];
    m_BlocksX[i] = m_McusX * component.hSampling;
    m_BlocksY[i] = m_McusY * component.vSampling;
    // A scan of one component covers only the blocks that hold its samples.
    const int samplesX = (m_Width * component.hSampling + m_MaxH - 1) / m_MaxH;
    const int samplesY = (m_Height * component.vSampling + m_MaxV - 1) / m_MaxV;
    m_ScanBlocksX[i] = (samplesX + unit - 1) / unit;
    m_ScanBlocksY[i] = (samplesY + unit - 1) / unit;
  }
  m_SawFrame = true;
  return JStatusOk;
}

JStatus CJPEGDecoder::ParseScan() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  uint8_t count = 0;
  VZK_RETURN_IF_FAILED(m_Bits.ReadByte(count));
  if (count < 1 || count > 4 || remaining != 4u + 2u * count) {
    return JStatusFailed;
  }
  SmScan scan;
  scan.count = count;
  int units = 0;
  for (int i = 0; i < count; ++i) {
    uint8_t id = 0;
    uint8_t tables = 0;
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(id));
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(tables));
    int index = -1;
    for (int c = 0; c < m_ComponentCount; ++c) {
      if (m_Components[c].id == id) {
        index = c;
      }
    }
    for (int j = 0; j < i; ++j) {
      if (scan.components[j] == index) {
        return JStatusFailed;
      }
    }
    if (index < 0 || (tables >> 4) > 3 || (tables & 15) > 3) {
      return JStatusFailed;
    }
    scan.components[i] = index;
    m_Components[index].dcSelector = tables >> 4;
    m_Components[index].acSelector = tables & 15;
    units += m_Components[index].hSampling * m_Components[index].vSampling;
  }
  if (count > 1 && units > 10) {
    return JStatusFailed; // T.81 B.2.3: at most ten blocks in an MCU
  }
  uint8_t start = 0;
  uint8_t end = 0;
  uint8_t approximation = 0;
  VZK_RETURN_IF_FAILED(m_Bits.ReadByte(start));
  VZK_RETURN_IF_FAILED(m_Bits.ReadByte(end));
  VZK_RETURN_IF_FAILED(m_Bits.ReadByte(approximation));
  scan.spectralStart = start;
  scan.spectralEnd = end;
  scan.approximationHigh = approximation >> 4;
  scan.approximationLow = approximation & 15;
  if (m_Mode == JModeProgressive) {
    // T.81 G.1.1.1.1: DC scans alone, AC scans of one component.
    const bool dc = start == 0;
    if ((dc && end != 0) || (!dc && (end < start || end > 63 || count != 1)) ||
        scan.approximationHigh > 13 || scan.approximationLow > 13 ||
        (scan.approximationHigh != 0 && scan.approximationLow != scan.approximationHigh - 1)) {
      return JStatusFailed;
    }
  } else if (m_Mode == JModeLossless) {
    if (start > 7 || scan.approximationLow >= m_Precision) {
      return JStatusFailed;
    }
  } else {
    // Sequential scans always cover 0..63; the fields are not used.
    scan.spectralStart = 0;
    scan.spectralEnd = 63;
    scan.approximationHigh = scan.approximationLow = 0;
  }
  m_Scan = scan;
  m_InScan = true;
  return JStatusOk;
}

JStatus CJPEGDecoder::ParseQuantTables() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  while (remaining > 0) {
    uint8_t info = 0;
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(info));
    const int precision = info >> 4;
    const int id = info & 15;
    const uint32_t size = 1u + 64u * (precision == 0 ? 1 : 2);
    if (precision > 1 || id > 3 || remaining < size) {
      return JStatusFailed;
    }
    uint16_t values[64];
    for (uint16_t& value : values) {
      if (precision == 0) {
        uint8_t byte = 0;
        VZK_RETURN_IF_FAILED(m_Bits.ReadByte(byte));
        value = byte;
      } else {
        VZK_RETURN_IF_FAILED(m_Bits.ReadWord(value));
      }
    }
    VZK_RETURN_IF_FAILED(m_QuantTables[id].Init(id, values, precision));
    for (int i = 0; i < 64; ++i) {
      // No 8-bit picture needs a step above 32767; larger ones only spoil
      // the samples of a damaged stream.
      m_Dequant[id][i] =
          static_cast<int16_t>(std::min<uint16_t>(m_QuantTables[id].natural[i], 32767));
    }
    remaining -= size;
  }
  return JStatusOk;
}

JStatus CJPEGDecoder::ParseHuffmanTables() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  while (remaining > 0) {
    uint8_t info = 0;
    uint8_t counts[16];
    uint8_t values[256];
    if (remaining < 17) {
      return JStatusFailed;
    }
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(info));
    uint32_t total = 0;
    for (uint8_t& count : counts) {
      VZK_RETURN_IF_FAILED(m_Bits.ReadByte(count));
      total += count;
    }
    const int tableClass = info >> 4;
    const int id = info & 15;
    if (tableClass > 1 || id > 3 || total > 256 || remaining < 17 + total) {
      return JStatusFailed;
    }
    for (uint32_t i = 0; i < total; ++i) {
      VZK_RETURN_IF_FAILED(m_Bits.ReadByte(values[i]));
    }
    CJPEGDecoderHuffmanTable& table = tableClass == 0 ? m_DCTables[id] : m_ACTables[id];
    VZK_RETURN_IF_FAILED(table.Create());
    if (table.Init(id, tableClass, counts, values) != JStatusOk) {
      return JStatusFailed;
    }
    remaining -= 17 + total;
  }
  return JStatusOk;
}

JStatus CJPEGDecoder::ParseRestartInterval() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  if (remaining != 2) {
    return JStatusFailed;
  }
  uint16_t interval = 0;
  VZK_RETURN_IF_FAILED(m_Bits.ReadWord(interval));
  m_RestartInterval = interval;
  return JStatusOk;
}

JStatus CJPEGDecoder::ParseApp0() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  uint8_t head[14] = {};
  const uint32_t taken = remaining < sizeof head ? remaining : sizeof head;
  for (uint32_t i = 0; i < taken; ++i) {
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(head[i]));
  }
  if (taken == 14 && std::memcmp(head, "JFIF", 5) == 0) {
    m_SawJFIF = true;
    m_JFIFVersion = head[5] << 8 | head[6];
    m_DensityUnits = head[7];
    m_XDensity = head[8] << 8 | head[9];
    m_YDensity = head[10] << 8 | head[11];
  } else if (taken >= 5 && std::memcmp(head, "JFXX", 5) == 0) {
    m_SawJFXX = true; // an extension thumbnail: nothing for us
  }
  return remaining > taken ? m_Bits.Seek(remaining - taken, 1) : JStatusOk;
}

JStatus CJPEGDecoder::ParseApp1() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  uint8_t head[6] = {};
  const uint32_t taken = remaining < sizeof head ? remaining : sizeof head;
  for (uint32_t i = 0; i < taken; ++i) {
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(head[i]));
  }
  if (taken == 6 && std::memcmp(head, "Exif\0\0", 6) == 0) {
    m_SawExif = true;
  }
  return remaining > taken ? m_Bits.Seek(remaining - taken, 1) : JStatusOk;
}

JStatus CJPEGDecoder::ParseApp14() {
  uint32_t remaining = 0;
  VZK_RETURN_IF_FAILED(ReadLength(remaining));
  uint8_t head[12] = {};
  const uint32_t taken = remaining < sizeof head ? remaining : sizeof head;
  for (uint32_t i = 0; i < taken; ++i) {
    VZK_RETURN_IF_FAILED(m_Bits.ReadByte(head[i]));
  }
  if (taken == 12 && std::memcmp(head, "Adobe", 5) == 0) {
    m_SawAdobe = true;
    m_AdobeVersion = head[5] << 8 | head[6];
    m_AdobeFlags0 = head[7] << 8 | head[8];
    m_AdobeFlags1 = head[9] << 8 | head[10];
    m_AdobeTransform = head[11];
  }
  return remaining > taken ? m_Bits.Seek(remaining - taken, 1) : JStatusOk;
}

// The JFIF and Adobe conventions: JFIF means YCbCr (or gray); Adobe's
// transform flag decides between RGB and YCbCr, and between CMYK and YCCK;
// without either, component identifiers 'R', 'G', 'B' mean RGB.
void CJPEGDecoder::DeriveColorAndSampling() {
  const CJPEGColorComponent* c = m_Components;
  switch (m_ComponentCount) {
  case 1:
    m_Color = JColorGray;
    break;
  case 3:
    if (m_SawJFIF) {
      m_Color = JColorYCbCr;
    } else if (m_SawAdobe) {
      m_Color = m_AdobeTransform == 0 ? JColorRGB : JColorYCbCr;
    } else if (c[0].id == 'R' && c[1].id == 'G' && c[2].id == 'B') {
      m_Color = JColorRGB;
    } else {
      m_Color = JColorYCbCr;
    }
    break;
  case 4:
    m_Color = m_SawAdobe && m_AdobeTransform == 2 ? JColorYCCK : JColorCMYK;
    break;
  default:
    m_Color = JColorUnknown;
    break;
  }
  bool allEqual = true;
  for (int i = 1; i < m_ComponentCount; ++i) {
    allEqual = allEqual && c[i].hSampling == c[0].hSampling && c[i].vSampling == c[0].vSampling;
  }
  m_Sampling = JSamplingOther;
  if (allEqual) {
    m_Sampling = JSampling444;
    return;
  }
  // What counts is how much coarser the chroma grid is than the luma grid,
  // not the factors themselves: encoders write 4:2:2 as 2x1/1x1 as well as
  // 2x2/1x2 or 4x2/2x2. Both chroma components must share one grid.
  if (m_ComponentCount != 3 || c[1].hSampling != c[2].hSampling ||
      c[1].vSampling != c[2].vSampling || c[0].hSampling % c[1].hSampling != 0 ||
      c[0].vSampling % c[1].vSampling != 0) {
    return;
  }
  const int horizontal = c[0].hSampling / c[1].hSampling;
  const int vertical = c[0].vSampling / c[1].vSampling;
  if (horizontal == 2 && vertical == 1) {
    m_Sampling = JSampling422;
  } else if (horizontal == 2 && vertical == 2) {
    m_Sampling = JSampling420;
  } else if (horizontal == 4 && vertical == 1) {
    m_Sampling = JSampling411;
  }
}

double CJPEGDecoder::GetFrameAspect() const {
  if (!m_SawJFIF || m_XDensity == 0 || m_YDensity == 0) {
    return 1.0;
  }
  // Densities are pixels per unit: the wider pixel has the smaller density.
  return static_cast<double>(m_YDensity) / m_XDensity;
}
