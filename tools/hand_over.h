// Items handed from one thread to another in order: decoded frames from the
// decoding thread to the renderer, rendered pictures to the encoding thread.
// At most `depth` frames wait at once; packets of other streams, which are
// small, keep their place between the frames without counting.
//
// The giver ends the hand-over with finish() (the taker still gets what was
// given, then the giver's error if any) or abandon() (what waits is
// dropped); the taker with stop() (what waits is dropped, and the giver gets
// the taker's error if any). Every wait wakes every 50 ms to run the
// caller's `whileWaiting`, which may throw (a signal seen, say).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>

namespace reelfx::tool {

template <class Item>
class HandOver {
public:
    explicit HandOver(size_t depth) : depth_(depth) {}

    // Giver: false, the item dropped, once the taker has stopped or the
    // hand-over was abandoned; the taker's error is thrown instead.
    template <class Poll>
    bool give(Item item, bool frame, Poll&& whileWaiting) {
        std::unique_lock<std::mutex> lock(mutex_);
        waitUntil(lock, whileWaiting, [&] { return over() || !frame || frames_ < depth_; });
        if (stopped_ && takerError_) std::rethrow_exception(takerError_);
        if (over()) return false;
        frames_ += frame ? 1 : 0;
        queue_.push_back(Entry{std::move(item), frame});
        changed_.notify_all();
        return true;
    }
    // Giver: nothing more comes; `error` reaches the taker after the items.
    void finish(std::exception_ptr error = nullptr) {
        std::lock_guard<std::mutex> lock(mutex_);
        finished_ = true;
        giverError_ = std::move(error);
        changed_.notify_all();
    }
    // Giver: nothing more comes and what waits is dropped.
    void abandon() {
        std::lock_guard<std::mutex> lock(mutex_);
        abandoned_ = true;
        queue_.clear();
        changed_.notify_all();
    }
    bool abandoned() {
        std::lock_guard<std::mutex> lock(mutex_);
        return abandoned_;
    }

    // Taker: the next item; false at the end (the giver's error is thrown
    // there instead), once stopped, or when the hand-over was abandoned.
    template <class Poll>
    bool take(Item& item, Poll&& whileWaiting) {
        std::unique_lock<std::mutex> lock(mutex_);
        waitUntil(lock, whileWaiting, [&] { return over() || finished_ || !queue_.empty(); });
        if (over()) return false;
        if (queue_.empty()) {
            if (giverError_) std::rethrow_exception(giverError_);
            return false;
        }
        item = std::move(queue_.front().item);
        frames_ -= queue_.front().frame ? 1 : 0;
        queue_.pop_front();
        changed_.notify_all();
        return true;
    }
    // Taker: takes nothing more; what waits is dropped.
    void stop(std::exception_ptr error = nullptr) {
        std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
        takerError_ = std::move(error);
        queue_.clear();
        changed_.notify_all();
    }
    // Giver: waits until the taker has stopped; returns the taker's error.
    template <class Poll>
    std::exception_ptr waitForStop(Poll&& whileWaiting) {
        std::unique_lock<std::mutex> lock(mutex_);
        waitUntil(lock, whileWaiting, [&] { return stopped_; });
        return takerError_;
    }

private:
    struct Entry {
        Item item;
        bool frame = false;
    };
    static constexpr auto kPoll = std::chrono::milliseconds(50);

    bool over() const { return stopped_ || abandoned_; }
    template <class Poll, class Ready>
    void waitUntil(std::unique_lock<std::mutex>& lock, Poll& whileWaiting, Ready ready) {
        while (!ready()) {
            if (changed_.wait_for(lock, kPoll, ready)) break;
            lock.unlock();
            whileWaiting();
            lock.lock();
        }
    }

    const size_t depth_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Entry> queue_;
    size_t frames_ = 0;
    bool finished_ = false, abandoned_ = false, stopped_ = false;
    std::exception_ptr giverError_, takerError_;
};

}  // namespace reelfx::tool
