// References and functions. Every string of a tree is expanded twice: the answers must agree, be
// bounded, equal the text where there is no "&", and leave the text as it was. Commands are not
// run. The input is parameter text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva.h"
#include "pf/pf.hpp"

namespace {

using namespace morva::pf;

int drop(int, char*, Tbl*) {
    return 1;
}

char* answer(const char* prompt) {
    return *prompt == '\0' ? nullptr : ::strdup(prompt);
}

void check(Pf* node) {
    const std::string written = node->type == PFSTRING ? node->value.string : "";
    const char* first = pfexpand(node);
    const std::string text = first != nullptr ? first : "";
    const char* second = pfexpand(node);
    if (text != (second != nullptr ? second : "")) std::abort();
    if (node->type == PFSTRING) {
        if (first == nullptr || written != node->value.string) std::abort();
        if (written.find('&') == std::string::npos && text != written) std::abort();
    }
    if (text.size() > written.size() + (64 << 20)) std::abort();
    elog_clear();
}

void check_all(Pf* node) {
    if (is_array(node)) {
        morva::for_each_pair(morva::tree_of(node->value.arr),
                             [&](void*, void* value) { check_all(static_cast<Pf*>(value)); });
    } else if (node->type == PFTBL) {
        for (long i = 0; i < maxtbl(node->value.tbl); ++i)
            check_all(static_cast<Pf*>(gettbl(node->value.tbl, i)));
    } else {
        check(node);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int once = [] {
        elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(drop));
        pfconfig("exec", nullptr);
        pfconfig("ask", reinterpret_cast<void*>(answer));
        return 0;
    }();
    (void)once;
    const std::string text(reinterpret_cast<const char*>(data), size);
    // What is on the disk changes.
    for (const char* outside : {"&file", "&datafile", "&glob"})
        if (text.find(outside) != std::string::npos) return 0;
    Pf* root = nullptr;
    pfcompile_counted(text.data(), static_cast<long>(text.size()), &root);
    elog_clear();
    if (root != nullptr) check_all(root);
    pffree(root);
    return 0;
}
