// Parameter text: what is read without an error is written by pf2string and reads back equal,
// unless it holds one of the few things that the written form cannot say. It also reads the same
// into a tree that has entries already, which takes another way.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "morva.h"
#include "pf/pfbuild.hpp"

namespace {

bool any_of(std::string_view text, std::string_view characters) {
    return text.find_first_of(characters) != text.npos;
}

// What a bare or quoted key of the written form means something else for. Keys are written without
// escapes.
bool key_changes(std::string_view key) {
    if (key.empty() || any_of(key, "\t\n\\") || any_of(key.substr(0, 1), "\"'}#")) return true;
    if (key.find(' ') != key.npos) return key.find('"') != key.npos && key.find('\'') != key.npos;
    return key.find('#') != key.npos || key == "__END__" || key == "__DATA__" || key == "__EOF__";
}

// What a bare value means something else for.
bool string_changes(std::string_view text) {
    return text.starts_with('&') || any_of(text, std::string_view("\0", 1));
}

bool changes(Pf* pf) {
    if (pf->type == PFSTRING) return string_changes(pf->value.string);
    if (pf->type == PFFUNCTION) return false;
    bool found = false;
    if (pf->type == PFTBL) {
        for (long i = 0; i < maxtbl(pf->value.tbl); ++i)
            found |= changes(static_cast<Pf*>(gettbl(pf->value.tbl, i)));
        return found;
    }
    Tbl* keys = keysarr(pf->value.arr);
    for (long i = 0; i < maxtbl(keys); ++i) {
        const char* key = static_cast<char*>(gettbl(keys, i));
        found |= key_changes(key) || changes(static_cast<Pf*>(getarr(pf->value.arr, key)));
    }
    freetbl(keys, nullptr);
    return found;
}

// Reads a text without errors; a null pf gives a new tree.
Pf* read(std::string_view text, Pf* pf) {
    if (pfcompile_counted(text.data(), static_cast<long>(text.size()), &pf) != 0) abort();
    return pf;
}

// True for a text without errors. One with errors is read here, without telling of them: each of
// them comes with a trace of the stack.
bool has_no_errors(std::string_view text) {
    Pf* root = pfnew(PFARR);
    morva::pf::Messages messages;
    morva::pf::Replaced replaced;
    char source[] = "source";
    morva::pf::TreeBuilder builder(root, text, source, messages, replaced);
    const morva::pf::Ending ending = morva::pf::scan(text, builder);
    builder.finish();
    pffree(root);
    return ending.clean && ending.level == 0;
}

void check_round_trip(Pf* pf) {
    char* written = pf2string(pf);
    Pf* back = read(written, nullptr);
    if (pfcmp(pf, back) != 0) abort();
    pffree(back);
    free(written);
}

void check_over_a_tree(std::string_view text, Pf* pf) {
    constexpr const char* kKey = "\1before";
    Pf* tree = pfnew(PFARR);
    pfput_string(tree, const_cast<char*>(kKey), "x");
    tree = read(text, tree);
    pffree(pfdel(tree, const_cast<char*>(kKey)));
    if (pfcmp(pf, tree) != 0) abort();
    pffree(tree);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    elog_set(ELOG_DELIVER, ELOG_COMPLAIN, const_cast<char*>("/dev/null"));
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (!has_no_errors(text)) return 0;
    Pf* pf = read(text, nullptr);
    check_over_a_tree(text, pf);
    if (!changes(pf)) check_round_trip(pf);
    pffree(pf);
    elog_clear_register(0);
    return 0;
}
