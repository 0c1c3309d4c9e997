#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NmMedia {

// Many cameras write Motion JPEG without Huffman tables in the frames (the
// AVI1 convention): every frame silently uses the example tables of ITU-T T.81
// Annex K.3. A JPEG record must decode by itself, so such frames get those
// tables written in, as one DHT segment in front of the first scan.
//
// True when tables were missing and `out` holds the completed frame. False
// when the frame has its tables, is not a baseline or extended sequential
// Huffman frame, or its markers cannot be followed; `out` is then empty and
// the frame is to be used as it is.
bool CompleteJPEGHuffmanTables(const uint8_t* data, size_t size, std::vector<uint8_t>& out);

} // namespace NmMedia
