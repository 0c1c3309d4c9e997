#include "WavWriter.h"

#include <array>

#include "PluginHost.h"

namespace NmVzkTool {
namespace {

void Put16(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
}

void Put32(uint8_t* at, uint32_t value) {
  Put16(at, value & 0xFFFF);
  Put16(at + 2, value >> 16);
}

constexpr size_t HeaderSize = 44;
// WAV sizes are 32-bit; a file stops short of the limit rather than lie.
constexpr uint64_t MaximumData = 0xFFFFFFFFull - HeaderSize;

} // namespace

CmWavWriter::~CmWavWriter() {
  try {
    Close();
  } catch (...) {
  }
}

void CmWavWriter::Start(uint32_t channels, uint32_t rate, uint32_t bitsPerSample) {
  Close();
  ++m_FileCount;
  m_FileName = m_FileCount == 1 ? "audio.wav" : "audio-" + std::to_string(m_FileCount) + ".wav";
  m_File.Open(m_Directory + "/" + m_FileName);
  m_Channels = channels;
  m_Rate = rate;
  m_Bits = bitsPerSample;
  std::array<uint8_t, HeaderSize> header{'R', 'I', 'F', 'F', 0,   0,   0,   0,
                                         'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
  const uint32_t blockAlign = channels * bitsPerSample / 8;
  Put32(&header[4], HeaderSize - 8);
  Put32(&header[16], 16);
  Put16(&header[20], 1); // integer PCM
  Put16(&header[22], channels);
  Put32(&header[24], rate);
  Put32(&header[28], rate * blockAlign);
  Put16(&header[32], blockAlign);
  Put16(&header[34], bitsPerSample);
  header[36] = 'd', header[37] = 'a', header[38] = 't', header[39] = 'a';
  Put32(&header[40], 0);
  m_File.Write(header.data(), header.size());
}

std::string CmWavWriter::Write(uint32_t channels, uint32_t rate, uint32_t bitsPerSample,
                               const uint8_t* data, size_t size) {
  if (channels == 0 || channels > 255 || rate == 0 || rate > 1000000 ||
      (bitsPerSample != 8 && bitsPerSample != 16 && bitsPerSample != 24 && bitsPerSample != 32)) {
    throw CmItemError("PCM audio with " + std::to_string(channels) + " channels at " +
                      std::to_string(rate) + " Hz and " + std::to_string(bitsPerSample) +
                      " bits a sample cannot go into a WAV file.");
  }
  const uint32_t frameBytes = channels * bitsPerSample / 8;
  if (size % frameBytes != 0) {
    throw CmItemError("An audio packet holds " + std::to_string(size) +
                      " bytes, which is no whole number of " + std::to_string(frameBytes) +
                      "-byte sample frames.");
  }
  if (!m_File.IsOpen() || channels != m_Channels || rate != m_Rate || bitsPerSample != m_Bits ||
      m_File.GetSize() - HeaderSize + size > MaximumData) {
    Start(channels, rate, bitsPerSample);
  }
  m_File.Write(data, size);
  const uint64_t dataSize = m_File.GetSize() - HeaderSize;
  uint8_t sizes[4];
  Put32(sizes, static_cast<uint32_t>(dataSize + HeaderSize - 8));
  m_File.WriteAt(4, sizes, 4);
  Put32(sizes, static_cast<uint32_t>(dataSize));
  m_File.WriteAt(40, sizes, 4);
  return m_FileName;
}

void CmWavWriter::Close() {
  m_File.Close();
}

} // namespace NmVzkTool
