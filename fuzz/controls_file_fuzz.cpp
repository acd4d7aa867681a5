// Opens the input as a file of controls and asks and changes everything in it. Whatever opens gives
// names that end, finds what was set up again, and keeps values and counts.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "morva.h"
#include "shared/dynamic_controls.hpp"

namespace {

void demand(bool held) {
    if (!held) std::abort();
}

// As in a process that has just started.
void forget() {
    morva::dc::Config& dc = morva::dc::config();
    dc.selected = nullptr;
    morva::GuardedRange::release(dc.guard);
    if (dc.fd >= 0) {
        ::munmap(dc.first, dc.length);
        ::close(dc.fd);
    } else {
        std::free(dc.first);
    }
    dc.first = nullptr;
}

// Of two entries with the name the first one counts; one that no control can have is fatal.
bool is_control(const Dcset* set, const char* name) {
    std::size_t at = 0;
    while (std::strcmp(set->names + at + 1, name) != 0) at += std::strlen(set->names + at + 1) + 2;
    const int code = static_cast<unsigned char>(set->names[at]);
    return code < 64 || (code & 63) < DC_INTEGERS;
}

// Each is searched for by walking over the others.
constexpr long kMostNames = 16;

void ask() {
    Tbl* programs = dcprograms();
    demand(maxtbl(programs) <= dcmaxcontrols());
    for (long i = 0; i < maxtbl(programs); ++i)
        demand(std::strlen(static_cast<char*>(gettbl(programs, i))) < DC_NAME_SIZE);
    freetbl(programs, nullptr);
    Arr* names = dcnames();
    Tbl* keys = keysarr(names);
    for (long i = 0; i < std::min(maxtbl(keys), kMostNames); ++i) {
        const char* key = static_cast<char*>(gettbl(keys, i));
        const char* code = static_cast<char*>(getarr(names, key));
        demand(*dcname(*code, std::atoi(code + 1)) != '\0');
        void* value = nullptr;
        if (is_control(dcselected(), key) && dcget(key, &value) == 's') std::free(value);
    }
    freetbl(keys, nullptr);
    freearr(names, std::free);
}

// Without room for its name, or an index that nothing else is named by, a new control is fatal.
bool has_place(Dcset* set) {
    std::size_t end = 0;
    while (end + 10 < DC_NAMES_SIZE && set->names[end + 1] != '\0')
        end += 2 + ::strnlen(set->names + end + 1, DC_NAMES_SIZE - end - 1);
    const int index = set->next[1] - 1;
    return end + 10 < DC_NAMES_SIZE && index >= 0 && index < DC_INTEGERS &&
           *dcname('i', index) == '\0';
}

void change() {
    const auto changes = static_cast<unsigned long>(dcchanged());
    dcseti(3, 77);
    dcsets(2, "0123456789012345678901234567890123456789");
    demand(dcgeti(3) == 77 && static_cast<unsigned long>(dcchanged()) == changes + 2);
    char* text = dcgets(2);
    demand(std::strlen(text) == DC_STRING_SIZE - 1);
    std::free(text);
    if (!has_place(dcselected())) return;
    const int index = dcsetupint("made", 5);
    demand(index < DC_INTEGERS && (index < 0 || dcgeti(index) == 5));
    demand(dcsetupint("made", 6) == index || index < 0);
}

// A folder with the file of controls, which is a link to memory; a file in the old format is
// replaced there and the link made anew.
class Folder {
  public:
    Folder() {
        demand(::mkdtemp(path_) != nullptr && memory_ >= 0 && outside_ >= 0);
        demand(::chdir(path_) == 0);
        link();
        leave();
    }
    ~Folder() {
        demand(::chdir(path_) == 0);
        ::unlink(kName);
        leave();
        ::rmdir(path_);
    }
    // The fuzzer's own files are in another folder.
    void leave() { demand(::fchdir(outside_) == 0); }
    void enter(const uint8_t* bytes, size_t size) {
        demand(::chdir(path_) == 0);
        demand(::pwrite(memory_, bytes, size, 0) == static_cast<ssize_t>(size));
        demand(::ftruncate(memory_, static_cast<off_t>(size)) == 0);
    }
    void link() {
        char target[64];
        std::snprintf(target, sizeof target, "/proc/self/fd/%d", memory_);
        ::unlink(kName);
        demand(::symlink(target, kName) == 0);
    }

  private:
    static constexpr char kName[] = ".dynamic_controls";
    char path_[32] = "/tmp/morva-fuzz-XXXXXX";
    const int memory_ = ::memfd_create("controls", 0);
    const int outside_ = ::open(".", O_PATH | O_CLOEXEC);
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static Folder folder;
    folder.enter(bytes, size);
    dcopen(0);
    ask();
    dcselect("prog");
    ask();
    change();
    ask();
    dcremove("prog");
    forget();
    if (size >= 8 && std::memcmp(bytes, "#FileTbl", 8) == 0) folder.link();
    folder.leave();
    elog_clear();
    return 0;
}
