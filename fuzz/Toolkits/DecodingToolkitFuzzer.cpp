// The decoding toolkits over a source of arbitrary records: the first bytes
// choose the toolkit and its keys, the rest are records, each behind a
// two-byte length, served by the scripted test plug-in. Every move, data call
// and live call must end in a status, an empty picture or a toolkit error.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "Support/ByteReader.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "vzk/ToolkitError.h"

namespace {

constexpr int64_t FirstTime = 1700000000000;
constexpr size_t RecordLimit = 16;

const char* const Elements[] = {"video_decoder", "key_frames_only_video_decoder",
                                "conditional_video_decoder"};
const char* const Masks[] = {"", "2x1;10", "3x2;101;010", "bad mask", "0x0;"};

std::string Hex(const uint8_t* data, size_t size) {
  std::string text;
  char pair[3];
  for (size_t i = 0; i < size; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", data[i]);
    text += pair;
  }
  return text;
}

std::string Keys(uint8_t flags) {
  std::string keys;
  keys += (flags & 1) ? " luminance_only='true'" : "";
  keys += (flags & 2) ? " flipped_vertically='true'" : "";
  keys += (flags & 4) ? " normalize_pixel_aspect_ratio='true'" : "";
  keys += (flags & 8) ? " deinterlacing_filter='none'" : "";
  keys += (flags & 16) ? " apply_privacy_mask='false'" : "";
  keys += (flags & 32) ? " pass_format='jpeg' pass_width='48' pass_height='32'" : "";
  keys += (flags & 64) ? " pass_privacy_mask='yes'" : "";
  keys += (flags & 128) ? " pass_pixel_aspect_ratio='1.0'" : "";
  return keys;
}

void Drain(NmToolkit::ImData* item) {
  delete item;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) {
    return 0;
  }
  const char* element = Elements[data[0] % 3];
  const uint8_t flags = data[1];
  const uint8_t script = data[2];
  std::string items;
  size_t at = 3;
  for (size_t i = 0; i < RecordLimit && at + 3 <= size; ++i) {
    const uint8_t mask = data[at];
    size_t length = (static_cast<size_t>(data[at + 1]) << 8) | data[at + 2];
    at += 3;
    length = std::min(length, size - at);
    const int64_t time = FirstTime + 40 * static_cast<int64_t>(i) + (mask >> 4);
    items +=
        "<item begin='" + std::to_string(time) + "' payload_hex='" + Hex(data + at, length) + "'>";
    if (const char* text = Masks[mask % 5]; *text != '\0') {
      items += std::string("<property name='Privacy_Mask' value='") + text + "'/>";
    }
    items += "<property name='Sequence_Number' value='" + std::to_string(i) + "'/></item>";
    at += length;
  }
  const std::string configuration =
      std::string("<toolkit type='source'><provider>vzk</provider><config><") + element +
      Keys(flags) +
      "><toolkit type='source'><provider>scripted</provider><config><script "
      "supports='Sequence_Number,Privacy_Mask'>" +
      items + "</script></config></toolkit></" + element + "></config></toolkit>";

  NmToolkit::CmVZKSourceToolkit root(configuration.c_str());
  NmFuzz::Tolerate<NmToolkit::ImToolkitError>([&] {
    NmToolkit::CmPropertyNameSet supported;
    root.Connect({"Sequence_Number", "Next_Begin_Time", "Prev_End_Time", "Transcoded"}, supported,
                 0);
    NmToolkit::ImData* item = nullptr;
    root.MoveFirst();
    root.GetData(&item);
    Drain(item);
    for (int step = 0; step < 8; ++step) {
      item = nullptr;
      const int64_t time = FirstTime + 13 * step * ((script >> 4) + 1);
      switch ((script + step) % 5) {
      case 0:
        root.MoveNext();
        break;
      case 1:
        root.MovePrevious();
        break;
      case 2:
        root.MoveTo(time, static_cast<NmToolkit::SmMoveMode>(step % 5));
        break;
      case 3:
        root.MoveLast();
        break;
      default:
        root.MoveNextSequence();
        break;
      }
      root.GetData(&item);
      Drain(item);
    }
  });
  NmFuzz::Tolerate<NmToolkit::ImToolkitError>([&] {
    root.StartLiveStream();
    for (int step = 0; step < 6; ++step) {
      NmToolkit::ImData* item = nullptr;
      root.GetLiveData(&item, 0);
      Drain(item);
    }
    root.StopLiveStream();
  });
  return 0;
}
