#include "net/list_image.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "pf/pfpool.hpp"

namespace morva::net {
namespace {

const char* address_of(const Pf* node) {
    return reinterpret_cast<const char*>(node);
}

// The end of the text that stands right behind a node, in its block; null when it does not.
const char* text_end(const Pf* node) {
    if (node == nullptr || node->type != PFSTRING || pf::block_of(node) == nullptr) return nullptr;
    const char* text = node->value.string;
    return text == address_of(node + 1) ? text + std::strlen(text) + 1 : nullptr;
}

// Whether a node is the next one of a block, behind a text.
bool follows(const Pf* node, const Pf* before, const char* end) {
    const auto gap = reinterpret_cast<std::uintptr_t>(node) - reinterpret_cast<std::uintptr_t>(end);
    return gap < pf::NodeBlock::kUnit && pf::block_of(node) == pf::block_of(before);
}

}  // namespace

void ListImage::take(Nodes nodes) {
    nodes_.assign(nodes.begin(), nodes.end());
    rows_.clear();
    apart_ = 0;
    for (std::size_t i = 0; i < nodes.size();) {
        const std::size_t first = i;
        const char* end = nullptr;
        for (const char* next = text_end(nodes[i]); next != nullptr;) {
            end = next;
            const bool more = ++i < nodes.size() && follows(nodes[i], nodes[first], end);
            next = more ? text_end(nodes[i]) : nullptr;
        }
        if (end != nullptr)
            add_row(first, i, end);
        else
            ++apart_, ++i;
    }
}

// The copy is aligned like the memory, which makes comparing them quicker.
void ListImage::add_row(std::size_t first, std::size_t end, const char* memory_end) {
    constexpr std::size_t kLine = 64;  // of the cache
    const char* memory = address_of(nodes_[first]);
    const auto bytes = static_cast<std::size_t>(memory_end - memory);
    malloced<char> block(static_cast<char*>(must_malloc(bytes + kLine, "scratch", MORVA_HERE)));
    const auto shift =
        reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(block.get());
    char* copy = block.get() + shift % kLine;
    std::memcpy(copy, memory, bytes);
    rows_.push_back({first, end, bytes, copy, std::move(block)});
}

bool ListImage::same(const Row& row, Nodes nodes) const {
    const std::size_t first = row.first, end = std::min(row.end, nodes.size());
    if (std::memcmp(&nodes[first], &nodes_[first], (end - first) * sizeof(Pf*)) != 0) return false;
    const char* memory = address_of(nodes[first]);
    const std::size_t bytes =
        end < row.end ? static_cast<std::size_t>(address_of(nodes_[end]) - memory) : row.bytes;
    const pf::NodeBlock* block = pf::block_of(nodes[first]);
    return block != nullptr && block->holds(memory + bytes - 1) &&
           std::memcmp(memory, row.copy, bytes) == 0;
}

std::size_t ListImage::same_from(std::size_t from, Nodes nodes) const {
    const auto row = std::lower_bound(rows_.begin(), rows_.end(), from,
                                      [](const Row& r, std::size_t at) { return r.first < at; });
    if (row == rows_.end() || row->first != from || !same(*row, nodes)) return 0;
    return std::min(row->end, nodes.size()) - from;
}

}  // namespace morva::net
