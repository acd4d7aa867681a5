// Writes UCSD runs value by value.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/ucsd_code.hpp"

namespace morva::ucsd {

class RunWriter {
  public:
    RunWriter(std::uint8_t* out, std::int32_t first_sample) : begin_(out), at_(out) {
        store_be32(at_, first_sample);
        at_ += kFirstSampleSize;
    }

    // Begins a run at an even offset, behind a byte of 0 where that is needed.
    void open(int class_index) {
        close();
        *at_ = 0;
        at_ += (at_ - begin_) % 2;
        class_ = class_index;
        *at_++ = kClasses[class_index].code;
        count_ = at_++;
        *count_ = 0;
    }

    // Appends the lowest bits of a value, as many as the class has.
    void push(std::int32_t value) {
        if (*count_ == kMaxRun) open(class_);
        ++*count_;
        const int bits = kClasses[class_].bits;
        pending_ = pending_ << bits | (static_cast<std::uint32_t>(value) & ((1u << bits) - 1));
        for (pending_bits_ += bits; pending_bits_ >= 8; pending_bits_ -= 8)
            *at_++ = static_cast<std::uint8_t>(pending_ >> (pending_bits_ - 8));
    }

    // Makes room for all values of a run that has none yet, and returns the place for them.
    std::uint8_t* push_many(std::size_t count) {
        *count_ = static_cast<std::uint8_t>(count);
        std::uint8_t* const values = at_;
        at_ += run_size(class_, count);
        return values;
    }

    // Completes a half-filled byte. The count is in place already.
    std::uint8_t* close() {
        if (pending_bits_ > 0) *at_++ = static_cast<std::uint8_t>(pending_ << 4);
        pending_bits_ = 0;
        return at_;
    }

    int current_class() const { return class_; }

  private:
    std::uint8_t* begin_;
    std::uint8_t* at_;
    std::uint8_t* count_ = nullptr;
    int class_ = kBeforeFirst;
    std::uint32_t pending_ = 0;  // bits that wait for their byte to fill, and older ones above
    int pending_bits_ = 0;
};

}  // namespace morva::ucsd
