#include "tools/decode_ahead.h"

#include <new>
#include <utility>

#include "tools/av_support.h"
#include "tools/output_file.h"

namespace reelfx::tool {

namespace {
// Frames decoded ahead at most: enough to cover the encoder's uneven pace,
// few enough to keep memory small (a 2160p frame is 33 MB).
constexpr size_t kDepth = 3;
}  // namespace

DecodeAhead::DecodeAhead(Source& source, uint32_t fourcc, std::function<bool(int32_t)> wanted,
                         bool leaveDecoded)
    : source_(source),
      fourcc_(fourcc),
      leaveDecoded_(leaveDecoded),
      wanted_(std::move(wanted)),
      queue_(kDepth) {
    thread_ = std::thread([this] { run(); });
}

DecodeAhead::~DecodeAhead() {
    queue_.stop();
    thread_.join();
}

void DecodeAhead::run() {
    std::exception_ptr error;
    try {
        const PacketSink keep = [&](AVPacket* packet, const AVStream* stream) {
            if (!wanted_(streamIndex(stream))) return;
            Item item;
            item.packet.reset(av_packet_clone(packet));
            if (!item.packet) throw std::bad_alloc();
            item.stream = stream;
            queue_.give(std::move(item), false, [] {});
        };
        while (true) {
            Item item;
            {
                std::lock_guard<std::mutex> lock(spareMutex_);
                if (!spare_.empty()) {
                    item.frame = std::move(spare_.back());
                    spare_.pop_back();
                }
            }
            if (!nextFrame(source_, fourcc_, item.frame, keep, leaveDecoded_)) break;
            if (!queue_.give(std::move(item), true, [] {})) break;
        }
    } catch (...) {
        error = std::current_exception();
    }
    queue_.finish(error);
}

bool DecodeAhead::next(DecodedFrame& out, const PacketSink& others) {
    Item item;
    while (queue_.take(item, throwIfInterrupted)) {
        if (item.packet) {
            // Written (or dropped) here, on the taking thread.
            if (others) others(item.packet.get(), item.stream);
            item.packet.reset();
            continue;
        }
        std::swap(out, item.frame);
        std::lock_guard<std::mutex> lock(spareMutex_);
        spare_.push_back(std::move(item.frame));
        return true;
    }
    return false;
}

}  // namespace reelfx::tool
