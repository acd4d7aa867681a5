// The table of zones that the process has read.
//
// Chains of entries that are only ever added to: readers follow them without a lock. An entry's
// zone is replaced when its file has changed; the old one stays, for somebody may be using it. The
// table takes no more than a fixed number of zones, fewer that come from texts than from files, so
// that what arrives from outside cannot make it grow without end; zones beyond are made anew for
// each use.
#include "time/zones.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "skerrows.h"

namespace morva::time {
namespace {

constexpr int kMostFiles = 4096;
constexpr int kMostTexts = 256;
constexpr std::size_t kBuckets = 1 << 10;
constexpr std::size_t kLongestKey = 1023;
constexpr off_t kLargestFile = 1 << 20;
constexpr std::int64_t kSecondsBetweenLooks = 5;
constexpr const char* kSystemZone = "/etc/localtime";

struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::time_t changed = 0;
    bool operator==(const FileId&) const = default;
};

struct KeptZone {
    static void* operator new(std::size_t size) { return must_malloc(size, "zone", MORVA_HERE); }
    static void operator delete(void* zone) { std::free(zone); }
    std::unique_ptr<const Zone> zone;
    FileId file;
    const KeptZone* replaced = nullptr;
};
using Loaded = std::unique_ptr<KeptZone>;

struct Entry {
    Entry(String name, bool file, const KeptZone* kept, std::int64_t now)
        : key(std::move(name)), is_file(file), zone(kept), looked(now) {}
    static void* operator new(std::size_t size) { return must_malloc(size, "zone", MORVA_HERE); }
    static void operator delete(void* entry) { std::free(entry); }
    const String key;
    const bool is_file;
    std::atomic<const KeptZone*> zone;
    std::atomic<std::int64_t> looked;  // at the file
    Entry* next = nullptr;
};

constinit std::atomic<Entry*> table[kBuckets];
constinit std::atomic<int> files_kept;
constinit std::atomic<int> texts_kept;

// The environment may change under another thread's switchTZ: TZDIR is looked at under the lock.
Descriptor open_file(const String& key) {
    const std::lock_guard held(zone_lock());
    return Descriptor(open_timezone(key.c_str()));
}

FileId id_of(const Descriptor& fd) {
    struct stat status;
    if (::fstat(fd.get(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtime};
}

String contents(const Descriptor& fd, off_t size) {
    String bytes(static_cast<std::size_t>(std::min(size, kLargestFile)), '\0');
    std::size_t length = 0;
    while (length < bytes.size()) {
        const ssize_t n =
            retry([&] { return ::read(fd.get(), bytes.data() + length, bytes.size() - length); });
        if (n <= 0) break;
        length += static_cast<std::size_t>(n);
    }
    bytes.resize(length);
    return bytes;
}

Loaded kept(std::unique_ptr<Zone> zone, const FileId& file = {}) {
    if (zone == nullptr) return nullptr;
    Loaded loaded(new KeptZone);
    loaded->zone = std::move(zone);
    loaded->file = file;
    return loaded;
}

Loaded load_file(const String& key) {
    const Descriptor fd = open_file(key);
    if (!fd) return nullptr;
    const FileId file = id_of(fd);
    return kept(read_zone(contents(fd, file.size)), file);
}

Loaded load(const String& key) {
    if (Loaded loaded = load_file(key)) return loaded;
    if (key == "UTC" || key == kSystemZone) return kept(make_zone("UTC", 0));
    if (key == "GMT") return kept(make_zone("GMT", 0));
    const ZoneText text = read_zone_text(key);
    return text.complete ? kept(make_zone(text.rules)) : nullptr;
}

// Multiplicative hashing, eight bytes at a time, of which the last may be hashed twice.
std::atomic<Entry*>& bucket_of(std::string_view key) {
    constexpr std::uint64_t kGolden = 0x9e3779b97f4a7c15;
    std::uint64_t hash = key.size(), word = 0;
    if (key.size() < sizeof word)
        for (const char c : key) hash = (hash ^ static_cast<unsigned char>(c)) * kGolden;
    else
        for (std::size_t i = 0; i < key.size(); i += sizeof word) {
            std::memcpy(&word, key.data() + std::min(i, key.size() - sizeof word), sizeof word);
            hash = (hash ^ word) * kGolden;
        }
    return table[hash >> 54];  // the bits that all others take part in
}

Entry* find(const std::atomic<Entry*>& bucket, std::string_view key) {
    for (Entry* entry = bucket.load(std::memory_order_acquire); entry != nullptr;
         entry = entry->next)
        if (entry->key == key) return entry;
    return nullptr;
}

// Reads the file again if it is another than it was. One thread at a time looks after an entry.
void look_again(Entry& entry) {
    const KeptZone* old = entry.zone.load(std::memory_order_acquire);
    const Descriptor fd = open_file(entry.key);
    if (!fd || id_of(fd) == old->file) return;
    Loaded fresh = load_file(entry.key);
    if (fresh == nullptr) return;
    fresh->replaced = old;
    if (entry.zone.compare_exchange_strong(old, fresh.get(), std::memory_order_acq_rel))
        fresh.release();
}

const Zone* current(Entry& entry) {
    const std::int64_t now = std::time(nullptr);
    std::int64_t looked = entry.looked.load(std::memory_order_relaxed);
    const std::int64_t since = now - looked;
    if ((since >= kSecondsBetweenLooks || since < 0) &&
        entry.looked.compare_exchange_strong(looked, now))
        look_again(entry);
    return entry.zone.load(std::memory_order_acquire)->zone.get();
}

// Adds a zone to the table. Of two threads that add the same, the later one's stays unused.
ZoneRef add(std::atomic<Entry*>& bucket, String key, Loaded loaded) {
    const bool is_text = loaded->file == FileId{};
    std::atomic<int>& count = is_text ? texts_kept : files_kept;
    if (count.fetch_add(1) >= (is_text ? kMostTexts : kMostFiles)) {
        count.fetch_sub(1);
        return ZoneRef(std::move(loaded->zone));
    }
    const Zone* zone = loaded->zone.get();
    auto* entry = new Entry(std::move(key), !is_text, loaded.release(), std::time(nullptr));
    entry->next = bucket.load(std::memory_order_relaxed);
    while (!bucket.compare_exchange_weak(entry->next, entry, std::memory_order_acq_rel)) {
    }
    return ZoneRef(zone);
}

// The zone of a key: a name, a complete POSIX text, or an absolute path.
ZoneRef zone_of(std::string_view key) {
    auto& bucket = bucket_of(key);
    if (Entry* entry = find(bucket, key)) return ZoneRef(current(*entry));
    String name(key);
    Loaded loaded = load(name);
    return loaded != nullptr ? add(bucket, std::move(name), std::move(loaded)) : ZoneRef();
}

std::string_view without_colon(std::string_view name) {
    if (!name.empty() && name.front() == ':') name.remove_prefix(1);
    return name;
}

// The value of TZ, copied: another thread's switchTZ may free it.
class LocalName {
  public:
    LocalName() {
        const std::lock_guard held(zone_lock());
        const char* value = std::getenv("TZ");
        set_ = value != nullptr;
        const std::size_t length = set_ ? ::strnlen(value, kLongestKey) : 0;
        std::copy_n(value, length, text_);
        name_ = without_colon({text_, length});
    }
    bool set() const { return set_; }
    std::string_view name() const { return name_; }

  private:
    bool set_;
    std::string_view name_;
    char text_[kLongestKey];
};

}  // namespace

ZoneRef find_zone(std::string_view name) {
    name = without_colon(name);
    if (name.empty() || name.size() > kLongestKey || name.front() == '/') return ZoneRef();
    return zone_of(name);
}

ZoneRef find_named_zone(std::string_view name) {
    Entry* entry = find(bucket_of(name), name);
    if (entry != nullptr && entry->is_file && name.front() != '/') return ZoneRef(current(*entry));
    return is_timezone(String(name).c_str()) != 0 ? find_zone(name) : ZoneRef();
}

ZoneRef local_zone() {
    const LocalName local;
    if (!local.set()) return zone_of(kSystemZone);
    const std::string_view name = local.name();
    if (name.empty()) return zone_of("UTC");
    // What is no file's name counts as a POSIX text as far as it can be read, as the C library has
    // it. A privileged process opens no files that its user chose.
    const bool may_be_opened = name.front() != '/' || name == kSystemZone || std_is_secure() == 0;
    if (may_be_opened)
        if (ZoneRef zone = zone_of(name)) return zone;
    return ZoneRef(make_zone(read_zone_text(name).rules));
}

ZoneRef zone_or_local(const char* name) {
    if (name == nullptr || *name == '\0' || std::strcmp(name, "LOCAL") == 0) return local_zone();
    if (ZoneRef zone = find_zone(name)) return zone;
    elog_log(0, "Unrecognized timezone '%s'\n", name);
    return local_zone();
}

}  // namespace morva::time
