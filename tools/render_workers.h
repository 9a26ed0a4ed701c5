// Frames rendered on several threads at once, each thread with an instance
// of its own, and given back in the order they were handed in. The thread
// that hands frames over keeps decoding and encoding to itself; the workers
// call the module and convert between the decoder's, the module's and the
// encoder's pixels, so the conversions scale with the workers. At most a few frames per worker are
// in flight, so memory stays bounded at any picture size.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "host/host.h"
#include "tools/video_common.h"

namespace reelfx::tool {

// The cores this process may run on (its affinity mask), at least 1.
int32_t usableCores();

// How many workers render an effect asked for `requested` threads: one for
// an effect whose instances share state, which keeps its frames in order.
int32_t workersFor(bool sharesState, int32_t requested);

class RenderWorkers {
public:
    // One frame's work, handed in and given back whole.
    struct Work {
        Picture source;  // the module's words (converted from `decoded` when that is set)
        Picture target;  // rendered into when `render` (its buffer used again when it fits)
        // The frame as decoded, to be converted into `source` by the worker,
        // or empty when `source` is already words.
        AvFrameRef decoded;
        // The encoder's frame, converted by the worker (its buffers used
        // again when it has some).
        AvFrameRef encoded;
        double progress = 0.0;
        bool render = true;
        int64_t pts = 0;
    };
    // Does `work` with worker `worker`'s instance and conversions. Called on
    // the worker's own thread, one frame at a time per worker, for every
    // frame, rendered or passed through.
    using WorkFn = std::function<void(size_t worker, Work& work)>;

    // Starts `workers` threads (at least 1).
    RenderWorkers(size_t workers, WorkFn work);
    // Stops the workers and waits for the frames being worked on, dropping
    // the rest.
    ~RenderWorkers();
    RenderWorkers(const RenderWorkers&) = delete;
    RenderWorkers& operator=(const RenderWorkers&) = delete;

    // Hands a frame over, in order with the others. Waits while the frames
    // in flight are at their bound; a worker's error is thrown here and by
    // next(), and a signal ends the wait with Interrupted.
    void submit(Work&& work);
    // The next frame in the order handed in: true with it when it is done;
    // with `wait`, waits until it is, and false only when none is in flight.
    bool next(Work& out, bool wait);
    // True while submit() would wait.
    bool full();

private:
    struct Job {
        Work work;
        bool done = false;
    };
    void run(size_t worker);
    void rethrowError();  // with mutex_ held
    bool fullLocked() const;

    WorkFn work_;
    size_t bound_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;  // in flight, in order; the front is given back first
    size_t taken_ = 0;      // jobs_[0 .. taken_) are with a worker or done
    bool stop_ = false;
    std::exception_ptr error_;
    std::vector<std::thread> threads_;
};

}  // namespace reelfx::tool
