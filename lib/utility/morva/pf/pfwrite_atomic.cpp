// A parameter file replaced as a whole, by text that is sure to read back as the tree it was made
// from. Where pfwrite's text would not, another form of the reader's grammar takes its place.
#include "base/diagnostics.hpp"
#include "files/replace_file.hpp"
#include "morva/pfwrite.h"
#include "pf/pfscan.hpp"
#include "pf/pfwrite.hpp"

namespace morva::pf {
namespace {

// True for what the reader takes for a function, all of it.
bool is_function(std::string_view text) {
    const char* end = text.data() + text.size();
    return text.starts_with('&') && !text.starts_with("&Literal") &&
           scanning::function_end(text.data(), end) == end && text.find('\n') == text.npos;
}

// True for a value that the reader takes for something else than text, or complains of.
bool is_misread(std::string_view form) {
    for (const char* const opener : {"&Undef{}", "&Literal"})
        if (form.starts_with(opener)) return true;
    for (const char* const opener : {"&Tbl{", "&Arr{", "&Literal{"})
        if (form.find(opener) != form.npos) return true;
    return is_function(form);
}

// True for a key whose documented form the reader takes for the key.
bool reads_back(std::string_view key) {
    constexpr std::string_view kSpecial = "#}\\\n";
    if (key.empty() || key.front() == '"' || key.front() == '\'') return false;
    if (scanning::is_end_marker(key.data(), key.data() + key.size())) return false;
    if (key.find(' ') == key.npos) return key.find('\t') == key.npos;
    const bool both = key.find('"') != key.npos && key.find('\'') != key.npos;
    return !both && key.find_first_of(kSpecial) == key.npos;
}

// As a plain key, with every character that could be misread as a backslash and three octal digits.
// A zero byte ends a key for the reader, so that it expresses the empty key.
void put_octal(Output& out, std::string_view key) {
    if (key.empty()) return out.put("\\000");
    constexpr std::string_view kSpecial = " \t\n\"'#}\\";
    for (const char c : key) {
        if (kSpecial.find(c) == kSpecial.npos) {
            out.put(c);
            continue;
        }
        const auto digit = [c](int place) { return static_cast<char>('0' + (c >> 3 * place & 7)); };
        const char escape[] = {'\\', digit(2), digit(1), digit(0)};
        out.put({escape, sizeof escape});
    }
}

void put_sure_key(Output& out, std::string_view key) {
    for (const char quote : {'"', '\''}) {
        if (key.empty() || key.find(quote) != key.npos) continue;
        out.put(quote);
        out.put(key);
        out.put(quote);
        return;
    }
    put_octal(out, key);
}

struct Careful : Indented {
    static constexpr bool kPlainKeys = false;

    static const char* take(const Pf* node, std::size_t level) {
        if (node == nullptr || node->value.any == nullptr) return "has no value";
        if (node->type == PFFUNCTION) {
            const char* text = node->value.funct->text;
            return text != nullptr && is_function(text) ? nullptr : "is no function on one line";
        }
        if (node->type == PFSTRING) return nullptr;
        if (!is_array(node) && node->type != PFTBL) return "has no value";
        return level < static_cast<std::size_t>(kDeepest) ? nullptr : "is nested too deeply";
    }

    static const char* put_key(Output& out, std::string_view key) {
        if (key.size() > kLongestKey) return "is a key of more than 1023 characters";
        if (reads_back(key)) return Indented::put_key(out, key);
        put_sure_key(out, key);
        return nullptr;
    }

    static const char* put_string(Output& out, std::string_view text) {
        const std::size_t before = out.size();
        put_value(out, text);
        if (text.find('&') == text.npos || !is_misread(out.text().substr(before))) return nullptr;
        out.cut(before);
        put_literal(out, text);
        return nullptr;
    }
};

}  // namespace

bool put_sure(Output& out, const Pf* pf, String* refusal) {
    *refusal = "the tree is not an array";
    if (pf == nullptr || !is_array(pf) || pf->value.any == nullptr) return false;
    Writer<Careful> writer(out);
    const char* reason = writer.write(pf, true, [] { return true; });
    if (reason == nullptr) return true;
    refusal->assign(1, '\'').append(writer.path()).append("' ").append(reason);
    return false;
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" int pfwrite_atomic(const char* filename, Pf* pf) {
    Output out(MORVA_HERE);
    morva::String refusal;
    if (put_sure(out, pf, &refusal)) return morva::replace_file(filename, out.text());
    elog_log(0, "Can't write '%s' so that it reads back: %s\n", filename != nullptr ? filename : "",
             refusal.c_str());
    return -1;
}
