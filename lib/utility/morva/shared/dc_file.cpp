// The file of controls: made, opened and checked. Without one the sets are in private memory.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/pf.h"
#include "morva/pfread.h"
#include "morva/pfresolve.h"
#include "shared/dynamic_controls.hpp"
#include "skerrows.h"

namespace morva::dc {
namespace {

constexpr int kPrivateSets = 2;
constexpr int kDefaultSets = 20;
constexpr int kMostSets = 1000;
constexpr std::size_t kMostSetsRead = 100000;  // of a file that somebody else made
constexpr char kOldMagic[] = "#FileTbl";
constexpr int kPatience = 100;  // attempts at a lock, a hundredth of a second apart
constexpr int kMoments = 10;    // and looks at a file that is still empty

void name_common(Dcset* first) {
    std::strcpy(first->program, "#common");
}

// ---- making the file

int sets_wanted() {
    constexpr char kKey[] = "maximum_dynamic_control_sets";
    Pf* pf = nullptr;
    const int found = pfread("dynamic_controls_config", &pf);
    const std::unique_ptr<Pf, void (*)(Pf*)> owner(pf, pffree);
    if (found < 0) return kDefaultSets;
    Pf* node = nullptr;
    if (pfresolve(pf, kKey, 0, &node) != PFSTRING) {
        elog_complain(0, "Couldn't find parameter '%s' in dynamic_controls_config.pf", kKey);
        return kDefaultSets;
    }
    const char* text = pfget_string(pf, kKey);
    char* end = nullptr;
    const long value = text != nullptr ? std::strtol(text, &end, 0) : -1;
    if (end != text && value >= 0 && value <= kMostSets) return static_cast<int>(value);
    elog_complain(0, "maximum_dynamic_control_sets of %ld is a bad number, using %d", value,
                  kDefaultSets);
    return kDefaultSets;
}

bool write_sets(int fd, int count) {
    malloced<Dcset> sets(must_alloc<Dcset>(static_cast<std::size_t>(count), "sets", MORVA_HERE));
    for (int i = 0; i < count; ++i) reset(&sets.get()[i]);
    if (count > 0) name_common(sets.get());
    return write_all(fd, sets.get(), static_cast<std::size_t>(count) * sizeof(Dcset)) == 0;
}

// Fills the new file under its lock, so that nobody takes it for an empty one.
int fill(Descriptor& file) {
    if (retry([&] { return ::lockf(file.get(), F_LOCK, 0); }) != 0) {
        elog_log(1, "Can't lock %s", kFile);
        ::unlink(kFile);
        return -1;
    }
    if (!write_sets(file.get(), sets_wanted())) {
        elog_log(1, "Failed constructing %s", kFile);
        ::unlink(kFile);
        return -1;
    }
    if (::close(file.release()) == 0 || errno == EINTR) return 0;
    elog_log(1, "Failed to close %s after construction.", kFile);
    return -1;
}

// ---- opening it

bool lock_patiently(int fd) {
    for (int attempt = 0; attempt < kPatience; ++attempt) {
        if (retry([&] { return ::lockf(fd, F_TLOCK, 0); }) == 0) return true;
        if (errno != EAGAIN && errno != EACCES) return false;
        std_sleep(0.01);
    }
    return false;
}

// The state of a file that may be in the making: its maker has it locked, but for the first moment,
// in which it is empty.
int settled_state(int fd, struct stat& status) {
    for (int attempt = 0;; ++attempt) {
        const bool locked = lock_patiently(fd);
        const int result = ::fstat(fd, &status);
        if (locked) ::lockf(fd, F_ULOCK, 0);
        if (result != 0 || !locked || status.st_size > 0 || attempt == kMoments) return result;
        std_sleep(0.01);
    }
}

// In a process with more rights than its user a file that somebody else may write steers nothing.
bool is_trusted(const struct stat& status) {
    constexpr mode_t kOthers = S_IWGRP | S_IWOTH;
    return !std_is_secure() || (status.st_uid == ::geteuid() && (status.st_mode & kOthers) == 0);
}

// Whether the file can be used.
bool examine(int fd, struct stat& status) {
    if (settled_state(fd, status) != 0) {
        elog_log(1, "fstat failed for '%s'\n", kFile);
        return false;
    }
    if (status.st_size == 0) {
        errno = ENODATA;
        elog_log(1, "'%s' is empty\n", kFile);
    }
    if (!S_ISREG(status.st_mode) || !is_trusted(status)) {
        elog_log(0, "'%s' is no file of one's own\n", kFile);
        return false;
    }
    return status.st_size > 0;
}

// A mapped file of sets, or nothing with the reason registered.
struct Opened {
    Descriptor file;
    Mapping sets;
    explicit operator bool() const { return sets.data() != nullptr; }
    // By reading: the mapping is not guarded yet.
    bool is_old() const {
        char magic[sizeof kOldMagic - 1];
        const ssize_t n = retry([&] { return ::pread(file.get(), magic, sizeof magic, 0); });
        return n == sizeof magic && std::memcmp(magic, kOldMagic, sizeof magic) == 0;
    }
};

Opened map_file() {
    Opened opened;
    opened.file = Descriptor(retry([] { return ::open(kFile, O_RDWR | O_CLOEXEC | O_NONBLOCK); }));
    struct stat status {};
    if (!opened.file) {
        elog_log(1, "Couldn't open %s\n", kFile);
        return {};
    }
    if (!examine(opened.file.get(), status)) return {};
    const auto length = static_cast<std::size_t>(status.st_size);
    void* address =
        ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, opened.file.get(), 0);
    if (address == MAP_FAILED) {
        elog_log(1, "Can't map file %s\n", kFile);
        return {};
    }
    opened.sets = Mapping(address, length);
    return opened;
}

Opened open_file() {
    Opened opened = map_file();
    if (opened && opened.is_old()) {
        opened = {};
        ::unlink(kFile);
        if (dccreate() != 0) return {};
        opened = map_file();
    }
    if (opened && opened.sets.size() < sizeof(Dcset)) {
        elog_log(0, "'%s' is too short for a set of controls\n", kFile);
        return {};
    }
    if (opened && opened.sets.size() % sizeof(Dcset) != 0)
        elog_log(0, "'%s' ends within a set of controls, which is ignored\n", kFile);
    if (opened && opened.sets.size() / sizeof(Dcset) > kMostSetsRead)
        elog_log(0, "'%s' has more sets of controls than the %zu that are used\n", kFile,
                 kMostSetsRead);
    return opened;
}

// Names that other programs are handed must end, whoever wrote the file.
void end_names(Dcset* sets, int count) {
    for (int i = 0; i < count; ++i)
        if (sets[i].program[DC_NAME_SIZE - 1] != '\0') sets[i].program[DC_NAME_SIZE - 1] = '\0';
}

void use_file(Config& dc, Opened opened) {
    dc.length = opened.sets.size();
    dc.count = static_cast<int>(std::min(dc.length / sizeof(Dcset), kMostSetsRead));
    dc.guard = GuardedRange::watch(opened.sets.data(), dc.length);
    dc.first = static_cast<Dcset*>(opened.sets.release());
    dc.fd = opened.file.release();
    end_names(dc.first, dc.count);
}

void use_memory(Config& dc) {
    dc.fd = -1;
    dc.guard = nullptr;
    dc.first = must_alloc<Dcset>(kPrivateSets, "sets", MORVA_HERE);
    dc.count = kPrivateSets;
    dc.length = kPrivateSets * sizeof(Dcset);
    for (int i = 0; i < kPrivateSets; ++i) reset(&dc.first[i]);
    name_common(dc.first);
}

bool file_exists() {
    struct stat status {};
    return ::stat(kFile, &status) == 0;
}

void open_sets(Config& dc) {
    if (std_getenv("NO_DYNAMIC_CONTROLS") == nullptr && file_exists()) {
        Opened opened = open_file();
        if (opened) return use_file(dc, std::move(opened));
        elog_complain(1, "Can't open %s file", kFile);
    }
    if (dc.selected.load() == nullptr) use_memory(dc);
}

}  // namespace

void reset(Dcset* set) {
    static constexpr Dcset kFree = [] {
        Dcset image{};
        image.timestamp = -1.0;
        image.pid = -1;
        image.size = DC_NAMES_SIZE;
        for (int type = 0; type < kTypes; ++type) image.next[type] = kIndexes[type];
        return image;
    }();
    constexpr std::size_t kName = offsetof(Dcset, reserved);
    shared(set->names[1]).store('\0', std::memory_order_release);
    std::memcpy(set->reserved, kFree.reserved, sizeof *set - kName);
    shared(set->program[0]).store('\0', std::memory_order_release);
    std::memset(set->program, 0, kName);
}

namespace {
std::recursive_mutex g_claims;
}

Claim::Claim() : threads_(g_claims) {
    locked_ = config().fd >= 0 && lock_patiently(config().fd);
}

Claim::~Claim() {
    if (locked_) ::lockf(config().fd, F_ULOCK, 0);
}

}  // namespace morva::dc

using namespace morva::dc;

int dccreate() {
    if (file_exists()) return 0;
    morva::Descriptor file(
        morva::retry([] { return ::open(kFile, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0664); }));
    if (file) return fill(file);
    // Somebody else was faster, unless the name is a link that leads nowhere.
    if (errno == EEXIST && file_exists()) return 0;
    elog_log(1, "failed to open %s", kFile);
    return -1;
}

int dcopen(int select) {
    static std::recursive_mutex opening;
    static bool under_way = false;
    Config& dc = config();
    if (dc.selected.load(std::memory_order_acquire) != nullptr) return 0;
    morva::log_ready();
    const std::lock_guard<std::recursive_mutex> lock(opening);
    if (dc.selected.load() != nullptr) return 0;
    if (std::exchange(under_way, true)) {
        // A callback of the register, which was told about the file, looks at a control: it finds
        // private memory, until the opening that it interrupts goes on.
        use_memory(dc);
        dc.selected.store(dc.first, std::memory_order_release);
        return 0;
    }
    open_sets(dc);
    // Other threads see the controls open when the set is selected, not before.
    dc.selected.store(select != 0 ? set_of(dc, nullptr) : dc.first, std::memory_order_release);
    under_way = false;
    return 0;
}
