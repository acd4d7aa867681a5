// The sink that makes a tree of what the scanner finds.
#pragma once

#include <string_view>

#include "base/memory.hpp"
#include "containers/arr_fill.hpp"
#include "pf/pf.hpp"
#include "pf/pfpool.hpp"
#include "pf/pfscan.hpp"

namespace morva::pf {

// Messages that wait until no lock is held.
class Messages {
  public:
    // Formats as printf does; a reason keeps the error number when `with_errno` is set.
    void reason(bool with_errno, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void complaint(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Hands all of them to the register, in their order.
    void tell() const;

  private:
    struct Message {
        bool complains;
        int error;  // the error number that belongs to it, or 0
        String text;
    };
    void add(bool complains, int error, const char* format, va_list arguments)
        __attribute__((format(printf, 4, 0)));
    Vector<Message> messages_;
};

// Nodes that a tree had before. They go when no lock is held, as that may be told, and when the
// text is read, as it may be a string of theirs.
class Replaced {
  public:
    Replaced() = default;
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;
    ~Replaced() {
        for (Pf* node : nodes_) pffree(node);
    }
    void add(void* node) { nodes_.push_back(static_cast<Pf*>(node)); }

  private:
    Vector<Pf*> nodes_;
};

class TreeBuilder {
  public:
    // `root` is an array, `source` a lasting name.
    TreeBuilder(Pf* root, std::string_view text, char* source, Messages& messages,
                Replaced& replaced)
        : text_end_(text.data() + text.size()),
          nodes_(kNodeBytes * text.size()),
          source_(source),
          messages_(messages),
          replaced_(replaced) {
        entries_.reserve(text.size() / kEntryBytes);
        enter(root, can_be_filled(root->value.arr) ? way_of(Block::kArray) : Way::kAtOnce);
    }

    void key(const Key& key);
    void value(const Value& value);
    void literal(const Literal& literal);
    void function(const Span& where);
    void undef(const Span&);
    void open(const Span& where, Block block);
    void close(const Span&) { leave(); }
    void end_marker(const Span&) {}
    void too_deep(const Span& where, Block block);
    void stray_close(const Span& where);
    void endless(const Span&) {}

    // Ends the blocks that are still open, and the root. The text must still be there.
    void finish();

  private:
    // How entries get into a container. Those of a new array are gathered and put in together when
    // it ends; those of an array that has some already, or whose replacements are told, at once.
    enum class Way { kList, kGathered, kAtOnce };
    struct Container {
        Pf* node;
        Way way;
        bool sorted;        // the keys gathered so far ascend, each with a node
        std::size_t first;  // of its entries among those gathered
    };

    static constexpr std::size_t kNodeBytes = 4;  // what a byte of text becomes
    static constexpr std::size_t kEntryBytes =
        20;  // of text; memory that is not used costs nothing

    Pf* string_node(std::string_view text);
    Pf* resolved_node(const Value& value);
    static bool can_be_filled(Arr* arr) {
        return tree_of(arr)->count == 0 && orders_text(tree_of(arr));
    }
    static Way way_of(Block block);
    Pf* new_block(Way way);
    void enter(Pf* node, Way way);
    void leave();
    void add(Pf* node);
    void gather(Pf* node);
    void put(Pf* node);
    void fill();
    void keep_key();
    void warn_of_openers(const char* text);

    // Whether so many bytes can be read from there, which is part of the text.
    bool readable(const char* from, std::ptrdiff_t bytes) const {
        return text_end_ - from >= bytes;
    }

    const char* text_end_;
    NodeMaker nodes_;
    Container current_;
    Container enclosing_[kDeepest + 1];
    int level_ = -1;
    Vector<ArrayEntry> entries_;            // of all containers that gather, the innermost last
    Vector<malloced<char>> resolved_keys_;  // keys of entries that do not stand in the text
    std::string_view pending_;              // the key
    bool kept_ = false;                     // it is one of resolved_keys_
    long key_line_ = 0;
    char* source_;
    Messages& messages_;
    Replaced& replaced_;
};

// What is done for every entry.

inline void TreeBuilder::key(const Key& key) {
    pending_ = key.text;
    key_line_ = key.where.line;
    kept_ = key.text.data() < key.where.begin || key.text.data() >= key.where.end;
    if (kept_) [[unlikely]]
        keep_key();
}

// Most texts are copied as two blocks of fixed size, of which what is too much is overwritten by
// the next node.
inline Pf* TreeBuilder::string_node(std::string_view text) {
    constexpr std::size_t kBlocks = 32;
    Pf* node = nodes_.make(PFSTRING, text.size() + 1);
    char* string = node->value.string;
    if (text.size() <= kBlocks && readable(text.data(), kBlocks) &&
        nodes_.writable(string, kBlocks))
        std::memcpy(string, text.data(), kBlocks);
    else
        std::memcpy(string, text.data(), text.size());
    string[text.size()] = '\0';
    return node;
}

inline void TreeBuilder::gather(Pf* node) {
    const bool wide = !kept_ && !pending_.empty() && readable(pending_.data(), kKeyPrefix);
    const TextKey key = wide ? TextKey::from_readable(pending_) : TextKey(pending_);
    const ArrayEntry& entry = entries_.emplace_back(key, entries_.size(), node);
    if (entries_.size() - current_.first > 1 && compare_keys((&entry)[-1], entry) >= 0)
        current_.sorted = false;
}

inline void TreeBuilder::add(Pf* node) {
    node->parent = current_.node;
    node->filename = source_;
    switch (current_.way) {
        case Way::kList:
            pushtbl(current_.node->value.tbl, node);
            return;
        case Way::kGathered:
            return gather(node);
        case Way::kAtOnce:
            return put(node);
    }
}

inline void TreeBuilder::value(const Value& value) {
    Pf* node = value.escaped ? resolved_node(value) : string_node(value.where.text());
    if (value.ampersand) warn_of_openers(node->value.string);
    add(node);
}

}  // namespace morva::pf
