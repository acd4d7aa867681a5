// Heaps checked and listed.
#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "base/diagnostics.hpp"
#include "morva/files.h"
#include "shared/xheap.hpp"

namespace {

using namespace morva::heap;

// ---- checking

class Findings {
  public:
    explicit Findings(Xheap* heap) : heap_(heap) {}

    Tbl* all() {
        if (heap_ == nullptr) {
            add("heap pointer is null");
            return list_;
        }
        settle(heap_);
        check_file();
        check_lists();
        return list_;
    }

  private:
    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...) {
        char text[200];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        pushtbl(list_, morva::must_strdup(text, "finding", MORVA_HERE));
    }

    void check_named(const Seen& seen) {
        if (!seen.fits()) {
            add("too much data (%ld bytes) for size (%d bytes)",
                static_cast<long>(seen.need() - kHeaderSize), seen.header.size);
            return;
        }
        const Entry* known = seen.name_ends() ? find(heap_, seen.name_text()) : nullptr;
        if (known == nullptr || known->address != seen.at)
            add("no name for entry at %p", static_cast<void*>(seen.at));
        else if (!seen.is_right())
            add("crc failed for entry at %p", static_cast<void*>(seen.at));
    }

    void check_file() {
        int64_t sum = 0;
        for_each_seen(heap_, [&](const Seen& seen) {
            if (seen.broken) return;
            sum += seen.header.size;
            if (seen.is_named())
                check_named(seen);
            else if (seen.header.size > kHeaderSize && *seen.name() != '\0')
                add("free entry at %p has name", static_cast<void*>(seen.at));
        });
        if (sum != heap_->length)
            add("sum of entry bytes (%d) != file size (%d)", static_cast<int>(sum), heap_->length);
    }

    void check_lists() {
        morva::Vector<Entry*> entries = by_address(heap_);
        int64_t used = 0, free = 0;
        for (const Entry* entry : entries) used += entry->size;
        for (Entry* entry : morva::tbl_pointers<Entry>(heap_->free_list)) {
            free += entry->size;
            entries.push_back(entry);
        }
        std::sort(entries.begin(), entries.end(),
                  [](const Entry* a, const Entry* b) { return a->address < b->address; });
        const char* end = heap_->address;
        for (const Entry* entry : entries) {
            if (entry->address > end)
                add("unreferenced space before %p", static_cast<void*>(entry->address));
            end = entry->address + entry->size;
        }
        if (used + free != heap_->length)
            add("%d used + %d free != %d file size!!!", static_cast<int>(used),
                static_cast<int>(free), heap_->length);
    }

    Xheap* heap_;
    Tbl* list_ = newtbl(0);
};

// ---- listing

constexpr int kShownText = 64 + 1;

void show_named(const Xheap* heap, const Seen& seen, bool data) {
    const long offset = seen.at - heap->address;
    const std::string_view name = seen.name_text();
    std::printf("   %8ld %8d %8d %.*s", offset, seen.header.size, seen.header.data_length,
                static_cast<int>(name.size()), name.data());
    char text[kShownText];
    if (data && seen.header.data_length > 0)
        std::printf(" => %s",
                    printable_string(seen.data(), seen.header.data_length, text, sizeof text));
    std::printf("\n");
}

int show(Xheap* heap, bool data) {
    if (heap == nullptr) return 0;
    int64_t used = 0, free = 0;
    std::printf("    Offset  EntrySize DataSize Name\n");
    for_each_seen(heap, [&](const Seen& seen) {
        const bool named = !seen.broken && seen.fits();
        (named ? used : free) += seen.header.size;
        if (named)
            show_named(heap, seen, data);
        else
            std::printf("   %8ld %8d **free**\n", static_cast<long>(seen.at - heap->address),
                        seen.header.size);
    });
    if (used == 0) std::printf("\nNo entries with data\n");
    if (free == 0) std::printf("\nNo free entries\n");
    std::printf("\nTotal = %d bytes used=%d  free=%d\n\n", heap->length, static_cast<int>(used),
                static_cast<int>(free));
    return 0;
}

}  // namespace

extern "C" {

Tbl* faultsx(Xheap* heap) {
    return Findings(heap).all();
}

int verifyx(Xheap* heap) {
    Tbl* findings = faultsx(heap);
    const bool consistent = maxtbl(findings) == 0;
    for (const char* finding : morva::tbl_pointers<char>(findings)) elog_complain(0, "%s", finding);
    freetbl(findings, std::free);
    return consistent ? 0 : -1;
}

int showx(Xheap* heap) {
    return show(heap, true);
}

int xheapshowlist(Xheap* heap) {
    return show(heap, false);
}

}  // extern "C"
