// Edit distance with unit costs, 64 rows of the matrix at a time.
//
// Neighbours in the matrix differ by -1, 0 or 1, so that a column is kept as two bits a row: which
// steps downwards are +1 and which are -1. A column follows from the one before it with a dozen
// operations a word: G. Myers, "A fast bit-vector algorithm for approximate string matching based
// on dynamic programming", Journal of the ACM 46 (1999), in the form for the distance itself of
// H. Hyyro, "A bit-vector algorithm for computing Levenshtein and Damerau edit distances", Nordic
// Journal of Computing 10 (2003).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "base/memory.hpp"
#include "morva/strings.h"

namespace {

using std::string_view;
using Word = std::uint64_t;

constexpr std::size_t kRows = 64;

std::size_t index_of(char c) {
    return static_cast<unsigned char>(c);
}

// The steps downwards of 64 rows in one column, and the steps to the right that enter above the
// first row and leave below the last.
struct Block {
    Word plus = ~Word{0};
    Word minus = 0;

    // Moves to the next column. `equal` marks the rows whose character is the column's. `in` and
    // `out` are steps to the right as two bits; `last` is the row to take `out` from.
    struct Step {
        Word plus, minus;
    };
    Step advance(Word equal, Step in, int last) {
        const Word either = equal | minus;
        equal |= in.minus;
        const Word across = (((equal & plus) + plus) ^ plus) | equal;
        const Word right_plus = minus | ~(across | plus);
        const Word right_minus = plus & across;
        const Word shifted_plus = right_plus << 1 | in.plus;
        const Word shifted_minus = right_minus << 1 | in.minus;
        plus = shifted_minus | ~(either | shifted_plus);
        minus = shifted_plus & either;
        return {right_plus >> last & 1, right_minus >> last & 1};
    }
};

// For a pattern of at most 64 characters: one block, and a table on the stack of which only the
// entries of characters that occur are set.
int distance_in_one_block(string_view pattern, string_view text) {
    Word equal[256];
    for (char c : text) equal[index_of(c)] = 0;
    for (char c : pattern) equal[index_of(c)] = 0;
    for (std::size_t i = 0; i < pattern.size(); ++i) equal[index_of(pattern[i])] |= Word{1} << i;
    const int last = static_cast<int>(pattern.size()) - 1;
    Block block;
    Word more = 0, less = 0;
    for (char c : text) {
        const Block::Step out = block.advance(equal[index_of(c)], {1, 0}, last);
        more += out.plus;
        less += out.minus;
    }
    return static_cast<int>(pattern.size() + more - less);
}

int distance_in_blocks(string_view pattern, string_view text) {
    const std::size_t count = (pattern.size() + kRows - 1) / kRows;
    // Per character the rows where it stands, and behind them the blocks of the current column.
    const morva::malloced<Word> room(
        morva::must_alloc<Word>(256 * count + 2 * count, "d", MORVA_HERE));
    Word* equal = room.get();
    for (std::size_t i = 0; i < pattern.size(); ++i)
        equal[index_of(pattern[i]) * count + i / kRows] |= Word{1} << i % kRows;
    Block* blocks = reinterpret_cast<Block*>(equal + 256 * count);
    std::uninitialized_default_construct_n(blocks, count);
    const int last = static_cast<int>((pattern.size() - 1) % kRows);
    Word more = 0, less = 0;
    for (char c : text) {
        const Word* rows = equal + index_of(c) * count;
        Block::Step step = {1, 0};
        for (std::size_t b = 0; b + 1 < count; ++b) step = blocks[b].advance(rows[b], step, 63);
        step = blocks[count - 1].advance(rows[count - 1], step, last);
        more += step.plus;
        less += step.minus;
    }
    return static_cast<int>(pattern.size() + more - less);
}

// What both begin or end with costs nothing.
void drop_common_ends(string_view& a, string_view& b) {
    const std::size_t shorter = std::min(a.size(), b.size());
    const std::size_t front = static_cast<std::size_t>(
        std::mismatch(a.begin(), a.begin() + shorter, b.begin()).first - a.begin());
    a.remove_prefix(front);
    b.remove_prefix(front);
    while (!a.empty() && !b.empty() && a.back() == b.back()) {
        a.remove_suffix(1);
        b.remove_suffix(1);
    }
}

}  // namespace

extern "C" {

int levenshtein_distance(const char* a, const char* b) {
    string_view pattern(a), text(b);
    if (pattern.empty() || text.empty()) return -1;
    drop_common_ends(pattern, text);
    if (pattern.size() > text.size()) std::swap(pattern, text);
    if (pattern.empty()) return static_cast<int>(text.size());
    return pattern.size() <= kRows ? distance_in_one_block(pattern, text)
                                   : distance_in_blocks(pattern, text);
}

}  // extern "C"
