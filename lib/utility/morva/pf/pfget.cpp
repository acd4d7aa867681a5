// Getters: one entry of a container, and typed values at the end of a path.
#include "pf/pfget.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "morva/files.h"
#include "morva/pfexpand.h"
#include "morva/pfresolve.h"
#include "pf/pf.hpp"

namespace morva::pf {

PathName::PathName(const Pf* pf, const char* path) : name_(okstr(path)) {
    if (pf == nullptr || pf->type != PFTBL) return;
    std::snprintf(index_, sizeof index_, "#%ld", index_in(path));
    name_ = index_;
}

namespace {

bool is_string(const Pf* node) {
    return node != nullptr && node->type == PFSTRING;
}

// The entry itself, functions not yet evaluated.
Pf* entry_of(Pf* pf, char* key) {
    if (pf->value.any == nullptr && pf->type == PFTBL) return nullptr;
    switch (pf->type) {
        case PFFILE:
        case PFARR:
            return key == nullptr ? nullptr : found_in(pf, getarr(pf->value.arr, key));
        case PFTBL:
            return found_in(pf, gettbl(pf->value.tbl, index_in(key)));
        case PFSTRING:
        case PFFUNCTION:
            return pf;
        case PFUNDEFINED:
        case PFINVALID:
        case PFPLACEHOLDER:
            return nullptr;
        default:
            elog_complain(0, "*stack* unrecognized pf type %d in pfget", pf->type);
            return nullptr;
    }
}

Pf* evaluated(Pf* node) {
    return node != nullptr && node->type == PFFUNCTION ? pfinterpret(node) : node;
}

// The root of a file serves wherever an array is expected.
bool is_of_type(const Pf* node, int type) {
    return node->type == type || (type == PFARR && node->type == PFFILE);
}

// The node at the path when it has the type, or when a handler has put one in its place.
Pf* node_at(Pf* pf, const char* path, int type) {
    Pf* node = nullptr;
    _pfeval(pf, path, &node, type);
    return node != nullptr && is_of_type(node, type) ? node : nullptr;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// strtol in base 0, without its generality for what most numbers are: decimal digits, and so few
// that any number of them fits.
long integer(const char* text, char** end) {
    constexpr int kMostDigits = 18;
    const char* at = text;
    long value = 0;
    if (*text != '0')
        while (is_digit(*at) && at - text < kMostDigits) value = 10 * value + (*at++ - '0');
    if (at == text || is_digit(*at)) return std::strtol(text, end, 0);
    *end = const_cast<char*>(at);
    return value;
}

struct Suffix {
    char letter;
    double factor;
};
constexpr Suffix kSuffixes[] = {{'G', 1e9}, {'M', 1e6}, {'k', 1e3}, {'m', 1e-3}, {'u', 1e-6}};

double factor_of(char letter) {
    for (const Suffix& suffix : kSuffixes)
        if (suffix.letter == letter) return suffix.factor;
    return 1;
}

}  // namespace

const char* text_at(Pf* pf, const char* path, void* result) {
    Pf* node = nullptr;
    _pfeval(pf, path, &node, PFSTRING);
    if (node == nullptr) pfdie(pf, const_cast<char*>(path), PFSTRING, PFINVALID, result);
    if (!is_string(node)) return nullptr;
    const char* text = node->value.string;
    if (text == nullptr) return "";
    return std::strchr(text, '&') == nullptr ? text : pfexpand(node);
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

int pfget(Pf* pf, char* key, void** value) {
    void* unwanted;
    if (value == nullptr) value = &unwanted;
    *value = nullptr;
    Pf* node = pf == nullptr ? nullptr : evaluated(entry_of(pf, key));
    if (node == nullptr) return PFINVALID;
    *value = is_string(node) ? static_cast<void*>(pfexpand(node)) : node;
    return node->type;
}

long pfmaxtbl(Pf* pf) {
    return pf != nullptr && pf->type == PFTBL && pf->value.tbl ? maxtbl(pf->value.tbl) : 0;
}

Tbl* pfkeys(Pf* pf) {
    return pf != nullptr && is_array(pf) ? keysarr(pf->value.arr) : nullptr;
}

int _pfeval(Pf* pf, const char* path, Pf** node, int expected) {
    pfresolve(pf, path, 0, node);
    *node = evaluated(*node);
    if (*node != nullptr && expected != PFPLACEHOLDER && !is_of_type(*node, expected))
        pfdie(pf, const_cast<char*>(path), expected, (*node)->type, node);
    return *node == nullptr ? PFINVALID : (*node)->type;
}

char* pfget_string(Pf* pf, const char* path) {
    Pf* node = node_at(pf, path, PFSTRING);
    return node == nullptr ? nullptr : pfexpand(node);
}

long pfget_int(Pf* pf, const char* path) {
    return number_at<long>(pf, path, "integer", integer);
}

double pfget_double(Pf* pf, const char* path) {
    return number_at<double>(pf, path, "floating point", fix_strtod);
}

double pfget_size(Pf* pf, const char* path) {
    double result = 0;
    const char* text = text_at(pf, path, &result);
    return text == nullptr ? result : sz2dbl(text);
}

int pfget_boolean(Pf* pf, const char* path) {
    constexpr int kUnknown = 1;
    const char* text = pfget_string(pf, path);
    if (text == nullptr) return 0;
    const int answer = yesno(text);
    if (answer != kUnknown) return answer;
    elog_complain(0, "Bad boolean value '%s' for %s", text, PathName(pf, path).c_str());
    return 0;
}

Tbl* pfget_tbl(Pf* pf, const char* path) {
    Pf* list = node_at(pf, path, PFTBL);
    if (list == nullptr) return nullptr;
    const long count = pfmaxtbl(list);
    Tbl* values = newtbl(count);
    for (long i = 0; i < count; ++i) {
        void* value = nullptr;
        pfget(list, reinterpret_cast<char*>(i), &value);
        pushtbl(values, value);
    }
    return values;
}

Arr* pfget_arr(Pf* pf, const char* path) {
    Pf* array = node_at(pf, path, PFARR);
    if (array == nullptr) return nullptr;
    Arr* values = newarr(nullptr);
    morva::for_each_pair(morva::tree_of(array->value.arr), [&](const void* key, void* item) {
        Pf* node = evaluated(found_in(array, item));
        if (is_string(node)) setarr(values, static_cast<const char*>(key), pfexpand(node));
    });
    return values;
}

double sz2dbl(const char* string) {
    if (string == nullptr || *string == '\0') return 0;
    return fix_strtod(string, nullptr) * factor_of(string[std::strlen(string) - 1]);
}

}  // extern "C"
