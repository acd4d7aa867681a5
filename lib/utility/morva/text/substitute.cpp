// Substitution by template.
#include "text/substitute.hpp"

#include "morva/morph.h"

namespace morva {
namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// What a group matched; nothing when it took no part.
std::string_view matched(std::string_view source, const regmatch_t& match) {
    if (match.rm_so < 0 || match.rm_eo < match.rm_so) return {};
    const std::size_t start = static_cast<std::size_t>(match.rm_so);
    return source.substr(start, static_cast<std::size_t>(match.rm_eo) - start);
}

}  // namespace

void Substitution::expand(std::string_view source, const char* template_text,
                          const regmatch_t* matches) {
    for (const char* at = template_text;;) {
        std::size_t plain = 0;
        while (at[plain] != '\0' && at[plain] != '$' && at[plain] != '\\') ++plain;
        add({at, plain});
        at += plain;
        // A lone mark at the end is left out.
        if (at[0] == '\0' || at[1] == '\0') return;
        if (at[0] == '\\')
            add({at + 1, 1});
        else if (is_digit(at[1]))
            add(matched(source, matches[at[1] - '0']));
        at += 2;
    }
}

void Substitution::replace(std::string_view source, const char* template_text,
                           const regmatch_t* matches) {
    if (matches[0].rm_so < 0) return add(source);
    add(source.substr(0, static_cast<std::size_t>(matches[0].rm_so)));
    expand(source, template_text, matches);
    add(source.substr(static_cast<std::size_t>(matches[0].rm_eo)));
}

bool names_groups(const char* template_text) {
    for (const char* at = template_text; *at != '\0'; ++at) {
        if (*at != '$' && *at != '\\') continue;
        if (at[1] == '\0') return false;
        if (*at == '$' && is_digit(at[1]) && at[1] != '0') return true;
        ++at;
    }
    return false;
}

}  // namespace morva

namespace {

using morva::kGroups;
using morva::Substitution;

const char* given(const char* text) {
    return text != nullptr ? text : "";
}

// 1 when the pattern matched and its match was replaced, else 0.
int substitute(Substitution& to, const char* string, const regex_t* compiled,
               const char* template_text) {
    regmatch_t matches[kGroups];
    // With REG_NOSUB they stay as they are.
    for (regmatch_t& match : matches) match.rm_so = match.rm_eo = -1;
    if (regexec(compiled, string, kGroups, matches, 0) != 0) matches[0].rm_so = -1;
    to.replace(string, template_text, matches);
    return matches[0].rm_so >= 0;
}

}  // namespace

extern "C" {

void regsubstitute(const char* source, const char* template_text, const regmatch_t* matches,
                   char* result) {
    Substitution made;
    made.replace(given(source), given(template_text), matches);
    made.give(result);
}

long regsubstituten(const char* source, const char* template_text, const regmatch_t* matches,
                    char* result, size_t size) {
    if (size == 0) return -1;
    Substitution made(size - 1);
    made.replace(given(source), given(template_text), matches);
    made.give(result);
    return made.cut() ? -1 : static_cast<long>(made.text().size());
}

int patsub(const char* string, const regex_t* compiled, const char* template_text, char* result) {
    Substitution made;
    const int matched = substitute(made, given(string), compiled, given(template_text));
    made.give(result);
    return matched;
}

int patsubn(const char* string, const regex_t* compiled, const char* template_text, char* result,
            size_t size) {
    if (size == 0) return -1;
    Substitution made(size - 1);
    const int matched = substitute(made, given(string), compiled, given(template_text));
    made.give(result);
    return made.cut() ? -1 : matched;
}

}  // extern "C"
