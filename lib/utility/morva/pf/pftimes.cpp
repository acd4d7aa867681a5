// Watching files: pftimes, and the two ways of telling that nothing has changed. A Watch that holds
// costs one stat for each place and is enough as long as times can be trusted; otherwise the lists
// of pftimes are compared, and contents where necessary. No state, no locks.
#include "pf/pftimes.hpp"

#include <skerrows.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/posix.hpp"
#include "morva/files.h"
#include "pf/pfsearch.hpp"

namespace morva::pf {
namespace {

constexpr int64_t kSecond = 1'000'000'000;

int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

void take_status(const struct stat& status, Pftime* record) {
    const timespec& modified = status.st_mtim;
    record->mtime =
        static_cast<double>(modified.tv_sec) + static_cast<double>(modified.tv_nsec) / 1e9;
    record->modified_ns = nanoseconds(modified);
    record->changed_ns = nanoseconds(status.st_ctim);
    record->size = status.st_size;
    record->device = status.st_dev;
    record->inode = status.st_ino;
}

// As stat: 0 or the error.
int examine(const char* path, Pftime* record) {
    struct stat status;
    if (restat(path, &status) != 0) return errno;
    take_status(status, record);
    return 0;
}

bool same_status(const Pftime& a, const Pftime& b) {
    return a.modified_ns == b.modified_ns && a.size == b.size && a.changed_ns == b.changed_ns &&
           a.device == b.device && a.inode == b.inode;
}

// File systems stamp with the time of their last tick: a hundredth of a second ago at most, or up
// to two seconds where they keep no fractions. What is written within the tick changes no time.
int64_t tick(const Pftime& file) {
    return file.changed_ns % kSecond == 0 ? 2 * kSecond : kSecond / 20;
}

bool is_settled(const Pftime& file, double when) {
    return when - static_cast<double>(file.changed_ns) / 1e9 >
           static_cast<double>(tick(file)) / 1e9;
}

// Whether the time of modification was set on purpose: writing leaves both times within a tick. As
// a difference of unsigned numbers, so that times of any age or of the future do no harm.
bool is_time_set(const Pftime& file) {
    const auto modified = static_cast<uint64_t>(file.modified_ns);
    return static_cast<uint64_t>(file.changed_ns) - modified > static_cast<uint64_t>(tick(file));
}

// The FNV-1a hash (Fowler, Noll, Vo) of the bytes. Of anything but a readable regular file: 0.
uint64_t digest(const char* path) {
    if (!is_file(path)) return 0;
    const Descriptor fd(retry([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    if (!fd) return 0;
    uint64_t hash = 0xcbf29ce484222325;
    unsigned char block[32768];
    ssize_t n;
    while ((n = retry([&] { return ::read(fd.get(), block, sizeof block); })) > 0)
        for (ssize_t i = 0; i < n; ++i) hash = (hash ^ block[i]) * 0x100000001b3;
    return hash;
}

// Calls `visit` with each place where a file of the name may be; see paths::visit_readable.
template <class Visit>
void visit_places(const char* name, const String& path, Visit visit) {
    const Name parts(name);
    if (*parts.base() == '\0') return;
    const paths::SearchPath search(path.c_str(), true);
    paths::visit_readable(search.view(), {}, parts.base(),
                          [&](const paths::Path& place) { return visit(place.c_str()); });
    if (*parts.file() != '\0') visit(parts.file());
}

}  // namespace

void digest_contents(Tbl* times) {
    for (long i = 0; i < tbl_count(times); ++i)
        time_item(times, i).content = digest(time_item(times, i).name);
}

bool same_files(const Tbl* before, Tbl* now, double taken) {
    if (tbl_count(before) != tbl_count(now)) return false;
    for (long i = 0; i < tbl_count(now); ++i) {
        const Pftime& old = time_item(before, i);
        Pftime& file = time_item(now, i);
        if (std::strcmp(old.name, file.name) != 0 || old.modified_ns != file.modified_ns)
            return false;
        const bool certain =
            is_time_set(file) || (same_status(old, file) && is_settled(old, taken));
        file.content = certain ? old.content : digest(file.name);
        if (file.content != old.content) return false;
    }
    return true;
}

Watch Watch::look(const char* name) {
    Watch watch;
    watch.when_ = std_now();
    watch.path_ = search_path();
    watch.fixed_ = !watch.path_.empty() && watch.path_.find_first_of("$~") == String::npos;
    visit_places(name, watch.path_, [&](const char* path) {
        Place place{path, 0, {}};
        place.error = examine(path, &place.status);
        if (place.error != 0 && place.error != ENOENT) watch.fixed_ = false;
        watch.places_.push_back(place);
        return place.error;
    });
    return watch;
}

bool Watch::is_settled() const {
    return std::all_of(places_.begin(), places_.end(), [&](const Place& place) {
        return place.error != 0 || morva::pf::is_settled(place.status, when_);
    });
}

bool Watch::shows_the_same(const Place& place) {
    Pftime status{};
    const int error = examine(place.path.c_str(), &status);
    return error == place.error && (error != 0 || same_status(status, place.status));
}

bool Watch::holds(const char* name) const {
    if (!is_search_path(path_)) return false;
    if (fixed_) return std::all_of(places_.begin(), places_.end(), shows_the_same);
    std::size_t matched = 0;
    bool same = true;
    visit_places(name, path_, [&](const char* path) {
        same = same && matched < places_.size() && places_[matched].path == path &&
               shows_the_same(places_[matched]);
        return same ? places_[matched++].error : paths::kStop;
    });
    return same && matched == places_.size();
}

}  // namespace morva::pf

extern "C" {

using namespace morva::pf;

Tbl* pftimes(const char* name) {
    Tbl* times = inittbl(0, 0, 1, nullptr, sizeof(Pftime));
    Tbl* files = pffiles(name, 0);
    for (char* file : morva::tbl_pointers<char>(files)) {
        Pftime record{};
        if (examine(file, &record) == 0) {
            record.name = file;
            pushtbl(times, &record);
        } else {
            std::free(file);
        }
    }
    freetbl(files, nullptr);
    return times;
}

void freepftime(void* record) {
    if (record != nullptr) std::free(static_cast<Pftime*>(record)->name);
}

}  // extern "C"
