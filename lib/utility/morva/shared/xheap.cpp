// Heaps: entries stored and fetched. docs/formats/heap.md draws the layout.
//
// A new entry is written into a free one, and is one itself from the store of its header on.
#include "morva/xheap.h"

#include <algorithm>
#include <climits>
#include <memory>

#include "base/diagnostics.hpp"
#include "shared/xheap.hpp"

namespace {

using namespace morva::heap;
using morva::malloced;

struct Value {
    const void* data;
    int32_t n;
};

bool lies_in(const Xheap* heap, const void* address) {
    const auto begin = reinterpret_cast<uintptr_t>(heap->address);
    return reinterpret_cast<uintptr_t>(address) - begin < static_cast<uintptr_t>(heap->length);
}

void move_bytes(char* to, const void* from, int32_t n) {
    if (n > 0) std::memmove(to, from, static_cast<std::size_t>(n));
}

// Sets the record's name and data up for what is to be stored.
void set_record(Entry* entry, std::string_view name, Value value) {
    entry->name = entry->address + kHeaderSize;
    entry->data = entry->name + name.size() + 1;
    entry->data_length = value.n;
}

// The header that makes the entry that of its name and of the value. The value is read where it
// comes from: what has just been stored is slow to read back.
Header header_of(const Entry* entry, Value value) {
    uint32_t crc = entry->name_crc;
    vk_crc32(&crc, value.data, value.n);
    return {entry->size, static_cast<int32_t>(entry->data - entry->name), value.n, crc};
}

// The part of the CRC that is the name's, kept for the next value.
uint32_t crc_of_name(std::string_view name) {
    return crc_of(name.data(), static_cast<int32_t>(name.size() + 1));
}

// Writes a new value over the old one. Whoever looks meanwhile finds a wrong CRC.
void overwrite(Entry* entry, std::string_view name, Value value) {
    if (entry->name_crc == 0) entry->name_crc = crc_of_name(name);
    set_record(entry, name, value);
    const Header header = header_of(entry, value);
    move_bytes(entry->data, value.data, value.n);
    store_header(entry->address, header);
}

// Turns an entry that was taken from the free list into a named one.
void publish(Entry* entry, const morva::String& name, Value value) {
    entry->name_crc = crc_of_name(name);
    set_record(entry, name, value);
    std::memcpy(entry->name, name.c_str(), name.size() + 1);
    move_bytes(entry->data, value.data, value.n);
    store_header(entry->address, header_of(entry, value));
}

// Data and name that lie in the heap or its lists must outlive what is done to make room.
class Kept {
  public:
    Kept(const Xheap* heap, std::string_view name, Value value) : name_(name), value_(value) {
        if (value.n == 0 || !lies_in(heap, value.data)) return;
        copy_.reset(static_cast<char*>(
            morva::must_malloc(static_cast<std::size_t>(value.n), "data", MORVA_HERE)));
        move_bytes(copy_.get(), value.data, value.n);
        value_.data = copy_.get();
    }
    const morva::String& name() const { return name_; }
    Value value() const { return value_; }

  private:
    morva::String name_;
    Value value_;
    malloced<char> copy_;
};

// The length is taken once: a name may lie in the mapping, which another process may cut off.
std::string_view view_of(const char* name) {
    return name != nullptr ? std::string_view(name) : std::string_view();
}

constexpr int64_t need_of(std::string_view name, int64_t n) {
    return static_cast<int64_t>(name.size()) + kHeaderSize + 1 + n;
}

// The space for the value; 0, with the reason registered, when it cannot be stored.
int32_t checked_need(Xheap* heap, std::string_view name, Value value) {
    if (!may_store(heap)) return 0;
    settle(heap);
    const int64_t need = need_of(name, value.n);
    const char* wrong = nullptr;
    if (name.data() == nullptr)
        wrong = "it has no name";
    else if (value.n < 0)
        wrong = "its length is negative";
    else if (value.n > 0 && value.data == nullptr)
        wrong = "there are no data";
    else if (need > INT32_MAX - kHeaderSize)
        wrong = "it is too long";
    if (wrong == nullptr) return static_cast<int32_t>(need);
    elog_log(0, "Can't store '%.100s' in the heap '%s': %s\n",
             name.data() != nullptr ? name.data() : "", heap->path, wrong);
    return 0;
}

// Stores in a new entry, if there is one, and frees an older one of that name afterwards.
int store_in(Xheap* heap, Entry* entry, const Kept& kept) {
    if (entry == nullptr) return -1;
    publish(entry, kept.name(), kept.value());
    Entry* old = set_name(heap, kept.name(), entry);
    if (old != nullptr) give_back(heap, old);
    return is_cut(heap) ? -1 : 0;
}

void drop_name(Xheap* heap, const morva::String& name) {
    Entry* entry = take_name(heap, name);
    if (entry != nullptr) give_back(heap, entry);
}

// Space that is had without moving any entry.
Entry* safe_space(Xheap* heap, int32_t need) {
    Entry* entry = unusedx(heap, need, nullptr);
    if (entry != nullptr) return entry;
    return expandx(heap, need) == 0 ? unusedx(heap, need, nullptr) : nullptr;
}

// Hands out a copy in the caller's growable buffer.
void copy_out(Value value, void** buffer, int* n, int* size) {
    if (*buffer == nullptr || *size < value.n) {
        const auto bytes = static_cast<std::size_t>(value.n);
        void* larger = morva::must_calloc(bytes, 1, "*data", MORVA_HERE);
        std::free(*buffer);
        *buffer = larger;
        *size = value.n;
    }
    move_bytes(static_cast<char*>(*buffer), value.data, value.n);
    *n = value.n;
}

bool can_take(void** buffer, const int* n, const int* size) {
    return buffer != nullptr && n != nullptr && size != nullptr;
}

Entry* find_entry(Xheap* heap, const char* name) {
    if (heap == nullptr || name == nullptr) return nullptr;
    settle(heap);
    return find(heap, name);
}

// ---- readers beside a writer

// Copies the data of an entry as it is now: false unless it has the name and the CRC is right for
// the copy.
bool copy_whole(const Xheap* heap, const Entry* entry, const char* name, void** buffer, int* n,
                int* size) {
    const Seen seen = look(heap, entry->address - heap->address);
    const std::size_t length = std::strlen(name) + 1;
    if (seen.broken || !seen.fits()) return false;
    if (static_cast<std::size_t>(seen.header.name_length) < length) return false;
    if (std::memcmp(seen.name(), name, length) != 0) return false;
    copy_out({seen.data(), seen.header.data_length}, buffer, n, size);
    uint32_t crc = crc_of(seen.name(), seen.header.name_length);
    return vk_crc32(&crc, *buffer, *n) == seen.header.crc;
}

}  // namespace

extern "C" {

long reqx(const char* name, int n) {
    return need_of(view_of(name), n);
}

int putx(Xheap* heap, const char* name_text, const void* data, int n) {
    const std::string_view name = view_of(name_text);
    const Value value{data, n};
    const int32_t need = checked_need(heap, name, value);
    if (need == 0) return -1;
    Entry* entry = find(heap, name);
    if (entry != nullptr && entry->size >= need) {
        overwrite(entry, name, value);
        return is_cut(heap) ? -1 : 0;
    }
    const Kept kept(heap, name, value);
    if (entry != nullptr) drop_name(heap, kept.name());
    return store_in(heap, spacex(heap, need), kept);
}

int putx_safe(Xheap* heap, const char* name_text, const void* data, int n) {
    const std::string_view name = view_of(name_text);
    const int32_t need = checked_need(heap, name, {data, n});
    if (need == 0) return -1;
    const Kept kept(heap, name, {data, n});
    return store_in(heap, safe_space(heap, need), kept);
}

int getx(Xheap* heap, const char* name, void** buffer, int* n, int* size) {
    const Entry* entry = find_entry(heap, name);
    if (entry == nullptr || !can_take(buffer, n, size)) return -1;
    copy_out({entry->data, entry->data_length}, buffer, n, size);
    return is_cut(heap) ? -1 : 0;
}

int getxaddr(Xheap* heap, const char* name, void** address, int* n) {
    const Entry* entry = find_entry(heap, name);
    if (entry == nullptr || is_cut(heap)) return -1;
    if (address != nullptr) *address = entry->data;
    if (n != nullptr) *n = entry->data_length;
    return 0;
}

int readx(Xheap* heap, const char* name, void** buffer, int* n, int* size) {
    constexpr int kRefreshments = 10;
    constexpr int kAttempts = 100;
    if (heap == nullptr || name == nullptr || !can_take(buffer, n, size)) return -1;
    const morva::String kept(name);  // the name may be one of the lists' own
    for (int i = 0; i <= kRefreshments; ++i) {
        if (i > 0 && refreshx(heap) != 0) return -1;
        const Entry* entry = find_entry(heap, kept.c_str());
        for (int k = 0; entry != nullptr && k < kAttempts; ++k)
            if (copy_whole(heap, entry, kept.c_str(), buffer, n, size))
                return is_cut(heap) ? -1 : 0;
    }
    return -1;
}

int delx(Xheap* heap, const char* name) {
    if (!may_store(heap)) return -1;
    if (name == nullptr) return 0;
    settle(heap);
    drop_name(heap, name);
    return 0;
}

Tbl* namesx(Xheap* heap) {
    if (heap == nullptr) return keysarr(nullptr);
    settle(heap);
    return keysarr(heap->names);
}

}  // extern "C"
