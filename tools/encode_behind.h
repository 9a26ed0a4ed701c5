// Rendered pictures converted to the encoder's pixel format, encoded and
// written on a thread of their own, so that encoding overlaps decoding and
// rendering. Everything the writer does after its set-up happens on that
// thread (frames, copied packets, muxing); the module stays on the thread
// that hands the pictures over.
#pragma once

#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "host/host.h"
#include "tools/av_support.h"
#include "tools/hand_over.h"

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

    // The writer, for VideoWriter::convertFrame on other threads.
    const VideoWriter& writer() const { return writer_; }
    // A picture the writer is done with, to render into (its buffer used
    // again), or an empty one while none has come back yet.
    Picture spare();
    // Queues a picture for encoding; waits while the queue is full. The
    // writing thread's error is thrown here (and by packet and finish); a
    // signal ends the wait with Interrupted.
    void frame(Picture&& picture, int64_t pts);
    // Queues a frame already in the encoder's layout (VideoWriter::
    // convertFrame), in order with the pictures; waits likewise.
    void converted(AvFrameRef&& frame, int64_t pts);
    // A converted frame the writer is done with (its buffers used again), or
    // an empty one.
    AvFrameRef spareConverted();
    // Queues a packet of the copied stream `outIndex`; takes its data.
    void packet(AVPacket* packet, const AVStream* in, int32_t outIndex);
    // Waits until everything queued is written, then drains the encoder and
    // closes the file.
    void finish();

private:
    struct Item {
        Picture picture;
        AvFrameRef converted;  // instead of the picture, when set
        int64_t pts = 0;
        PacketOwner packet;  // a packet of a copied stream instead of a picture
        const AVStream* in = nullptr;
        int32_t outIndex = -1;
    };
    void run();

    VideoWriter& writer_;
    HandOver<Item> queue_;
    std::mutex spareMutex_;
    std::vector<Picture> spare_;  // pictures written, for their buffers
    std::vector<AvFrameRef> spareConverted_;
    std::thread thread_;
};

}  // namespace reelfx::tool
