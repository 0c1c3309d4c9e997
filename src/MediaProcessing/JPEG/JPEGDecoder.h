#pragma once

#include <cstddef>
#include <cstdint>

#include "MediaProcessing/JPEG/BaseStream.h"
#include "MediaProcessing/JPEG/BitStreamInput.h"
#include "MediaProcessing/JPEG/JPEGColorComponent.h"
#include "MediaProcessing/JPEG/JPEGHuffmanState.h"
#include "MediaProcessing/JPEG/JPEGHuffmanTable.h"
#include "MediaProcessing/JPEG/JPEGQuantTable.h"
#include "MediaProcessing/JPEG/JPEGTypes.h"

// Decodes one JPEG stream (ITU-T T.81: baseline, extended sequential with
// 8-bit samples, progressive and lossless, all Huffman-coded) into planes or a
// packed buffer, optionally at 1/2, 1/4 or 1/8 of the size.
//
// Use: Clean, SetSource, ReadHeader, SetDestination, ReadData. A stream that
// ends early still gives the rows decoded so far, with JStatusEndOfData.
class CJPEGDecoder {
public:
  // The largest picture accepted, in pixels: more than any camera delivers,
  // and a bound on what a hostile header can make us allocate.
  static constexpr uint64_t MaximumPixels = uint64_t{1} << 26;

  CJPEGDecoder();
  virtual ~CJPEGDecoder();
  CJPEGDecoder(const CJPEGDecoder&) = delete;
  CJPEGDecoder& operator=(const CJPEGDecoder&) = delete;

  // Back to the start: stream, frame, tables and destination forgotten.
  void Clean();
  JStatus SetSource(CBaseStreamInput* stream);
  // Parses markers up to the frame header (headerOnly) or up to and including
  // the first scan header.
  JStatus ReadHeader(int& width, int& height, int& channels, JColor& color, JSampling& sampling,
                     int& precision, bool headerOnly = false);
  // Planes of the frame's own colour and sampling, or one gray plane. Width and
  // height are those of the (scaled) output; scale is log2 of the reduction.
  JStatus SetDestination(uint8_t* const planes[4], const uint32_t steps[4], uint32_t width,
                         uint32_t height, int planeCount, JColor color, JSampling sampling,
                         int precision, int scale);
  // One packed buffer: 1 channel gray, 3 channels RGB, BGR or YCbCr, 4 CMYK.
  JStatus SetDestination(uint8_t* data, uint32_t step, uint32_t width, uint32_t height,
                         int channels, JColor color, JSampling sampling, int precision, int scale);
  JStatus ReadData();
  // Width of a pixel over its height, from the JFIF densities; 1 without them.
  double GetFrameAspect() const;

  JMode GetMode() const { return m_Mode; }
  bool SawJFIF() const { return m_SawJFIF; }
  bool SawExif() const { return m_SawExif; }
  bool SawAdobe() const { return m_SawAdobe; }
  int GetAdobeTransform() const { return m_AdobeTransform; }
  uint32_t GetRestartInterval() const { return m_RestartInterval; }

private:
  struct SmScan {
    int count = 0;
    int components[4] = {};
    int spectralStart = 0;
    int spectralEnd = 63;
    int approximationHigh = 0;
    int approximationLow = 0;
  };
  // Where a scan stands in its MCUs, and whether its data ended early.
  struct SmScanProgress {
    uint32_t mcuIndex = 0;
    bool restarted = false; // the current run follows a restart marker
    bool stopped = false;   // damaged or cut data: what came before is kept
  };
  struct SmDestination {
    bool set = false;
    bool packed = false;
    uint8_t* planes[4] = {};
    uint32_t steps[4] = {};
    uint32_t width = 0;
    uint32_t height = 0;
    int channels = 0;
    JColor color = JColorUnknown;
    int scale = 0;
  };

  // Header parsing.
  JStatus ParseMarkers(bool stopAtFrame, uint8_t& marker);
  JStatus NextMarker(uint8_t& marker);
  JStatus SkipSegment();
  JStatus ReadLength(uint32_t& remaining);
  JStatus ParseFrame(uint8_t marker);
  JStatus ParseScan();
  JStatus ParseQuantTables();
  JStatus ParseHuffmanTables();
  JStatus ParseRestartInterval();
  JStatus ParseApp0();
  JStatus ParseApp1();
  JStatus ParseApp14();
  void DeriveColorAndSampling();

  // Entropy-coded data.
  void OpenEntropySource();
  void CloseEntropySource();
  void EnsureEntropyBytes();
  // False when the data ended or a marker other than RSTn came first.
  bool ProcessRestart();
  // The restart-interval and truncation path that every scan loop shares.
  void BeginEntropyScan(SmScanProgress& progress);
  // How many of the next `wanted` MCUs to decode in one go: never past the end
  // of a restart interval. 0 when the scan has ended.
  size_t BeginRun(SmScanProgress& progress, size_t wanted);
  void EndRow(SmScanProgress& progress);
  void EndEntropyScan(const SmScanProgress& progress);
  template <typename Restarted, typename Decode>
  void WalkScan(Restarted&& restarted, Decode&& decode);
  JStatus TruncationStatus(JStatus status) const;
  void ResetPredictions();
  JStatus InstallMissingStandardTables();
  JStatus AllocateFrameBuffers();
  JStatus DecodeSequentialStreaming();
  JStatus DecodeBufferedScan();
  JStatus DecodeLosslessScan();
  JStatus FinishScan(uint8_t& marker);
  JStatus OutputBufferedPicture();
  JStatus OutputLosslessPicture();

  // Output.
  JStatus TakeDestination(uint32_t width, uint32_t height, int channels, JColor color, int scale);
  JStatus CheckDestination() const;
  int BlockOutputSize() const;
  void OutputBlockRow(int component, const int16_t* coefficients, int blockRow, int bandRow);
  void EmitRows(const uint8_t* const rows[4], const size_t strides[4], uint32_t firstRow,
                uint32_t rowCount);
  void EmitPackedRows(const uint8_t* const rows[4], const size_t strides[4], uint32_t firstRow,
                      uint32_t rowCount);

  CBaseStreamInput* m_Stream = nullptr;
  CBitStreamInput m_Bits;
  NmPrimitives::SmEntropySource m_Source;

  // Frame.
  bool m_SawFrame = false;
  JMode m_Mode = JModeBaseline;
  int m_Width = 0;
  int m_Height = 0;
  int m_Precision = 8;
  int m_ComponentCount = 0;
  JColor m_Color = JColorUnknown;
  JSampling m_Sampling = JSamplingOther;
  int m_MaxH = 1;
  int m_MaxV = 1;
  int m_McuWidth = 8;
  int m_McuHeight = 8;
  int m_McusX = 0;
  int m_McusY = 0;
  CJPEGColorComponent m_Components[4];
  int m_BlocksX[4] = {}; // blocks (or samples, lossless) per row, interleaved layout
  int m_BlocksY[4] = {};
  int m_ScanBlocksX[4] = {}; // blocks that a scan of this component alone covers
  int m_ScanBlocksY[4] = {};
  bool m_BuffersReady = false;

  // Tables.
  CJPEGDecoderQuantTable m_QuantTables[4];
  // Natural order, as the inverse transform takes them.
  alignas(64) int16_t m_Dequant[4][64];
  CJPEGDecoderHuffmanTable m_DCTables[4];
  CJPEGDecoderHuffmanTable m_ACTables[4];
  CJPEGDecoderHuffmanState m_HuffmanState;
  uint32_t m_RestartInterval = 0;

  // Application markers.
  bool m_SawJFIF = false;
  bool m_SawJFXX = false;
  int m_JFIFVersion = 0;
  int m_DensityUnits = 0;
  int m_XDensity = 1;
  int m_YDensity = 1;
  bool m_SawExif = false;
  bool m_SawAdobe = false;
  int m_AdobeVersion = 0;
  int m_AdobeFlags0 = 0;
  int m_AdobeFlags1 = 0;
  int m_AdobeTransform = -1;

  // Scan.
  SmScan m_Scan;
  bool m_InScan = false;
  bool m_Truncated = false;

  SmDestination m_Destination;
};
