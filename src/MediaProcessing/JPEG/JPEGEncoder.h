#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MediaProcessing/JPEG/BaseStream.h"
#include "MediaProcessing/JPEG/BitStreamOutput.h"
#include "MediaProcessing/JPEG/JPEGColorComponent.h"
#include "MediaProcessing/JPEG/JPEGHuffmanState.h"
#include "MediaProcessing/JPEG/JPEGHuffmanTable.h"
#include "MediaProcessing/JPEG/JPEGQuantTable.h"
#include "MediaProcessing/JPEG/JPEGStatus.h"
#include "MediaProcessing/JPEG/JPEGTypes.h"

// Writes a baseline JPEG stream (ITU-T T.81, sequential DCT, Huffman coded,
// with the example tables of Annex K) to an output stream. Grey pictures
// are coded as one component; colour ones as YCbCr at 4:4:4, 4:2:2 or 4:2:0.
// The source is either planes that already have the coded form, or packed
// RGB, BGR or grey pixels, which are converted on the way, one row of
// MCUs at a time. Nothing throws: every call answers a status.
//
// Use: SetSource, SetDestination, SetParams, optionally SetComment, then
// WriteHeader and WriteData for each picture.
class CJPEGEncoder {
public:
  CJPEGEncoder();
  virtual ~CJPEGEncoder();
  CJPEGEncoder(const CJPEGEncoder&) = delete;
  CJPEGEncoder& operator=(const CJPEGEncoder&) = delete;

  // Packed pixels: 1 channel grey, or 3 or 4 channels RGB or BGR (a fourth
  // byte is not read). `step` is the distance between rows in bytes.
  JStatus SetSource(const uint8_t* data, int step, int width, int height, int channels,
                    JColor color, JSampling sampling, int precision);
  // Planes: 1 for grey, 3 for YCbCr with the chroma planes subsampled as
  // `sampling` says (rounded up at odd sizes).
  JStatus SetSource(const uint8_t* const planes[], const int steps[], int width, int height,
                    int planeCount, JColor color, JSampling sampling, int precision);
  JStatus SetDestination(CBaseStreamOutput* stream);
  // mode 1 (baseline) is the only process written; others answer -3, as do
  // colours other than grey and YCbCr and Huffman optimisation.
  JStatus SetParams(int mode, JColor color, JSampling sampling, int restartInterval,
                    int huffmanOptimize, int quality);
  // Written as COM into every picture; size 0 removes it.
  JStatus SetComment(size_t size, const char* text);
  // SOI up to and including SOS; the densities go to APP0.
  JStatus WriteHeader(int xDensity, int yDensity);
  // The entropy-coded data and EOI, then everything is flushed to the stream.
  JStatus WriteData();

  int GetComponentCount() const { return m_ComponentCount; }

private:
  struct SmSource {
    bool packed = false;
    const uint8_t* planes[3] = {};
    int steps[3] = {};
    int width = 0;
    int height = 0;
    int channels = 0;
    JColor color = JColorUnknown;
    JSampling sampling = JSampling444;
  };

  JStatus TakeSource(int width, int height, int channels, JColor color, JSampling sampling);
  JStatus CheckReady() const;
  JStatus WriteMarkerSegment(uint8_t marker, const uint8_t* body, size_t size);
  JStatus WriteFrameAndTables(int xDensity, int yDensity);
  JStatus PrepareStrips(int mcuRow, const uint8_t* rows[3], size_t strides[3]);
  JStatus EncodeMcuRow(int mcuRow);
  JStatus WriteRestart();
  JStatus FlushBits();

  // Parameters.
  int m_ComponentCount = 4;
  int m_Precision = 8;
  int m_Quality = 100;
  int m_Mode = JModeBaseline;
  int m_RestartInterval = 0;
  int m_HuffmanOptimize = 0;
  int m_SpectralEnd = 63;
  int m_SuccessiveApproximation = 0;
  JColor m_Color = JColorUnknown;
  JSampling m_Sampling = JSampling420;
  bool m_ParamsSet = false;
  bool m_SecondTable = false;

  SmSource m_Source;
  CBaseStreamOutput* m_Stream = nullptr;
  CBitStreamOutput m_Output;
  std::vector<char> m_Comment;

  // Frame geometry, from SetParams and the source.
  int m_McuWidth = 8;
  int m_McuHeight = 8;
  int m_McusX = 0;
  int m_McusY = 0;

  CJPEGColorComponent m_Components[4];
  CJPEGEncoderQuantTable m_QuantTables[4];
  alignas(64) float m_Reciprocals[2][64] = {};
  CJPEGEncoderHuffmanTable m_DCTables[4];
  CJPEGEncoderHuffmanTable m_ACTables[4];
  CJPEGEncoderHuffmanState m_HuffmanState;
  uint32_t m_McusCoded = 0;
  uint32_t m_RestartNumber = 0;
};
