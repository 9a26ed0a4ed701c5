// PNG stills through libpng: pictures are ARGB words, not premultiplied.
#pragma once

#include <string>

#include "host/host.h"

namespace reelfx::tool {

// True when the file starts with the PNG signature; throws std::runtime_error
// when it cannot be opened.
bool isPngFile(const std::string& path);
// Any PNG (palette, grey, 16-bit, with or without alpha) as 8-bit ARGB.
Picture readPng(const std::string& path);
// Writes RGBA, or RGB when every pixel is opaque. Writes `path` directly:
// callers go through OutputFile for the temporary name.
void writePng(const std::string& path, const Picture& argb);

}  // namespace reelfx::tool
