// Substitution, translation and strings of blanks.
#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

#include "morva/strings.h"
#include "text/strings.hpp"

namespace {

// Copies into a buffer of known size and remembers when something did not fit.
class Bounded {
  public:
    Bounded(char* out, std::size_t size) : out_(out), last_(out + size - 1) {}
    void add(const char* text, std::size_t length) {
        const std::size_t room = static_cast<std::size_t>(last_ - out_);
        if (length > room) cut_ = true, length = room;
        morva::copy_text(out_, text, length);
        out_ += length;
    }
    char* finish(const char* rest) {
        add(rest, std::strlen(rest));
        *out_ = '\0';
        return cut_ ? nullptr : out_;
    }

  private:
    char* out_;
    char* last_;
    bool cut_ = false;
};

class Unbounded {
  public:
    explicit Unbounded(char* out) : out_(out) {}
    void add(const char* text, std::size_t length) {
        morva::copy_text(out_, text, length);
        out_ += length;
    }
    char* finish(const char* rest) { return stpcpy(out_, rest); }

  private:
    char* out_;
};

template <class Output>
char* substitute(const char* s, const char* old_text, const char* new_text, Output output) {
    const std::size_t old_length = std::strlen(old_text);
    const std::size_t new_length = std::strlen(new_text);
    const char* found = old_length > 0 ? std::strstr(s, old_text) : nullptr;
    for (; found != nullptr; found = std::strstr(s, old_text)) {
        output.add(s, static_cast<std::size_t>(found - s));
        output.add(new_text, new_length);
        s = found + old_length;
    }
    return output.finish(s);
}

constexpr int kRing = 10;
constexpr int kWidth = 64;  // 63 blanks and a terminator

}  // namespace

extern "C" {

char* strsub(const char* s, const char* old_text, const char* new_text, char* out) {
    return substitute(s, old_text, new_text, Unbounded(out));
}

char* strsubn(const char* s, const char* old_text, const char* new_text, char* out, size_t size) {
    return size > 0 ? substitute(s, old_text, new_text, Bounded(out, size)) : nullptr;
}

char* strtr(char* s, const char* from, const char* to) {
    if (s == nullptr || *s == '\0' || from == nullptr || to == nullptr) return s;
    std::array<unsigned char, 256> table;
    for (std::size_t i = 0; i < table.size(); ++i) table[i] = static_cast<unsigned char>(i);
    for (std::size_t i = 0; i < table.size() && from[i] != '\0' && to[i] != '\0'; ++i)
        table[static_cast<unsigned char>(from[i])] = static_cast<unsigned char>(to[i]);
    for (char* p = s; *p != '\0'; ++p)
        *p = static_cast<char>(table[static_cast<unsigned char>(*p)]);
    return s;
}

char* spaces(int n) {
    static constinit std::mutex lock;
    static char ring[kRing][kWidth];
    static int next = 0;
    const std::size_t length = static_cast<std::size_t>(std::clamp(n, 0, kWidth - 1));
    const std::lock_guard guard(lock);
    char* text = ring[next];
    next = (next + 1) % kRing;
    std::memset(text, ' ', length);
    text[length] = '\0';
    return text;
}

}  // extern "C"
