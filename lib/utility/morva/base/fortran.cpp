#include "base/fortran.hpp"

#include <algorithm>
#include <cstring>

namespace morva::fortran {
namespace {

std::size_t length_without_blanks(const char* field, std::size_t length) {
    while (length > 0 && field[length - 1] == ' ') --length;
    return length;
}

}  // namespace

Text::Text(const char* field, std::size_t length) {
    length = length_without_blanks(field, length);
    copy_.reset(static_cast<char*>(must_malloc(length + 1, "new", MORVA_HERE)));
    if (length > 0) std::memcpy(copy_.get(), field, length);
    copy_.get()[length] = '\0';
}

long give(char* field, std::size_t length, const char* text) {
    const std::size_t whole = text != nullptr ? std::strlen(text) : 0;
    const std::size_t part = std::min(whole, length);
    if (part > 0) std::memcpy(field, text, part);
    if (part < length) std::memset(field + part, ' ', length - part);
    return text != nullptr ? static_cast<long>(whole) : -1;
}

}  // namespace morva::fortran
