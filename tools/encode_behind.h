// Rendered pictures converted to the encoder's pixel format, encoded and
// written on a thread of their own, so that encoding overlaps decoding and
// rendering. Everything the writer does after its set-up happens on that
// thread (frames, copied packets, muxing); the module stays on the thread
// that hands the pictures over.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "host/host.h"
#include "tools/av_support.h"

namespace reelfx::tool {

class VideoWriter;

class EncodeBehind {
public:
    // `writer` is set up (streams added); it is used only from the thread
    // started here until finish() returns or this object is destroyed.
    explicit EncodeBehind(VideoWriter& writer);
    // Stops the thread and waits for it, dropping what is still queued;
    // after a signal it also wakes a write blocked on a pipe.
    ~EncodeBehind();
    EncodeBehind(const EncodeBehind&) = delete;
    EncodeBehind& operator=(const EncodeBehind&) = delete;

    // A picture the writer is done with, to render into (its buffer used
    // again), or an empty one while none has come back yet.
    Picture spare();
    // Queues a picture for encoding; waits while the queue is full. The
    // writing thread's error is thrown here (and by packet and finish); a
    // signal ends the wait with Interrupted.
    void frame(Picture&& picture, int64_t pts);
    // Queues a packet of the copied stream `outIndex`; takes its data.
    void packet(AVPacket* packet, const AVStream* in, int32_t outIndex);
    // Waits until everything queued is written, then drains the encoder and
    // closes the file.
    void finish();

private:
    struct Item {
        Picture picture;
        int64_t pts = 0;
        PacketOwner packet;  // a packet of a copied stream instead of a picture
        const AVStream* in = nullptr;
        int32_t outIndex = -1;
    };
    void run();
    void push(Item item);
    void rethrowError();  // with mutex_ held

    VideoWriter& writer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Item> queue_;
    std::vector<Picture> spare_;
    size_t framesQueued_ = 0;
    bool closing_ = false;  // nothing more comes: finish after the queue
    bool stop_ = false;     // drop the queue and end
    bool ended_ = false;
    std::exception_ptr error_;
    std::thread thread_;
};

}  // namespace reelfx::tool
