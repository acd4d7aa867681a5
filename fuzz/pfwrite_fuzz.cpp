// Trees of any shape, built from the input.
//
// Properties: the sure text of a tree reads back equal, without a message. A tree that has none
// does not read back from the documented text either. Where the two texts are the same and no key
// needs an escape, the text without indentation reads back, too.
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>

#include "morva/elog.h"
#include "morva/pflex.h"
#include "morva/pfwrite.h"
#include "pf/pfscan.hpp"
#include "pf/pfwrite.hpp"

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

class Builder {
  public:
    Builder(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

    bool escaped_keys = false;

    Pf* array(int type) {
        Pf* node = pfnew(type);
        for (int n = next() % 6; n > 0; --n) {
            const std::string key = text();
            escaped_keys |= key.find_first_of("#}\\\n") != key.npos;
            if (Pf* value = any())
                pffree(static_cast<Pf*>(setarr(node->value.arr, key.c_str(), value)));
        }
        return node;
    }

  private:
    std::uint8_t next() { return at_ == end_ ? 0 : *at_++; }

    // Pieces that mean something to the reader, and bytes of the input.
    std::string text() {
        static constexpr const char* kPieces[] = {
            "a",   "b2", " ",     "\t",       "\n",      "#",          "\\",
            "{",   "}",  "(",     ")",        "[",       "]",          "<",
            ">",   "`",  "'",     "\"",       "&",       "&Tbl{",      "&Arr{",
            "0",   "1",  "\r",    "&env(",    "__END__", "&Literal",   "&Literal{",
            "\\n", "_",  "\\101", "&Undef{}", "&f(x)",   "plain text", "\"EndOfLiteral"};
        std::string text;
        for (int n = next() % 8; n > 0; --n) {
            const std::uint8_t piece = next();
            if (piece < std::size(kPieces))
                text += kPieces[piece];
            else if (piece > 252)
                text.append(4u * piece, 'k');
            else
                text += static_cast<char>(piece);
        }
        return text;
    }

    Pf* list() {
        Pf* node = pfnew(PFTBL);
        for (int n = next() % 6; n > 0; --n)
            if (Pf* item = any()) pushtbl(node->value.tbl, item);
        return node;
    }

    Pf* any() {
        const std::uint8_t kind = next();
        if (kind < 60) return array(kind % 4 == 0 ? PFFILE : PFARR);
        if (kind < 120) return list();
        if (kind < 140) return morva::pf::new_function_node(text());
        if (kind < 145) return morva::pf::new_function_node("&f(" + text() + ")");
        if (kind == 145) return pfnew(PFSTRING);
        return morva::pf::new_string_node(text());
    }

    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

bool reads_back(std::string_view text, Pf* tree) {
    morva::pf::SilentSink sink;  // the reader would take its time to show a stack trace
    const morva::pf::Ending ending = morva::pf::scan(text, sink);
    if (!ending.clean || ending.level != 0) return false;
    Pf* copy = nullptr;
    const int result = pfcompile_counted(text.data(), static_cast<long>(text.size()), &copy);
    const bool equal = result == 0 && pfcmp(tree, copy) == 0;
    pffree(copy);
    return equal;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int mark = elog_mark();
    Builder builder(data, size);
    Pf* tree = builder.array(PFFILE);
    morva::pf::Output sure(MORVA_HERE), documented(MORVA_HERE);
    morva::String refusal;
    morva::pf::Writer<morva::pf::Indented>(documented).write(tree, true, [] { return true; });
    if (morva::pf::put_sure(sure, tree, &refusal)) {
        check(reads_back(sure.text(), tree));
        check(elog_mark() == mark);
        char* joined = pf2string(tree);
        check(sure.text() != documented.text() || builder.escaped_keys || reads_back(joined, tree));
        std::free(joined);
    } else {
        check(!reads_back(documented.text(), tree));
    }
    pffree(tree);
    elog_flush(0, mark);
    return 0;
}
