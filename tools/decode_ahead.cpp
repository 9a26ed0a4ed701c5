#include "tools/decode_ahead.h"

#include <chrono>
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

DecodeAhead::DecodeAhead(Source& source, uint32_t fourcc, std::function<bool(int32_t)> wanted)
    : source_(source), fourcc_(fourcc), wanted_(std::move(wanted)) {
    thread_ = std::thread([this] { run(); });
}

DecodeAhead::~DecodeAhead() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void DecodeAhead::push(Item item) {
    std::unique_lock<std::mutex> lock(mutex_);
    const bool frame = item.packet == nullptr;
    if (frame) changed_.wait(lock, [&] { return stop_ || framesQueued_ < kDepth; });
    if (stop_) return;
    framesQueued_ += frame;
    queue_.push_back(std::move(item));
    changed_.notify_all();
}

void DecodeAhead::run() {
    try {
        const PacketSink keep = [&](AVPacket* packet, const AVStream* stream) {
            if (!wanted_(streamIndex(stream))) return;
            Item item;
            item.packet.reset(av_packet_clone(packet));
            if (!item.packet) throw std::bad_alloc();
            item.stream = stream;
            push(std::move(item));
        };
        while (true) {
            Item item;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                if (stop_) break;
                if (!spare_.empty()) {
                    item.frame = std::move(spare_.back());
                    spare_.pop_back();
                }
            }
            if (!nextFrame(source_, fourcc_, item.frame, keep)) break;
            push(std::move(item));
        }
    } catch (...) {
        std::lock_guard<std::mutex> lock(mutex_);
        error_ = std::current_exception();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

bool DecodeAhead::next(DecodedFrame& out, const PacketSink& others) {
    while (true) {
        Item item;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            while (queue_.empty()) {
                if (ended_) {
                    if (error_) std::rethrow_exception(error_);
                    return false;
                }
                changed_.wait_for(lock, std::chrono::milliseconds(50));
                if (queue_.empty()) {
                    lock.unlock();
                    throwIfInterrupted();
                    lock.lock();
                }
            }
            item = std::move(queue_.front());
            queue_.pop_front();
            if (!item.packet) {
                --framesQueued_;
                changed_.notify_all();
            }
        }
        if (item.packet) {
            // Written (or dropped) here, on the taking thread.
            if (others) others(item.packet.get(), item.stream);
            continue;
        }
        std::swap(out, item.frame);
        std::lock_guard<std::mutex> lock(mutex_);
        spare_.push_back(std::move(item.frame));
        return true;
    }
}

}  // namespace reelfx::tool
