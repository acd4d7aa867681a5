#include "pf/pfpath.hpp"

#include <charconv>
#include <climits>
#include <cstring>

namespace morva::pf {

bool PathReader::fail(const char* fault, const char* at) {
    fault_ = fault;
    at_ = at;
    return false;
}

bool PathReader::fail_key(const char* end) {
    if (*end == '\0') return fail("this brace is not closed", at_);
    if (*end == '{') return fail("a key with a brace must be quoted", end);
    return fail("the key is empty", end);
}

bool PathReader::next_quoted_key(Step* step) {
    const char* const quote = at_ + 1;
    const char* const end = std::strchr(quote + 1, *quote);
    if (end == nullptr) return fail("this quote is not closed", quote);
    if (end[1] != '}') return fail("a closing brace must follow the quoted key", end + 1);
    *step = {true, between(quote + 1, end), 0};
    at_ = end + 2;
    return true;
}

// An index that no long can hold is beyond the end of any list.
bool PathReader::next_index(Step* step) {
    const char* const start = at_ + 1;
    const char* const end = std::strchr(start, ']');
    if (end == nullptr) return fail("this bracket is not closed", at_);
    long index = 0;
    const auto [rest, error] = std::from_chars(start, end, index);
    if (rest != end || error == std::errc::invalid_argument)
        return fail("the index is no whole number", start);
    if (error == std::errc::result_out_of_range) index = *start == '-' ? LONG_MIN : LONG_MAX;
    *step = {false, {}, index};
    at_ = end + 1;
    return true;
}

}  // namespace morva::pf
