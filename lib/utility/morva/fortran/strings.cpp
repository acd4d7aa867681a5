// Fortran twins of the string utilities and matchers.
#include "morva/strings.h"

#include <cstring>

#include "base/fortran.hpp"
#include "morva/fortran.h"
#include "morva/strmatches.h"

using morva::fortran::give;
using morva::fortran::Text;

extern "C" {

int blank_(const char* text, size_t text_length) {
    return blank(Text(text, text_length).c_str());
}

int str2upper_(char* text, size_t text_length) {
    const Text upper(text, text_length);
    const int length = str2upper(upper.c_str());
    give(text, text_length, upper.c_str());
    return length;
}

int str2lower_(char* text, size_t text_length) {
    const Text lower(text, text_length);
    const int length = str2lower(lower.c_str());
    give(text, text_length, lower.c_str());
    return length;
}

long strdbl_(const double* value, char* text, size_t text_length) {
    char number[64];
    return give(text, text_length, strdbl(number, *value));
}

int levenshtein_distance_(const char* a, const char* b, size_t a_length, size_t b_length) {
    return levenshtein_distance(Text(a, a_length).c_str(), Text(b, b_length).c_str());
}

int yesno_(const char* text, size_t text_length) {
    return yesno(Text(text, text_length).c_str());
}

int strmatches_(const char* string, const char* pattern, Hook** hook, size_t string_length,
                size_t pattern_length) {
    return strmatches(Text(string, string_length).c_str(), Text(pattern, pattern_length).c_str(),
                      hook);
}

int strcontains_(const char* string, const char* pattern, Hook** hook, int* start, int* length,
                 size_t string_length, size_t pattern_length) {
    return strcontains(Text(string, string_length).c_str(), Text(pattern, pattern_length).c_str(),
                       hook, start, length);
}

void free_hook_(Hook** hook) {
    free_hook(hook);
}

int match_string_(const char* pattern, const char* string, size_t pattern_length,
                  size_t string_length) {
    return match_string(Text(pattern, pattern_length).c_str(), Text(string, string_length).c_str());
}

int match_stachans_(const char* spec, const char* station, const char* channel, size_t spec_length,
                    size_t station_length, size_t channel_length) {
    return match_stachans(Text(spec, spec_length).c_str(), Text(station, station_length).c_str(),
                          Text(channel, channel_length).c_str());
}

}  // extern "C"
