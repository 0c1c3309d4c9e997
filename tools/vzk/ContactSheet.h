#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "PictureConversion.h"
#include "vzk/Data.h"

namespace NmVzkTool {

// One picture of small thumbnails of what a run delivered, for a person to
// look at. It keeps at most MaximumThumbnails spread evenly over the run:
// when full, every other thumbnail goes and only every other picture after
// that is taken, so memory stays bounded however long the run.
class CmContactSheet {
public:
  static constexpr size_t MaximumThumbnails = 64;
  static constexpr uint32_t ThumbnailWidth = 160;
  static constexpr uint32_t ThumbnailHeight = 120;

  void AddPicture(const NmToolkit::ImImage& image, uint64_t index, int64_t time);
  // A JPEG record, decoded at the smallest scale that still fills a thumbnail.
  // One that cannot be decoded is noted as left out.
  void AddJPEG(const uint8_t* data, uint64_t size, uint64_t index, int64_t time);
  // An item that would belong on the sheet but cannot be turned into a picture.
  void NoteUndecodable(const std::string& kind) { ++m_Undecodable[kind]; }
  // Writes the sheet as PNG. Throws CmRunError when there is nothing to show
  // or the file cannot be written; notes what was left out on `messages`.
  void Write(const std::string& path, std::ostream& messages) const;

  struct SmThumbnail {
    uint64_t index = 0;
    int64_t time = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> rgb;
  };
  const std::vector<SmThumbnail>& GetThumbnails() const { return m_Thumbnails; }

private:
  void Draw(const std::string& path) const;
  // Whether the next picture is one to keep; counts it either way.
  bool TakeNext();
  void Add(const SmPackedPicture& rgb, double aspect, uint64_t index, int64_t time);

  std::vector<SmThumbnail> m_Thumbnails;
  uint64_t m_Seen = 0;
  uint64_t m_Step = 1;
  std::map<std::string, uint64_t> m_Undecodable;
};

} // namespace NmVzkTool
