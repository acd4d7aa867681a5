#include <algorithm>

#include "codec/ucsd_code.hpp"
#include "codec/ucsd_compress.hpp"

namespace morva::ucsd {
namespace {

constexpr int kUndecided = -1;

// The run that is being written.
class RunWriter {
  public:
    explicit RunWriter(std::uint8_t* out) : begin_(out), at_(out) {}

    void put_first(std::int32_t sample) {
        store_be32(at_, sample);
        at_ += kFirstSampleSize;
    }

    void open(int class_index) {
        close();
        if ((at_ - begin_) % 2 != 0) *at_++ = 0;
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

class Compressor {
  public:
    Compressor(const std::int32_t* samples, std::size_t count, Rule rule)
        : samples_(samples), count_(count), rule_(rule) {}

    Compressed run(std::uint8_t* out) {
        RunWriter writer(out);
        writer.put_first(samples_[0]);
        for (std::size_t i = 1; i < count_; ++i) {
            const int next = class_for(i, writer.current_class());
            if (next == kUndecided) return {out, true, lossy_, too_steep_};
            if (next != writer.current_class()) writer.open(next);
            writer.push(next == kSampleClass ? samples_[i] : difference_at(samples_, i));
        }
        return {writer.close(), false, lossy_, too_steep_};
    }

  private:
    // The class of the run that takes sample i, behind a run of the current class.
    int class_for(std::size_t i, int current) {
        const std::int32_t difference = difference_at(samples_, i);
        const int own = class_of(difference);
        if (!fits(difference, bits_of(kSampleClass))) too_steep_ = true;
        const int next = own >= current ? own : look_ahead(i, own, current);
        if (next != kSampleClass || fits(samples_[i], bits_of(kSampleClass))) return next;
        if (rule_ == Rule::kLenient && own < kSampleClass) return own;
        lossy_ = true;
        return next;
    }

    // A narrower run pays when the differences that follow stay narrow for long enough; the fewer
    // bits are won by it, the longer.
    int look_ahead(std::size_t i, int own, int current) const {
        int widest = own;
        for (std::size_t j = 1;; ++j) {
            if (i + j >= count_) return rule_ == Rule::kStrict ? kUndecided : widest;
            const int ahead = class_of(difference_at(samples_, i + j));
            if (ahead >= current) return current;
            widest = std::max(widest, ahead);
            if (static_cast<int>(j) > 16 / (bits_of(current) - bits_of(widest))) return widest;
        }
    }

    const std::int32_t* samples_;
    std::size_t count_;
    Rule rule_;
    bool lossy_ = false, too_steep_ = false;
};

}  // namespace

Compressed compress_plain(const std::int32_t* samples, std::size_t count, Rule rule,
                          std::uint8_t* out) {
    return Compressor(samples, count, rule).run(out);
}

}  // namespace morva::ucsd
