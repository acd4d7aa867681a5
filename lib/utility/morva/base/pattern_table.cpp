#include "base/pattern_table.hpp"

#include <locale.h>

#include <algorithm>
#include <bit>
#include <bitset>
#include <cctype>
#include <clocale>
#include <cstring>
#include <string_view>
#include <utility>

namespace morva {
namespace {

constexpr int kMaxLeaves = 64;  // a set of them is one word
constexpr int kMaxNodes = 400;
constexpr int kMaxRows = 128;
constexpr int kMaxCells = 4096;
constexpr int kMaxDepth = 20;

// True when bytes are characters and bracket ranges follow their values.
bool plain_locale() {
    if (MB_CUR_MAX != 1 || uselocale(nullptr) != LC_GLOBAL_LOCALE) return false;
    const char* order = std::setlocale(LC_COLLATE, nullptr);
    return order != nullptr && (std::strcmp(order, "C") == 0 || std::strcmp(order, "POSIX") == 0);
}

using LeafSet = std::uint64_t;

constexpr LeafSet leaf_bit(int leaf) {
    return LeafSet{1} << leaf;
}

enum class Kind : std::uint8_t { kEmpty, kSplit, kLeaf, kBegin, kEnd, kAccept };

// The automaton of a pattern. Leaves consume a byte; the assertion "at the end" and the final node
// are leaves too, so that a set of leaves says all about a state.
struct Node {
    Kind kind;
    std::uint8_t leaf;
    std::int16_t next;
    std::int16_t other;
};

struct Automaton {
    std::array<Node, kMaxNodes> nodes;
    int node_count = 0;
    int leaf_count = 0;
    std::array<std::int16_t, kMaxLeaves> node_of_leaf;
    std::array<LeafSet, 256> takers{};  // the leaves that accept a byte
    LeafSet consuming = 0;
    LeafSet at_end = 0;
    int accept_leaf = -1;
    int start = -1;
};

struct Fragment {
    int first;
    int last;
};

// Parses the simple language: characters, '.', bracket lists, groups, alternatives, anchors, the
// three plain repetitions and small intervals. Gives up on anything else, however well formed.
class Parser {
  public:
    Parser(const char* pattern, Automaton& automaton) : p_(pattern), a_(automaton) {}

    bool parse() {
        const Fragment whole = alternatives(0);
        if (*p_ != '\0') failed_ = true;
        const int accept = leaf(Kind::kAccept);
        if (failed_) return false;
        connect(whole.last, accept);
        a_.accept_leaf = a_.nodes[accept].leaf;
        a_.start = whole.first;
        return true;
    }

  private:
    int node(Kind kind, int next = -1, int other = -1) {
        if (a_.node_count == kMaxNodes) {
            failed_ = true;
            return 0;
        }
        a_.nodes[a_.node_count] = {kind, 0, static_cast<std::int16_t>(next),
                                   static_cast<std::int16_t>(other)};
        return a_.node_count++;
    }

    int leaf(Kind kind) {
        const int made = node(kind);
        if (a_.leaf_count == kMaxLeaves) failed_ = true;
        if (failed_) return made;
        a_.nodes[made].leaf = static_cast<std::uint8_t>(a_.leaf_count);
        a_.node_of_leaf[a_.leaf_count++] = static_cast<std::int16_t>(made);
        return made;
    }

    void connect(int from, int to) { a_.nodes[from].next = static_cast<std::int16_t>(to); }

    Fragment single(int made) { return {made, made}; }

    Fragment alternatives(int depth) {
        Fragment all = branch(depth);
        while (*p_ == '|' && !failed_) {
            ++p_;
            const Fragment another = branch(depth);
            const int join = node(Kind::kEmpty);
            connect(all.last, join);
            connect(another.last, join);
            all = {node(Kind::kSplit, all.first, another.first), join};
        }
        return all;
    }

    Fragment branch(int depth) {
        Fragment all = single(node(Kind::kEmpty));
        while (*p_ != '\0' && *p_ != '|' && *p_ != ')' && !failed_) {
            const Fragment another = piece(depth);
            connect(all.last, another.first);
            all.last = another.last;
        }
        return all;
    }

    bool at_repetition() const { return *p_ == '*' || *p_ == '+' || *p_ == '?' || *p_ == '{'; }

    Fragment piece(int depth) {
        if (*p_ == '^' || *p_ == '$') {
            const bool begin = *p_++ == '^';
            // The C library refuses a repetition of an anchor.
            if (at_repetition()) failed_ = true;
            return single(begin ? node(Kind::kBegin) : end_leaf());
        }
        const char* start = p_;
        Fragment all = atom(depth);
        if (*p_ == '{') return interval(start, all, depth);
        for (; *p_ == '*' || *p_ == '+' || *p_ == '?'; ++p_) all = repeated(all, *p_);
        if (*p_ == '{') failed_ = true;
        return all;
    }

    int end_leaf() {
        const int made = leaf(Kind::kEnd);
        a_.at_end |= leaf_bit(a_.nodes[made].leaf);
        return made;
    }

    Fragment repeated(Fragment inner, char how) {
        const int join = node(Kind::kEmpty);
        const int split = node(Kind::kSplit, inner.first, join);
        connect(inner.last, how == '?' ? join : split);
        return {how == '+' ? inner.first : split, join};
    }

    // The bounds of {n}, {n,} or {n,m}; no upper bound is -1.
    bool bounds(int& least, int& most) {
        least = most = number();
        if (*p_ == ',') {
            ++p_;
            most = *p_ == '}' ? -1 : number();
        }
        if (failed_ || *p_ != '}') return false;
        ++p_;
        return most != 0 && (most < 0 || least <= most);
    }

    int number() {
        int value = 0;
        if (!std::isdigit(static_cast<unsigned char>(*p_))) failed_ = true;
        for (; *p_ >= '0' && *p_ <= '9' && value <= kMaxLeaves; ++p_)
            value = 10 * value + *p_ - '0';
        return value;
    }

    // x{n}, x{n,} and x{n,m}: the atom is parsed again for each further copy.
    Fragment interval(const char* atom_start, Fragment copy, int depth) {
        int least, most;
        ++p_;
        if (!bounds(least, most)) {
            failed_ = true;
            return copy;
        }
        const char* behind = p_;
        const int copies = most < 0 ? std::max(least, 1) : most;
        Fragment all = single(node(Kind::kEmpty));
        for (int i = 0; i < copies && !failed_; ++i) {
            p_ = atom_start;
            if (i > 0) copy = atom(depth);
            if (most < 0 && i == copies - 1)
                copy = repeated(copy, least == 0 ? '*' : '+');
            else if (i >= least)
                copy = repeated(copy, '?');
            connect(all.last, copy.first);
            all.last = copy.last;
        }
        p_ = behind;
        if (at_repetition()) failed_ = true;
        return all;
    }

    Fragment atom(int depth) {
        const char c = *p_++;
        if (c == '(') return group(depth + 1);
        const int made = leaf(Kind::kLeaf);
        if (failed_) return single(made);
        const LeafSet bit = leaf_bit(a_.nodes[made].leaf);
        a_.consuming |= bit;
        if (c == '[')
            bracket(bit);
        else if (c == '.')
            for (int i = 1; i < 256; ++i) a_.takers[i] |= bit;
        else if (c == '\\')
            a_.takers[escaped()] |= bit;
        else if (c > 0 && std::strchr("*+?{)", c) == nullptr)
            a_.takers[static_cast<unsigned char>(c)] |= bit;
        else
            failed_ = true;
        return single(made);
    }

    Fragment group(int depth) {
        if (depth > kMaxDepth) failed_ = true;
        if (failed_) return single(0);
        const Fragment inner = alternatives(depth);
        if (*p_++ != ')') {
            --p_;
            failed_ = true;
        }
        return inner;
    }

    // The character behind a backslash, where that has no meaning of its own in the C library.
    unsigned char escaped() {
        const char c = *p_;
        if (c <= 0 || !std::ispunct(static_cast<unsigned char>(c)) || std::strchr("<>`'", c)) {
            failed_ = true;
            return 1;
        }
        ++p_;
        return static_cast<unsigned char>(c);
    }

    void bracket(LeafSet bit) {
        const bool inverted = *p_ == '^';
        if (inverted) ++p_;
        std::array<bool, 256> listed{};
        bool first = true;
        do {
            element(listed, first);
            first = false;
        } while (*p_ != ']' && !failed_);
        if (failed_) return;
        ++p_;
        for (int c = 1; c < 256; ++c)
            if (listed[c] != inverted) a_.takers[c] |= bit;
    }

    // One character, range or class of a bracket list.
    void element(std::array<bool, 256>& listed, bool first) {
        const char c = *p_;
        if (c <= 0) {
            failed_ = true;
        } else if (c == '[' && std::strchr(":.=", p_[1]) != nullptr) {
            named_class(listed);
        } else {
            ++p_;
            // A '-' stands for itself in front and at the end.
            const bool range = *p_ == '-' && p_[1] != ']';
            if (c == '-' && (range || (!first && *p_ != ']'))) failed_ = true;
            const char last = range ? range_end() : c;
            if (last < c) failed_ = true;
            for (int i = c; i <= last; ++i) listed[i] = true;
        }
    }

    char range_end() {
        const char last = p_[1];
        if (last <= 0 || last == '[' || last == '-') {
            failed_ = true;
            return 0;
        }
        p_ += 2;
        return last;
    }

    void named_class(std::array<bool, 256>& listed) {
        struct Row {
            std::string_view name;
            int (*holds)(int);
        };
        static constexpr Row kClasses[] = {
            {"[:alpha:]", isalpha}, {"[:digit:]", isdigit},   {"[:alnum:]", isalnum},
            {"[:upper:]", isupper}, {"[:lower:]", islower},   {"[:space:]", isspace},
            {"[:blank:]", isblank}, {"[:punct:]", ispunct},   {"[:print:]", isprint},
            {"[:graph:]", isgraph}, {"[:xdigit:]", isxdigit}, {"[:cntrl:]", iscntrl}};
        for (const Row& row : kClasses) {
            if (std::strncmp(p_, row.name.data(), row.name.size()) != 0) continue;
            p_ += row.name.size();
            if (*p_ == '-' && p_[1] != ']') failed_ = true;
            for (int c = 1; c < 256; ++c)
                if (row.holds(c)) listed[c] = true;
            return;
        }
        failed_ = true;
    }

    const char* p_;
    Automaton& a_;
    bool failed_ = false;
};

// The leaves that can be reached without consuming anything.
class Closure {
  public:
    explicit Closure(const Automaton& automaton) : a_(automaton) {}

    LeafSet of(int node, bool at_begin, bool at_end) {
        seen_.reset();
        leaves_ = 0;
        at_begin_ = at_begin;
        at_end_ = at_end;
        depth_ = 0;
        visit(node);
        while (depth_ > 0) expand(a_.nodes[stack_[--depth_]]);
        return leaves_;
    }

    // Whether any closure since the last call came across a "^".
    bool met_begin() { return std::exchange(met_begin_, false); }

  private:
    void visit(int node) {
        if (node < 0 || seen_[node]) return;
        seen_[node] = true;
        stack_[depth_++] = static_cast<std::int16_t>(node);
    }

    void expand(const Node& node) {
        switch (node.kind) {
            case Kind::kSplit:
                visit(node.other);
                [[fallthrough]];
            case Kind::kEmpty:
                visit(node.next);
                break;
            case Kind::kBegin:
                met_begin_ = true;
                if (at_begin_) visit(node.next);
                break;
            case Kind::kEnd:
                if (at_end_) visit(node.next);
                [[fallthrough]];
            case Kind::kLeaf:
            case Kind::kAccept:
                leaves_ |= leaf_bit(node.leaf);
                break;
        }
    }

    const Automaton& a_;
    std::bitset<kMaxNodes> seen_;
    std::array<std::int16_t, kMaxNodes> stack_;
    int depth_ = 0;
    LeafSet leaves_ = 0;
    bool at_begin_ = false, at_end_ = false;
    bool met_begin_ = false;
};

}  // namespace

// Turns an automaton into rows: a row for each set of leaves that can be reached.
class TableBuilder {
  public:
    TableBuilder(const Automaton& automaton, PatternTable& table)
        : a_(automaton), table_(table), closure_(automaton) {}

    bool build() {
        classify();
        for (int leaf = 0; leaf < a_.leaf_count; ++leaf) {
            const int next = a_.nodes[a_.node_of_leaf[leaf]].next;
            if (a_.consuming & leaf_bit(leaf)) follow_[leaf] = closure_.of(next, false, false);
            // Which "$" lead to the end of the pattern when the string has ended.
            if ((a_.at_end & leaf_bit(leaf)) == 0) continue;
            const LeafSet behind = closure_.of(next, true, true);
            if (behind & a_.consuming) return false;
            if (accepted(behind)) ending_ |= leaf_bit(leaf);
        }
        // The C library lets "^" and "$" between other characters match at a newline.
        if (closure_.met_begin()) return false;
        sets_[row_count_++] = closure_.of(a_.start, true, false);
        restart_ = kFirst;
        if (closure_.met_begin()) restart_ = row_of(closure_.of(a_.start, false, false));
        for (int row = 0; row < row_count_; ++row)
            if (!fill(row)) return false;
        // On the empty string both anchors hold at once.
        if (accepted(closure_.of(a_.start, true, true))) cells_[kEndClass] = kAtEnd;
        return store();
    }

  private:
    static constexpr int kEndClass = 0;  // the class of the terminator
    static constexpr std::uint16_t kDead = 0, kAtEnd = 1, kFirst = 2;

    bool accepted(LeafSet set) const { return (set & leaf_bit(a_.accept_leaf)) != 0; }

    // Bytes that the same leaves accept share a column.
    void classify() {
        int known = 1;
        table_.classes_[0] = kEndClass;
        for (int c = 1; c < 256; ++c) {
            int found = known - 1;
            while (found > 0 && masks_[found] != a_.takers[c]) --found;
            if (found == 0) {
                found = known++;
                masks_[found] = a_.takers[c];
            }
            table_.classes_[c] = static_cast<std::uint8_t>(found);
        }
        class_count_ = known;
    }

    std::uint16_t row_of(LeafSet set) {
        if (set == 0) return kDead;
        // The first row is the only one that stands before the first character.
        for (int row = 1; row < row_count_; ++row)
            if (sets_[row] == set) return static_cast<std::uint16_t>(row + kFirst);
        if (row_count_ == kMaxRows) {
            too_many_ = true;
            return kDead;
        }
        sets_[row_count_] = set;
        return static_cast<std::uint16_t>(row_count_++ + kFirst);
    }

    bool fill(int row) {
        if ((row + 1) * class_count_ > kMaxCells) return false;
        std::uint16_t* cells = &cells_[row * class_count_];
        cells[kEndClass] = accepted(sets_[row]) || (sets_[row] & ending_) ? kAtEnd : kDead;
        for (int column = 1; column < class_count_; ++column) {
            LeafSet next = 0;
            for (LeafSet taken = sets_[row] & masks_[column]; taken != 0; taken &= taken - 1)
                next |= follow_[std::countr_zero(taken)];
            cells[column] = row_of(next);
        }
        return !too_many_;
    }

    bool store() {
        const int width = class_count_ + 1;
        const std::size_t cells = static_cast<std::size_t>((row_count_ + kFirst) * width);
        using Cell = PatternTable::Cell;
        table_.cells_.reset(static_cast<Cell*>(try_calloc(cells, sizeof(Cell))));
        if (!table_.cells_) return false;
        for (int row = 0; row < row_count_; ++row) {
            Cell* to = &table_.cells_[(row + kFirst) * width];
            for (int column = 0; column < class_count_; ++column)
                to[column] = static_cast<Cell>(cells_[row * class_count_ + column] * width);
            to[class_count_] = accepted(sets_[row]);
        }
        table_.width_ = static_cast<std::uint16_t>(width);
        table_.first_row_ = table_.start_ = static_cast<Cell>(kFirst * width);
        table_.restart_ = static_cast<Cell>(restart_ * width);
        table_.only_first_ = only_first();
        table_.whole_only_ = restart_ == kDead;
        for (int row = 0; row < row_count_; ++row)
            if (accepted(sets_[row])) table_.whole_only_ = false;
        return true;
    }

    // The one character that can begin a match behind the first place, or none.
    char only_first() const {
        if (restart_ == kDead) return '\0';
        char only = '\0';
        const std::uint16_t* cells = &cells_[(restart_ - kFirst) * class_count_];
        for (int c = 0; c < 256; ++c) {
            if (cells[table_.classes_[c]] == kDead) continue;
            if (c == 0 || only != '\0') return '\0';
            only = static_cast<char>(c);
        }
        return only;
    }

    const Automaton& a_;
    PatternTable& table_;
    Closure closure_;
    std::array<LeafSet, kMaxLeaves> follow_{};
    LeafSet ending_ = 0;
    std::array<LeafSet, 257> masks_;
    int class_count_ = 0;
    std::array<LeafSet, kMaxRows> sets_;
    std::array<std::uint16_t, kMaxCells> cells_;
    int row_count_ = 0;
    bool too_many_ = false;
    std::uint16_t restart_ = 0;
};

bool PatternTable::build(const char* pattern) {
    if (!plain_locale()) return false;
    Automaton automaton;
    return Parser(pattern, automaton).parse() && TableBuilder(automaton, *this).build();
}

// The end of the longest match from here, or null.
const char* PatternTable::longest(Cell row, const char* string) const {
    const char* end = nullptr;
    while (running(row)) {
        if (accepts(row)) end = string;
        row = step(row, *string++);
    }
    return row != 0 ? string - 1 : end;
}

// The next place where a match behind the first character can begin, or null.
const char* PatternTable::next_start(const char* string) const {
    if (only_first_ != '\0') return std::strchr(string, only_first_);
    if (accepts(restart_)) return string;
    while (step(restart_, *string) == 0)
        if (*string++ == '\0') return nullptr;
    return string;
}

bool PatternTable::search(const char* string, int* start, int* length) const {
    const char* from = string;
    Cell row = start_;
    if (row == restart_ && (from = next_start(from)) == nullptr) return false;
    for (;; row = restart_) {
        if (const char* end = longest(row, from)) {
            *start = static_cast<int>(from - string);
            *length = static_cast<int>(end - from);
            return true;
        }
        if (restart_ == 0 || *from++ == '\0') return false;
        if ((from = next_start(from)) == nullptr) return false;
    }
}

bool PatternTable::found_in(const char* string) const {
    if (whole_only_) return matches_whole(string);
    int start, length;
    return search(string, &start, &length);
}

}  // namespace morva
