// Frames of a video file decoded ahead on a thread of their own, so that
// decoding overlaps rendering and encoding. The module is still called from
// one thread only: the one that takes the frames.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/av_support.h"
#include "tools/hand_over.h"
#include "tools/input_source.h"

namespace reelfx::tool {

class DecodeAhead {
public:
    // Packets of the streams `wanted` accepts (by input index) are kept, in
    // file order between the frames. With `leaveDecoded` frames come in the
    // decoder's layout, for the taker to convert.
    DecodeAhead(Source& source, uint32_t fourcc, std::function<bool(int32_t)> wanted,
                bool leaveDecoded);
    ~DecodeAhead();  // stops the thread and waits for it
    DecodeAhead(const DecodeAhead&) = delete;
    DecodeAhead& operator=(const DecodeAhead&) = delete;

    // The next frame (its picture swapped with `out`'s, whose buffer is used
    // again); the packets met before it go to `others` first. False at the
    // end; the decoding thread's error is thrown here, after the frames
    // decoded before it. A signal ends the wait with Interrupted.
    bool next(DecodedFrame& out, const PacketSink& others);

private:
    struct Item {
        DecodedFrame frame;
        PacketOwner packet;  // a packet of another stream instead of a frame
        const AVStream* stream = nullptr;
    };
    void run();

    Source& source_;
    uint32_t fourcc_;
    bool leaveDecoded_;
    std::function<bool(int32_t)> wanted_;
    HandOver<Item> queue_;
    std::mutex spareMutex_;
    std::vector<DecodedFrame> spare_;  // pictures handed back, for their buffers
    std::thread thread_;
};

}  // namespace reelfx::tool
