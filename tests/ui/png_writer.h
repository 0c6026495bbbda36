#pragma once
// Writes 24-bit RGB pixels as a PNG file (uncompressed deflate blocks: large, but needs no zlib).
#include <cstdint>
#include <string>
#include <vector>

namespace gui {

// `rgb` holds height rows of width pixels, 3 bytes each, top row first.
bool WritePng(const std::string& path, int width, int height, const std::vector<uint8_t>& rgb);

}  // namespace gui
