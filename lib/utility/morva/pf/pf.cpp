// Whole trees: nodes made, freed, copied and compared. Trees may be as deep as memory allows, so
// that none of these recurses: they keep the nodes that are still to be done in a list.
#include "pf/pf.hpp"

#include <utility>

#include "base/diagnostics.hpp"
#include "containers/arr.hpp"
#include "pf/pfpool.hpp"

namespace morva::pf {
namespace {

// Frees nodes with all that is under them, and takes no memory for it: a few levels deep by
// recursion, which is the order in which readers make nodes; what is deeper is linked through the
// parent fields until its turn comes.
class Doomed {
  public:
    void add(void* item);

    // Frees what waits for its turn.
    void finish() {
        while (Pf* node = std::exchange(first_, first_ == nullptr ? nullptr : first_->parent))
            end(node);
    }

  private:
    static constexpr int kDeepest = 16;

    void end(Pf* node);
    void release(Pf* node);

    int depth_ = 0;
    Pf* first_ = nullptr;
    NodeRelease memory_;
};

// Asks for the memory that freeing a node will touch: its value, and for a container what is made
// with it, which mostly stands behind it.
void fetch_contents(const Pf* node) {
    constexpr std::size_t kLine = 64, kLines = 8;
    __builtin_prefetch(node->value.any);
    if (node->type == PFSTRING) return;
    for (std::size_t i = 1; i < kLines; ++i) {
        __builtin_prefetch(reinterpret_cast<const char*>(node) + i * kLine);
        __builtin_prefetch(static_cast<const char*>(node->value.any) + i * kLine);
    }
}

// The entries of a large array are all over the memory: an entry waits until its node, and then
// until what the node holds, has been fetched.
class Queue {
  public:
    explicit Queue(Doomed& doomed) : doomed_(doomed) {}

    void add(void* item) {
        __builtin_prefetch(item);
        Pf*& place = waiting_[count_ % kPlaces];
        doomed_.add(std::exchange(place, static_cast<Pf*>(item)));
        const Pf* fetched = waiting_[(count_ + kPlaces / 2) % kPlaces];
        if (fetched != nullptr) fetch_contents(fetched);
        ++count_;
    }
    ~Queue() {
        for (std::size_t i = 0; i < kPlaces; ++i) doomed_.add(waiting_[(count_ + i) % kPlaces]);
    }

  private:
    static constexpr std::size_t kPlaces = 16;

    Doomed& doomed_;
    Pf* waiting_[kPlaces] = {};
    std::size_t count_ = 0;
};

void free_array(Arr* arr, Doomed& doomed) {
    if (arr == nullptr) return;
    constexpr long kFew = 100;
    Tree* tree = tree_of(arr);
    if (tree->count <= kFew) {
        for_each_node_upwards(tree, [&](const Node* entry) { doomed.add(entry->value); });
    } else {
        Queue queue(doomed);
        for_each_node_upwards(tree, [&](const Node* entry) { queue.add(entry->value); });
    }
    freearr(arr, nullptr);
}

void free_list(Tbl* tbl, Doomed& doomed) {
    if (tbl == nullptr) return;
    for (Pf* item : tbl_pointers<Pf>(tbl)) doomed.add(item);
    freetbl(tbl, nullptr);
}

void free_function(Pffunct* funct, Doomed& doomed) {
    if (funct == nullptr) return;
    std::free(funct->text);
    doomed.add(funct->result);
    free_hook(&funct->hook);
    std::free(funct);
}

void free_value(Pf* node, Doomed& doomed) {
    switch (node->type) {
        case PFFILE:
        case PFARR:
            return free_array(node->value.arr, doomed);
        case PFTBL:
            return free_list(node->value.tbl, doomed);
        case PFSTRING:
        case PFINVALID:
        case PFEXEC_ERROR:
            return free_string(node);
        case PFFUNCTION:
            return free_function(node->value.funct, doomed);
        default:
            elog_complain(0, "pffree: didn't free type %d", node->type);
    }
}

void Doomed::add(void* item) {
    Pf* node = static_cast<Pf*>(item);
    if (node == nullptr) return;
    if (node->type == PFSTRING) {
        free_string(node);
        return release(node);
    }
    if (depth_ < kDeepest) return end(node);
    node->parent = first_;
    first_ = node;
}

void Doomed::end(Pf* node) {
    ++depth_;
    free_value(node, *this);
    --depth_;
    release(node);
}

void Doomed::release(Pf* node) {
    if (node->expanded != nullptr) std::free(node->expanded);
    memory_.release(node);
}

// Containers whose entries are still to be copied or compared: pairs of nodes.
template <class First>
using Pairs = Vector<std::pair<First, Pf*>>;

char* copy_of(const char* text) {
    return text == nullptr ? nullptr : new_text(text);
}

Pf* copy_function(const Pffunct* funct) {
    Pf* copy = new_node(PFFUNCTION);
    copy->value.funct = new_function_record();
    copy->value.funct->text = copy_of(funct->text);
    return copy;
}

// A copy of the node; of a container only the empty container, which is then to be filled.
Pf* copy_node(const Pf* node, Pairs<const Pf*>& to_fill) {
    if (node == nullptr) return nullptr;
    Pf* copy = nullptr;
    switch (node->type) {
        case PFSTRING:
            copy = new_node(PFSTRING);
            copy->value.string = copy_of(node->value.string);
            return copy;
        case PFFUNCTION:
            return copy_function(node->value.funct);
        case PFINVALID:
            return new_node(PFINVALID);
        case PFFILE:
        case PFARR:
        case PFTBL:
            copy = new_node(node->type);
            to_fill.emplace_back(node, copy);
            return copy;
        default:
            elog_die(0, "Bad type in pfdup : %d\n", node->type);
    }
}

// Lists and arrays that are missing count as empty.
long count_of(const Tbl* tbl) {
    return tbl == nullptr ? 0 : tbl_count(tbl);
}

// The string of a node that is known to be in reach, null for other types.
const char* string_of(const void* node) {
    const auto* pf = static_cast<const Pf*>(node);
    return pf != nullptr && pf->type == PFSTRING ? pf->value.string : nullptr;
}

Arr* copy_entries(const Arr* arr, Pairs<const Pf*>& to_fill) {
    constexpr std::size_t kAhead = 8;  // entries whose memory is asked for before their turn
    if (arr == nullptr) return newarr(nullptr);
    Vector<Node*> nodes;
    Arr* copy = copy_array(arr, &nodes);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (i + 2 * kAhead < nodes.size()) prefetch(nodes[i + 2 * kAhead]->value);
        if (i + kAhead < nodes.size()) prefetch(string_of(nodes[i + kAhead]->value));
        nodes[i]->value = copy_node(static_cast<const Pf*>(nodes[i]->value), to_fill);
    }
    return copy;
}

void fill(const Pf* node, Pf* copy, Pairs<const Pf*>& to_fill) {
    if (node->type != PFTBL) {
        copy->value.arr = copy_entries(node->value.arr, to_fill);
        return;
    }
    copy->value.tbl = newtbl(count_of(node->value.tbl));
    if (node->value.tbl == nullptr) return;
    for (const Pf* item : tbl_pointers<Pf>(node->value.tbl))
        pushtbl(copy->value.tbl, copy_node(item, to_fill));
}

int compare_texts(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return a != b;
    return std::strcmp(a, b) != 0;
}

// Pairs of entries go to the list last first, so that they are taken from it in their order.
int compare_lists(Tbl* a, Tbl* b, Pairs<Pf*>& to_compare) {
    if (count_of(a) != count_of(b)) return 1;
    for (long i = count_of(a) - 1; i >= 0; --i)
        to_compare.emplace_back(tbl_pointers<Pf>(a)[i], tbl_pointers<Pf>(b)[i]);
    return 0;
}

int compare_arrays(Arr* arr_a, Arr* arr_b, Pairs<Pf*>& to_compare) {
    if (cntarr(arr_a) != cntarr(arr_b)) return 1;
    if (cntarr(arr_a) == 0) return 0;
    Tree *a = tree_of(arr_a), *b = tree_of(arr_b);
    Node* of_b = outermost(b, kRight);
    for (Node* of_a = outermost(a, kRight); of_a != nullptr; of_a = step(a, of_a, kLeft)) {
        if (std::strcmp(text_of(of_a), text_of(of_b)) != 0) return 1;
        to_compare.emplace_back(static_cast<Pf*>(of_a->value), static_cast<Pf*>(of_b->value));
        of_b = step(b, of_b, kLeft);
    }
    return 0;
}

// 0, 1 or -1 as pfcmp; equal containers have added their entries to the list.
int compare_nodes(Pf* a, Pf* b, Pairs<Pf*>& to_compare) {
    if (a == nullptr || b == nullptr) return a != b;
    if (is_array(a) && is_array(b)) return compare_arrays(a->value.arr, b->value.arr, to_compare);
    if (a->type != b->type) return 1;
    if (a->type == PFTBL) return compare_lists(a->value.tbl, b->value.tbl, to_compare);
    if (a->type == PFFUNCTION) return compare_texts(a->value.funct->text, b->value.funct->text);
    if (a->type >= PFEXEC_ERROR && a->type < PFFUNCTION)
        return compare_texts(a->value.string, b->value.string);
    elog_log(0, "unknown PF type=%d\n", a->type);
    return -1;
}

}  // namespace

void clear_node(Pf* node) {
    Doomed doomed;
    free_value(node, doomed);
    doomed.finish();
    std::free(node->expanded);
    node->value.any = nullptr;
    node->expanded = nullptr;
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

Pf* pfnew(int type) {
    switch (type) {
        case PFFILE:
        case PFARR:
            return new_array_node(type);
        case PFTBL:
            return new_list_node();
        case PFFUNCTION: {
            Pf* node = new_node(type);
            node->value.funct = new_function_record();
            return node;
        }
        default:
            return new_node(type);
    }
}

void pffree(Pf* pf) {
    Doomed doomed;
    doomed.add(pf);
    doomed.finish();
}

Pf* pfdup(Pf* pf) {
    Pairs<const Pf*> to_fill;
    Pf* copy = copy_node(pf, to_fill);
    while (!to_fill.empty()) {
        const auto [node, its_copy] = to_fill.back();
        to_fill.pop_back();
        fill(node, its_copy, to_fill);
    }
    return copy;
}

int pfcmp(Pf* a, Pf* b) {
    Pairs<Pf*> to_compare;
    int difference = compare_nodes(a, b, to_compare);
    while (difference == 0 && !to_compare.empty()) {
        const auto [next_a, next_b] = to_compare.back();
        to_compare.pop_back();
        difference = compare_nodes(next_a, next_b, to_compare);
    }
    return difference;
}

}  // extern "C"
