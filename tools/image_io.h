// Stills: read through FFmpeg's decoders like video, PNG written through
// libpng. Pictures are ARGB words, not premultiplied.
#pragma once

#include <string>

#include "host/host.h"

namespace reelfx::tool {

// The first picture of any image FFmpeg reads (PNG in any bit depth, grey,
// palette, with or without alpha; JPEG, BMP, ...) as 8-bit ARGB. Throws
// std::runtime_error when there is none.
Picture readImage(const std::string& path);
// Writes RGBA, or RGB when every pixel is opaque. Writes `path` directly:
// callers go through OutputFile for the temporary name, and messages name
// `shownName`, the file the user asked for (`path` when empty).
void writePng(const std::string& path, const Picture& argb, const std::string& shownName = {});

}  // namespace reelfx::tool
