// Morph tables: the rules of a list of lines, and names rewritten by them.
#include "morva/morph.h"

#include <bitset>
#include <new>
#include <utility>

#include "base/diagnostics.hpp"
#include "base/pattern.hpp"
#include "containers/tbl.hpp"
#include "text/substitute.hpp"

struct Morph_pattern {
    std::bitset<256> first;  // the characters that a whole match may begin with
    bool keeps_groups;       // the replacement names some
    morva::Pattern regex;
};

namespace {

using morva::kGroups;
using morva::Pattern;
using morva::Substitution;

struct Rule : Morph_rule {
    Morph_pattern own_pattern{};
    morva::malloced<char> texts;
};

// ---- Rules from lines ----

// The part of `text` before the first character that ends it and has no "\" before it.
template <class Ends>
std::string_view unescaped_part(std::string_view text, Ends ends) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (ends(text[i])) return text.substr(0, i);
        if (text[i] == '\\') ++i;
    }
    return text;
}

// What follows the first `n` characters; nothing when there are not more.
std::string_view behind(std::string_view text, std::size_t n) {
    return n < text.size() ? text.substr(n) : std::string_view();
}

struct Parts {
    std::string_view pattern, replacement;
};

Parts delimited_parts(std::string_view line) {
    const auto is_delimiter = [c = line.front()](char other) { return other == c; };
    line.remove_prefix(1);
    const std::string_view pattern = unescaped_part(line, is_delimiter);
    return {pattern, unescaped_part(behind(line, pattern.size() + 1), is_delimiter)};
}

Parts word_parts(std::string_view line) {
    const auto is_space = [](char c) { return c == ' ' || c == '\t'; };
    const std::string_view pattern = unescaped_part(line, is_space);
    line.remove_prefix(pattern.size());
    while (!line.empty() && is_space(line.front())) line.remove_prefix(1);
    return {pattern, unescaped_part(line, is_space)};
}

Parts parts_of(std::string_view line) {
    const bool delimited =
        !line.empty() && std::string_view("\"'/").find(line.front()) != line.npos;
    Parts parts = delimited ? delimited_parts(line) : word_parts(line);
    if (parts.pattern.empty()) parts.pattern = "^$";
    return parts;
}

char* add_text(char* to, std::string_view text) {
    text.copy(to, text.size());
    to[text.size()] = '\0';
    return to + text.size() + 1;
}

void free_rule(void* item) {
    Rule* rule = static_cast<Rule*>(static_cast<Morph_rule*>(item));
    rule->~Rule();
    std::free(rule);
}

// Registers the reason when the pattern does not compile.
bool compile(Rule& rule) {
    rule.compiled->keeps_groups = morva::names_groups(rule.replacement);
    const auto groups =
        rule.compiled->keeps_groups ? Pattern::Groups::kKept : Pattern::Groups::kIgnored;
    Pattern::Reason reason;
    if (rule.compiled->regex.compile(rule.pattern, reason, groups)) {
        for (std::size_t c = 0; c < rule.compiled->first.size(); ++c)
            rule.compiled->first[c] = rule.compiled->regex.may_begin_with(static_cast<char>(c));
        return true;
    }
    elog_log(0, "'%s' did not compile: %s", rule.pattern, reason);
    return false;
}

// Null when the pattern does not compile.
Morph_rule* new_rule(const char* line, long index) {
    const Parts parts = parts_of(line);
    Rule* rule = new (morva::must_malloc(sizeof(Rule), "submap", MORVA_HERE)) Rule;
    const std::size_t size = parts.pattern.size() + parts.replacement.size() + 2;
    rule->texts.reset(static_cast<char*>(morva::must_malloc(size, "s", MORVA_HERE)));
    rule->pattern = rule->texts.get();
    rule->replacement = add_text(rule->pattern, parts.pattern);
    add_text(rule->replacement, parts.replacement);
    rule->compiled = &rule->own_pattern;
    rule->line = index;
    if (compile(*rule)) return rule;
    free_rule(static_cast<Morph_rule*>(rule));
    return nullptr;
}

// ---- Rules applied ----

bool is_whole(const regmatch_t& match, std::string_view string) {
    return match.rm_so == 0 && static_cast<std::size_t>(match.rm_eo) == string.size();
}

// The groups of a match that is known to be there.
bool find_groups(const Pattern& regex, std::string_view string, bool partial, regmatch_t* matches) {
    return regex.match_groups(string.data(), matches, kGroups) &&
           (partial || is_whole(matches[0], string));
}

// Finds the match of the whole string, or of a part of it when that is enough. Most rules do not
// fit, which matching by table tells quickly; the C library is asked for groups alone. The string
// is a terminated one.
bool counts(const Morph_pattern& pattern, std::string_view string, bool partial,
            regmatch_t* matches) {
    if (!partial && !pattern.first[static_cast<unsigned char>(*string.data())]) return false;
    int start = 0, length = static_cast<int>(string.size());
    const bool found = partial ? pattern.regex.search(string.data(), &start, &length)
                               : pattern.regex.matches_whole(string.data());
    if (!found) return false;
    if (pattern.keeps_groups) return find_groups(pattern.regex, string, partial, matches);
    matches[0] = {start, start + length};
    return true;
}

std::span<Morph_rule*> rules_of(const Tbl* table) {
    if (table == nullptr) return {};
    return morva::tbl_pointers<Morph_rule>(table);
}

// Leaves the result in `made`, which has its limit, and returns how many rules counted. Stops when
// the result of one is cut.
long apply(const char* string, const Tbl* table, int flags, Substitution& made, Tbl* applied) {
    std::string_view current = string != nullptr ? string : "";
    Substitution next = made;
    regmatch_t matches[kGroups];
    long count = 0;
    for (Morph_rule* rule : rules_of(table)) {
        if (!counts(*rule->compiled, current, (flags & MORPH_PARTIAL) != 0, matches)) continue;
        if (count++ == 0) {
            made.replace(current, rule->replacement, matches);
        } else {
            next.clear();
            next.replace(current, rule->replacement, matches);
            std::swap(made, next);
        }
        current = made.text();
        if (applied != nullptr) pushtbl(applied, rule);
        if ((flags & MORPH_ALL) == 0 || made.cut()) break;
    }
    if (count == 0) made.add(current);
    return count;
}

}  // namespace

extern "C" {

long newmorphtbl(Tbl* rule_lines, Tbl** table) {
    *table = newtbl(rule_lines != nullptr ? morva::tbl_count(rule_lines) : 0);
    if (rule_lines == nullptr) return -1;
    long bad = 0;
    for (long i = 0; i < morva::tbl_count(rule_lines); ++i) {
        const char* line = static_cast<const char*>(morva::tbl_item(rule_lines, i));
        if (line == nullptr) continue;
        if (Morph_rule* rule = new_rule(line, i))
            pushtbl(*table, rule);
        else
            ++bad;
    }
    return bad;
}

long morphtbl(const char* string, Tbl* table, int flags, char* result) {
    Substitution made;
    const long count = apply(string, table, flags, made, nullptr);
    made.give(result);
    return count;
}

long morphtbln(const char* string, Tbl* table, int flags, char* result, size_t size) {
    if (size == 0) return -1;
    Substitution made(size - 1);
    const long count = apply(string, table, flags, made, nullptr);
    made.give(result);
    return made.cut() ? -1 : count;
}

char* morphtbl_str(const char* string, Tbl* table, int flags, Tbl** applied) {
    if (applied != nullptr) *applied = newtbl(1);
    Substitution made;
    apply(string, table, flags, made, applied != nullptr ? *applied : nullptr);
    return morva::must_strdup(made.text().c_str(), "s", MORVA_HERE);
}

void freemorphtbl(Tbl* table) {
    if (table != nullptr) freetbl(table, free_rule);
}

}  // extern "C"
