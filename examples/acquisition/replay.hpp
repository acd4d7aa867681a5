// The replay of a recording: which packets are there by now. One thread moves it on, any number of
// others look.
#pragma once

#include <atomic>
#include <memory>

#include "morva.h"
#include "recording.hpp"

class Replay {
  public:
    // Continues at a packet, with all before it there.
    Replay(const Recording& recording, bool repeat, int64_t position)
        : recording_(recording),
          repeat_(repeat),
          released_(new std::atomic<double>[recording.pieces.size()]),
          position_(position),
          last_(std_now()) {
        for (int64_t i = 0; i < recording.total(); ++i) released_[i] = last_;
        if (position > 0) clock_ = due(position - 1);
    }

    // Goes on by the time that has passed, `speed` times as fast. A control may hold any number:
    // with less than 0, or NaN, the replay stands still.
    void advance(double speed) {
        const double now = std_now();
        if (const double passed = (now - last_) * speed; passed > 0) clock_ += passed;
        last_ = now;
        // Not more than the recording at a time, whatever the speed.
        int64_t next = position_;
        for (const int64_t most = next + recording_.total(); next < most && !is_end(next); ++next) {
            if (due(next) > clock_) break;
            released_[next % recording_.total()].store(now, std::memory_order_relaxed);
        }
        position_.store(next, std::memory_order_release);
        if (clock_ > due(next)) clock_ = due(next);
    }

    // The first packet that is not there yet.
    int64_t position() const { return position_.load(std::memory_order_acquire); }
    // When a packet came, or when this process started if that was earlier.
    double released(int64_t sequence) const { return released_[sequence % recording_.total()]; }
    bool at_end() const { return is_end(position_); }

  private:
    bool is_end(int64_t position) const { return !repeat_ && position >= recording_.total(); }
    // Seconds from the start of the recording to the end of a packet.
    double due(int64_t sequence) const {
        const int64_t total = recording_.total();
        return recording_.pieces[static_cast<std::size_t>(sequence % total)].due -
               recording_.start + static_cast<double>(sequence / total) * recording_.span();
    }

    const Recording& recording_;
    const bool repeat_;
    std::unique_ptr<std::atomic<double>[]> released_;
    std::atomic<int64_t> position_;
    double clock_ = 0;  // seconds of the recording
    double last_;       // when the clock was moved on
};
