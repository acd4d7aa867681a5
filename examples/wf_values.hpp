// Values of a parameter file, each with a default for when the key is missing.
#pragma once

#include <glob.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "morva.h"

inline std::string text_or(Pf* pf, const char* key, const char* otherwise) {
    const char* text = pfget_string(pf, key);
    return text != nullptr ? text : otherwise;
}

inline double number_or(Pf* pf, const char* key, double otherwise) {
    return pfget_string(pf, key) != nullptr ? pfget_double(pf, key) : otherwise;
}

inline bool switch_or(Pf* pf, const char* key, bool otherwise) {
    return pfget_string(pf, key) != nullptr ? pfget_boolean(pf, key) != 0 : otherwise;
}

// The texts of a list; none when the key is missing.
inline std::vector<std::string> texts(Pf* pf, const char* key) {
    std::vector<std::string> result;
    Tbl* list = pfget_tbl(pf, key);
    for (long i = 0; i < maxtbl(list); ++i) result.push_back(static_cast<char*>(gettbl(list, i)));
    freetbl(list, nullptr);
    return result;
}

// Adds the files that match a pattern, in which "$NAME" stands for a variable of the environment.
// One that matches nothing is taken as a name: it will be told that there is no such file.
inline void add_matches(std::vector<std::string>& files, const std::string& pattern) {
    char* expanded = expand_env(pattern.c_str());
    glob_t found;
    if (glob(expanded, 0, nullptr, &found) == 0)
        files.insert(files.end(), found.gl_pathv, found.gl_pathv + found.gl_pathc);
    else
        files.push_back(expanded);
    globfree(&found);
    std::free(expanded);
}

// The files that the patterns of a list match.
inline std::vector<std::string> files_or_none(Pf* pf, const char* key) {
    std::vector<std::string> files;
    getkorvalin();  // which puts KORVALIN into the environment
    for (const std::string& pattern : texts(pf, key)) add_matches(files, pattern);
    return files;
}

// The selection list of texts STATION:CHANNEL, joined as match_stachans takes it.
inline std::string joined(const std::vector<std::string>& specs) {
    std::string list;
    for (const std::string& spec : specs) list += (list.empty() ? "" : ",") + spec;
    return list;
}
