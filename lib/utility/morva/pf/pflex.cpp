// The readers: where the text comes from, the lock, and what is told at the end.
#include "morva/pflex.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "morva/strings.h"
#include "pf/pfbuild.hpp"
#include "pf/pflex.hpp"
#include "pf/pfscan.hpp"
#include "skerrows.h"

constinit int Pf_show_replacements = 0;
pthread_mutex_t Pf_lock = PTHREAD_MUTEX_INITIALIZER;

namespace morva::pf {

namespace {

// The names that last, in lists that only grow. No lock is held while memory is taken: running out
// of it logs, and whoever holds the register's lock may be reading the register's settings.
struct Name {
    Name* next;
    char text[1];
};
constexpr std::size_t kLists = 64;
constinit std::atomic<Name*> g_names[kLists] = {};

// The entry of a name in a list, up to the entry `end`.
Name* find_name(Name* list, const Name* end, std::string_view name) {
    while (list != end && list->text != name) list = list->next;
    return list == end ? nullptr : list;
}

Name* new_name(std::string_view name) {
    const std::size_t bytes = sizeof(Name) + name.size();
    auto* made = static_cast<Name*>(must_malloc(bytes, "filename", MORVA_HERE));
    std::memcpy(made->text, name.data(), name.size());
    made->text[name.size()] = '\0';
    return made;
}

}  // namespace

char* lasting_name(const char* name) {
    std::atomic<Name*>& list = g_names[std::hash<std::string_view>{}(name) % kLists];
    Name* first = list.load(std::memory_order_acquire);
    if (Name* known = find_name(first, nullptr, name)) return known->text;
    Name* made = new_name(name);
    for (const Name* searched = first;; searched = first) {
        made->next = first;
        if (list.compare_exchange_weak(first, made, std::memory_order_acq_rel)) return made->text;
        // Others were quicker with this or another name.
        if (Name* known = find_name(first, searched, name)) {
            std::free(made);
            return known->text;
        }
    }
}

namespace {

// Holds the reader. The register is made ready first: reading its settings needs the reader.
class Reading {
  public:
    Reading() {
        log_ready();
        pthread_mutex_lock(&Pf_lock);
        __atomic_add_fetch(&Pf_busy, 1, __ATOMIC_RELAXED);
    }
    ~Reading() {
        __atomic_sub_fetch(&Pf_busy, 1, __ATOMIC_RELAXED);
        pthread_mutex_unlock(&Pf_lock);
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
};

// What is read, and how messages call it.
struct Source {
    enum class Kind { kText, kInput, kFile } kind;
    const char* name;
};

constexpr int kFailed = -2;

// The first lines of a text, each behind an arrow.
malloced<char> head_of(std::string_view text) {
    constexpr int kLines = 5;
    std::size_t end = 0;
    for (int i = 0; i < kLines && end < text.size(); ++i)
        end = std::min(text.find('\n', end), text.size() - 1) + 1;
    return malloced<char>(strhead(String(text.substr(0, end)).c_str(), kLines, "  --> "));
}

void tell_of_open_blocks(const Source& source, const Ending& ending, std::string_view text,
                         Messages& messages) {
    constexpr const char* kOpen = "*stack* Unterminated arrays or tables";
    switch (source.kind) {
        case Source::Kind::kText:
            return messages.reason(false, "%s at last line #%ld, depth = %d in input string \n%s\n",
                                   kOpen, ending.line, ending.level, head_of(text).get());
        case Source::Kind::kInput:
            return messages.reason(false, "%s in input FILE at last line #%ld: depth = %d", kOpen,
                                   ending.line, ending.level);
        case Source::Kind::kFile:
            return messages.reason(false, "%s in parameter file %s at last line #%ld: depth = %d",
                                   kOpen, source.name, ending.line, ending.level);
    }
}

// Reads the text into the tree; the reader is held.
int build(std::string_view text, const Source& source, Pf** pf, Messages& messages,
          Replaced& replaced) {
    if (*pf == nullptr) *pf = new_array_node();
    Pf* root = *pf;
    char* name = lasting_name(source.name);
    if (root->value.arr == nullptr) root->value.arr = newarr(nullptr);
    if (root->filename == nullptr) root->filename = name;
    root->type = PFARR;
    TreeBuilder builder(root, text, name, messages, replaced);
    const Ending ending = scan(text, builder);
    builder.finish();
    root->type = PFFILE;
    if (ending.level != 0) tell_of_open_blocks(source, ending, text, messages);
    return ending.clean && ending.level == 0 ? 0 : kFailed;
}

bool can_be_read_into(const char* function, Pf** pf) {
    if (pf == nullptr) {
        elog_log(0, "%s: no variable for the tree\n", function);
    } else if (*pf != nullptr && !is_array(*pf)) {
        elog_log(0, "%s: can't read into a Pf of type %d\n", function, (*pf)->type);
    } else {
        return true;
    }
    return false;
}

int compile(const char* function, const char* text, long length, Pf** pf) {
    if (!can_be_read_into(function, pf)) return kFailed;
    Messages messages;
    Replaced replaced;
    int result = 0;
    {
        const Reading reading;
        result = build({text, static_cast<std::size_t>(length)},
                       {Source::Kind::kText, "*internal buffer*"}, pf, messages, replaced);
    }
    messages.tell();
    return result;
}

// A growing block for the whole of an input.
class Input {
  public:
    explicit Input(std::size_t expected) { reserve(std::max(expected, kStep)); }

    // Reads until `read` (as ::read, the room first) gives 0 or -1; false for the latter.
    template <class Read>
    bool fill(Read read) {
        for (;;) {
            if (size_ == room_) reserve(2 * room_);
            const ssize_t count = read(text_.get() + size_, room_ - size_);
            if (count <= 0) return count == 0;
            size_ += static_cast<std::size_t>(count);
        }
    }
    std::string_view text() const { return {text_.get(), size_}; }
    std::string_view whole_lines() const { return text().substr(0, text().rfind('\n') + 1); }

  private:
    static constexpr std::size_t kStep = 1 << 16;

    void reserve(std::size_t room) {
        char* block = static_cast<char*>(must_realloc(text_.get(), room, "buffer", MORVA_HERE));
        (void)text_.release();
        text_.reset(block);
        room_ = room;
    }

    malloced<char> text_;
    std::size_t size_ = 0;
    std::size_t room_ = 0;
};

// Reads all that `read` gives into the tree. An entry that a failure has cut in two is left out.
template <class Read>
int read_input(std::size_t expected, Read read, const Source& source, Pf** pf) {
    Messages messages;
    Replaced replaced;
    int result = 0;
    {
        const Reading reading;
        Input input(expected);
        const bool complete = input.fill(read);
        if (!complete)
            messages.reason(true, "read failed in pf input routine for file %s", source.name);
        result =
            build(complete ? input.text() : input.whole_lines(), source, pf, messages, replaced);
        if (!complete) result = kFailed;
    }
    messages.tell();
    return result;
}

// The bytes that are to be expected from a descriptor, and one, so that its end is seen at once. Of
// what a file claims to have, so much is believed.
std::size_t expected_size(int fd) {
    struct stat status;
    constexpr off_t kMost = 1 << 26;
    const bool known = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    return known ? static_cast<std::size_t>(std::min(status.st_size, kMost)) + 1 : 0;
}

int read_fd(int fd, const Source& source, Pf** pf) {
    if (!can_be_read_into("pfinfd", pf)) return kFailed;
    const auto read = [fd](char* to, std::size_t room) {
        return retry([&] { return ::read(fd, to, room); });
    };
    return read_input(expected_size(fd), read, source, pf);
}

ssize_t read_stream(FILE* stream, char* to, std::size_t room) {
    for (;;) {
        const std::size_t count = std::fread(to, 1, room, stream);
        if (count > 0 || !std::ferror(stream)) return static_cast<ssize_t>(count);
        if (errno != EINTR) return -1;
        std::clearerr(stream);
    }
}

}  // namespace

int read_descriptor(int fd, const char* source_name, Pf** pf) {
    return read_fd(fd, {Source::Kind::kFile, source_name}, pf);
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

int pfcompile(const char* text, Pf** pf) {
    if (text == nullptr) {
        elog_log(0, "pfcompile: no text\n");
        return kFailed;
    }
    return compile("pfcompile", text, static_cast<long>(std::strlen(text)), pf);
}

int pfcompile_counted(const char* text, long length, Pf** pf) {
    if (length < 0 || (text == nullptr && length > 0)) {
        elog_log(0, "pfcompile_counted: no text of %ld bytes\n", length);
        return kFailed;
    }
    return compile("pfcompile_counted", text, length, pf);
}

int pfin(FILE* stream, Pf** pf) {
    if (stream == nullptr) {
        elog_log(0, "pfin: no stream\n");
        return kFailed;
    }
    if (!can_be_read_into("pfin", pf)) return kFailed;
    const auto read = [stream](char* to, std::size_t room) {
        return read_stream(stream, to, room);
    };
    return read_input(0, read, {Source::Kind::kInput, "*unknown pfin file*"}, pf);
}

int pfinfd(int fd, Pf** pf) {
    return read_fd(fd, {Source::Kind::kInput, "*pf filename unknown*"}, pf);
}

}  // extern "C"
