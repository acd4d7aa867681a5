#include "pf/pfpath.hpp"

#include <charconv>
#include <climits>

namespace morva::pf {

bool PathReader::fail(const char* fault, std::size_t at) {
    fault_ = fault;
    at_ = at;
    return false;
}

// Behind an opening brace: a key up to the closing one, or a quoted key directly before it.
bool PathReader::next_key(Step* step) {
    const std::size_t start = at_ + 1;
    if (start < path_.size() && (path_[start] == '"' || path_[start] == '\'')) {
        const std::size_t quote = path_.find(path_[start], start + 1);
        if (quote == path_.npos) return fail("this quote is not closed", start);
        if (quote + 1 >= path_.size() || path_[quote + 1] != '}')
            return fail("a closing brace must follow the quoted key", quote + 1);
        *step = {true, path_.substr(start + 1, quote - start - 1), 0};
        at_ = quote + 2;
        return true;
    }
    const std::size_t end = find_either(path_, start, '{', '}');
    if (end == path_.size()) return fail("this brace is not closed", at_);
    if (path_[end] == '{') return fail("a key with a brace must be quoted", end);
    if (end == start) return fail("the key is empty", end);
    *step = {true, path_.substr(start, end - start), 0};
    at_ = end + 1;
    return true;
}

// An index that no long can hold is beyond the end of any list.
bool PathReader::next_index(Step* step) {
    const std::size_t start = at_ + 1;
    const std::size_t end = path_.find(']', start);
    if (end == path_.npos) return fail("this bracket is not closed", at_);
    long index = 0;
    const char* const stop = path_.data() + end;
    const auto [rest, error] = std::from_chars(path_.data() + start, stop, index);
    if (rest != stop || error == std::errc::invalid_argument)
        return fail("the index is no whole number", start);
    if (error == std::errc::result_out_of_range) index = path_[start] == '-' ? LONG_MIN : LONG_MAX;
    *step = {false, {}, index};
    at_ = end + 1;
    return true;
}

bool PathReader::next(Step* step) {
    if (at_ >= path_.size()) return false;
    if (path_[at_] == '{') return next_key(step);
    if (path_[at_] == '[') return next_index(step);
    return fail("'{' or '[' expected", at_);
}

}  // namespace morva::pf
