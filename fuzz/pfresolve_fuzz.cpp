// Paths. What creation makes of a path must be found again by it, with sound links; a path that is
// refused must leave the tree as it was, and one that is malformed must be so with and without
// creation. The input is a line of path for each step.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "containers/tbl.hpp"
#include "morva.h"
#include "pf/pf.hpp"

namespace {

using namespace morva::pf;

void check_links(Pf* pf) {
    const auto check_child = [pf](void* child) {
        if (static_cast<Pf*>(child)->parent != pf) std::abort();
        check_links(static_cast<Pf*>(child));
    };
    if (is_array(pf))
        morva::for_each_pair(morva::tree_of(pf->value.arr),
                             [&](void*, void* value) { check_child(value); });
    else if (pf->type == PFTBL)
        for (void* item : morva::tbl_pointers(pf->value.tbl)) check_child(item);
}

void try_path(Pf* root, const char* path) {
    Pf* before = pfdup(root);
    Pf* found = nullptr;
    Pf* made = nullptr;
    const int type = pfresolve(root, path, 0, &found);
    const int created = pfresolve(root, path, 1, &made);
    if ((type < 0) != (found == nullptr) || (created < 0) != (made == nullptr)) std::abort();
    if (type == -2 && created != -2) std::abort();
    if (type >= 0 && *path != '\0' && (created != type || made != found)) std::abort();
    if (made == nullptr && pfcmp(before, root) != 0) std::abort();
    if (type == -1 && made != nullptr) {
        if (created != PFPLACEHOLDER || pfresolve(root, path, 0, &found) != created) std::abort();
        if (found != made) std::abort();
        made->type = PFSTRING;
        made->value.string = new_text(path);
    }
    pffree(before);
    elog_clear();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Pf* root = pfnew(PFFILE);
    for (size_t start = 0, steps = 0; start <= text.size() && steps < 12; ++steps) {
        const size_t end = std::min(text.find('\n', start), text.size());
        try_path(root, text.substr(start, end - start).c_str());
        start = end + 1;
    }
    check_links(root);
    pffree(root);
    return 0;
}
