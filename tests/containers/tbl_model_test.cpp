// Random operations on lists of every kind, beside a deque that does the same.
#include <deque>
#include <random>

#include <algorithm>

#include "tbl_lists.hpp"

namespace {

// The three kinds of list under one face: items are whole numbers.
struct Kind {
    const char* name;
    bool direct;
    bool in_file;
    long null_value;
};

class TblModel : public testing::TestWithParam<Kind> {
  protected:
    static constexpr int kSteps = 4000;

    Tbl* make() {
        const Kind& kind = GetParam();
        const long* null_value = kind.null_value != 0 ? &kind.null_value : nullptr;
        if (!kind.in_file) return inittbl(1, 1, kind.direct, null_value, sizeof(long));
        Tbl* tbl = nullptr;
        EXPECT_EQ(filetbl(path().c_str(), "model", 3, null_value, sizeof(long), &tbl), 0);
        return tbl;
    }
    std::string path() const { return dir_.file("list"); }

    const void* in(const long& item) const {
        return GetParam().direct ? &item : reinterpret_cast<void*>(item);
    }
    long out(void* item) const {
        if (!GetParam().direct) return reinterpret_cast<long>(item);
        return item != nullptr ? *static_cast<long*>(item) : 0;
    }

    void step(std::mt19937& random) {
        const long n = static_cast<long>(model_.size());
        const long item = static_cast<long>(random() % 1000) + 1;
        const long i = static_cast<long>(random() % (n + 3)) - 1;
        const bool inside = i >= 0 && i < n;
        const long none = GetParam().null_value;
        const auto at = model_.begin() + std::clamp(i, 0L, n);
        switch (random() % 12) {
            case 0:
            case 1:
                ASSERT_EQ(pushtbl(tbl_, in(item)), n);
                model_.push_back(item);
                break;
            case 2:
            case 3:
                ASSERT_EQ(unshifttbl(tbl_, in(item)), 0);
                model_.push_front(item);
                break;
            case 4:
                ASSERT_EQ(out(poptbl(tbl_)), n > 0 ? model_.back() : none);
                if (n > 0) model_.pop_back();
                break;
            case 5:
            case 6:
                ASSERT_EQ(out(shifttbl(tbl_)), n > 0 ? model_.front() : none);
                if (n > 0) model_.pop_front();
                break;
            case 7:
                ASSERT_EQ(instbl(tbl_, i, in(item)), std::clamp(i, 0L, n));
                model_.insert(at, item);
                break;
            case 8:
                ASSERT_EQ(out(deltbl(tbl_, i)), inside ? *at : none);
                if (inside) model_.erase(at);
                break;
            case 9:
                ASSERT_EQ(settbl(tbl_, i, in(item)), i < 0 ? n : i);
                if (i < 0 || i == n)
                    model_.push_back(item);
                else if (inside)
                    model_[i] = item;
                else
                    grow_to(i, item);
                break;
            case 10:
                if (random() % 20 != 0) break;
                trunctbl(tbl_, i, nullptr);
                model_.resize(std::clamp(i, 0L, n));
                break;
            case 11:
                if (random() % 50 != 0 || n > 2000) break;
                ASSERT_EQ(cattbl(tbl_, tbl_), 0);
                for (long k = 0; k < n; ++k) model_.push_back(model_[k]);
                break;
        }
    }

    // What a spare slot holds depends on what was there before; take it from the list.
    void grow_to(long i, long item) {
        while (static_cast<long>(model_.size()) < i)
            model_.push_back(out(gettbl(tbl_, static_cast<long>(model_.size()))));
        model_.push_back(item);
    }

    void compare() {
        ASSERT_EQ(verifytbl(tbl_), 0) << logged_.text();
        ASSERT_EQ(maxtbl(tbl_), static_cast<long>(model_.size()));
        for (std::size_t i = 0; i < model_.size(); ++i)
            ASSERT_EQ(out(gettbl(tbl_, static_cast<long>(i))), model_[i]) << "item " << i;
        ASSERT_EQ(out(gettbl(tbl_, maxtbl(tbl_))), GetParam().null_value);
    }

    void run(unsigned seed) {
        std::mt19937 random(seed);
        tbl_ = make();
        model_.clear();
        for (int i = 0; i < kSteps && !HasFatalFailure(); ++i) {
            step(random);
            compare();
            if (GetParam().in_file && i % 500 == 0) reopen();
        }
        freetbl(tbl_, nullptr);
    }

    void reopen() {
        freetbl(tbl_, nullptr);
        char* label = nullptr;
        tbl_ = readtbl(path().c_str(), &label, 1);
        ASSERT_NE(tbl_, nullptr) << logged_.text();
        ASSERT_STREQ(label, "model");
        compare();
    }

    kit::TempDir dir_;
    kit::Logged logged_;
    Tbl* tbl_ = nullptr;
    std::deque<long> model_;
};

TEST_P(TblModel, BehavesAsADeque) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        run(seed);
        if (HasFatalFailure()) return;
        std::filesystem::remove(path());
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, TblModel,
                         testing::Values(Kind{"Indirect", false, false, 0},
                                         Kind{"Direct", true, false, 0},
                                         Kind{"DirectWithNullValue", true, false, -7},
                                         Kind{"File", true, true, 0},
                                         Kind{"FileWithNullValue", true, true, -7}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
