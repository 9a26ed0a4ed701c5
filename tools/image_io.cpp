#include "tools/image_io.h"

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tools/video_reader.h"

namespace reelfx::tool {

namespace {

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Frees libpng's simplified-API state on every exit path.
struct ImageGuard {
    png_image& image;
    ~ImageGuard() { png_image_free(&image); }
};

// ARGB words in memory are B, G, R, A bytes on a little-endian machine.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "ARGB words are stored as BGRA bytes");

}  // namespace

Picture readImage(const std::string& path) {
    VideoReader reader(path);
    DecodedFrame frame;
    if (!reader.next(frame, kFourccArgb)) {
        const std::string damage = reader.damage();
        throw std::runtime_error(path + " holds no picture that can be decoded" +
                                 (damage.empty() ? std::string() : " (" + damage + ")"));
    }
    return std::move(frame.picture);
}

void writePng(const std::string& path, const Picture& argb, const std::string& shownName_) {
    const std::string& shownName = shownName_.empty() ? path : shownName_;
    bool opaque = true;
    for (int32_t y = 0; y < argb.height && opaque; ++y) {
        const uint32_t* r = argb.row(y);
        for (int32_t x = 0; x < argb.width; ++x) {
            if ((r[x] >> 24) != 0xFF) {
                opaque = false;
                break;
            }
        }
    }
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(argb.width);
    image.height = static_cast<png_uint_32>(argb.height);
    ImageGuard guard{image};

    std::vector<unsigned char> bgr;
    const void* buffer = argb.words.data();
    png_int_32 rowBytes = argb.stride;
    image.format = PNG_FORMAT_BGRA;
    if (opaque) {
        image.format = PNG_FORMAT_BGR;
        rowBytes = argb.width * 3;
        bgr.resize(static_cast<size_t>(rowBytes) * static_cast<size_t>(argb.height));
        for (int32_t y = 0; y < argb.height; ++y) {
            const uint32_t* r = argb.row(y);
            unsigned char* out =
                bgr.data() + static_cast<size_t>(y) * static_cast<size_t>(rowBytes);
            for (int32_t x = 0; x < argb.width; ++x) {
                out[3 * x] = static_cast<unsigned char>(r[x]);
                out[3 * x + 1] = static_cast<unsigned char>(r[x] >> 8);
                out[3 * x + 2] = static_cast<unsigned char>(r[x] >> 16);
            }
        }
        buffer = bgr.data();
    }
    File f(std::fopen(path.c_str(), "wb"));
    if (!f) throw std::runtime_error("cannot write " + shownName + ": " + std::strerror(errno));
    // A failing write leaves its errno (a full disk, say), which says more
    // than libpng's "Write Error"; fclose reports what the last buffered
    // write met.
    errno = 0;
    const bool written = png_image_write_to_stdio(&image, f.get(), 0, buffer, rowBytes, nullptr);
    const int writeErrno = errno;
    const bool failed = !written || std::ferror(f.get()) != 0;
    if (std::fclose(f.release()) != 0 || failed) {
        const int e = failed && writeErrno != 0 ? writeErrno : errno;
        throw std::runtime_error("cannot write " + shownName + ": " +
                                 (e != 0 ? std::strerror(e) : image.message));
    }
}

}  // namespace reelfx::tool
