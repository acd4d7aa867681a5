// Blocks that hold many nodes, the strings of those that are strings, and small arrays, for a
// reader that makes all of a tree in a row. Each node and array says where in its block it stands;
// a block goes when the last of them has gone. They are freed one by one and from any thread, as
// others are.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>

#include "base/memory.hpp"
#include "containers/arr_fill.hpp"
#include "morva/pf.h"

namespace morva::pf {

struct NodeBlock {
    std::atomic<std::int64_t> live;  // nodes and arrays, and kFilling while some are added
    std::size_t size;                // bytes, this record included

    static constexpr std::int64_t kFilling = std::int64_t{1} << 40;
    static constexpr std::size_t kUnit = 8;  // of the places of nodes

    bool holds(const void* p) const {
        return reinterpret_cast<std::uintptr_t>(p) - reinterpret_cast<std::uintptr_t>(this) < size;
    }
    // Takes so many off the count; the last one frees the block.
    void drop(std::int64_t gone) {
        if (live.fetch_sub(gone, std::memory_order_acq_rel) == gone) std::free(this);
    }
};

// The block of a node; null for a node with a block of its own.
inline NodeBlock* block_of(const Pf* node) {
    if (node->place == 0) return nullptr;
    const std::size_t offset = node->place * NodeBlock::kUnit;
    return reinterpret_cast<NodeBlock*>(reinterpret_cast<std::uintptr_t>(node) - offset);
}

// Frees the string of a node, wherever it stands.
inline void free_string(Pf* node) {
    const NodeBlock* block = block_of(node);
    if (block == nullptr || !block->holds(node->value.string)) std::free(node->value.string);
}

// Frees nodes whose values are freed already, a run of one block at a time.
class NodeRelease {
  public:
    NodeRelease() = default;
    NodeRelease(const NodeRelease&) = delete;
    NodeRelease& operator=(const NodeRelease&) = delete;
    ~NodeRelease() {
        if (nodes_ > 0) block_->drop(nodes_);
    }
    void release(Pf* node) {
        NodeBlock* block = block_of(node);
        if (block == nullptr) return std::free(node);
        if (block != block_) {
            if (nodes_ > 0) block_->drop(nodes_);
            block_ = block;
            nodes_ = 0;
        }
        ++nodes_;
    }

  private:
    NodeBlock* block_ = nullptr;
    std::int64_t nodes_ = 0;
};

// Makes nodes.
class NodeMaker {
  public:
    // The nodes will take about `expected` bytes.
    explicit NodeMaker(std::size_t expected) : size_(std::clamp(expected, kSmallest, kLargest)) {}
    NodeMaker(const NodeMaker&) = delete;
    NodeMaker& operator=(const NodeMaker&) = delete;
    ~NodeMaker() { finish_block(); }

    // A node of the type with every other field null. A `text_room` above 0 makes room for that
    // many bytes as its string. Of what is behind them up to the next node no byte is left unset.
    Pf* make(int type, std::size_t text_room = 0) {
        if (text_room > kLongestText) return make_apart(type, text_room);
        const std::size_t bytes =
            sizeof(Pf) + (text_room + NodeBlock::kUnit - 1) / NodeBlock::kUnit * NodeBlock::kUnit;
        if (static_cast<std::size_t>(end_ - at_) < bytes) [[unlikely]]
            add_block(bytes);
        const std::uint32_t place = static_cast<std::uint32_t>(offset() / NodeBlock::kUnit);
        Pf* node = new (at_) Pf{type, place, {nullptr}, nullptr, nullptr, nullptr};
        if (text_room > 0) {
            node->value.string = at_ + sizeof(Pf);
            std::memset(at_ + bytes - NodeBlock::kUnit, 0, NodeBlock::kUnit);
        }
        at_ += bytes;
        ++made_;
        return node;
    }

    // A new array of entries, as fill_array takes them.
    Arr* make_array(std::span<const ArrayEntry> entries);

    // Whether so many bytes from a place in the newest node on are the maker's.
    bool writable(const char* from, std::size_t bytes) const {
        const auto behind =
            reinterpret_cast<std::uintptr_t>(end_) - reinterpret_cast<std::uintptr_t>(from);
        return behind <= kLargest && behind >= bytes;
    }

  private:
    static constexpr std::size_t kSmallest = 256, kLargest = 32768;  // bytes of a block
    static constexpr std::size_t kLongestText = 2048;   // longer ones have a block of their own
    static constexpr std::size_t kLargestArray = 4096;  // larger ones, too

    std::size_t offset() const {
        return static_cast<std::size_t>(at_ - reinterpret_cast<char*>(block_));
    }
    Pf* make_apart(int type, std::size_t text_room);
    void add_block(std::size_t bytes);
    void finish_block();

    NodeBlock* block_ = nullptr;
    char* at_ = nullptr;
    char* end_ = nullptr;
    std::int64_t made_ = 0;   // nodes and arrays in this block
    const std::size_t size_;  // of a block
};

}  // namespace morva::pf
