#include "tools/render_workers.h"

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "tools/output_file.h"

namespace reelfx::tool {

namespace {
// Frames in flight per worker: one being rendered and one waiting, so a
// worker never idles while the next frame is decoded, and a 2160p run keeps
// a few dozen megabytes per worker.
constexpr size_t kFramesPerWorker = 2;
constexpr auto kPoll = std::chrono::milliseconds(50);
}  // namespace

int32_t usableCores() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
    return std::max(1, CPU_COUNT(&set));
}

int32_t workersFor(bool sharesState, int32_t requested) {
    return sharesState ? 1 : std::max(1, requested);
}

RenderWorkers::RenderWorkers(size_t workers, WorkFn work)
    : work_(std::move(work)), bound_(std::max<size_t>(1, workers) * kFramesPerWorker) {
    try {
        for (size_t w = 0; w < std::max<size_t>(1, workers); ++w)
            threads_.emplace_back([this, w] { run(w); });
    } catch (...) {
        // A thread that cannot start: stop those that did before giving up.
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
        for (std::thread& t : threads_) t.join();
        throw;
    }
}

RenderWorkers::~RenderWorkers() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    for (std::thread& t : threads_) t.join();
}

void RenderWorkers::rethrowError() {
    if (error_) std::rethrow_exception(error_);
}

bool RenderWorkers::fullLocked() const { return jobs_.size() >= bound_; }

bool RenderWorkers::full() {
    std::lock_guard<std::mutex> lock(mutex_);
    return fullLocked();
}

void RenderWorkers::submit(Work&& work) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        rethrowError();
        if (!fullLocked()) break;
        if (!changed_.wait_for(lock, kPoll, [&] { return error_ || !fullLocked(); })) {
            lock.unlock();
            throwIfInterrupted();
            lock.lock();
        }
    }
    Job job;
    job.work = std::move(work);
    jobs_.push_back(std::move(job));
    changed_.notify_all();
}

bool RenderWorkers::next(Work& out, bool wait) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        rethrowError();
        if (jobs_.empty()) return false;
        if (jobs_.front().done) break;
        if (!wait) return false;
        if (!changed_.wait_for(lock, kPoll, [&] { return error_ || jobs_.front().done; })) {
            lock.unlock();
            throwIfInterrupted();
            lock.lock();
        }
    }
    out = std::move(jobs_.front().work);
    jobs_.pop_front();
    --taken_;
    changed_.notify_all();
    return true;
}

void RenderWorkers::run(size_t worker) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        changed_.wait(lock, [&] { return stop_ || taken_ < jobs_.size(); });
        if (stop_) return;
        // Elements of a deque stay where they are while others are added at
        // the back or removed at the front, and the front is removed only
        // once it is done.
        Job& job = jobs_[taken_++];
        lock.unlock();
        std::exception_ptr failed;
        try {
            work_(worker, job.work);
        } catch (...) {
            failed = std::current_exception();
        }
        lock.lock();
        if (failed) {
            // The first error ends the run; the frames after it are not
            // needed any more.
            if (!error_) error_ = failed;
            stop_ = true;
        }
        job.done = true;
        changed_.notify_all();
    }
}

}  // namespace reelfx::tool
