#include <algorithm>

#include "codec/ucsd_code.hpp"
#include "codec/ucsd_compress.hpp"

namespace morva::ucsd {
namespace {

// Appends the lowest bits of values, the upper ones first.
class BitWriter {
  public:
    explicit BitWriter(std::uint8_t* out) : at_(out) {}

    void put(std::int32_t value, int bits) {
        pending_ = pending_ << bits | (static_cast<std::uint32_t>(value) & ((1u << bits) - 1));
        for (pending_bits_ += bits; pending_bits_ >= 8; pending_bits_ -= 8)
            *at_++ = static_cast<std::uint8_t>(pending_ >> (pending_bits_ - 8));
    }

    // Completes a half-filled byte.
    std::uint8_t* finish() {
        if (pending_bits_ > 0) *at_++ = static_cast<std::uint8_t>(pending_ << 4);
        return at_;
    }

  private:
    std::uint8_t* at_;
    std::uint32_t pending_ = 0;  // bits that wait for their byte to fill, and older ones above
    int pending_bits_ = 0;
};

class Compressor {
  public:
    Compressor(const std::int32_t* samples, std::size_t count, Rule rule)
        : samples_(samples), count_(count), rule_(rule) {}

    Compressed run(std::uint8_t* out) {
        std::uint8_t* at = put_first(samples_[0], out);
        int current = kBeforeFirst;
        for (std::size_t begin = 1, i = 1; i <= count_; ++i) {
            const int next = i < count_ ? class_for(i, current) : kBeforeFirst;
            if (next == kUndecided) return {out, true, false, false};
            if (next == current && i - begin < kMaxRun) continue;
            if (i > begin) at = put_run(samples_, begin, i - begin, current, out, at);
            begin = i;
            current = next;
        }
        return {at, false, lossy_, too_steep_};
    }

  private:
    // The class of the run that takes sample i, behind a run of the current class.
    int class_for(std::size_t i, int current) {
        const std::int32_t difference = difference_at(samples_, i);
        const int own = class_of(difference);
        if (!fits(difference, bits_of(kSampleClass))) too_steep_ = true;
        const int next = own >= current ? own : look_ahead(samples_, count_, i, current, rule_);
        if (next != kSampleClass || fits(samples_[i], bits_of(kSampleClass))) return next;
        if (rule_ == Rule::kLenient && own < kSampleClass) return own;
        lossy_ = true;
        return next;
    }

    const std::int32_t* samples_;
    std::size_t count_;
    Rule rule_;
    bool lossy_ = false, too_steep_ = false;
};

}  // namespace

int look_ahead(const std::int32_t* samples, std::size_t count, std::size_t i, int current,
               Rule rule) {
    int widest = class_of(difference_at(samples, i));
    for (std::size_t j = 1;; ++j) {
        if (i + j >= count) return rule == Rule::kStrict ? kUndecided : widest;
        const int ahead = class_of(difference_at(samples, i + j));
        if (ahead >= current) return current;
        widest = std::max(widest, ahead);
        if (static_cast<int>(j) >= differences_to_see(current, widest)) return widest;
    }
}

std::uint8_t* put_run(const std::int32_t* samples, std::size_t first, std::size_t count,
                      int class_index, const std::uint8_t* begin, std::uint8_t* at) {
    if ((at - begin) % 2 != 0) *at++ = 0;
    *at++ = kClasses[class_index].code;
    *at++ = static_cast<std::uint8_t>(count);
    BitWriter values(at);
    for (std::size_t i = first; i < first + count; ++i)
        values.put(class_index == kSampleClass ? samples[i] : difference_at(samples, i),
                   bits_of(class_index));
    return values.finish();
}

Compressed compress_plain(const std::int32_t* samples, std::size_t count, Rule rule,
                          std::uint8_t* out) {
    return Compressor(samples, count, rule).run(out);
}

}  // namespace morva::ucsd
