#pragma once

#include <cstddef>
#include <cstdint>

#include "Codecs/MCL/MediaData.h"
#include "Codecs/MCL/Status.h"

namespace MCL {

// The picture layouts the codecs write. The numbers are fixed: they are
// exchanged with the layer above through its own tables.
enum ColorFormat : int32_t {
  ColorFormatNone = -1,
  YUV420 = 5,
  YUV422 = 6,
  YUV444 = 7,
  BGR32 = 11,
  BGR24 = 12,
  GRAY = 16,
};

// Which lines of a frame a picture holds, and in which order its fields came.
enum PictureStructure : int32_t {
  PictureStructureNone = 0,
  TopField = 1,
  BottomField = 2,
  Frame = 3,
  FrameTopFieldFirst = 7,
  FrameBottomFieldFirst = 11,
};

// One picture: its size and layout, and up to four planes that somebody else
// owns. The time and frame id of MediaData travel with it.
class VideoData : public MediaData {
public:
  static constexpr int MaxPlanes = 4;

  // Sets size and format and forgets the planes. Odd sizes are refused where
  // the chroma planes would not cover the picture.
  Status Init(int32_t width, int32_t height, ColorFormat format);

  int32_t GetWidth() const { return m_Width; }
  int32_t GetHeight() const { return m_Height; }
  ColorFormat GetColorFormat() const { return m_Format; }
  int GetPlaneCount() const;
  // Size of plane `index` in samples; 0 for a plane the format lacks.
  int32_t GetPlaneWidth(int index) const;
  int32_t GetPlaneHeight(int index) const;
  // Bytes of one sample of plane `index`: 3 and 4 for the packed formats.
  int32_t GetBytesPerSample() const;

  uint8_t* GetPlanePointer(int index) const { return Valid(index) ? m_Planes[index] : nullptr; }
  size_t GetPlanePitch(int index) const { return Valid(index) ? m_Pitches[index] : 0; }
  Status SetPlanePointer(int index, uint8_t* plane);
  Status SetPlanePitch(int index, size_t pitch);

  // Row alignment in bytes that the owner of the planes keeps; 0 for none.
  size_t GetAlignment() const { return m_Alignment; }
  void SetAlignment(size_t alignment) { m_Alignment = alignment; }

  PictureStructure GetPictureStructure() const { return m_PictureStructure; }
  void SetPictureStructure(PictureStructure structure) { m_PictureStructure = structure; }

  // Pixel aspect as width to height of one pixel, in whole numbers.
  int32_t GetAspectHorizontal() const { return m_AspectHorizontal; }
  int32_t GetAspectVertical() const { return m_AspectVertical; }
  void SetAspectRatio(int32_t horizontal, int32_t vertical) {
    m_AspectHorizontal = horizontal;
    m_AspectVertical = vertical;
  }

private:
  static bool Valid(int index) { return index >= 0 && index < MaxPlanes; }

  int32_t m_Width = 0;
  int32_t m_Height = 0;
  ColorFormat m_Format = ColorFormatNone;
  uint8_t* m_Planes[MaxPlanes] = {};
  size_t m_Pitches[MaxPlanes] = {};
  size_t m_Alignment = 0;
  PictureStructure m_PictureStructure = Frame;
  int32_t m_AspectHorizontal = 1;
  int32_t m_AspectVertical = 1;
};

} // namespace MCL
