// Threads that check batches of packets, so that decoding goes on while others come. The batches
// come back in the order in which they were handed over.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "batch.hpp"

class Checkers {
  public:
    // Without threads, a batch is checked when it is asked for.
    explicit Checkers(int threads) : slots_(static_cast<std::size_t>(2 * threads + 1)) {
        for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
    }
    ~Checkers() {
        {
            const std::lock_guard lock(mutex_);
            over_ = true;
        }
        filled_.notify_all();
        for (std::thread& thread : threads_) thread.join();
    }
    Checkers(const Checkers&) = delete;
    Checkers& operator=(const Checkers&) = delete;

    bool are_idle() const { return first_ == next_; }
    bool are_busy() const { return next_ - first_ == static_cast<long>(slots_.size()); }

    // An empty batch to fill, unless the checkers are busy.
    Batch& next() {
        Batch& batch = slot(next_).batch;
        batch.clear();
        return batch;
    }
    // Hands that batch over.
    void start() {
        {
            const std::lock_guard lock(mutex_);
            slot(next_++).is_checked = false;
        }
        filled_.notify_one();
    }
    // The oldest batch, as soon as it is checked; unless they are idle. It stays until next() is
    // called.
    const Batch& oldest() {
        Slot& oldest = slot(first_++);
        if (threads_.empty()) {
            oldest.batch.check(tools_);
            return oldest.batch;
        }
        std::unique_lock lock(mutex_);
        checked_.wait(lock, [&] { return oldest.is_checked; });
        return oldest.batch;
    }

  private:
    struct Slot {
        Batch batch;
        bool is_checked = false;
    };

    Slot& slot(long number) { return slots_[static_cast<std::size_t>(number) % slots_.size()]; }

    void work() {
        Tools tools;
        std::unique_lock lock(mutex_);
        for (;;) {
            filled_.wait(lock, [&] { return over_ || taken_ < next_; });
            if (over_) return;
            Slot& mine = slot(taken_++);
            lock.unlock();
            mine.batch.check(tools);
            lock.lock();
            mine.is_checked = true;
            checked_.notify_one();
        }
    }

    std::vector<Slot> slots_;
    std::mutex mutex_;
    std::condition_variable filled_, checked_;
    long first_ = 0;  // the oldest batch under way,
    long taken_ = 0;  // the next to be checked,
    long next_ = 0;   // and the next to be filled
    bool over_ = false;
    Tools tools_;
    std::vector<std::thread> threads_;
};
