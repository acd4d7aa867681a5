// The memory of one tree: nodes of one cache line each, and copies of short keys, taken from chunks
// that double in size. Nodes fill a chunk from its end, key copies from its start, so that a chunk
// serves any mixture. What is given back is used again by the same tree.
#pragma once

#include <cstddef>
#include <cstdint>

namespace morva {

// A node as the public record shows it (left, right, parent, red, key, value), and behind it the
// key's first bytes where the tree orders its keys as text. The bytes between `red` and `key` are
// padding in the public record.
struct Node {
    Node* child[2];
    Node* parent;
    std::int32_t red;
    std::uint16_t key_room;  // bytes of the key's block in the pool; 0 when it is not from there
    std::uint16_t short_length;  // of the key as text, kKeyPrefix + 1 when it is longer
    void* key;
    void* value;
    std::uint64_t head;
    std::uint64_t tail;
};
static_assert(sizeof(Node) == 64);  // a cache line

class NodePool {
  public:
    // Keys that need more bytes than this do not come from the pool.
    static constexpr std::size_t kLargestKey = 64;

    Node* take_node();
    void give_node(Node* node);

    // A block of at least `bytes` (at most kLargestKey); `room` becomes what give_key wants back.
    char* take_key(std::size_t bytes, std::uint16_t* room);
    void give_key(void* key, std::uint16_t room);

    // Room for nodes and keys that take so many bytes, as one chunk when a chunk may be that large.
    void reserve(std::size_t bytes);

    // Room that is not the pool's own, for as long as the pool lives, in place of a first chunk,
    // and what it takes for so many bytes of nodes and keys.
    static std::size_t room_for(std::size_t bytes) { return bytes + sizeof(Chunk) + kCacheLine; }
    void begin_with(void* room, std::size_t size);

    // What a key takes, its terminator counted in `bytes`.
    static std::size_t key_bytes(std::size_t bytes) {
        return bytes > kLargestKey ? 0 : (bytes + kKeyStep - 1) / kKeyStep * kKeyStep;
    }

    // Forgets every node and key. Keeps the first, smallest chunk for the next ones.
    void reset();
    void release();

  private:
    struct Chunk {
        Chunk* next;
        std::size_t size;
    };
    struct FreeBlock {
        FreeBlock* next;
    };
    static constexpr std::size_t kCacheLine = 64;  // nodes are aligned to it
    static constexpr std::size_t kKeyStep = 8;
    static constexpr std::size_t kFirstChunk = 400;  // some four nodes with their keys
    static constexpr std::size_t kLargestChunk = 2 << 20;

    std::size_t next_chunk() const;
    void add_chunk(std::size_t size);
    void use_chunk();

    Chunk* chunks_;     // the newest first
    Chunk* not_owned_;  // the one of begin_with
    char* keys_end_;
    char* nodes_start_;
    FreeBlock* free_nodes_;
    FreeBlock* free_keys_[kLargestKey / kKeyStep];
};

inline Node* NodePool::take_node() {
    if (FreeBlock* block = free_nodes_; block != nullptr) {
        free_nodes_ = block->next;
        return reinterpret_cast<Node*>(block);
    }
    if (nodes_start_ - keys_end_ < static_cast<std::ptrdiff_t>(sizeof(Node)))
        add_chunk(next_chunk());
    nodes_start_ -= sizeof(Node);
    return reinterpret_cast<Node*>(nodes_start_);
}

inline char* NodePool::take_key(std::size_t bytes, std::uint16_t* room) {
    const std::size_t rounded = key_bytes(bytes);
    *room = static_cast<std::uint16_t>(rounded);
    FreeBlock*& free_list = free_keys_[rounded / kKeyStep - 1];
    if (FreeBlock* block = free_list; block != nullptr) {
        free_list = block->next;
        return reinterpret_cast<char*>(block);
    }
    if (nodes_start_ - keys_end_ < static_cast<std::ptrdiff_t>(rounded)) add_chunk(next_chunk());
    char* key = keys_end_;
    keys_end_ += rounded;
    return key;
}

}  // namespace morva
