#include "containers/node_pool.hpp"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "base/memory.hpp"

namespace morva {

void NodePool::use_chunk() {
    char* start = reinterpret_cast<char*>(chunks_);
    keys_end_ = start + sizeof(Chunk);
    nodes_start_ = start + chunks_->size;
    nodes_start_ -= reinterpret_cast<std::uintptr_t>(nodes_start_) % kCacheLine;
}

std::size_t NodePool::next_chunk() const {
    return chunks_ == nullptr ? kFirstChunk : std::min(2 * chunks_->size, kLargestChunk);
}

void NodePool::add_chunk(std::size_t size) {
    auto* chunk = static_cast<Chunk*>(must_malloc(size, "rbnode", MORVA_HERE));
    chunk->next = chunks_;
    chunk->size = size;
    chunks_ = chunk;
    use_chunk();
}

void NodePool::begin_with(void* room, std::size_t size) {
    chunks_ = not_owned_ = new (room) Chunk{nullptr, size};
    use_chunk();
}

void NodePool::reserve(std::size_t bytes) {
    if (nodes_start_ - keys_end_ >= static_cast<std::ptrdiff_t>(bytes)) return;
    add_chunk(std::min(room_for(bytes), kLargestChunk));
}

void NodePool::give_node(Node* node) {
    auto* block = reinterpret_cast<FreeBlock*>(node);
    block->next = free_nodes_;
    free_nodes_ = block;
}

void NodePool::give_key(void* key, std::uint16_t room) {
    auto* block = static_cast<FreeBlock*>(key);
    FreeBlock*& free_list = free_keys_[room / kKeyStep - 1];
    block->next = free_list;
    free_list = block;
}

void NodePool::reset() {
    while (chunks_->next != nullptr) {
        Chunk* chunk = chunks_;
        chunks_ = chunk->next;
        std::free(chunk);
    }
    free_nodes_ = nullptr;
    std::fill(std::begin(free_keys_), std::end(free_keys_), nullptr);
    use_chunk();
}

void NodePool::release() {
    while (chunks_ != nullptr) {
        Chunk* chunk = chunks_;
        chunks_ = chunk->next;
        if (chunk != not_owned_) std::free(chunk);
    }
}

}  // namespace morva
