#include <algorithm>

#include "codec/ucsd_code.hpp"
#include "codec/ucsd_compress.hpp"
#include "codec/ucsd_run_writer.hpp"

namespace morva::ucsd {
namespace {

class Compressor {
  public:
    Compressor(const std::int32_t* samples, std::size_t count, Rule rule)
        : samples_(samples), count_(count), rule_(rule) {}

    Compressed run(std::uint8_t* out) {
        RunWriter writer(out, samples_[0]);
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

Compressed compress_plain(const std::int32_t* samples, std::size_t count, Rule rule,
                          std::uint8_t* out) {
    return Compressor(samples, count, rule).run(out);
}

}  // namespace morva::ucsd
