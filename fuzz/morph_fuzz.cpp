// Rules and random strings. The first byte chooses the flags, the lines up to an empty one are
// rules, the others are strings. What morphtbl makes is made again with the C library alone, and
// in a buffer of every size that is too small nothing is written beyond it.
#include <regex.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/pattern_guard.hpp"
#include "morva/elog.h"
#include "morva/morph.h"
#include "morva/strings.h"

namespace {

constexpr size_t kMost = 4096;

// The rules' patterns as the C library compiles them.
class Compiled {
  public:
    explicit Compiled(Tbl* table) : regexes_(static_cast<size_t>(maxtbl(table))) {
        for (size_t i = 0; i < regexes_.size(); ++i) {
            const auto* rule = static_cast<Morph_rule*>(gettbl(table, static_cast<long>(i)));
            if (regcomp(&regexes_[i], rule->pattern, REG_EXTENDED) != 0) abort();
        }
    }
    ~Compiled() {
        for (regex_t& regex : regexes_) regfree(&regex);
    }
    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;
    const regex_t* at(long i) const { return &regexes_[static_cast<size_t>(i)]; }

  private:
    std::vector<regex_t> regexes_;
};

// Renames as the header says, rule by rule; a negative count when it takes too long a text.
long expected(std::string& text, Tbl* table, const Compiled& compiled, int flags) {
    long count = 0;
    for (long i = 0; i < maxtbl(table); ++i) {
        const auto* rule = static_cast<const Morph_rule*>(gettbl(table, i));
        regmatch_t matches[10];
        if (regexec(compiled.at(i), text.c_str(), 10, matches, 0) != 0) continue;
        const bool whole =
            matches[0].rm_so == 0 && static_cast<size_t>(matches[0].rm_eo) == text.size();
        if (!whole && (flags & MORPH_PARTIAL) == 0) continue;
        std::vector<char> result(kMost);
        if (regsubstituten(text.c_str(), rule->replacement, matches, result.data(), kMost) < 0)
            return -1;
        text = result.data();
        ++count;
        if ((flags & MORPH_ALL) == 0) break;
    }
    return count;
}

void rename(const std::string& name, Tbl* table, const Compiled& compiled, int flags) {
    std::string result = name;
    const long count = expected(result, table, compiled, flags);
    std::vector<char> seen(kMost);
    if (morphtbln(name.c_str(), table, flags, seen.data(), kMost) != count) abort();
    if (count < 0) return;
    if (result != seen.data()) abort();
    // The exact size, on the heap: the sanitizer watches its end.
    std::vector<char> exact(result.size() + 1);
    morphtbl(name.c_str(), table, flags, exact.data());
    if (result != exact.data()) abort();
    std::vector<char> small(result.size() / 2 + 1);
    morphtbln(name.c_str(), table, flags, small.data(), small.size());
    if (strlen(small.data()) >= small.size()) abort();
}

// Whether the C library alone would take minutes for a rule.
bool is_slow(Tbl* table) {
    for (long i = 0; i < maxtbl(table); ++i)
        if (morva::over_ceiling(static_cast<Morph_rule*>(gettbl(table, i))->pattern)) return true;
    return false;
}

int drop(int, char*, Tbl*) {
    return 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Fifty rules that do not compile would end the program at the register's limit.
    static const int quiet = elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(drop));
    (void)quiet;
    if (size < 1 || size > 1000) return 0;
    const int flags = data[0] & 3;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    std::replace(text.begin(), text.end(), '\0', '\n');
    std::vector<std::string> lines{""};
    for (char c : text) {
        if (c == '\n')
            lines.emplace_back();
        else
            lines.back().push_back(c);
    }
    Tbl* rules = newtbl(4);
    size_t at = 0;
    for (; at < lines.size() && !lines[at].empty(); ++at) pushtbl(rules, lines[at].data());
    Tbl* table;
    const long bad = newmorphtbl(rules, &table);
    if (bad + maxtbl(table) != maxtbl(rules)) abort();
    if (!is_slow(table)) {
        const Compiled compiled(table);
        for (; at < lines.size(); ++at) rename(lines[at], table, compiled, flags);
    }
    freemorphtbl(table);
    freetbl(rules, nullptr);
    return 0;
}
