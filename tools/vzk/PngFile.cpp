#include "PngFile.h"

#include <png.h>

#include "PluginHost.h"

namespace NmVzkTool {

void WritePng(const std::string& path, const SmPackedPicture& picture) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = picture.width;
  image.height = picture.height;
  image.format = picture.channels == 1   ? PNG_FORMAT_GRAY
                 : picture.channels == 4 ? PNG_FORMAT_RGBA
                                         : PNG_FORMAT_RGB;
  const png_int_32 rowStride = static_cast<png_int_32>(picture.width * picture.channels);
  if (png_image_write_to_file(&image, path.c_str(), 0, picture.pixels.data(), rowStride, nullptr) ==
      0) {
    const std::string reason = image.message[0] != 0 ? image.message : "no reason given";
    png_image_free(&image);
    throw CmRunError("The picture " + path + " could not be written: " + reason + ".");
  }
}

} // namespace NmVzkTool
