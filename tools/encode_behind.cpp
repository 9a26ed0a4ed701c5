#include "tools/encode_behind.h"

#include <chrono>
#include <new>
#include <utility>

#include "tools/av_support.h"
#include "tools/output_file.h"
#include "tools/video_writer.h"

namespace reelfx::tool {

namespace {
// Pictures handed over and not yet written at most (two waiting, one being
// encoded): enough to cover the encoder's uneven pace, few enough to keep
// memory small (a 2160p picture is 33 MB).
constexpr size_t kDepth = 3;
constexpr auto kPoll = std::chrono::milliseconds(50);
}  // namespace

EncodeBehind::EncodeBehind(VideoWriter& writer) : writer_(writer) {
    thread_ = std::thread([this] { run(); });
}

EncodeBehind::~EncodeBehind() {
    std::unique_lock<std::mutex> lock(mutex_);
    stop_ = true;
    changed_.notify_all();
    // A write to a pipe nobody reads blocks until a signal ends it, and the
    // signal may have gone to another thread: pass it on.
    while (!ended_) {
        if (!changed_.wait_for(lock, kPoll, [&] { return ended_; }))
            wakeAfterInterrupt(thread_.native_handle());
    }
    lock.unlock();
    thread_.join();
}

void EncodeBehind::rethrowError() {
    if (error_) std::rethrow_exception(error_);
}

Picture EncodeBehind::spare() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (spare_.empty()) return Picture();
    Picture p = std::move(spare_.back());
    spare_.pop_back();
    return p;
}

void EncodeBehind::push(Item item) {
    const bool isFrame = item.packet == nullptr;
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        rethrowError();
        if (ended_) return;
        if (!isFrame || framesQueued_ < kDepth) break;
        if (!changed_.wait_for(lock, kPoll,
                               [&] { return error_ || ended_ || framesQueued_ < kDepth; })) {
            lock.unlock();
            throwIfInterrupted();
            lock.lock();
        }
    }
    framesQueued_ += isFrame;
    queue_.push_back(std::move(item));
    changed_.notify_all();
}

void EncodeBehind::frame(Picture&& picture, int64_t pts) {
    Item item;
    item.picture = std::move(picture);
    item.pts = pts;
    push(std::move(item));
}

void EncodeBehind::packet(AVPacket* packet, const AVStream* in, int32_t outIndex) {
    Item item;
    item.packet = newPacket();
    av_packet_move_ref(item.packet.get(), packet);
    item.in = in;
    item.outIndex = outIndex;
    push(std::move(item));
}

void EncodeBehind::finish() {
    std::unique_lock<std::mutex> lock(mutex_);
    closing_ = true;
    changed_.notify_all();
    while (!ended_) {
        if (!changed_.wait_for(lock, kPoll, [&] { return ended_; })) {
            lock.unlock();
            throwIfInterrupted();
            lock.lock();
        }
    }
    rethrowError();
}

void EncodeBehind::run() {
    try {
        while (true) {
            Item item;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                changed_.wait(lock, [&] { return stop_ || closing_ || !queue_.empty(); });
                if (stop_) break;
                if (queue_.empty()) {
                    // closing_: everything handed over is written.
                    lock.unlock();
                    writer_.finish();
                    break;
                }
                item = std::move(queue_.front());
                queue_.pop_front();
            }
            if (item.packet) {
                writer_.writePacket(item.packet.get(), item.in, item.outIndex);
                continue;
            }
            writer_.writeFrame(item.picture, item.pts);
            std::lock_guard<std::mutex> lock(mutex_);
            --framesQueued_;
            spare_.push_back(std::move(item.picture));
            changed_.notify_all();
        }
    } catch (...) {
        std::lock_guard<std::mutex> lock(mutex_);
        error_ = std::current_exception();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

}  // namespace reelfx::tool
