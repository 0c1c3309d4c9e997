// Entropy-coded data and output of CJPEGDecoder.
#include "MediaProcessing/JPEG/JPEGDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "Codecs/Primitives/ChromaResample.h"
#include "Codecs/Primitives/JPEGColorConvert.h"
#include "Codecs/Primitives/JPEGHuffman.h"
#include "Codecs/Primitives/JPEGInverseDCT.h"
#include "MediaProcessing/JPEG/JPEGStandardTables.h"
#include "MediaProcessing/JPEG/JPEGStatus.h"

using namespace NmPrimitives;

namespace {

// Bytes kept in reach of the entropy decoder before each MCU: more than the
// largest MCU can occupy (ten blocks of at most 64 codes of 27 bits, doubled
// by byte stuffing).
constexpr uint32_t kEntropyReserve = 8192;

// T.81 B.2.3 allows ten blocks in an MCU.
constexpr int kMaximumBlocksPerMcu = 10;

size_t AlignRow(size_t bytes) {
  return (bytes + 63) & ~size_t{63};
}

uint32_t DivideUp(uint64_t value, uint64_t divisor) {
  return static_cast<uint32_t>((value + divisor - 1) / divisor);
}
} // namespace

JStatus CJPEGDecoder::SetDestination(uint8_t* const planes[4], const uint32_t steps[4],
                                     uint32_t width, uint32_t height, int planeCount, JColor color,
                                     JSampling sampling, int precision, int scale) {
  m_Destination = {};
  if (!m_SawFrame || planes == nullptr || steps == nullptr || planeCount < 1 || planeCount > 4 ||
      width == 0 || height == 0 || scale < 0 || scale > 3) {
    return JStatusFailed;
  }
  if (precision != 8) {
    return JStatusUnsupported;
  }
  for (int p = 0; p < planeCount; ++p) {
    if (planes[p] == nullptr) {
      return JStatusFailed;
    }
    m_Destination.planes[p] = planes[p];
    m_Destination.steps[p] = steps[p];
  }
  if (planeCount == 1 ? color != JColorGray
                      : planeCount != m_ComponentCount || sampling != m_Sampling) {
    return JStatusUnsupported;
  }
  return TakeDestination(width, height, planeCount, color, scale);
}

JStatus CJPEGDecoder::SetDestination(uint8_t* data, uint32_t step, uint32_t width, uint32_t height,
                                     int channels, JColor color, JSampling /*sampling*/,
                                     int precision, int scale) {
  m_Destination = {};
  if (!m_SawFrame || data == nullptr || width == 0 || height == 0 || scale < 0 || scale > 3 ||
      channels < 1 || channels > 4 || step < static_cast<uint64_t>(width) * channels) {
    return JStatusFailed;
  }
  if (precision != 8) {
    return JStatusUnsupported;
  }
  const bool fits =
      (channels == 1 && color == JColorGray) ||
      (channels == 3 && (color == JColorRGB || color == JColorBGR || color == JColorYCbCr)) ||
      (channels == 4 && color == JColorCMYK);
  if (!fits) {
    return JStatusUnsupported;
  }
  m_Destination.packed = channels > 1;
  m_Destination.planes[0] = data;
  m_Destination.steps[0] = step;
  return TakeDestination(width, height, channels, color, scale);
}

// The part of a destination that planes and a packed buffer share.
JStatus CJPEGDecoder::TakeDestination(uint32_t width, uint32_t height, int channels, JColor color,
                                      int scale) {
  m_Destination.width = width;
  m_Destination.height = height;
  m_Destination.channels = channels;
  m_Destination.color = color;
  m_Destination.scale = scale;
  m_Destination.set = true;
  return CheckDestination();
}

// Which frame colours each output can be made from.
JStatus CJPEGDecoder::CheckDestination() const {
  const SmDestination& d = m_Destination;
  const CJPEGColorComponent* c = m_Components;
  if (d.color == JColorGray) {
    // The first component is the picture's lightness, and must be full size.
    const bool light = m_Color == JColorGray || m_Color == JColorYCbCr || m_Color == JColorYCCK;
    return light && c[0].hSampling == m_MaxH && c[0].vSampling == m_MaxV ? JStatusOk
                                                                         : JStatusUnsupported;
  }
  if (!d.packed) {
    return JStatusOk; // planes of the frame's own layout
  }
  for (int i = 0; i < m_ComponentCount; ++i) {
    if (m_MaxH % c[i].hSampling != 0 || m_MaxV % c[i].vSampling != 0) {
      return JStatusUnsupported;
    }
  }
  switch (d.color) {
  case JColorRGB:
  case JColorBGR:
    return m_Color == JColorYCbCr || m_Color == JColorRGB || m_Color == JColorGray
               ? JStatusOk
               : JStatusUnsupported;
  case JColorYCbCr:
    return m_Color == JColorYCbCr ? JStatusOk : JStatusUnsupported;
  case JColorCMYK:
    return m_Color == JColorCMYK || m_Color == JColorYCCK ? JStatusOk : JStatusUnsupported;
  default:
    return JStatusUnsupported;
  }
}

int CJPEGDecoder::BlockOutputSize() const {
  return m_Mode == JModeLossless ? 1 : 8 >> m_Destination.scale;
}

JStatus CJPEGDecoder::AllocateFrameBuffers() {
  const int out = BlockOutputSize();
  const int factor = 1 << m_Destination.scale;
  const bool streaming =
      m_Mode != JModeProgressive && m_Mode != JModeLossless && m_Scan.count == m_ComponentCount;
  for (int i = 0; i < m_ComponentCount; ++i) {
    CJPEGColorComponent& component = m_Components[i];
    size_t rowBytes = 0;
    size_t rows = 0;
    if (m_Mode == JModeLossless) {
      rowBytes = AlignRow(DivideUp(static_cast<uint64_t>(m_BlocksX[i]), factor));
      rows = DivideUp(static_cast<uint64_t>(m_BlocksY[i]), factor);
      VZK_RETURN_IF_FAILED(component.AllocateBuffer(CJPEGColorComponent::Coefficients,
                                                    static_cast<size_t>(m_BlocksX[i]) *
                                                        m_BlocksY[i] * sizeof(uint16_t)));
      std::memset(component.GetBuffer(CJPEGColorComponent::Coefficients), 0,
                  static_cast<size_t>(m_BlocksX[i]) * m_BlocksY[i] * sizeof(uint16_t));
    } else {
      rowBytes = AlignRow(static_cast<size_t>(m_BlocksX[i]) * out);
      rows = static_cast<size_t>(component.vSampling) * out;
      // The whole picture's coefficients, or while streaming one MCU row of
      // them, which the transform takes a block row at a time.
      const size_t blockRows = streaming ? static_cast<size_t>(component.vSampling) : m_BlocksY[i];
      const size_t bytes = static_cast<size_t>(m_BlocksX[i]) * blockRows * 64 * sizeof(int16_t);
      VZK_RETURN_IF_FAILED(component.AllocateBuffer(CJPEGColorComponent::Coefficients, bytes));
      std::memset(component.GetBuffer(CJPEGColorComponent::Coefficients), 0, bytes);
    }
    VZK_RETURN_IF_FAILED(
        component.AllocateBuffer(CJPEGColorComponent::SampleRows, rowBytes * rows));
    // Up-sampled rows for packed output.
    VZK_RETURN_IF_FAILED(component.AllocateBuffer(
        CJPEGColorComponent::Scratch, AlignRow(static_cast<size_t>(m_Destination.width) + 64)));
  }
  m_BuffersReady = true;
  return JStatusOk;
}

// Motion JPEG from cameras often leaves the Huffman tables out and means the
// example tables of T.81 Annex K; a table that a scan needs and no DHT gave
// is taken from there (luminance for table 0, chrominance for table 1).
JStatus CJPEGDecoder::InstallMissingStandardTables() {
  using namespace NmJPEGStandardTables;
  const SmHuffmanSpec* dc[2] = {&LuminanceDC, &ChrominanceDC};
  const SmHuffmanSpec* ac[2] = {&LuminanceAC, &ChrominanceAC};
  for (int id = 0; id < 2; ++id) {
    if (!m_DCTables[id].initialized) {
      VZK_RETURN_IF_FAILED(m_DCTables[id].Create());
      VZK_RETURN_IF_FAILED(m_DCTables[id].Init(id, 0, dc[id]->bits, dc[id]->values));
    }
    if (!m_ACTables[id].initialized) {
      VZK_RETURN_IF_FAILED(m_ACTables[id].Create());
      VZK_RETURN_IF_FAILED(m_ACTables[id].Init(id, 1, ac[id]->bits, ac[id]->values));
    }
  }
  return JStatusOk;
}

void CJPEGDecoder::ResetPredictions() {
  for (auto& component : m_Components) {
    component.lastDC = 0;
  }
}

void CJPEGDecoder::OpenEntropySource() {
  m_Bits.FillBuffer(kEntropyReserve);
  m_Source = {m_Bits.GetData(), m_Bits.GetFilled(), m_Bits.GetPosition()};
}

void CJPEGDecoder::EnsureEntropyBytes() {
  if (m_Source.size - m_Source.position < kEntropyReserve && !m_Bits.IsEndOfStream()) {
    m_Bits.SetPosition(static_cast<uint32_t>(m_Source.position));
    OpenEntropySource();
  }
}

void CJPEGDecoder::CloseEntropySource() {
  m_Bits.SetPosition(static_cast<uint32_t>(m_Source.position));
}

bool CJPEGDecoder::ProcessRestart() {
  CloseEntropySource();
  uint8_t marker = 0;
  if (NextMarker(marker) != JStatusOk) {
    return false;
  }
  ResetHuffmanState(*m_HuffmanState.Get());
  ResetPredictions();
  if (marker >= 0xD0 && marker <= 0xD7) {
    OpenEntropySource();
    return true;
  }
  // Some other marker: leave it for the end of the scan.
  m_Bits.Seek(-2, 1);
  OpenEntropySource();
  return false;
}

// Every scan starts its entropy-coded data afresh: no bits pending, and the
// DC predictions back at 0.
void CJPEGDecoder::BeginEntropyScan(SmScanProgress& progress) {
  progress = {};
  ResetHuffmanState(*m_HuffmanState.Get());
  ResetPredictions();
  OpenEntropySource();
}

// Restart intervals are counted in MCUs (blocks in a scan of one component).
// A run ends where an interval does, so that the marker between intervals is
// crossed here and nowhere else; when it does not come, the data is cut or
// damaged and the scan ends with what it has.
size_t CJPEGDecoder::BeginRun(SmScanProgress& progress, size_t wanted) {
  progress.restarted = false;
  if (m_RestartInterval != 0) {
    const uint32_t intoInterval = progress.mcuIndex % m_RestartInterval;
    if (intoInterval == 0 && progress.mcuIndex != 0) {
      if (!ProcessRestart()) {
        progress.stopped = true;
        return 0;
      }
      progress.restarted = true;
    }
    wanted = std::min<size_t>(wanted, m_RestartInterval - intoInterval);
  }
  EnsureEntropyBytes();
  return wanted;
}

// Reading past the end of the data fills with zero bits; a row that needed
// them is the last that holds anything real.
void CJPEGDecoder::EndRow(SmScanProgress& progress) {
  if (HuffmanReadPastEnd(*m_HuffmanState.Get())) {
    progress.stopped = true;
  }
}

void CJPEGDecoder::EndEntropyScan(const SmScanProgress& progress) {
  CloseEntropySource();
  m_Truncated = progress.stopped;
}

// The walk of a buffered or lossless scan over its blocks (samples, when
// lossless) in coding order: MCU by MCU, in each the scan's components one
// after the other, and of each its blocks row by row; a scan of one component
// has MCUs of one block. `decode(component, x, y)` answers false on damaged
// data; `restarted()` is told when a restart interval begins.
template <typename Restarted, typename Decode>
void CJPEGDecoder::WalkScan(Restarted&& restarted, Decode&& decode) {
  SmScanProgress progress;
  BeginEntropyScan(progress);
  const bool single = m_Scan.count == 1;
  const int first = m_Scan.components[0];
  const int unitsX = single ? m_ScanBlocksX[first] : m_McusX;
  const int unitsY = single ? m_ScanBlocksY[first] : m_McusY;
  bool& stop = progress.stopped;
  for (int unitY = 0; unitY < unitsY && !stop; ++unitY) {
    for (int unitX = 0; unitX < unitsX && !stop; ++unitX, ++progress.mcuIndex) {
      if (BeginRun(progress, 1) == 0) {
        break;
      }
      if (progress.restarted) {
        restarted();
      }
      for (int i = 0; i < m_Scan.count && !stop; ++i) {
        const int c = m_Scan.components[i];
        const int blocksH = single ? 1 : m_Components[c].hSampling;
        const int blocksV = single ? 1 : m_Components[c].vSampling;
        for (int v = 0; v < blocksV && !stop; ++v) {
          for (int h = 0; h < blocksH; ++h) {
            if (!decode(c, static_cast<size_t>(unitX) * blocksH + h,
                        static_cast<size_t>(unitY) * blocksV + v)) {
              stop = true;
              break;
            }
          }
        }
      }
    }
    EndRow(progress);
  }
  EndEntropyScan(progress);
}

// A picture that ended early is still a picture, reported as such.
JStatus CJPEGDecoder::TruncationStatus(JStatus status) const {
  return status == JStatusOk && m_Truncated ? JStatusEndOfData : status;
}

JStatus CJPEGDecoder::ReadData() {
  if (!m_InScan || !m_Destination.set) {
    return JStatusFailed;
  }
  VZK_RETURN_IF_FAILED(AllocateFrameBuffers());
  m_Truncated = false;
  if (m_Mode != JModeProgressive && m_Mode != JModeLossless && m_Scan.count == m_ComponentCount) {
    // One interleaved scan: each MCU row goes out as soon as it is decoded.
    const JStatus status = DecodeSequentialStreaming();
    m_InScan = false;
    return TruncationStatus(status);
  }
  JStatus status = JStatusOk;
  while (m_InScan) {
    m_InScan = false;
    status = m_Mode == JModeLossless ? DecodeLosslessScan() : DecodeBufferedScan();
    if (status != JStatusOk || m_Truncated) {
      break;
    }
    uint8_t marker = 0;
    status = FinishScan(marker);
    if (status == JStatusSecondFrameHeader) {
      return status;
    }
    if (status != JStatusOk) {
      m_Truncated = true; // what the scans so far hold is still a picture
      status = JStatusOk;
      break;
    }
  }
  if (status != JStatusOk) {
    return status;
  }
  return TruncationStatus(m_Mode == JModeLossless ? OutputLosslessPicture()
                                                  : OutputBufferedPicture());
}

// After a scan: tables and restart intervals may change before the next SOS.
JStatus CJPEGDecoder::FinishScan(uint8_t& marker) {
  CloseEntropySource();
  VZK_RETURN_IF_FAILED(ParseMarkers(false, marker));
  if (marker != 0xDA && marker != 0xD9) {
    return JStatusFailed;
  }
  return JStatusOk;
}

JStatus CJPEGDecoder::DecodeSequentialStreaming() {
  VZK_RETURN_IF_FAILED(InstallMissingStandardTables());
  for (int i = 0; i < m_Scan.count; ++i) {
    const CJPEGColorComponent& component = m_Components[m_Scan.components[i]];
    if (!m_QuantTables[component.quantSelector].initialized ||
        !m_DCTables[component.dcSelector].initialized ||
        !m_ACTables[component.acSelector].initialized) {
      return JStatusFailed;
    }
  }
  const int scale = m_Destination.scale;
  const int out = BlockOutputSize();
  SmScanProgress progress;
  BeginEntropyScan(progress);
  SmHuffmanDecodeState& state = *m_HuffmanState.Get();
  const uint8_t* rows[4] = {};
  size_t strides[4] = {};
  for (int c = 0; c < m_ComponentCount; ++c) {
    rows[c] = m_Components[c].GetBuffer(CJPEGColorComponent::SampleRows);
    strides[c] = AlignRow(static_cast<size_t>(m_BlocksX[c]) * out);
  }
  // The blocks of the first MCU of a row, in the order of the scan; those of
  // the next MCUs follow at a fixed step.
  SmHuffmanMcuBlock layout[kMaximumBlocksPerMcu];
  int blocksPerMcu = 0;
  for (int i = 0; i < m_Scan.count; ++i) {
    const int c = m_Scan.components[i];
    CJPEGColorComponent& component = m_Components[c];
    auto* coefficients =
        reinterpret_cast<int16_t*>(component.GetBuffer(CJPEGColorComponent::Coefficients));
    for (int v = 0; v < component.vSampling; ++v) {
      for (int h = 0; h < component.hSampling; ++h) {
        if (blocksPerMcu == kMaximumBlocksPerMcu) {
          return JStatusFailed;
        }
        SmHuffmanMcuBlock& b = layout[blocksPerMcu++];
        b.block = coefficients + (static_cast<size_t>(v) * m_BlocksX[c] + h) * 64;
        b.step = static_cast<size_t>(component.hSampling) * 64;
        b.lastDC = &component.lastDC;
        b.dc = m_DCTables[component.dcSelector].GetTable();
        b.ac = m_ACTables[component.acSelector].GetTable();
      }
    }
  }
  const bool dcOnly = scale == 3;
  for (int mcuY = 0; mcuY < m_McusY && !progress.stopped; ++mcuY) {
    SmHuffmanMcuBlock run[kMaximumBlocksPerMcu];
    std::copy(layout, layout + blocksPerMcu, run);
    size_t mcuX = 0;
    while (mcuX < static_cast<size_t>(m_McusX) && !progress.stopped) {
      const size_t count = BeginRun(progress, static_cast<size_t>(m_McusX) - mcuX);
      if (count == 0) {
        break;
      }
      // Short of the reserve after a refill means the data ends within reach:
      // then the run goes to its end.
      const size_t reserve =
          m_Source.size - m_Source.position < kEntropyReserve ? 0 : kEntropyReserve;
      bool damaged = false;
      const size_t done =
          DecodeMcusSequential(m_Source, state, run, blocksPerMcu, count, dcOnly, reserve, damaged);
      for (int i = 0; i < blocksPerMcu; ++i) {
        run[i].block += done * run[i].step;
      }
      mcuX += done;
      progress.mcuIndex += static_cast<uint32_t>(done);
      progress.stopped = damaged; // damaged data: keep what came before
    }
    // The row goes out even when damage cut it short: its start is good.
    const uint32_t rowsPerMcu = static_cast<uint32_t>(m_McuHeight >> scale);
    for (int c = 0; c < m_ComponentCount; ++c) {
      const auto* coefficients = reinterpret_cast<const int16_t*>(
          m_Components[c].GetBuffer(CJPEGColorComponent::Coefficients));
      for (int v = 0; v < m_Components[c].vSampling; ++v) {
        OutputBlockRow(c, coefficients + static_cast<size_t>(v) * m_BlocksX[c] * 64,
                       mcuY * m_Components[c].vSampling + v, v);
      }
    }
    if (m_Destination.packed) {
      EmitRows(rows, strides, static_cast<uint32_t>(mcuY) * rowsPerMcu, rowsPerMcu);
    }
    EndRow(progress);
  }
  EndEntropyScan(progress);
  return JStatusOk;
}

JStatus CJPEGDecoder::DecodeBufferedScan() {
  VZK_RETURN_IF_FAILED(InstallMissingStandardTables());
  const bool progressive = m_Mode == JModeProgressive;
  const bool dcScan = m_Scan.spectralStart == 0;
  const bool refine = m_Scan.approximationHigh != 0;
  for (int i = 0; i < m_Scan.count; ++i) {
    const CJPEGColorComponent& component = m_Components[m_Scan.components[i]];
    const bool needDC = !progressive || (dcScan && !refine);
    const bool needAC = !progressive || !dcScan;
    if ((needDC && !m_DCTables[component.dcSelector].initialized) ||
        (needAC && !m_ACTables[component.acSelector].initialized)) {
      return JStatusFailed;
    }
  }
  const SmHuffmanDecodeTable* dc[4] = {};
  const SmHuffmanDecodeTable* ac[4] = {};
  int16_t* coefficients[4] = {};
  for (int c = 0; c < m_ComponentCount; ++c) {
    CJPEGColorComponent& component = m_Components[c];
    dc[c] = m_DCTables[component.dcSelector].GetTable();
    ac[c] = m_ACTables[component.acSelector].GetTable();
    coefficients[c] =
        reinterpret_cast<int16_t*>(component.GetBuffer(CJPEGColorComponent::Coefficients));
  }
  SmHuffmanDecodeState& state = *m_HuffmanState.Get();
  const int low = m_Scan.approximationLow;
  const auto decode = [&](int c, size_t bx, size_t by) {
    int16_t* block = coefficients[c] + (by * m_BlocksX[c] + bx) * 64;
    int& lastDC = m_Components[c].lastDC;
    if (!progressive) {
      return DecodeBlockSequential(m_Source, state, *dc[c], *ac[c], block, lastDC);
    }
    if (dcScan) {
      return refine ? DecodeBlockDCRefine(m_Source, state, block, low)
                    : DecodeBlockDCFirst(m_Source, state, *dc[c], block, lastDC, low);
    }
    return refine ? DecodeBlockACRefine(m_Source, state, *ac[c], block, m_Scan.spectralStart,
                                        m_Scan.spectralEnd, low)
                  : DecodeBlockACFirst(m_Source, state, *ac[c], block, m_Scan.spectralStart,
                                       m_Scan.spectralEnd, low);
  };
  WalkScan([] {}, decode);
  return JStatusOk;
}

JStatus CJPEGDecoder::OutputBufferedPicture() {
  const int scale = m_Destination.scale;
  const int out = BlockOutputSize();
  const uint8_t* rows[4] = {};
  size_t strides[4] = {};
  for (int c = 0; c < m_ComponentCount; ++c) {
    if (!m_QuantTables[m_Components[c].quantSelector].initialized) {
      return JStatusFailed;
    }
    rows[c] = m_Components[c].GetBuffer(CJPEGColorComponent::SampleRows);
    strides[c] = AlignRow(static_cast<size_t>(m_BlocksX[c]) * out);
  }
  const uint32_t rowsPerMcu = static_cast<uint32_t>(m_McuHeight >> scale);
  for (int mcuY = 0; mcuY < m_McusY; ++mcuY) {
    if (static_cast<uint64_t>(mcuY) * rowsPerMcu >= m_Destination.height) {
      break;
    }
    for (int c = 0; c < m_ComponentCount; ++c) {
      const CJPEGColorComponent& component = m_Components[c];
      const auto* coefficients =
          reinterpret_cast<const int16_t*>(component.GetBuffer(CJPEGColorComponent::Coefficients));
      for (int v = 0; v < component.vSampling; ++v) {
        const int blockRow = mcuY * component.vSampling + v;
        OutputBlockRow(c, coefficients + static_cast<size_t>(blockRow) * m_BlocksX[c] * 64,
                       blockRow, v);
      }
    }
    if (m_Destination.packed) {
      EmitRows(rows, strides, static_cast<uint32_t>(mcuY) * rowsPerMcu, rowsPerMcu);
    }
  }
  return JStatusOk;
}

// Samples of one row of blocks of a component. Planes take them straight
// from the transform, but for the blocks that would reach past the plane's
// right or bottom edge, which go through the component's sample rows. Packed
// output collects them in the sample rows (at band row `bandRow` of the MCU
// row) for up-sampling and colour conversion.
void CJPEGDecoder::OutputBlockRow(int c, const int16_t* coefficients, int blockRow, int bandRow) {
  const SmDestination& d = m_Destination;
  const CJPEGColorComponent& component = m_Components[c];
  const int16_t* quant = m_Dequant[component.quantSelector];
  const size_t size = static_cast<size_t>(BlockOutputSize());
  const size_t blocks = static_cast<size_t>(m_BlocksX[c]);
  uint8_t* samples = component.GetBuffer(CJPEGColorComponent::SampleRows);
  const size_t stride = AlignRow(blocks * size);
  if (d.packed) {
    JPEGInverseDCTBlocks(d.scale, coefficients, blocks, quant, samples + bandRow * size * stride,
                         stride);
    return;
  }
  if (c >= d.channels) {
    return; // gray out of a colour picture
  }
  const uint32_t planeWidth =
      DivideUp(static_cast<uint64_t>(d.width) * component.hSampling, m_MaxH);
  const uint32_t planeHeight =
      DivideUp(static_cast<uint64_t>(d.height) * component.vSampling, m_MaxV);
  const uint64_t firstRow = static_cast<uint64_t>(blockRow) * size;
  if (firstRow >= planeHeight) {
    return;
  }
  const size_t rows = std::min<uint64_t>(size, planeHeight - firstRow);
  const size_t width = std::min<size_t>(planeWidth, blocks * size);
  uint8_t* target = d.planes[c] + firstRow * d.steps[c];
  const size_t direct = rows == size ? std::min(blocks, width / size) : 0;
  if (direct > 0) {
    JPEGInverseDCTBlocks(d.scale, coefficients, direct, quant, target, d.steps[c]);
  }
  if (direct * size < width) {
    JPEGInverseDCTBlocks(d.scale, coefficients + direct * 64, blocks - direct, quant, samples,
                         stride);
    for (size_t r = 0; r < rows; ++r) {
      std::memcpy(target + r * d.steps[c] + direct * size, samples + r * stride,
                  width - direct * size);
    }
  }
}

// T.81 H.1.2.1: each sample is predicted from its decoded neighbours a (left),
// b (above) and c (above left). The first line of the scan and of each
// restart interval uses a alone, the first column b alone, and the very first
// sample half the range.
JStatus CJPEGDecoder::DecodeLosslessScan() {
  for (int i = 0; i < m_Scan.count; ++i) {
    if (!m_DCTables[m_Components[m_Scan.components[i]].dcSelector].initialized) {
      return JStatusFailed;
    }
  }
  const SmHuffmanDecodeTable* tables[4] = {};
  uint16_t* planes[4] = {};
  for (int c = 0; c < m_ComponentCount; ++c) {
    CJPEGColorComponent& component = m_Components[c];
    tables[c] = m_DCTables[component.dcSelector].GetTable();
    planes[c] = reinterpret_cast<uint16_t*>(component.GetBuffer(CJPEGColorComponent::Coefficients));
  }
  SmHuffmanDecodeState& state = *m_HuffmanState.Get();
  const int predictor = m_Scan.spectralStart;
  const int pointTransform = m_Scan.approximationLow;
  const int32_t initial = 1 << (m_Precision - pointTransform - 1);
  bool pending[4] = {true, true, true, true};
  int firstLine[4] = {};
  const auto decode = [&](int c, size_t x, size_t y) {
    const size_t width = static_cast<size_t>(m_BlocksX[c]);
    uint16_t* sample = planes[c] + y * width + x;
    int32_t prediction = 0;
    if (pending[c]) {
      prediction = initial;
      pending[c] = false;
      firstLine[c] = static_cast<int>(y);
    } else if (static_cast<int>(y) == firstLine[c]) {
      prediction = x > 0 ? sample[-1] : initial;
    } else if (x == 0) {
      prediction = sample[-static_cast<ptrdiff_t>(width)];
    } else {
      const int32_t a = sample[-1];
      const int32_t b = sample[-static_cast<ptrdiff_t>(width)];
      const int32_t cc = sample[-static_cast<ptrdiff_t>(width) - 1];
      switch (predictor) {
      case 1:
        prediction = a;
        break;
      case 2:
        prediction = b;
        break;
      case 3:
        prediction = cc;
        break;
      case 4:
        prediction = a + b - cc;
        break;
      case 5:
        prediction = a + ((b - cc) >> 1);
        break;
      case 6:
        prediction = b + ((a - cc) >> 1);
        break;
      case 7:
        prediction = (a + b) >> 1;
        break;
      default:
        prediction = 0;
        break;
      }
    }
    int32_t difference = 0;
    if (!DecodeLosslessDifference(m_Source, state, *tables[c], difference)) {
      return false;
    }
    *sample = static_cast<uint16_t>(prediction + difference);
    return true;
  };
  WalkScan([&] { std::fill(pending, pending + 4, true); }, decode);
  return JStatusOk;
}

JStatus CJPEGDecoder::OutputLosslessPicture() {
  const int factor = 1 << m_Destination.scale;
  const int shift = m_Scan.approximationLow;
  const uint8_t* rows[4] = {};
  size_t strides[4] = {};
  for (int c = 0; c < m_ComponentCount; ++c) {
    CJPEGColorComponent& component = m_Components[c];
    const auto* plane =
        reinterpret_cast<const uint16_t*>(component.GetBuffer(CJPEGColorComponent::Coefficients));
    const size_t width = DivideUp(static_cast<uint64_t>(m_BlocksX[c]), factor);
    const size_t height = DivideUp(static_cast<uint64_t>(m_BlocksY[c]), factor);
    strides[c] = AlignRow(width);
    uint8_t* samples = component.GetBuffer(CJPEGColorComponent::SampleRows);
    rows[c] = samples;
    for (size_t y = 0; y < height; ++y) {
      const uint16_t* source = plane + y * factor * m_BlocksX[c];
      for (size_t x = 0; x < width; ++x) {
        const uint32_t value = static_cast<uint32_t>(source[x * factor]) << shift;
        samples[y * strides[c] + x] = static_cast<uint8_t>(value > 255 ? 255 : value);
      }
    }
  }
  EmitRows(rows, strides, 0, DivideUp(static_cast<uint64_t>(m_McusY) * m_McuHeight, factor));
  return JStatusOk;
}

// Rows [firstRow, firstRow + rowCount) of the output picture, from component
// rows that start at the same place.
void CJPEGDecoder::EmitRows(const uint8_t* const rows[4], const size_t strides[4],
                            uint32_t firstRow, uint32_t rowCount) {
  const SmDestination& d = m_Destination;
  if (firstRow >= d.height) {
    return;
  }
  if (d.packed) {
    EmitPackedRows(rows, strides, firstRow, rowCount);
    return;
  }
  const int factor = 1 << d.scale;
  for (int p = 0; p < d.channels; ++p) {
    const CJPEGColorComponent& component = m_Components[p];
    const uint64_t h = component.hSampling;
    const uint64_t v = component.vSampling;
    const uint32_t planeWidth = DivideUp(d.width * h, m_MaxH);
    const uint32_t planeHeight = DivideUp(d.height * v, m_MaxV);
    const uint32_t available = m_Mode == JModeLossless
                                   ? DivideUp(static_cast<uint64_t>(m_BlocksX[p]), factor)
                                   : static_cast<uint32_t>(m_BlocksX[p] * BlockOutputSize());
    const uint32_t width = planeWidth < available ? planeWidth : available;
    const uint32_t first = static_cast<uint32_t>(firstRow * v / m_MaxV);
    const uint32_t count = DivideUp(rowCount * v, m_MaxV);
    for (uint32_t r = 0; r < count && first + r < planeHeight; ++r) {
      std::memcpy(d.planes[p] + static_cast<size_t>(first + r) * d.steps[p],
                  rows[p] + r * strides[p], width);
    }
  }
}

void CJPEGDecoder::EmitPackedRows(const uint8_t* const rows[4], const size_t strides[4],
                                  uint32_t firstRow, uint32_t rowCount) {
  const SmDestination& d = m_Destination;
  const uint32_t width = d.width;
  for (uint32_t r = 0; r < rowCount && firstRow + r < d.height; ++r) {
    // Each component's row for this output row, widened to full size by
    // repeating samples.
    const uint8_t* line[4] = {};
    for (int c = 0; c < m_ComponentCount; ++c) {
      const CJPEGColorComponent& component = m_Components[c];
      const int stepX = m_MaxH / component.hSampling;
      const int stepY = m_MaxV / component.vSampling;
      const uint8_t* source = rows[c] + (r / stepY) * strides[c];
      if (stepX == 1) {
        line[c] = source;
        continue;
      }
      uint8_t* wide = component.GetBuffer(CJPEGColorComponent::Scratch);
      if (stepX == 2) {
        ChromaDoubleColumns(source, 0, wide, 0, width, 1);
      } else {
        for (uint32_t x = 0; x < width; ++x) {
          wide[x] = source[x / stepX];
        }
      }
      line[c] = wide;
    }
    uint8_t* target = d.planes[0] + static_cast<size_t>(firstRow + r) * d.steps[0];
    const bool bgr = d.color == JColorBGR;
    if (d.color == JColorCMYK) {
      if (m_Color == JColorYCCK) {
        JPEGYCbCrToRGBRow(line[0], line[1], line[2], target, width, false);
        for (int32_t x = static_cast<int32_t>(width) - 1; x >= 0; --x) {
          target[4 * x + 3] = line[3][x];
          target[4 * x + 2] = static_cast<uint8_t>(255 - target[3 * x + 2]);
          target[4 * x + 1] = static_cast<uint8_t>(255 - target[3 * x + 1]);
          target[4 * x + 0] = static_cast<uint8_t>(255 - target[3 * x + 0]);
        }
      } else {
        for (uint32_t x = 0; x < width; ++x) {
          for (int c = 0; c < 4; ++c) {
            target[4 * x + c] = line[c][x];
          }
        }
      }
    } else if (m_Color == JColorGray) {
      for (uint32_t x = 0; x < width; ++x) {
        target[3 * x] = target[3 * x + 1] = target[3 * x + 2] = line[0][x];
      }
    } else if (m_Color == JColorYCbCr && d.color != JColorYCbCr) {
      JPEGYCbCrToRGBRow(line[0], line[1], line[2], target, width, bgr);
    } else {
      // RGB frames to RGB or BGR, YCbCr frames to packed YCbCr.
      for (uint32_t x = 0; x < width; ++x) {
        target[3 * x] = line[bgr ? 2 : 0][x];
        target[3 * x + 1] = line[1][x];
        target[3 * x + 2] = line[bgr ? 0 : 2][x];
      }
    }
  }
}
