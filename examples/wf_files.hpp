// Reading GSE2 files: a whole message, and the samples of a section.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "morva.h"
#include "wf_sections.hpp"

// Reads a whole stream. False with errno set when that fails.
inline bool read_stream(FILE* stream, double limit, std::string& text) {
    char block[65536];
    std::size_t n;
    while ((n = std::fread(block, 1, sizeof block, stream)) > 0) {
        text.append(block, n);
        if (static_cast<double>(text.size()) <= limit) continue;
        errno = EFBIG;
        return false;
    }
    return std::ferror(stream) == 0;
}

// Reads a file of at most `limit` bytes; "-" is standard input.
inline bool read_file(const char* path, double limit, std::string& text) {
    if (std::strcmp(path, "-") == 0) return read_stream(stdin, limit, text);
    FILE* stream = std::fopen(path, "rb");
    if (stream == nullptr) return false;
    const bool good = read_stream(stream, limit, text);
    const int error = errno;
    std::fclose(stream);
    errno = error;
    return good;
}
