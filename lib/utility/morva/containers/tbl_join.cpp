// jointbl: the items of a list as one string.
//
// Two things cost time with short texts: finding their ends, and copying so many bytes that nobody
// can predict how many. Here whole blocks are looked at and copied instead: aligned ones, because
// an aligned block that holds one byte of a text is all in the same page. What is copied behind a
// text is overwritten by the next one.
#include <algorithm>
#include <string_view>

#include "base/memory.hpp"
#include "containers/tbl_internal.hpp"
#include "morva/tbl.h"

// Sanitizers see every byte that is read beyond a text, and processors without these instructions
// have no such blocks.
#if defined(__SSE2__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#if defined(__has_feature)
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer) && \
    !__has_feature(memory_sanitizer)
#define MORVA_READS_BLOCKS 1
#endif
#else
#define MORVA_READS_BLOCKS 1
#endif
#endif

#ifdef MORVA_READS_BLOCKS
#include <emmintrin.h>
#endif

namespace morva::list {
namespace {

constexpr std::size_t kBlock = 16;

// The string as it grows: first on the stack, then in a block from malloc. At least kSlack bytes
// beyond what was asked for can be written.
class Joined {
  public:
    Joined() = default;
    Joined(const Joined&) = delete;
    Joined& operator=(const Joined&) = delete;

    // The end of the string, with room for `bytes` more and the slack.
    char* room(char* to, std::size_t bytes) {
        return bytes + kSlack <= static_cast<std::size_t>(end_ - to) ? to : grow(to, bytes);
    }
    char* start() { return begin_; }

    // What is before `to`, in a block of its own of just that size.
    char* finish(const char* to) {
        const auto bytes = static_cast<std::size_t>(to - begin_);
        if (large_ != nullptr)
            return static_cast<char*>(must_realloc(large_.release(), bytes, "s", MORVA_HERE));
        return static_cast<char*>(std::memcpy(must_malloc(bytes, "s", MORVA_HERE), small_, bytes));
    }

    static constexpr std::size_t kSlack = 4 * kBlock;

  private:
    [[gnu::noinline]] char* grow(const char* to, std::size_t bytes) {
        const auto used = static_cast<std::size_t>(to - begin_);
        const std::size_t size = used + std::max(used, bytes) + kSlack;
        const bool first = large_ == nullptr;
        large_.reset(static_cast<char*>(must_realloc(large_.release(), size, "s", MORVA_HERE)));
        if (first) std::memcpy(large_.get(), small_, used);
        begin_ = large_.get();
        end_ = begin_ + size;
        return begin_ + used;
    }

    char small_[4096];
    char* begin_ = small_;
    char* end_ = small_ + sizeof small_;
    malloced<char> large_;
};

inline char* append(Joined& joined, char* to, std::string_view text) {
    to = joined.room(to, text.size());
    return std::copy(text.begin(), text.end(), to);
}

#ifdef MORVA_READS_BLOCKS
// Copies at least 17 bytes.
inline void copy_long(char* to, const char* from, std::size_t length) {
    if (length > 4 * kBlock) {
        std::memcpy(to, from, length);
        return;
    }
    const std::size_t last = length - kBlock;
    for (std::size_t at = 0; at < last; at += kBlock) std::memcpy(to + at, from + at, kBlock);
    std::memcpy(to + last, from + last, kBlock);
}

using Word [[gnu::may_alias]] = uint64_t;

inline unsigned zeros_in(const char* block) {
    const __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
    return _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128()));
}

// Copies 16 bytes of which the first `length` count, from aligned words none of which lies beyond
// the text's end.
inline void copy_short(char* to, const char* text, std::size_t length) {
    const unsigned offset = reinterpret_cast<std::uintptr_t>(text) % sizeof(Word);
    const auto* words = reinterpret_cast<const Word*>(text - offset);
    const std::size_t last = (offset + length) / sizeof(Word);
    const unsigned shift = 8 * offset;
    const Word a = words[0], b = words[std::min<std::size_t>(last, 1)], c = words[last];
    const Word low = a >> shift | (b << 1) << (63 - shift);
    const Word high = b >> shift | (c << 1) << (63 - shift);
    std::memcpy(to, &low, sizeof low);
    std::memcpy(to + sizeof low, &high, sizeof high);
}

inline std::size_t length_of(const char* text, std::size_t offset) {
    unsigned zeros = zeros_in(text - offset) >> offset;
    std::size_t length = 0;
    while (zeros == 0) {
        length += length == 0 ? kBlock - offset : kBlock;
        if (length > 4 * kBlock) return length + std::strlen(text + length);
        zeros = zeros_in(text + length);
    }
    return length + __builtin_ctz(zeros);
}

// Appends a terminated text where the slack is.
inline char* append(Joined& joined, char* to, const char* text) {
    const std::size_t offset = reinterpret_cast<std::uintptr_t>(text) % kBlock;
    if (offset == 0) {
        const unsigned zeros = zeros_in(text);
        if (zeros != 0) [[likely]] {
            std::memcpy(to, text, kBlock);
            return to + __builtin_ctz(zeros);
        }
    }
    const std::size_t length = length_of(text, offset);
    if (length <= kBlock) {
        copy_short(to, text, length);
    } else {
        to = joined.room(to, length);
        copy_long(to, text, length);
    }
    return to + length;
}
#else
inline char* append(Joined& joined, char* to, const char* text) {
    return append(joined, to, std::string_view(text));
}
#endif

// What stands between the items. A short one is written as a whole block.
class Separator {
  public:
    explicit Separator(const char* text) : text_(text != nullptr ? text : "") {
        std::memcpy(block_, text_.data(), std::min(text_.size(), sizeof block_));
    }
    std::size_t size() const { return text_.size(); }

    // Appends it, in the slack if it fits there.
    char* append_to(Joined& joined, char* to) const {
        if (text_.size() > sizeof block_) return append(joined, to, text_);
        std::memcpy(to, block_, sizeof block_);
        return to + text_.size();
    }

  private:
    std::string_view text_;
    char block_[kBlock] = {};
};

// So many items ahead the next text is fetched: in long lists the texts are anywhere in memory.
constexpr std::size_t kAhead = 24;

char* join_pointers(Joined& joined, std::span<char*> items, const Separator& separator) {
    char* to = joined.start();
    for (std::size_t i = 0; i < items.size(); ++i) {
        __builtin_prefetch(items[std::min(i + kAhead, items.size() - 1)]);
        to = joined.room(to, 0);
        if (items[i] != nullptr) to = append(joined, to, items[i]);
        to = separator.append_to(joined, to);
    }
    return to;
}

// An item by value ends with its slot at the latest.
char* join_slots(Joined& joined, const Tbl* tbl, const Separator& separator) {
    char* to = joined.start();
    for (int64_t i = 0; i < tbl->count; ++i) {
        const char* text = tbl_slot(tbl, i);
        to = append(joined, to, std::string_view(text, strnlen(text, tbl->itemsize)));
        to = separator.append_to(joined, to);
    }
    return to;
}

}  // namespace
}  // namespace morva::list

using namespace morva;
using namespace morva::list;

extern "C" char* jointbl(Tbl* tbl, const char* separator) {
    const Separator between(separator);
    Joined joined;
    char* end = joined.start();
    if (maxtbl(tbl) > 0) {
        end = tbl->direct ? join_slots(joined, tbl, between)
                          : join_pointers(joined, tbl_pointers<char>(tbl), between);
        end[-static_cast<std::ptrdiff_t>(between.size())] = '\0';
    }
    *end = '\0';
    return joined.finish(end + 1);
}
