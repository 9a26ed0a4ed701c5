#include "tools/encode_behind.h"

#include <new>
#include <utility>
#include <vector>

#include "tools/av_support.h"
#include "tools/output_file.h"
#include "tools/video_writer.h"

namespace reelfx::tool {

namespace {
// Pictures waiting to be written at most, beside the one being encoded:
// enough to cover the encoder's uneven pace, few enough to keep memory small
// (a 2160p picture is 33 MB).
constexpr size_t kDepth = 2;

// The last buffer given back, or an empty one when none is.
template <class T>
T takeLast(std::vector<T>& pool) {
    if (pool.empty()) return T();
    T last = std::move(pool.back());
    pool.pop_back();
    return last;
}

}  // namespace

EncodeBehind::EncodeBehind(VideoWriter& writer) : writer_(writer), queue_(kDepth) {
    thread_ = std::thread([this] { run(); });
}

EncodeBehind::~EncodeBehind() {
    queue_.abandon();
    // A write to a pipe nobody reads blocks until a signal ends it, and the
    // signal may have gone to another thread: pass it on.
    queue_.waitForStop([&] { wakeAfterInterrupt(thread_.native_handle()); });
    thread_.join();
}

Picture EncodeBehind::spare() {
    std::lock_guard<std::mutex> lock(spareMutex_);
    return takeLast(spare_);
}

void EncodeBehind::frame(Picture&& picture, int64_t pts) {
    Item item;
    item.picture = std::move(picture);
    item.pts = pts;
    queue_.give(std::move(item), true, throwIfInterrupted);
}

AvFrameRef EncodeBehind::spareConverted() {
    std::lock_guard<std::mutex> lock(spareMutex_);
    return takeLast(spareConverted_);
}

void EncodeBehind::converted(AvFrameRef&& frame, int64_t pts) {
    Item item;
    item.converted = std::move(frame);
    item.pts = pts;
    queue_.give(std::move(item), true, throwIfInterrupted);
}

void EncodeBehind::packet(AVPacket* packet, const AVStream* in, int32_t outIndex) {
    Item item;
    item.packet = newPacket();
    av_packet_move_ref(item.packet.get(), packet);
    item.in = in;
    item.outIndex = outIndex;
    queue_.give(std::move(item), false, throwIfInterrupted);
}

void EncodeBehind::finish() {
    queue_.finish();
    if (const std::exception_ptr error = queue_.waitForStop(throwIfInterrupted))
        std::rethrow_exception(error);
}

void EncodeBehind::run() {
    std::exception_ptr error;
    try {
        Item item;
        while (queue_.take(item, [] {})) {
            if (item.packet) {
                writer_.writePacket(item.packet.get(), item.in, item.outIndex);
                item.packet.reset();
                continue;
            }
            if (item.converted) {
                writer_.encodeFrame(item.converted.get(), item.pts);
                std::lock_guard<std::mutex> lock(spareMutex_);
                spareConverted_.push_back(std::move(item.converted));
                continue;
            }
            writer_.writeFrame(item.picture, item.pts);
            std::lock_guard<std::mutex> lock(spareMutex_);
            spare_.push_back(std::move(item.picture));
        }
        // Everything handed over is written: the encoder is drained and the
        // file closed, unless the run was given up.
        if (!queue_.abandoned()) writer_.finish();
    } catch (...) {
        error = std::current_exception();
    }
    queue_.stop(error);
}

}  // namespace reelfx::tool
