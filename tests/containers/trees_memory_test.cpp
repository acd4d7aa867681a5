// Every allocation of trees, arrays, sets and cabinets fails once, in a child: the library's words
// and status 1.
#include <set>

#include "base/memory.hpp"
#include "log/elog_child.hpp"

namespace {

void use_arrays() {
    Arr* arr = newarr(nullptr);
    for (int i = 0; i < 26; ++i) setarr(arr, std::string(i * 3, 'k').c_str(), arr);
    freetbl(keysarr(arr), nullptr);
    freearr(duparr(arr, [](void* value) { return value; }), nullptr);
    std::free(rbdelete("kkk", reinterpret_cast<Rbtree*>(arr))->key);
    freearr(arr, nullptr);

    Arr* large = newarr(nullptr);
    for (int i = 0; i < 600; ++i) setarr(large, std::to_string(i).c_str(), nullptr);
    freetbl(valsarr(large), nullptr);
    freearr(large, nullptr);
}

void use_what_stands_on_them() {
    char item[] = "item";
    Stbl* stbl = newstbl(nullptr);
    addstbl(stbl, item);
    tblstbl(stbl);
    freestbl(stbl, nullptr);

    Arrcabinet* arrays = new_arrcabinet(0, nullptr);
    set_arrcabinet(arrays, "a", "b", item);
    free_arrcabinet(arrays);
    Tblcabinet* lists = new_tblcabinet(-1, nullptr);
    push_tblcabinet(lists, "a", item);
    free_tblcabinet(lists);
}

constexpr int kFewer = 0, kUnharmed = 42;

kit::Ended starved(long nth, bool from_then_on) {
    return kit::in_child([&] {
        morva::fail_allocation(nth, from_then_on);
        use_arrays();
        use_what_stands_on_them();
        return morva::allocations_seen() < nth ? kFewer : kUnharmed;
    });
}

// The word at the end of the one message, "" when the message is not the library's.
std::string word_of(const std::string& errors) {
    const size_t at = errors.find("Out of memory in ");
    char word[64] = "";
    if (at != errors.npos)
        std::sscanf(errors.c_str() + at,
                    "Out of memory in %*s at line %*d of '%*[a-z_.]'\n\tCan't malloc %*u bytes for "
                    "%63s\n",
                    word);
    return word;
}

TEST(TreesMemory, EveryAllocationEndsWithItsMessage) {
    for (const bool from_then_on : {false, true}) {
        std::set<std::string> words;
        for (long nth = 1;; ++nth) {
            ASSERT_LT(nth, 500);
            const kit::Ended ended = starved(nth, from_then_on);
            if (ended.status == kFewer) break;
            if (ended.status == kUnharmed) continue;  // an allocation of the register
            ASSERT_EQ(ended.status, 1) << nth << ended.errors;
            words.insert(word_of(ended.errors));
        }
        EXPECT_EQ(words.count(""), 0u);
        for (const char* word : {"tree", "rbnode", "key", "tbl", "tbl->base.cp", "level", "stbl",
                                 "arrcabinet", "tblcabinet", "item"})
            EXPECT_EQ(words.count(word), 1u) << word;
    }
}

}  // namespace
