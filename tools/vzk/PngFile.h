#pragma once

#include <string>

#include "PictureConversion.h"

namespace NmVzkTool {

// Writes a gray, RGB or RGBA picture as an 8-bit PNG. Throws CmRunError.
void WritePng(const std::string& path, const SmPackedPicture& picture);

} // namespace NmVzkTool
