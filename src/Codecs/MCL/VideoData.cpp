#include "Codecs/MCL/VideoData.h"

namespace MCL {

Status VideoData::Init(int32_t width, int32_t height, ColorFormat format) {
  for (int i = 0; i < MaxPlanes; ++i) {
    m_Planes[i] = nullptr;
    m_Pitches[i] = 0;
  }
  m_Width = 0;
  m_Height = 0;
  m_Format = ColorFormatNone;
  if (width <= 0 || height <= 0) {
    return StatusFailed;
  }
  // A decoded picture may have any size, its subsampled chroma rounding up;
  // whether an image of the caller can take it is the wrapper's concern.
  switch (format) {
  case YUV420:
  case YUV422:
  case YUV444:
  case BGR32:
  case BGR24:
  case GRAY:
    break;
  default:
    return StatusFailed;
  }
  m_Width = width;
  m_Height = height;
  m_Format = format;
  return StatusOk;
}

int VideoData::GetPlaneCount() const {
  switch (m_Format) {
  case YUV420:
  case YUV422:
  case YUV444:
    return 3;
  case BGR32:
  case BGR24:
  case GRAY:
    return 1;
  default:
    return 0;
  }
}

int32_t VideoData::GetPlaneWidth(int index) const {
  if (index < 0 || index >= GetPlaneCount()) {
    return 0;
  }
  if (index > 0 && (m_Format == YUV420 || m_Format == YUV422)) {
    return (m_Width + 1) / 2;
  }
  return m_Width;
}

int32_t VideoData::GetPlaneHeight(int index) const {
  if (index < 0 || index >= GetPlaneCount()) {
    return 0;
  }
  if (index > 0 && m_Format == YUV420) {
    return (m_Height + 1) / 2;
  }
  return m_Height;
}

int32_t VideoData::GetBytesPerSample() const {
  switch (m_Format) {
  case BGR32:
    return 4;
  case BGR24:
    return 3;
  default:
    return 1;
  }
}

Status VideoData::SetPlanePointer(int index, uint8_t* plane) {
  if (!Valid(index)) {
    return StatusFailed;
  }
  m_Planes[index] = plane;
  return StatusOk;
}

Status VideoData::SetPlanePitch(int index, size_t pitch) {
  if (!Valid(index)) {
    return StatusFailed;
  }
  m_Pitches[index] = pitch;
  return StatusOk;
}

} // namespace MCL
