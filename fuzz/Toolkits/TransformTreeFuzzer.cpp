// Trees of transform toolkits with arbitrary keys over decoded pictures of
// the picture test source: any key, any picture, any update between items
// must give items or toolkit errors, never a crash, a leak or a hang.
//
// The picture source is loaded by the factory from beside this program, so
// build ToolkitSourcePlugin_pictures with it.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Support/ByteReader.h"
#include "Toolkits/VZKSourceToolkitPlugin/Tree/VZKSourceToolkit.h"
#include "vzk/ToolkitError.h"

namespace {

struct SmElement {
  const char* name;
  std::vector<const char*> keys;
};

const std::vector<SmElement>& Elements() {
  static const std::vector<SmElement> elements = {
      {"image_resize", {"width", "height", "keep_pixel_aspect_ratio"}},
      {"image_boxed_resize", {"width", "height", "allow_upscaling"}},
      {"image_filled_resize", {"width", "height", "pixel_aspect_ratio", "allow_upscaling"}},
      {"text_overlay", {"overlay"}},
      {"image_color_format_convert", {"format", "row_alignment"}},
      {"image_crop", {"relative", "offset_x", "offset_y", "width", "height"}},
      {"apply_privacy_mask", {"mask"}},
      {"jpeg_encoder", {"quality", "normalize", "keep_pixel_aspect_ratio"}},
      {"set_property", {"name", "value"}},
  };
  return elements;
}

// Values that sit on the edges of what the keys accept, beside random text;
// between two bars the empty text.
const std::vector<std::string>& Interesting() {
  static const std::vector<std::string> values = [] {
    std::vector<std::string> split(1);
    for (const char c :
         std::string_view("0|1|-1|2|0.5|1.0|1.5|7|32767|32768|100|101|1e300|-1e300|"
                          "nan|inf|true|false||Gray|RGB24|BGRA|YCbCr420_Planar|"
                          "2x1;10|0x0|1x1;1|3x2;101;010|10000x1;1|2x1;1|64|4096|abc")) {
      c == '|' ? split.emplace_back() : split.back() += c;
    }
    return split;
  }();
  return values;
}

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const char* entity = c == '&'    ? "&amp;"
                         : c == '<'  ? "&lt;"
                         : c == '>'  ? "&gt;"
                         : c == '\'' ? "&apos;"
                         : c == '"'  ? "&quot;"
                                     : nullptr;
    // Only what an attribute can hold; XML has no form for the rest.
    out += entity ? entity : std::string(1, c >= 0x20 && c < 0x7F ? c : '?');
  }
  return out;
}

std::string Value(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) {
    return Interesting()[input.ConsumeIntegralInRange<size_t>(0, Interesting().size() - 1)];
  }
  return input.ConsumeRandomLengthString(24);
}

std::string Pictures(FuzzedDataProvider& input) {
  std::string config;
  const int count = input.ConsumeIntegralInRange(1, 3);
  for (int i = 0; i < count; ++i) {
    config += "<picture format='" + std::to_string(input.ConsumeIntegralInRange(0, 10)) +
              "' width='" + std::to_string(input.ConsumeIntegralInRange(0, 70)) + "' height='" +
              std::to_string(input.ConsumeIntegralInRange(0, 50)) + "' time='" +
              std::to_string(1000 + 40 * i) + "' seed='" +
              std::to_string(input.ConsumeIntegral<uint8_t>()) + "' padding='" +
              std::to_string(input.ConsumeIntegralInRange(0, 9)) + "' interlacing='" +
              std::to_string(input.ConsumeIntegralInRange(0, 7)) + "' aspect='" +
              Escaped(Value(input)) + "'";
    if (input.ConsumeBool()) {
      config += " mask='" + Escaped(Value(input)) + "'";
    }
    if (input.ConsumeIntegralInRange(0, 7) == 0) {
      config += " broken='1'";
    }
    config += "/>";
  }
  return "<toolkit type='source'><provider>pictures</provider><config>" + config +
         "</config></toolkit>";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  std::vector<std::string> updateKeys;
  std::string open;
  std::string close;
  const int depth = input.ConsumeIntegralInRange(1, 3);
  for (int level = 0; level < depth; ++level) {
    const SmElement& element =
        Elements()[input.ConsumeIntegralInRange<size_t>(0, Elements().size() - 1)];
    open += "<" + std::string(element.name);
    const int keys = input.ConsumeIntegralInRange(0, 4);
    for (int k = 0; k < keys; ++k) {
      std::string key =
          input.ConsumeIntegralInRange(0, 5) == 0
              ? (input.ConsumeBool() ? "enable" : "non_bitmap_pass_through")
              : element.keys[input.ConsumeIntegralInRange<size_t>(0, element.keys.size() - 1)];
      // One attribute per name, or the text is no XML at all.
      if (open.find(" " + key + "=") != std::string::npos) {
        continue;
      }
      open += " " + key + "='" + Escaped(Value(input)) + "'";
      if (input.ConsumeBool()) {
        updateKeys.push_back("u" + std::to_string(updateKeys.size()));
        open += " " + key + "_update_key='" + updateKeys.back() + "'";
      }
    }
    open += ">";
    close = "</" + std::string(element.name) + ">" + close;
  }
  const std::string text = "<toolkit type='source'><provider>vzk</provider><config>" + open +
                           Pictures(input) + close + "</config></toolkit>";

  NmToolkit::CmVZKSourceToolkit root(text.c_str());
  NmToolkit::CmPropertyNameSet requested;
  for (const char* name : {"Sequence_Number", "Privacy_Mask", "Has_Motion"}) {
    if (input.ConsumeBool()) {
      requested.insert(name);
    }
  }
  NmFuzz::Tolerate<NmToolkit::ImToolkitError>([&] {
    NmToolkit::CmPropertyNameSet supported;
    root.Connect(requested, supported, 0);
    const bool live = input.ConsumeBool();
    if (live) {
      root.StartLiveStream();
    }
    for (int step = 0; step < 4 && input.remaining_bytes() > 0; ++step) {
      if (!updateKeys.empty() && input.ConsumeBool()) {
        root.UpdateValue(updateKeys[input.ConsumeIntegralInRange<size_t>(0, updateKeys.size() - 1)],
                         Value(input));
      }
      NmToolkit::ImData* item = nullptr;
      uint32_t status = NmToolkit::StatusNoItem;
      // A refused item leaves the stream going on.
      NmFuzz::Tolerate<NmToolkit::ImToolkitError>([&] {
        if (live) {
          status = root.GetLiveData(&item, 0);
        } else if ((step == 0 ? root.MoveFirst() : root.MoveNext()) == NmToolkit::StatusSuccess) {
          status = root.GetData(&item);
        }
      });
      std::unique_ptr<NmToolkit::ImData> owned(item);
      if (status == NmToolkit::StatusSuccess && owned) {
        // Every answer of the item must be safe to ask for.
        if (const auto* image = dynamic_cast<const NmToolkit::ImImage*>(owned.get())) {
          volatile uint64_t sink = image->GetWidth() + image->GetHeight();
          for (uint32_t p = 0; p < 4; ++p) {
            const uint8_t* plane = image->GetPlanePointer(p);
            if (plane != nullptr && image->GetPlaneHeight(p) > 0) {
              const size_t last = size_t{image->GetPlaneHeight(p) - 1} * image->GetPlaneStride(p);
              sink = sink + plane[0] + plane[last];
            }
          }
          (void)sink;
        }
      }
    }
    root.Disconnect();
  });
  return 0;
}
