// The walk over a tree that all writers share. A style says how keys and values look:
//
//     static constexpr bool kIndented        four blanks for every level
//     static constexpr bool kPlainKeys       a key without any character that put_quoted and
//                                            put_escaped care for stands as it is
//     static const char* take(node, level)   is asked about each node, blocks open around it
//     static const char* put_key(out, key)
//     static const char* put_string(out, text)
//
// The functions return null, or why the tree is not to be written; then the walk ends.
#pragma once

#include <algorithm>

#include "pf/pf.hpp"
#include "pf/pfliteral.hpp"
#include "pf/pfscout.hpp"

namespace morva::pf {

// A key as the writers of documented text put it: in quotes when it holds a blank.
void put_quoted(Output& out, std::string_view key);

// The text of pf2string.
struct Joined {
    static constexpr bool kIndented = false, kPlainKeys = true;
    static const char* take(const Pf*, std::size_t) { return nullptr; }
    static const char* put_key(Output& out, std::string_view key) {
        put_quoted(out, key);
        return nullptr;
    }
    static const char* put_string(Output& out, std::string_view text) {
        put_value(out, text);
        return nullptr;
    }
};

// The text of pfwrite.
struct Indented : Joined {
    static constexpr bool kIndented = true;
    static const char* put_key(Output& out, std::string_view key);
};

// The text that pfwrite_atomic writes. False, with the place and the reason, when a part of the
// tree has no text that reads back.
bool put_sure(Output& out, const Pf* pf, String* refusal);

// Trees may be as deep as memory allows, so that the walk keeps its place in a list of its own.
template <class Style>
class Writer {
  public:
    explicit Writer(Output& out) : out_(out) {}

    // Writes a tree; with `bare` without the opener and closing brace of its root. Calls drain()
    // between entries and ends when it gives false. Null, or the reason of a refusal.
    template <class Drain>
    const char* write(const Pf* root, bool bare, Drain drain);

    // Where the walk ended, as a path expression.
    String path() const;

  private:
    // A container that is open; its entries are a range of entries_.
    struct Frame {
        const Pf* node;
        std::size_t begin, next, end;
    };
    static constexpr std::size_t kWindow = 16;
    static constexpr std::size_t kFew = 8;  // entries that need no fetching

    std::size_t level() const { return frames_.size() - bare_; }
    const char* put_next(Frame& frame);
    const char* put_node(const Pf* node);
    const char* put_key(const Tree* tree, const Node* entry);
    void open(const Pf* node);
    void close();
    void list_entries(const Pf* node);
    void fetch(const Frame& frame);
    void put_indent();

    Output& out_;
    Vector<Frame> frames_;
    Vector<void*> entries_;  // of all frames: Node* from arrays, Pf* from lists
    Scout scout_;
    bool bare_ = false;
};

template <class Style>
template <class Drain>
const char* Writer<Style>::write(const Pf* root, bool bare, Drain drain) {
    bare_ = bare;
    const char* refusal = nullptr;
    if (bare)
        open(root);
    else
        refusal = put_node(root);
    while (refusal == nullptr && !frames_.empty()) {
        Frame& frame = frames_.back();
        if (frame.next == frame.end)
            close();
        else if (drain())
            refusal = put_next(frame);
        else
            break;
    }
    return refusal;
}

template <class Style>
const char* Writer<Style>::put_next(Frame& frame) {
    fetch(frame);
    put_indent();
    void* entry = entries_[frame.next++];
    if (frame.node->type == PFTBL) return put_node(static_cast<const Pf*>(entry));
    const Node* pair = static_cast<const Node*>(entry);
    if (const char* refusal = put_key(tree_of(frame.node->value.arr), pair)) return refusal;
    out_.put('\t');
    return put_node(static_cast<const Pf*>(pair->value));
}

template <class Style>
const char* Writer<Style>::put_node(const Pf* node) {
    if (const char* refusal = Style::take(node, level())) return refusal;
    if (node != nullptr && (is_array(node) || node->type == PFTBL)) {
        out_.put(node->type == PFTBL ? "&Tbl{\n" : "&Arr{\n");
        open(node);
        return nullptr;
    }
    const char* refusal = nullptr;
    if (node != nullptr && node->type == PFSTRING && node->value.string != nullptr)
        refusal = Style::put_string(out_, node->value.string);
    else if (node != nullptr && node->type == PFFUNCTION && node->value.funct != nullptr &&
             node->value.funct->text != nullptr)
        out_.put(std::string_view(node->value.funct->text));
    out_.put('\n');
    return refusal;
}

// Most keys stand in their nodes, are short, and hold nothing to care for.
template <class Style>
const char* Writer<Style>::put_key(const Tree* tree, const Node* entry) {
    if (Style::kPlainKeys && orders_text(tree) && entry->short_length <= kKeyPrefix) {
        const Bytes key = load_words(entry->head, entry->tail);
        constexpr std::uint8_t kLast = '#';  // all that is special below the letters, and blanks
        const Bytes odd = (key - 1 < kLast) | (key == '}') | (key == '\\');
        if (!any(odd)) {
            std::memcpy(out_.room(sizeof key), &key, sizeof key);
            out_.extend(entry->short_length);
            return nullptr;
        }
    }
    return Style::put_key(out_, text_of(entry));
}

template <class Style>
void Writer<Style>::open(const Pf* node) {
    const std::size_t begin = entries_.size();
    if (node->value.any != nullptr) list_entries(node);
    frames_.push_back({node, begin, begin, entries_.size()});
}

template <class Style>
void Writer<Style>::close() {
    entries_.resize(frames_.back().begin);
    frames_.pop_back();
    if (bare_ && frames_.empty()) return;
    put_indent();
    out_.put("}\n");
}

template <class Style>
void Writer<Style>::list_entries(const Pf* node) {
    const auto append = [this](void* const* items, std::size_t count) {
        entries_.insert(entries_.end(), items, items + count);
    };
    if (node->type == PFTBL) {
        const auto items = tbl_pointers<>(node->value.tbl);
        return append(items.data(), items.size());
    }
    Tree* tree = tree_of(node->value.arr);
    if (tree->count <= static_cast<long>(kFew)) {
        for (Node* entry = first(tree); entry != nullptr; entry = next(tree, entry))
            entries_.push_back(entry);
        return;
    }
    Tbl* listing = list_in_order(tree, Column::kNode);
    append(tbl_pointers<>(listing).data(), static_cast<std::size_t>(tree->count));
    freetbl(listing, nullptr);
}

// Fetches what stands a window ahead, at the beginning of each window.
template <class Style>
void Writer<Style>::fetch(const Frame& frame) {
    const std::size_t done = frame.next - frame.begin;
    if (done % kWindow != 0 || frame.end - frame.begin <= kFew) return;
    const std::size_t from = done == 0 ? frame.next : frame.next + kWindow;
    if (from >= frame.end) return;
    const std::size_t most = done == 0 ? 2 * kWindow : kWindow;
    scout_.fetch({entries_.data() + from, std::min(most, frame.end - from)},
                 frame.node->type != PFTBL);
}

template <class Style>
void Writer<Style>::put_indent() {
    constexpr std::size_t kUnit = 4;
    if (!Style::kIndented) return;
    const std::size_t blanks = kUnit * level();
    std::memset(out_.room(blanks), ' ', blanks);
    out_.extend(blanks);
}

template <class Style>
String Writer<Style>::path() const {
    String path;
    for (const Frame& frame : frames_) {
        if (frame.next == frame.begin) break;
        const std::size_t index = frame.next - 1 - frame.begin;
        if (frame.node->type == PFTBL) {
            char number[32];
            std::snprintf(number, sizeof number, "[%zu]", index);
            path.append(number);
        } else {
            const char* key = text_of(static_cast<const Node*>(entries_[frame.next - 1]));
            if (path.empty())
                path.append(key);
            else
                path.append(1, '{').append(key).append(1, '}');
        }
    }
    return path;
}

}  // namespace morva::pf
