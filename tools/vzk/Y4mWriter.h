#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OutputFile.h"
#include "vzk/Data.h"

namespace NmVzkTool {

// Writes pictures into YUV4MPEG2 streams: DIR/out.y4m, and DIR/out-2.y4m and
// so on whenever the size or layout of the pictures changes, since one stream
// holds one form only. The header's frame rate comes from the times of the
// first two pictures of a stream, so the first picture waits for the second.
class CmY4mWriter {
public:
  explicit CmY4mWriter(std::string directory) : m_Directory(std::move(directory)) {}
  ~CmY4mWriter();
  CmY4mWriter(const CmY4mWriter&) = delete;
  CmY4mWriter& operator=(const CmY4mWriter&) = delete;

  // Returns the name of the stream that the picture goes into. Throws
  // CmPictureError for a picture that cannot be written, CmRunError when the
  // file cannot be.
  std::string Write(const NmToolkit::ImImage& image, int64_t time);
  void Close();
  uint32_t GetStreamCount() const { return m_StreamCount; }

  // The stream parameters after the size: interlacing, aspect and colour space.
  struct SmLayout {
    uint32_t width = 0;
    uint32_t height = 0;
    char interlacing = 'p';
    uint32_t aspectNumerator = 1;
    uint32_t aspectDenominator = 1;
    std::string colorSpace;
    bool operator==(const SmLayout&) const = default;
  };

private:
  void StartStream(const SmLayout& layout);
  void WriteHeader(uint32_t rateNumerator, uint32_t rateDenominator);

  std::string m_Directory;
  CmOutputFile m_File;
  std::optional<SmLayout> m_Layout;
  std::string m_StreamName;
  uint32_t m_StreamCount = 0;
  bool m_HeaderWritten = false;
  std::vector<uint8_t> m_PendingFrame;
  int64_t m_PendingTime = 0;
};

// A ratio close to `value` with a denominator of at most `limit`.
void ApproximateRatio(double value, uint32_t limit, uint32_t& numerator, uint32_t& denominator);

} // namespace NmVzkTool
