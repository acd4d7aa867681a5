// Strings with backslashes and as literals.
#include "pf/pfliteral.hpp"

#include <algorithm>

#include "morva/pfwrite.h"

namespace morva::pf {
namespace {

// Delimiters of a literal: what opens and closes it.
struct Pair {
    char open, close;
};
constexpr Pair kPairs[] = {{'{', '}'}, {'(', ')'}, {'[', ']'}, {'<', '>'}, {'`', '\''}};

constexpr std::string_view kLiteral = "&Literal";
constexpr std::string_view kTerminator = "\"EndOfLiteral";

// The reader ends a literal where the closers have caught up with the openers.
bool balances(std::string_view text, Pair pair) {
    std::ptrdiff_t depth = 0;
    for (const char c : text) {
        depth += (c == pair.open) - (c == pair.close);
        if (depth < 0) return false;
    }
    return depth == 0;
}

// Collects the counters that cannot be used because of one terminator in the text, the one behind
// which `rest` stands: 1, 12 and 123 because of "123".
void collect_used(std::string_view rest, std::size_t most, Vector<std::size_t>& used) {
    std::size_t counter = 0;
    for (const char c : rest) {
        if (c < '0' || c > '9') return;
        counter = 10 * counter + static_cast<std::size_t>(c - '0');
        if (counter > most) return;
        used.push_back(counter);
        if (counter == 0) return;
    }
}

// The first of 0, 1, 2, ... that follows no terminator in the text. One pass: trying each in turn
// would take quadratic time on a text that was made for it.
std::size_t free_counter(std::string_view text) {
    const std::size_t most = text.size();  // fewer than this are used
    Vector<std::size_t> used;
    for (std::size_t at = 0; (at = text.find(kTerminator, at)) != text.npos;) {
        at += kTerminator.size();
        collect_used(text.substr(at), most, used);
    }
    std::sort(used.begin(), used.end());
    std::size_t counter = 0;
    for (const std::size_t taken : used) counter += taken == counter;
    return counter;
}

void put_number(Output& out, std::size_t number) {
    char digits[24];
    out.put(
        {digits, static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "%zu", number))});
}

void put_terminated(Output& out, std::string_view text) {
    const std::size_t start = out.size() + kLiteral.size();
    out.put(kLiteral);
    out.put(kTerminator);
    if (text.find(kTerminator) != text.npos) put_number(out, free_counter(text));
    const std::size_t length = out.size() - start;
    out.put('\n');
    out.put(text);
    char* to = out.room(length);
    std::memcpy(to, out.text().data() + start, length);
    out.extend(length);
}

std::string_view view(const char* s) {
    return s != nullptr ? std::string_view(s) : std::string_view();
}

}  // namespace

void Output::grow(std::size_t n) {
    constexpr std::size_t kFirst = 256;
    const std::size_t used = size();
    const std::size_t room = std::max(kFirst, 2 * used + n + kSlack);
    start_ = static_cast<char*>(must_realloc(start_, room, "s", site_));
    end_ = start_ + used;
    limit_ = start_ + room;
}

char* Output::release() {
    *room(1) = '\0';
    char* shrunk = static_cast<char*>(std::realloc(start_, size() + 1));
    char* text = shrunk != nullptr ? shrunk : start_;
    start_ = end_ = limit_ = nullptr;
    return text;
}

void put_escaped(Output& out, std::string_view text) {
    char* const start = out.room(2 * text.size());
    char* to = start;
    std::size_t open = 0;  // braces that are not closed yet
    for (const char c : text) {
        bool escape = c == '\n' || c == '#' || c == '\\';
        if (c == '{') ++open;
        if (c == '}') {
            escape = open == 0;
            if (open > 0) --open;
        }
        if (escape) *to++ = '\\';
        *to++ = c;
    }
    out.extend(static_cast<std::size_t>(to - start));
}

void put_literal(Output& out, std::string_view text) {
    const Pair* pair = std::find_if(std::begin(kPairs), std::end(kPairs),
                                    [&](Pair each) { return balances(text, each); });
    if (pair == std::end(kPairs)) return put_terminated(out, text);
    out.put(kLiteral);
    out.put(pair->open);
    out.put('\n');
    out.put(text);
    out.put(pair->close);
}

void put_protected(Output& out, std::string_view text) {
    if (has_outer_blank(text) || text.find('\n') != text.npos) return put_literal(out, text);
    put_escaped(out, text);
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

char* str2pf(const char* s) {
    Output out(MORVA_HERE);
    put_value(out, view(s));
    return out.release();
}

char* pfoutput_literal(const char* s, int mode) {
    Output out(MORVA_HERE);
    if (mode == 1 && view(s).find('\n') == std::string_view::npos)
        put_escaped(out, view(s));
    else
        put_literal(out, view(s));
    return out.release();
}

char* pfescape_special_chars(const char* s) {
    Output out(MORVA_HERE);
    put_escaped(out, view(s));
    return out.release();
}

}  // extern "C"
