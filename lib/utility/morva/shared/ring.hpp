// The points of a ring as the queries see them. The writer may be another process: index and count
// are read together, every double on its own, and nothing read is used as an index unchecked.
#pragma once

#include <atomic>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>

#include "morva/ring.h"

namespace morva::ring {

// index and count are one aligned word of 8 bytes, so that they change together.
struct Place {
    int32_t index;
    int32_t count;
};
using Word [[gnu::may_alias]] = uint64_t;
static_assert(offsetof(Ring_header, index) % sizeof(Word) == 0 && sizeof(Place) == sizeof(Word) &&
              offsetof(Ring_header, count) == offsetof(Ring_header, index) + 4);
// As numbers of such a word, on machines of either byte order.
constexpr uint64_t kOneIndex = std::bit_cast<uint64_t>(Place{1, 0});
constexpr uint64_t kOneCount = std::bit_cast<uint64_t>(Place{0, 1});
static_assert(sizeof(Ring_header) == 104 && offsetof(Ring_header, gap) == 88);

inline double load(const double& from) {
    return std::atomic_ref<double>(const_cast<double&>(from)).load(std::memory_order_acquire);
}

inline void store(double& to, double value) {
    std::atomic_ref<double>(to).store(value, std::memory_order_release);
}

inline uint64_t load_word(const Ring_header* header) {
    return __atomic_load_n(reinterpret_cast<const Word*>(&header->index), __ATOMIC_ACQUIRE);
}

inline void store_word(Ring_header* header, uint64_t word) {
    __atomic_store_n(reinterpret_cast<Word*>(&header->index), word, __ATOMIC_RELEASE);
}

// What the file says, made to lie inside it.
inline Place load_place(const Ring* ring) {
    Place place = std::bit_cast<Place>(load_word(ring->header));
    const auto size = static_cast<uint32_t>(ring->size);
    if (static_cast<uint32_t>(place.index) >= size) [[unlikely]]
        place.index = 0;
    if (static_cast<uint32_t>(place.count) > size) [[unlikely]]
        place.count = place.count < 0 ? 0 : ring->size;
    return place;
}

inline void store_place(Ring* ring, Place place) {
    store_word(ring->header, std::bit_cast<uint64_t>(place));
}

// The points of one instant, newest first.
struct View {
    const Ring* ring;
    int32_t index;
    int32_t count;

    const Ring_point& at(int64_t i) const {
        const int64_t slot = index + i;
        return ring->points[slot < ring->size ? slot : slot - ring->size];
    }
    double time(int64_t i) const { return load(at(i).time); }
    double value(int64_t i) const { return load(at(i).value); }
    Ring_point point(int64_t i) const { return {time(i), value(i)}; }

    // The points lie in one piece, or in two when they wrap round.
    std::span<const Ring_point> first_piece() const {
        const int32_t room = ring->size - index;
        return {ring->points + index, static_cast<std::size_t>(count < room ? count : room)};
    }
    std::span<const Ring_point> second_piece() const {
        return {ring->points, static_cast<std::size_t>(count) - first_piece().size()};
    }
};

inline View look(const Ring* ring) {
    const Place place = load_place(ring);
    return {ring, place.index, place.count};
}

// How many of a view's points, from the newest on, the writer has left alone since.
inline int64_t intact(const View& view) {
    const Place now = load_place(view.ring);
    if (now.index == view.index && now.count >= view.count) return view.count;
    const int64_t moved = view.index - now.index;
    const int64_t pushed = moved < 0 ? moved + view.ring->size : moved;
    const int64_t left = now.count - pushed;
    return left < 0 ? 0 : left < view.count ? left : view.count;
}

inline bool same(const Ring_point& a, const Ring_point& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Answers a query; anew when the writer of a full ring overwrote points meanwhile. As many pushes
// as there are slots bring index and count back: the newest point tells.
template <class Query>
auto settled(const Ring* ring, Query query) {
    const int attempts = 4 + 4000 / ring->size;
    for (int attempt = 1;; ++attempt) {
        const View view = look(ring);
        const Ring_point newest = view.point(0);
        auto answer = query(view);
        if (attempt == attempts || (intact(view) == view.count && same(newest, view.point(0))))
            return answer;
    }
}

// The value that marks breaks; NaN, which equals nothing, when breaks are switched off.
inline double break_value(const Ring* ring) {
    return load(ring->header->gap) == 0 ? std::numeric_limits<double>::quiet_NaN()
                                        : load(ring->header->null);
}

// The points that a statistic is made of: those at times >= from, without breaks.
struct Selection {
    double from;
    double null;
    bool takes(const Ring_point& point) const {
        return load(point.time) >= from && load(point.value) != null;
    }
};

// For spans whose early end is not included. NaN, which no time reaches, when nothing is behind it.
inline double just_after(double limit) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    return limit == kInfinity ? std::numeric_limits<double>::quiet_NaN()
                              : std::nextafter(limit, kInfinity);
}

}  // namespace morva::ring
