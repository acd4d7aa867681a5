// From shapes to a machine: each shape becomes a chain of nodes, and the sets of nodes that the
// same text leads to become the states (the subset construction of Rabin and Scott, 1959).
#include "time/shapes.hpp"

#include <algorithm>
#include <bitset>
#include <cctype>
#include <map>
#include <string_view>

#include "morva/epoch.h"

namespace morva::time {
namespace {

using Characters = std::bitset<256>;

Characters all_where(int (*is)(int)) {
    Characters set;
    for (int c = 1; c < 128; ++c) set[static_cast<std::size_t>(c)] = is(c) != 0;
    return set;
}

Characters only(char c) {
    Characters set;
    set.set(static_cast<unsigned char>(c));
    set.set(static_cast<unsigned char>(std::toupper(static_cast<unsigned char>(c))));
    return set;
}

const Characters kDigits = all_where(std::isdigit);
const Characters kLetters = all_where(std::isalpha);
const Characters kWord = kDigits | kLetters | only('/') | only('_') | only('+') | only('-');

// The zero byte, which ends every text, leads nowhere.
Characters any_character() {
    Characters set;
    set.set();
    set.reset(0);
    return set;
}

struct Edge {
    Characters on;  // none: the edge takes no character
    int to;
};

struct Node {
    Vector<Edge> edges;
    int shape = -1;
};

class Chains {
  public:
    Chains() { add(); }

    void add_shape(int index, const char* shape) {
        do {
            const int end = sequence(shape, kFirst);
            nodes_[at(end)].shape = index;
        } while (*shape++ == '|');
    }

    const Vector<Node>& nodes() const { return nodes_; }
    static constexpr int kFirst = 0;

  private:
    static std::size_t at(int node) { return static_cast<std::size_t>(node); }

    int add() {
        nodes_.emplace_back();
        return static_cast<int>(nodes_.size()) - 1;
    }
    void join(int from, int to, const Characters& on = {}) {
        nodes_[at(from)].edges.push_back({on, to});
    }
    int one(int from, const Characters& on) {
        const int to = add();
        join(from, to, on);
        return to;
    }
    int many(int from, const Characters& on) {
        const int to = one(from, on);
        join(to, to, on);
        return to;
    }
    int maybe(int from, int end) {
        const int to = add();
        join(from, to);
        join(end, to);
        return to;
    }
    int fraction(int from) {
        const int point = one(from, only('.'));
        return maybe(from, maybe(point, many(point, kDigits)));
    }
    int month(int from) {
        const int to = add();
        for (const char* name : month_name) {
            int end = from;
            for (; *name != '\0'; ++name)
                end = one(end, only(static_cast<char>(std::tolower(*name))));
            join(end, to);
        }
        return to;
    }
    int option(const char*& shape, int from) {
        const int end = sequence(shape, from);
        ++shape;  // the bracket
        return maybe(from, end);
    }

    // Follows a shape from a node on; returns the last node.
    int sequence(const char*& shape, int node) {
        while (*shape != '\0' && *shape != ']' && *shape != '|') node = element(shape, node);
        return node;
    }
    int element(const char*& shape, int from) {
        switch (const char c = *shape++) {
            case '9':
                return one(from, kDigits);
            case '#':
                return many(from, kDigits);
            case '~':
                return fraction(many(from, kDigits));
            case '!':
                return maybe(from, one(from, only('+') | only('-')));
            case '$':
                return month(from);
            case '@':
                return one(from, kLetters);
            case '%':
                return many(from, kWord);
            case '*':
                return one(from, any_character());
            case '[':
                return option(shape, from);
            default:
                return one(from, only(c));
        }
    }

    Vector<Node> nodes_;
};

using NodeSet = Vector<int>;  // ascending

// The set with all that is reached from it without a character.
NodeSet closed(const Vector<Node>& nodes, NodeSet set) {
    for (std::size_t i = 0; i < set.size(); ++i)
        for (const Edge& edge : nodes[static_cast<std::size_t>(set[i])].edges)
            if (edge.on.none() && std::find(set.begin(), set.end(), edge.to) == set.end())
                set.push_back(edge.to);
    std::sort(set.begin(), set.end());
    return set;
}

NodeSet step(const Vector<Node>& nodes, const NodeSet& set, unsigned char c) {
    NodeSet reached;
    for (const int node : set)
        for (const Edge& edge : nodes[static_cast<std::size_t>(node)].edges)
            if (edge.on[c]) reached.push_back(edge.to);
    std::sort(reached.begin(), reached.end());
    reached.erase(std::unique(reached.begin(), reached.end()), reached.end());
    return closed(nodes, std::move(reached));
}

// The first of the shapes that end in the set; -1 when none does.
int first_shape(const Vector<Node>& nodes, const NodeSet& set) {
    int first = -1;
    for (const int node : set) {
        const int shape = nodes[static_cast<std::size_t>(node)].shape;
        if (shape >= 0 && (first < 0 || shape < first)) first = shape;
    }
    return first;
}

// Characters that no edge tells apart are of one class, and have one column. Returns one character
// of each.
Vector<unsigned char> classify(const Vector<Node>& nodes, std::uint8_t (&column_of)[256]) {
    std::map<String, std::uint8_t, std::less<>,
             DyingAllocator<std::pair<const String, std::uint8_t>>>
        classes;
    Vector<unsigned char> samples;
    for (unsigned c = 0; c < 256; ++c) {
        String edges;
        for (const Node& node : nodes)
            for (const Edge& edge : node.edges) edges += edge.on[c] ? '1' : '0';
        const auto [found, is_new] =
            classes.try_emplace(std::move(edges), static_cast<std::uint8_t>(samples.size() + 1));
        if (is_new) samples.push_back(static_cast<unsigned char>(c));
        column_of[c] = found->second;
    }
    return samples;
}

}  // namespace

Shapes::Shapes(std::span<const char* const> shapes) {
    Chains chains;
    for (std::size_t i = 0; i < shapes.size(); ++i)
        chains.add_shape(static_cast<int>(i), shapes[i]);
    const Vector<Node>& nodes = chains.nodes();
    const Vector<unsigned char> samples = classify(nodes, column_of_);
    const std::size_t width = 1 + samples.size();

    std::map<NodeSet, std::uint16_t, std::less<>,
             DyingAllocator<std::pair<const NodeSet, std::uint16_t>>>
        numbers;
    Vector<NodeSet> sets{closed(nodes, {Chains::kFirst})};
    numbers[{}] = kDead;
    numbers[sets.front()] = kStart;
    table_.push_back(0);
    for (std::size_t i = 0; i < sets.size(); ++i) {
        table_.push_back(static_cast<std::uint16_t>(1 + first_shape(nodes, sets[i])));
        for (const unsigned char sample : samples) {
            NodeSet reached = step(nodes, sets[i], sample);
            const auto [found, is_new] = numbers.try_emplace(
                reached, static_cast<std::uint16_t>(kStart + width * sets.size()));
            if (is_new) sets.push_back(std::move(reached));
            table_.push_back(found->second);
        }
    }
}

}  // namespace morva::time
