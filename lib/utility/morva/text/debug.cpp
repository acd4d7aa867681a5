// Listings for whoever looks into a running program.
#include <algorithm>
#include <cstdio>

#include "base/memory.hpp"
#include "morva/arr.h"
#include "morva/files.h"
#include "morva/strings.h"
#include "text/strings.hpp"

namespace {

constexpr int kShown = 50;
constexpr int kDumped = 16;

void put_title(FILE* stream, const char* title) {
    if (title != nullptr) std::fputs(title, stream);
}

int put_entry(char* key, void* value, void* stream) {
    std::fprintf(static_cast<FILE*>(stream), "\t%-15s %s\n", key, okstr(static_cast<char*>(value)));
    return 0;
}

}  // namespace

extern "C" {

void debugtbl(FILE* stream, const char* title, Tbl* tbl) {
    put_title(stream, title);
    for (long i = 0; i < maxtbl(tbl); ++i)
        std::fprintf(stream, "\t%3ld %s\n", i, okstr(static_cast<char*>(gettbl(tbl, i))));
}

void debugarr(FILE* stream, const char* title, Arr* arr) {
    put_title(stream, title);
    applyarr(arr, put_entry, stream);
}

void debugchar(FILE* stream, const char* title, const char* buf, int n) {
    put_title(stream, title);
    if (buf == nullptr || *buf == '\0') {
        std::fputs("''", stream);
        return;
    }
    int length = 0;
    while (length < (n > 0 ? n : kShown) && morva::is_printable(buf[length])) ++length;
    if (length > 0)
        std::fwrite(buf, 1, static_cast<std::size_t>(length), stream);
    else
        hexdump(stream, buf, n > 0 ? std::min(n, kDumped) : kDumped);
}

}  // extern "C"
