#include "pf/pfpool.hpp"

#include <utility>

namespace morva::pf {

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

}  // namespace morva::pf
