#include "pf/pfpool.hpp"

#include <cstring>
#include <utility>

#include "morva/arr.h"

namespace morva::pf {

// Trees, with the rooms for their nodes and keys, take a multiple of a unit, too.
static_assert(sizeof(Pf) % NodeBlock::kUnit == 0 && sizeof(NodeBlock) % NodeBlock::kUnit == 0);

void NodeMaker::add_block(std::size_t bytes) {
    finish_block();
    const std::size_t size = std::max(size_, sizeof(NodeBlock) + bytes);
    void* memory = must_malloc(size, "pf", Site{"pfnew", __LINE__, __FILE_NAME__});
    block_ = new (memory) NodeBlock{NodeBlock::kFilling, size};
    at_ = reinterpret_cast<char*>(block_ + 1);
    end_ = static_cast<char*>(memory) + size;
}

void NodeMaker::finish_block() {
    if (block_ != nullptr) block_->drop(NodeBlock::kFilling - std::exchange(made_, 0));
    block_ = nullptr;
}

namespace {

// Room for a text that is too long to stand among the nodes.
char* fix_String_buf(std::size_t room) {
    return static_cast<char*>(must_malloc(room, "String_buf", MORVA_HERE));
}

}  // namespace

Pf* NodeMaker::make_apart(int type, std::size_t text_room) {
    Pf* node = make(type);
    node->value.string = fix_String_buf(text_room);
    return node;
}

namespace {

// In front of an array stands its offset from the start of its block.
using Offset = std::size_t;

void give_back(Tree* tree) {
    char* array = reinterpret_cast<char*>(tree);
    Offset offset = 0;
    std::memcpy(&offset, array - sizeof offset, sizeof offset);
    reinterpret_cast<NodeBlock*>(array - offset)->drop(1);
}

}  // namespace

Arr* NodeMaker::make_array(std::span<const ArrayEntry> entries) {
    const std::size_t bytes = filled_array_bytes(entries);
    if (bytes > kLargestArray) {
        Arr* arr = newarr(nullptr);
        fill_array(arr, entries);
        return arr;
    }
    if (static_cast<std::size_t>(end_ - at_) < sizeof(Offset) + bytes)
        add_block(sizeof(Offset) + bytes);
    const Offset place = offset() + sizeof(Offset);
    std::memcpy(at_, &place, sizeof place);
    char* array = at_ + sizeof place;
    at_ = array + bytes;
    ++made_;
    return place_filled_array(entries, array, bytes, give_back);
}

}  // namespace morva::pf
