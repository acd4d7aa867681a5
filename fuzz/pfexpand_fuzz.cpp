// References and functions. Every string of a tree is expanded twice: the answers must agree, be
// bounded, equal the text where there is no "&", and leave the text as it was. Commands are not
// run. The input is a value for each line: its path, a blank, the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva.h"
#include "pf/pf.hpp"

namespace {

using namespace morva::pf;

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

void set(Pf* root, const std::string& path, const std::string& text) {
    Pf* node = nullptr;
    if (pfresolve(root, path.c_str(), 1, &node) != PFPLACEHOLDER) return;
    const bool call = text.starts_with('&') && text.ends_with(')');
    node->type = call ? PFFUNCTION : PFSTRING;
    if (call)
        (node->value.funct = new_function_record())->text = new_text(text);
    else
        node->value.string = new_text(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int once = pfconfig("exec", nullptr);
    Pfprompt = answer;
    std::string text(reinterpret_cast<const char*>(data), size);
    std::erase(text, '\0');
    // What is on the disk changes.
    for (const char* outside : {"&file", "&datafile", "&glob"})
        if (text.find(outside) != std::string::npos) return once;
    Pf* root = pfnew(PFFILE);
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        const size_t blank = std::min(text.find(' ', start), end);
        set(root, text.substr(start, blank - start),
            text.substr(std::min(blank + 1, end), end - std::min(blank + 1, end)));
        elog_clear();
        start = end + 1;
    }
    check_all(root);
    pffree(root);
    return 0;
}
