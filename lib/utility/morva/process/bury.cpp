// The gravesite: variables that are saved when the program ends.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/ports.hpp"
#include "base/posix.hpp"
#include "log/elog.hpp"
#include "morva/epoch.h"
#include "morva/files.h"
#include "morva/gravesite.h"
#include "morva/periodic.h"
#include "morva/pflex.h"
#include "morva/pfwrite.h"
#include "morva/signals.h"
#include "morva/str2epoch.h"
#include "morva/strings.h"
#include "pf/pfwrite.hpp"

namespace morva::process {
namespace {

constexpr int kInUse = 1;       // exit status of a second instance
constexpr int kRounds = 1000;   // attempts at a file that is replaced meanwhile
constexpr int kPatience = 500;  // milliseconds that a handler waits for the end of the process
constexpr char kTimeFormat[] = "%E (%j) %Y-%m-%d  %H:%M:%S.%u %z %A";

char* g_custom_path = nullptr;

struct FreeTree {
    void operator()(Pf* pf) const { pffree(pf); }
};
using OwnedTree = std::unique_ptr<Pf, FreeTree>;

// Holds the grave's lock. Within a burial the same thread may come again, when memory runs out or
// the mortician dies: it then finds the lock disturbed.
class GraveLock {
  public:
    GraveLock() {
        if (t_held_) return;
        ::pthread_mutex_lock(&grave_mutex);
        owner_ = t_held_ = true;
    }
    ~GraveLock() {
        if (!owner_) return;
        t_held_ = false;
        ::pthread_mutex_unlock(&grave_mutex);
    }
    GraveLock(const GraveLock&) = delete;
    GraveLock& operator=(const GraveLock&) = delete;
    bool disturbed() const { return !owner_; }
    // Whether this thread holds it. May be asked in signal handlers.
    static bool held() { return t_held_; }

  private:
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local bool t_held_ = false;
    bool owner_ = false;
};

// ---- the state file

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

bool lock(int fd) {
    return retry([&] { return ::lockf(fd, F_TLOCK, 0); }) == 0;
}

// Ends the process when another one has the file.
void lock_or_leave(int fd, const char* path) {
    if (lock(fd)) return;
    if (is_nfs(path) != 0) {
        elog_complain(1, "Can't lock '%s' on an nfs filesystem: proceeding without lock", path);
        return;
    }
    elog_complain(
        1, "*fatal* Can't lock state file '%s' for exclusive use: it is already in use.\n", path);
    std::exit(kInUse);
}

// Whether the descriptor is of the file that has the name now: the one that was opened may have
// been replaced by a burial of its owner before it could be locked.
bool is_current(int fd, const char* path) {
    struct stat opened {
    }, named{};
    return ::fstat(fd, &opened) == 0 && ::stat(path, &named) == 0 &&
           opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

// Opens and locks the file, and makes it when there is none; null with errno.
File open_state(const char* path, bool& is_new) {
    for (int round = 0;; ++round) {
        int fd = retry([&] { return ::open(path, O_RDWR | O_CLOEXEC); });
        is_new = fd < 0 && errno == ENOENT;
        if (is_new)
            fd = retry([&] { return ::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666); });
        if (fd < 0 && is_new && errno == EEXIST) continue;
        Descriptor owner(fd);
        if (!owner) return nullptr;
        lock_or_leave(fd, path);
        // File systems that number files as they please are believed in the end.
        if (!is_current(fd, path) && round < kRounds) continue;
        File file(::fdopen(fd, is_new ? "w+" : "r+"));
        if (file != nullptr) owner.release();
        return file;
    }
}

char* with_plus(const char* path) {
    const std::size_t n = std::strlen(path);
    char* name = static_cast<char*>(must_malloc(n + 2, "alternate", MORVA_HERE));
    std::memcpy(name, path, n);
    std::memcpy(name + n, "+", 2);
    return name;
}

// ---- values as text

// A variable that other threads may be writing.
template <class T>
T value_at(const void* address) {
    T value;
    __atomic_load(static_cast<const T*>(address), &value, __ATOMIC_RELAXED);
    return value;
}

void put_relic(Pf* pf, char* name, const Relic& relic) {
    malloced<char> text;
    switch (relic.type) {
        case RELIC_INT: {
            char digits[16];
            std::snprintf(digits, sizeof digits, "%d", value_at<int>(relic.address));
            pfput_string(pf, name, digits);
            break;
        }
        case RELIC_DOUBLE: {
            char digits[64];
            pfput_string(pf, name, strdbl(digits, value_at<double>(relic.address)));
            break;
        }
        case RELIC_STRING: {
            const char* string = value_at<const char*>(relic.address);
            pfput_string(pf, name, string != nullptr ? string : "");
            break;
        }
        case RELIC_TIME:
            // In UTC, whatever the zone of the process: it reads back as the same instant.
            text.reset(zepoch2str(kTimeFormat, "UTC", value_at<double>(relic.address)));
            pfput_string(pf, name, text.get() + std::strspn(text.get(), " "));
            break;
        default:
            break;
    }
}

OwnedTree values_of(const Grave& dead) {
    OwnedTree pf(pfnew(PFFILE));
    if (dead.mortician != nullptr) dead.mortician(pf.get());
    Tbl* names = keysarr(dead.relics);
    for (long i = 0; i < maxtbl(names); ++i) {
        char* name = static_cast<char*>(gettbl(names, i));
        put_relic(pf.get(), name, *static_cast<Relic*>(getarr(dead.relics, name)));
    }
    freetbl(names, nullptr);
    return pf;
}

// The text of the tree; in other forms of the grammar where the plain ones would not read back.
malloced<char> text_of(Pf* pf) {
    malloced<char> plain(pf2string(pf));
    Pf* back = nullptr;
    const int mark = elog_mark();
    const bool same = pfcompile(plain.get(), &back) == 0 && pfcmp(pf, back) == 0;
    const OwnedTree owner(back);
    elog_flush(0, mark);
    if (same) return plain;
    pf::Output sure(MORVA_HERE);
    String refusal;
    return pf::put_sure(sure, pf, &refusal) ? malloced<char>(sure.release()) : std::move(plain);
}

// ---- the burial

// Why a burial failed; told when the lock is free again.
struct Failure {
    enum Step { kNone, kOpen, kWrite, kClose, kRename } step = kNone;
    int error = 0;
    long written = 0, wanted = 0;
};

bool cut(int fd, std::size_t length) {
    return retry([&] { return ::ftruncate(fd, static_cast<off_t>(length)); }) == 0;
}

bool write_text(int fd, std::string_view text, Failure& failure) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n =
            retry([&] { return ::write(fd, text.data() + written, text.size() - written); });
        if (n <= 0) break;
        written += static_cast<std::size_t>(n);
    }
    if (written == text.size() && cut(fd, written)) return true;
    failure = {Failure::kWrite, errno, static_cast<long>(written), static_cast<long>(text.size())};
    return false;
}

// The folder of the file, on the disk: the new name survives a loss of power.
void sync_folder(const char* path) {
    const char* slash = std::strrchr(path, '/');
    const String folder =
        slash == nullptr ? String(".") : String(path, slash == path ? 1 : slash - path);
    const Descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd) ::fsync(fd.get());
}

// Replaces the state file. The new one is locked before it takes the name, and the old one stays
// locked until then: at no instant is there a file of this name that another process could lock.
bool replace_state(Grave& dead, std::string_view text, Failure& failure) {
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW;
    Descriptor fd(retry([&] { return ::open(dead.alternate, kFlags, 0664); }));
    if (!fd) {
        failure = {Failure::kOpen, errno};
        return false;
    }
    if (!write_text(fd.get(), text, failure)) return false;
    if (retry([&] { return ::fsync(fd.get()); }) != 0 && errno != EINVAL) {
        failure = {Failure::kClose, errno};
        return false;
    }
    lock(fd.get());
    if (::rename(dead.alternate, dead.path) != 0) {
        failure = {Failure::kRename, errno};
        return false;
    }
    sync_folder(dead.path);
    if (FILE* file = ::fdopen(fd.get(), "r+")) {
        fd.release();
        std::fclose(std::exchange(dead.file, file));
    }
    return true;
}

void complain(const Failure& failure, const char* alternate, const char* path) {
    errno = failure.error;
    switch (failure.step) {
        case Failure::kNone:
            break;
        case Failure::kOpen:
            elog_complain(1, "Can't write alternate state file %s", alternate);
            break;
        case Failure::kWrite:
            elog_complain(1, "Wrote %ld bytes to alternate state file %s instead of %ld",
                          failure.written, alternate, failure.wanted);
            break;
        case Failure::kClose:
            elog_complain(1, "Can't close alternate state file %s", alternate);
            break;
        case Failure::kRename:
            elog_complain(1, "failed to rename state file %s to %s", alternate, path);
            break;
    }
}

int bury_now() {
    log_ready();
    Failure failure;
    String alternate, path;
    {
        const GraveLock lock;
        if (grave == nullptr || lock.disturbed()) return -1;
        std::atomic_ref<int32_t>(grave->pending).store(0);
        const OwnedTree pf = values_of(*grave);
        if (replace_state(*grave, text_of(pf.get()).get(), failure)) return 0;
        alternate = grave->alternate;
        path = grave->path;
    }
    complain(failure, alternate.c_str(), path.c_str());
    return -1;
}

// ---- signals

// Runs in a thread of its own, some time after the signal.
void bury_and_leave() {
    log::end_program();
}

void bury_unless_done() {
    if (grave == nullptr || std::atomic_ref<int32_t>(grave->pending).load() == 0) return;
    bury_now();
    elog_die(1, "quitting from resurrection alarm\n");
}

void on_signal(int signo) {
    const ErrnoSaver keep;
    Grave* dead = grave;
    if (dead == nullptr)
        elog_die(0, "*stack*Unexpected failure: %s in file %s, line %d\n", "no grave",
                 __FILE_NAME__, __LINE__);
    std::atomic_ref<int32_t>(dead->pending).store(1);
    if (dead->signal_flag != nullptr) std::atomic_ref<int32_t>(*dead->signal_flag).store(signo);
    if (dead->wait < 0) return;
    const bool armed =
        std_set_timer(dead->wait == 0 ? bury_and_leave : bury_unless_done, dead->wait) == 0;
    if (!armed) elog_die(0, "failed to set timer");
    // The interrupted code is not to run on, unless the burial needs something that it holds.
    if (dead->wait == 0 && !GraveLock::held()) ::poll(nullptr, 0, kPatience);
}

Grave* dig(const char* path, int* signal_flag, int wait, Mortician mortician) {
    Grave* made = must_alloc<Grave>(1, "grave", MORVA_HERE);
    made->path = must_strdup(path, "path", MORVA_HERE);
    made->alternate = with_plus(path);
    made->relics = newarr(nullptr);
    made->signal_flag = signal_flag;
    made->wait = wait;
    made->mortician = mortician;
    return made;
}

// Fills the tree from the file; 1, or 2 when there were errors.
int read_state(Grave* made) {
    const int result = pfin(made->file, &made->contents);
    return result == 0 ? 1 : 2;
}

int open_grave(const char* path, int* signal_flag, int wait, Mortician mortician) {
    log_ready();
    const GraveLock lock;
    if (grave != nullptr) return -2;
    bool is_new = false;
    if (port::make_pathdirs(path) != 0) return -1;
    File file = open_state(path, is_new);
    if (file == nullptr) {
        elog_log(1, "Can't open state file %s", path);
        return -1;
    }
    Grave* made = dig(path, signal_flag, wait, mortician);
    made->file = file.release();
    const int result = is_new ? 0 : read_state(made);
    grave = made;
    return result;
}

// The text that the state file had under a name; null when there is none.
const char* saved_text(const char* name) {
    Pf* node = nullptr;
    if (grave->contents == nullptr) return nullptr;
    return _pfeval(grave->contents, name, &node, PFSTRING) == PFSTRING ? node->value.string
                                                                       : nullptr;
}

void restore(const char* text, void* address, int type) {
    switch (type) {
        case RELIC_INT:
            *static_cast<int*>(address) = std::atoi(text);
            break;
        case RELIC_DOUBLE:
            *static_cast<double*>(address) = fix_strtod(text, nullptr);
            break;
        case RELIC_STRING:
            *static_cast<char**>(address) = const_cast<char*>(text);
            break;
        case RELIC_TIME:
            *static_cast<double*>(address) = str2epoch(text);
            break;
        default:
            break;
    }
}

}  // namespace
}  // namespace morva::process

namespace morva::port {

int bury() {
    return process::bury_now();
}

}  // namespace morva::port

using namespace morva::process;

int exhume(const char* path, int* signal_flag, int wait, Mortician mortician) {
    const int result = open_grave(path, signal_flag, wait, mortician);
    if (result == -2) return result;
    if (result >= 0 && signal_flag != nullptr) {
        *signal_flag = 0;
        std_prepare_timer();
        setup_signal_handlers(on_signal);
    }
    errno = 0;
    return result;
}

int resurrect(const char* name, void* address, int type) {
    morva::log_ready();
    const GraveLock lock;
    if (grave == nullptr || lock.disturbed()) return -1;
    const char* text = saved_text(name);
    if (text != nullptr) restore(text, address, type);
    Relic* relic = morva::must_alloc<Relic>(1, "relic", MORVA_HERE);
    *relic = {address, type};
    std::free(setarr(grave->relics, name, relic));
    return text != nullptr ? 0 : 1;
}

int bury() {
    return bury_now();
}

int bury_periodically(double seconds) {
    return periodically(
        "bury", [](void*) { return bury_now() < 0 && grave == nullptr ? 1 : 0; }, nullptr, nullptr,
        seconds);
}

char* gravesite() {
    const GraveLock lock;
    return grave != nullptr ? grave->path : g_custom_path;
}

int custom_gravesite(const char* path) {
    char* copy = path != nullptr ? morva::must_strdup(path, "path", MORVA_HERE) : nullptr;
    const GraveLock lock;
    std::free(std::exchange(g_custom_path, copy));
    return 0;
}
