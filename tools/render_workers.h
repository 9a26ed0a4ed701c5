// Frames rendered on several threads at once, each thread with an instance
// of its own, and given back in the order they were handed in. The thread
// that hands frames over keeps decoding and encoding to itself; the workers
// only call the module. At most a few frames per worker are in flight, so
// memory stays bounded at any picture size.
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

namespace reelfx::tool {

// The cores this process may run on (its affinity mask), at least 1.
int32_t usableCores();

// How many workers render an effect asked for `requested` threads: one for
// an effect whose instances share state, which keeps its frames in order.
int32_t workersFor(bool sharesState, int32_t requested);

class RenderWorkers {
public:
    // Renders `source` at `progress` into `target` with worker `worker`'s
    // instance (target's buffer is used again when its shape fits). Called
    // on the worker's own thread, one frame at a time per worker.
    using RenderFn =
        std::function<void(size_t worker, const Picture& source, double progress, Picture& target)>;

    struct Frame {
        Picture picture;  // the rendered picture, or the source passed through
        int64_t pts = 0;
    };

    // Starts `workers` threads (at least 1).
    RenderWorkers(size_t workers, RenderFn render);
    // Stops the workers and waits for the frames being rendered, dropping
    // the rest.
    ~RenderWorkers();
    RenderWorkers(const RenderWorkers&) = delete;
    RenderWorkers& operator=(const RenderWorkers&) = delete;

    // Hands a frame over: rendered into `target` when `render`, otherwise
    // passed through as it is (in order with the others). Waits while the
    // frames in flight are at their bound; a worker's error is thrown here
    // and by next(), and a signal ends the wait with Interrupted.
    void submit(Picture&& source, Picture&& target, double progress, bool render, int64_t pts);
    // The next frame in the order handed in: true with it when it is done;
    // with `wait`, waits until it is, and false only when none is in flight.
    bool next(Frame& out, bool wait);
    // True while submit() would wait.
    bool full();
    // A source picture the workers are done with (its buffer used again), or
    // an empty one.
    Picture spareSource();

private:
    struct Job {
        uint64_t sequence = 0;
        Picture source;
        Picture target;
        double progress = 0.0;
        bool render = true;
        int64_t pts = 0;
        bool done = false;
    };
    void run(size_t worker);
    void rethrowError();  // with mutex_ held
    bool fullLocked() const;

    RenderFn render_;
    size_t bound_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;  // in flight, in order; the front is given back first
    size_t taken_ = 0;      // jobs_[0 .. taken_) are with a worker or done
    std::vector<Picture> spareSources_;
    uint64_t nextSequence_ = 0;
    bool stop_ = false;
    std::exception_ptr error_;
    std::vector<std::thread> threads_;
};

}  // namespace reelfx::tool
