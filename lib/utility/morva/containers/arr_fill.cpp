#include "containers/arr_fill.hpp"

#include <algorithm>
#include <bit>
#include <utility>

#include "containers/redblack.hpp"

namespace morva {
namespace {

constexpr auto comes_before = [](const ArrayEntry& a, const ArrayEntry& b) {
    const int order = compare_keys(a, b);
    return order != 0 ? order < 0 : a.number < b.number;
};

// Entries dealt out by the first bits in which their keys differ, so that what remains to be sorted
// is in small runs that stay in the cache.
class Buckets {
  public:
    explicit Buckets(std::span<const ArrayEntry> entries) {
        std::uint64_t differing = 0;
        for (const ArrayEntry& entry : entries) differing |= entry.head ^ entries[0].head;
        const int bits = std::min<int>(kMostBits, static_cast<int>(std::bit_width(entries.size())));
        shift_ = std::max(0, static_cast<int>(std::bit_width(differing)) - bits);
        mask_ = (std::size_t{1} << bits) - 1;
        ends_.resize(mask_ + 1);
        for (const ArrayEntry& entry : entries) ++ends_[bucket_of(entry)];
        std::uint32_t end = 0;
        for (std::uint32_t& count : ends_) end += std::exchange(count, end);
    }

    void deal(std::span<const ArrayEntry> entries, ArrayEntry* to) {
        for (const ArrayEntry& entry : entries) to[ends_[bucket_of(entry)]++] = entry;
        std::uint32_t begin = 0;
        for (const std::uint32_t end : ends_) {
            std::sort(to + begin, to + end, comes_before);
            begin = end;
        }
    }

  private:
    static constexpr int kMostBits = 14;

    std::size_t bucket_of(const ArrayEntry& entry) const { return entry.head >> shift_ & mask_; }

    int shift_;
    std::size_t mask_;
    Vector<std::uint32_t> ends_;  // before dealing, where buckets begin
};

// Makes a balanced tree of entries: every level but the last is full, and the nodes of the last are
// red.
class Filler {
  public:
    Filler(Tree* tree, std::span<const ArrayEntry> entries)
        : tree_(tree),
          entries_(entries),
          red_level_(static_cast<int>(std::bit_width(entries.size() + 1)) - 1) {}

    Node* subtree(std::size_t begin, std::size_t end, Node* parent, int level) const {
        if (begin == end) return &tree_->nil;
        const std::size_t middle = begin + (end - begin) / 2;
        Node* node = tree_->pool.take_node();
        node->child[kLeft] = subtree(begin, middle, node, level + 1);
        set_entry(node, entries_[middle]);
        node->parent = parent;
        node->red = level == red_level_;
        node->child[kRight] = subtree(middle + 1, end, node, level + 1);
        return node;
    }

  private:
    void set_entry(Node* node, const ArrayEntry& entry) const {
        node->head = entry.head;
        node->tail = entry.tail;
        node->short_length =
            static_cast<std::uint16_t>(entry.length <= kKeyPrefix ? entry.length : kKeyPrefix + 1);
        node->value = entry.value;
        node->key = copy_key(entry, &node->key_room);
    }

    // The words of a short key hold all of it and its terminator.
    char* copy_key(const ArrayEntry& entry, std::uint16_t* room) const {
        char* key = nullptr;
        *room = 0;
        if (entry.length < NodePool::kLargestKey) {
            key = tree_->pool.take_key(entry.length + 1, room);
        } else {
            key = static_cast<char*>(must_malloc(entry.length + 1, "key", MORVA_HERE));
            ++tree_->unpooled;
        }
        if (entry.length < kKeyPrefix) {
            store_big_endian(key, entry.head);
            if (entry.length >= kWordBytes) store_big_endian(key + kWordBytes, entry.tail);
            return key;
        }
        std::memcpy(key, entry.text, entry.length);
        key[entry.length] = '\0';
        return key;
    }

    Tree* tree_;
    std::span<const ArrayEntry> entries_;
    int red_level_;
};

}  // namespace

std::span<ArrayEntry> sort_entries(std::span<ArrayEntry> entries, malloced<ArrayEntry>& room) {
    constexpr std::size_t kFew = 64;
    if (entries.size() <= kFew) {
        std::sort(entries.begin(), entries.end(), comes_before);
        return entries;
    }
    room.reset(static_cast<ArrayEntry*>(must_malloc(entries.size_bytes(), "scratch", MORVA_HERE)));
    Buckets(entries).deal(entries, room.get());
    return {room.get(), entries.size()};
}

namespace {

std::size_t pool_bytes(std::span<const ArrayEntry> entries) {
    std::size_t bytes = entries.size() * sizeof(Node);
    for (const ArrayEntry& entry : entries) bytes += NodePool::key_bytes(entry.length + 1);
    return bytes;
}

void fill_tree(Tree* tree, std::span<const ArrayEntry> entries) {
    if (entries.empty()) return;
    tree->root = Filler(tree, entries).subtree(0, entries.size(), &tree->nil, 0);
    tree->root->red = 0;
    tree->count = static_cast<long>(entries.size());
}

}  // namespace

void fill_array(Arr* arr, std::span<const ArrayEntry> entries) {
    tree_of(arr)->pool.reserve(pool_bytes(entries));
    fill_tree(tree_of(arr), entries);
}

std::size_t filled_array_bytes(std::span<const ArrayEntry> entries) {
    return tree_bytes(pool_bytes(entries));
}

Arr* place_filled_array(std::span<const ArrayEntry> entries, void* memory, std::size_t bytes,
                        void (*give_back)(Tree*)) {
    Tree* tree = place_tree(memory, bytes, give_back);
    fill_tree(tree, entries);
    return reinterpret_cast<Arr*>(tree);
}

}  // namespace morva
