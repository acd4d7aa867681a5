#include "pf/evaluation.hpp"

#include <algorithm>

#include "base/diagnostics.hpp"

namespace morva::pf {
namespace {

struct Work {
    const Pf* nodes[kMostReferences + 1];
    int depth;
    std::size_t made;
};
constinit thread_local Work t_work{};

const char* text_of_node(const Pf* node) {
    const char* text = node->type == PFFUNCTION ? node->value.funct->text : node->value.string;
    return text != nullptr ? text : "";
}

}  // namespace

bool fail_evaluation(const Pf* node, const char* reason) {
    elog_log(0, "can't evaluate '%.200s' in parameter file '%s': %s\n", text_of_node(node),
             node->filename != nullptr ? node->filename : "", reason);
    return false;
}

Evaluation::Evaluation(const Pf* node) : refused_(true) {
    // A function at the end of the longest chain may still be evaluated.
    const int most = kMostReferences + (node->type == PFFUNCTION ? 1 : 0);
    const Pf** const end = t_work.nodes + t_work.depth;
    if (std::find(t_work.nodes, end, node) != end) {
        fail_evaluation(node, "it refers to itself");
    } else if (t_work.depth >= most) {
        fail_evaluation(node, "references lead on from one to the next more than 32 times");
    } else {
        if (t_work.depth == 0) t_work.made = 0;
        t_work.nodes[t_work.depth++] = node;
        refused_ = false;
    }
}

Evaluation::~Evaluation() {
    if (!refused_) --t_work.depth;
}

bool Evaluation::charge(std::size_t bytes) {
    if (bytes > kMostMade - t_work.made)
        return fail_evaluation(t_work.nodes[0], "it would become too large");
    t_work.made += bytes;
    return true;
}

}  // namespace morva::pf
