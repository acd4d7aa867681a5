#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/memory.hpp"
#include "base/ports.hpp"
#include "log/elog.hpp"

namespace morva::log {
namespace {

constexpr std::string_view kTruncated = "\n\t...  ** truncated by elog ***\n";

// strerror_r comes in two shapes: one returns the text, the other fills the buffer.
[[maybe_unused]] const char* error_text(const char* result, const char*) {
    return result;
}
[[maybe_unused]] const char* error_text(int, const char* buffer) {
    return buffer;
}

// Where an expansion goes: stops, without a word, when the room is used up.
class Expansion {
  public:
    Expansion(char* to, std::size_t size) : start_(to), at_(to), end_(to + size - 1) {}
    void put(char c) {
        if (at_ < end_) *at_++ = c;
    }
    void put(std::string_view text) {
        const std::size_t n = std::min(text.size(), static_cast<std::size_t>(end_ - at_));
        at_ = static_cast<char*>(std::memcpy(at_, text.data(), n)) + n;
    }
    std::size_t finish() {
        *at_ = '\0';
        return static_cast<std::size_t>(at_ - start_);
    }

  private:
    char* start_;
    char* at_;
    char* end_;
};

using Word = char[1024];

void copy_word(Word& word, const char* text) {
    const std::size_t n = strnlen(text, sizeof word - 1);
    std::memcpy(word, text, n);
    word[n] = '\0';
}

void put_stamp(Word& word, const char* format, bool local) {
    if (!port::format_time(std_now(), format, local, word, sizeof word)) word[0] = '\0';
}

double seconds_since_reference() {
    const State& now = state();
    return std_now() - (now.reference_time >= 0 ? now.reference_time : now.started);
}

// The tokens of templates, a letter and how its word is made.
struct Token {
    char letter;
    void (*make)(Word& word);
};
constexpr Token kTokens[] = {
    {'P', [](Word& w) { copy_word(w, Program_Name); }},
    {'p', [](Word& w) { std::snprintf(w, sizeof w, "%d", static_cast<int>(getpid())); }},
    {'r',
     [](Word& w) { copy_word(w, Argv != nullptr && Argv[0] != nullptr ? Argv[0] : Program_Name); }},
    {'d', [](Word& w) { copy_word(w, state().directory); }},
    {'h',
     [](Word& w) {
         if (gethostname(w, sizeof w) != 0) w[0] = '\0';
         w[sizeof w - 1] = '\0';
     }},
    {'t', [](Word& w) { put_stamp(w, state().t_format, true); }},
    {'u', [](Word& w) { put_stamp(w, state().u_format, false); }},
    {'s', [](Word& w) { std::snprintf(w, sizeof w, "%.3f", seconds_since_reference()); }},
};

bool is_plain_for_shell(const char* word) {
    return *word != '\0' &&
           std::strspn(word,
                       "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                       "_@%+=:,./-") == std::strlen(word);
}

void put_quoted(Expansion& out, const char* word) {
    out.put('\'');
    for (; *word != '\0'; ++word) *word == '\'' ? out.put("'\\''") : out.put(*word);
    out.put('\'');
}

// Handles the letter after a percent sign; an unknown one stays as it stands.
void put_token(Expansion& out, char letter, Purpose purpose) {
    if (letter == '%') return out.put('%');
    for (const Token& token : kTokens) {
        if (token.letter != letter) continue;
        Word word;
        token.make(word);
        if (purpose == Purpose::kCommand && !is_plain_for_shell(word)) return put_quoted(out, word);
        return out.put(word);
    }
    out.put('%');
    out.put(letter);
}

bool asks_for_stack(const char* text) {
    constexpr std::string_view kMark = "*stack*";
    return text[0] == '*' && std::strncmp(text, kMark.data(), kMark.size()) == 0;
}

char* try_copy_string(const char* text, bool* failed) {
    if (text == nullptr) return nullptr;
    const std::size_t bytes = std::strlen(text) + 1;
    void* copy = try_malloc(bytes);
    if (copy == nullptr) {
        *failed = true;
        return nullptr;
    }
    return static_cast<char*>(std::memcpy(copy, text, bytes));
}

// The text in a block that held an earlier text, if there is room for it, else in a new one.
char* try_refill(char* block, const char* text, bool* failed) {
    if (block != nullptr && text != nullptr) {
        const std::size_t length = std::strlen(text);
        if (length <= std::strlen(block))
            return static_cast<char*>(std::memcpy(block, text, length + 1));
    }
    std::free(block);
    return try_copy_string(text, failed);
}

}  // namespace

void system_error(char (&to)[kSysSize], int error) {
    char buffer[kSysSize] = "";
    const char* text = error_text(strerror_r(error, buffer, sizeof buffer), buffer);
    if (text == nullptr || *text == '\0' || std::strcmp(text, "Unknown error") == 0)
        std::snprintf(to, sizeof to, "Unknown error: %d", error);
    else
        std::snprintf(to, sizeof to, "%s", text);
}

int known_severity(int severity) {
    return severity >= 0 && severity < ELOG_NSEVERITY ? severity : ELOG_COMPLAIN;
}

std::size_t expand(const char* pattern, char* to, std::size_t size, Purpose purpose) {
    Expansion out(to, size);
    for (const char* p = pattern; *p != '\0'; ++p) {
        if (*p == '%' && p[1] == 'P' && purpose == Purpose::kTag) {
            out.put(std::string_view(Program_Name));
            ++p;
        } else if (*p == '%' && p[1] != '\0') {
            put_token(out, *++p, purpose);
        } else {
            out.put(*p);
        }
    }
    return out.finish();
}

void format_text(Draft& draft, const char* format, va_list arguments) {
    int wanted = 0;
    draft.text[0] = '\0';
    if (format != nullptr && *format != '\0') {
        wanted = format_simply(draft.text, kTextSize, format, arguments);
        if (wanted < 0) wanted = std::vsnprintf(draft.text, kTextSize, format, arguments);
        if (wanted < 0)  // a text that cannot be converted still tells where it comes from
            wanted = std::snprintf(draft.text, kTextSize, "%s", format);
    }
    std::size_t length = static_cast<std::size_t>(wanted);
    if (length >= kTextSize) {
        length = kTextSize - 1;
        std::memcpy(draft.text + length - kTruncated.size(), kTruncated.data(), kTruncated.size());
    }
    length = strnlen(draft.text, length);
    if (length == 0 || draft.text[length - 1] != '\n') draft.text[length++] = '\n';
    draft.text[length] = '\0';
    draft.length = length;
}

void complete(Draft& draft, int severity, int error) {
    const bool blank = draft.length <= 1;
    const bool leads = !blank && draft.text[0] == '\n';
    draft.message = Elog_msg{};
    draft.message.msg = leads ? draft.text + 1 : draft.text;
    if (!blank) {
        draft.tag[0] = '\n';
        expand(state().severities[severity].tag, draft.tag + 1, kTagLength + 1, Purpose::kTag);
        draft.message.tag = leads ? draft.tag : draft.tag + 1;
    }
    if (error != 0) {
        system_error(draft.sys, error);
        draft.message.sys = draft.sys;
    }
    draft.message.severity = severity;
    draft.message.count = 1;
    draft.message.thread = pthread_self();
}

bool wants_stack(const Draft& draft) {
    return state().severities[draft.message.severity].show_stack ||
           asks_for_stack(draft.message.msg) ||
           (draft.message.tag != nullptr && asks_for_stack(draft.tag + 1));
}

// The newline that a text leads with has moved to the tag of a record; it still counts.
bool repeats(const Elog_msg& last, const Draft& draft) {
    const bool leads = draft.length > 1 && draft.text[0] == '\n';
    if (last.msg == nullptr || std::strcmp(last.msg, leads ? draft.text + 1 : draft.text) != 0)
        return false;
    const char* pattern = state().severities[known_severity(last.severity)].tag;
    const bool last_leads = last.tag != nullptr && last.tag[0] == '\n' && pattern[0] != '\n';
    return leads == last_leads;
}

Elog_msg* try_copy(const Elog_msg& message) {
    Elog_msg* copy = static_cast<Elog_msg*>(try_malloc(sizeof(Elog_msg)));
    if (copy == nullptr) return nullptr;
    bool failed = false;
    *copy = message;
    copy->tag = try_copy_string(message.tag, &failed);
    copy->msg = try_copy_string(message.msg, &failed);
    copy->sys = try_copy_string(message.sys, &failed);
    if (!failed) return copy;
    free_message(copy);
    return nullptr;
}

void free_message(void* item) {
    Elog_msg* message = static_cast<Elog_msg*>(item);
    if (message == nullptr) return;
    std::free(message->tag);
    std::free(message->msg);
    std::free(message->sys);
    std::free(message);
}

Elog_msg* try_keep(const Elog_msg& message) {
    State& now = state();
    if (now.spare_count == 0) return try_copy(message);
    Elog_msg* spare = now.spares[--now.spare_count];
    bool failed = false;
    char* const tag = try_refill(spare->tag, message.tag, &failed);
    char* const text = try_refill(spare->msg, message.msg, &failed);
    *spare = message;
    spare->tag = tag;
    spare->msg = text;
    spare->sys = try_copy_string(message.sys, &failed);
    if (!failed) return spare;
    free_message(spare);
    return nullptr;
}

void spare_message(void* item) {
    State& now = state();
    Elog_msg* message = static_cast<Elog_msg*>(item);
    if (now.spare_count == std::ssize(now.spares) || message == nullptr)
        return free_message(message);
    std::free(message->sys);
    now.spares[now.spare_count++] = message;
}

}  // namespace morva::log

extern "C" void elog_free_msg(void* message) {
    morva::log::free_message(message);
}
