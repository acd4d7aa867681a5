// A C++17 program against an installation: a sorted set, a matched selection, the register.
#include <morva.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace {

int failures = 0;

void check(bool holds, const char* what) {
    if (holds) return;
    std::cerr << "failed: " << what << '\n';
    ++failures;
}

std::string taken(char* text) {
    const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
    return text;
}

void check_set() {
    std::string names[] = {"PFO", "AAK", "KURK", "AAK"};
    Stbl* set = newstbl(nullptr);
    for (std::string& name : names) addstbl(set, name.data());
    check(maxstbl(set) == 3, "equal items are kept once");
    check(taken(jointbl(tblstbl(set), ",")) == "AAK,KURK,PFO", "items in order");
    freestbl(set, nullptr);
}

void check_register() {
    const int mark = elog_mark();
    elog_log(0, "%d of %s", 7, "nine");
    check(taken(elog_string(mark)) == "consumer: 7 of nine\n", "registered message");
    elog_flush(0, mark);
}

}  // namespace

int main(int argc, char** argv) {
    elog_init(argc, argv);
    check_set();
    check_register();
    check(match_stachans("AAK, BBB:BH.", "BBB", "BHZ") == 2, "selection list");
    check(taken(elogs(ELOG_DIE, 0, "%s", "last words")) == "consumer *fatal*: last words\n", "tag");
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
