// morva heap: named bytes in shared heaps, read, stored, checked and found again.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "command.hpp"
#include "morva.h"
#include "output.hpp"
#include "records.hpp"

namespace tool {

namespace {

constexpr int kSize = 65536;  // of a new heap

struct Close {
    void operator()(Xheap* heap) const { closex(&heap); }
};
using Heap = std::unique_ptr<Xheap, Close>;

enum class Access { read, change };

bool is_there(const std::string& file) {
    if (is_file(file.c_str())) return true;
    elog_complain(0, "there is no file %s", one_line(file).c_str());
    return false;
}

// Null, with the reason told, when it can't be opened.
Heap opened(Heap heap, const std::string& file) {
    if (!heap) elog_complain(0, "can't open the heap %s", one_line(file).c_str());
    return heap;
}

// A heap that exists.
Heap open_heap(const Arguments& arguments, Access access) {
    const std::string file = arguments.text("FILE");
    if (!is_there(file)) return nullptr;
    return opened(Heap(openx(file.c_str(), access == Access::read ? "r" : "r+", kSize)), file);
}

const Xheap_entry* entry_of(const Heap& heap, const std::string& name) {
    return static_cast<const Xheap_entry*>(getarr(heap->names, name.c_str()));
}

std::string_view data_of(const Xheap_entry* entry) {
    return {entry->data, static_cast<std::size_t>(entry->data_length)};
}

void tell_missing(const std::string& name) {
    elog_complain(0, "the heap has no '%s'", one_line(name).c_str());
}

JsonObject described(const Heap& heap, const std::string& name, const Xheap_entry* entry) {
    JsonObject object;
    object.text("name", name).number("bytes", entry->data_length);
    object.number("offset", entry->address - heap->address).number("size", entry->size);
    return object;
}

int names(const Arguments& arguments) {
    const Heap heap = open_heap(arguments, Access::read);
    if (!heap) return kUnusable;
    const bool sizes = arguments.has("--long");
    const Records all(namesx(heap.get()), nullptr);
    for (long i = 0; i < all.size(); ++i) {
        const std::string name = all.at<char>(i);
        const Xheap_entry* entry = entry_of(heap, name);
        char bytes[24] = "";
        if (sizes) std::snprintf(bytes, sizeof bytes, "%10d  ", entry->data_length);
        print(arguments.has("--json") ? described(heap, name, entry).str() + "\n"
                                      : bytes + one_line(name) + "\n");
    }
    return finish(kDone);
}

int get(const Arguments& arguments) {
    const Heap heap = open_heap(arguments, Access::read);
    if (!heap) return kUnusable;
    const std::string name = arguments.text("NAME");
    const Xheap_entry* entry = entry_of(heap, name);
    if (entry == nullptr) {
        tell_missing(name);
        return finish(kFindings);
    }
    if (arguments.has("--json"))
        print(described(heap, name, entry).text("data", data_of(entry)).str() + "\n");
    else if (arguments.has("--hex"))
        print(owned(hexdump_string("", entry->data, entry->data_length)));
    else
        print(data_of(entry));
    return finish(kDone);
}

// The bytes to store; false, with the reason told, when they can't be read.
bool read_data(const Arguments& arguments, std::string& data) {
    if (arguments.has("DATA")) {
        data = arguments.text("DATA");
        return true;
    }
    const std::string file = arguments.text("--from", "-");
    std::ifstream stream;
    if (file != "-") stream.open(file, std::ios::binary);
    std::istream& from = file == "-" ? std::cin : stream;
    if (stream || file == "-") data.assign(std::istreambuf_iterator<char>(from), {});
    if (!from.bad() && (stream || file == "-") && data.size() <= INT32_MAX) return true;
    elog_complain(0, "can't read %s", one_line(file).c_str());
    return false;
}

int put(const Arguments& arguments) {
    const std::string file = arguments.text("FILE"), name = arguments.text("NAME");
    std::string data;
    if (!read_data(arguments, data)) return kUnusable;
    const int size = std::stoi(arguments.text("--size", std::to_string(kSize)));
    const Heap heap = opened(Heap(openx(file.c_str(), "r+", std::max(size, 16))), file);
    if (!heap) return kUnusable;
    if (putx_safe(heap.get(), name.c_str(), data.data(), static_cast<int>(data.size())) != 0) {
        elog_complain(0, "can't store '%s'", one_line(name).c_str());
        return kUnusable;
    }
    if (arguments.has("--json")) print(described(heap, name, entry_of(heap, name)).str() + "\n");
    return finish(kDone);
}

int rm(const Arguments& arguments) {
    const Heap heap = open_heap(arguments, Access::change);
    if (!heap) return kUnusable;
    int status = kDone;
    for (const std::string& name : arguments.texts("NAME")) {
        const bool there = entry_of(heap, name) != nullptr;
        delx(heap.get(), name.c_str());
        if (arguments.has("--json")) {
            JsonObject object;
            print(object.text("name", name).boolean("removed", there).str() + "\n");
        }
        if (there) continue;
        tell_missing(name);
        status = kFindings;
    }
    return finish(status);
}

// What opening a heap complains of is told on standard error, what is left is printed.
int verify(const Arguments& arguments) {
    const Heap heap = open_heap(arguments, Access::read);
    if (!heap) return kUnusable;
    const int mark = elog_mark();
    const Records findings(faultsx(heap.get()), std::free);
    elog_flush(1, mark);
    for (long i = 0; i < findings.size(); ++i) {
        JsonObject object;
        const std::string text = one_line(findings.at<char>(i));
        print(arguments.has("--json") ? object.text("finding", text).str() + "\n" : text + "\n");
    }
    return finish(findings.size() > 0 ? kFindings : kDone);
}

struct Space {
    long entries = 0, used = 0, data = 0, gaps = 0, free = 0, largest = 0;
};

Space space_of(const Heap& heap) {
    Space space;
    const Records entries(valsarr(heap->names), nullptr);
    for (long i = 0; i < entries.size(); ++i) {
        const auto* entry = entries.at<Xheap_entry>(i);
        ++space.entries;
        space.used += entry->size;
        space.data += entry->data_length;
    }
    for (long i = 0; i < maxtbl(heap->free_list); ++i) {
        const auto* gap = static_cast<Xheap_entry*>(gettbl(heap->free_list, i));
        ++space.gaps;
        space.free += gap->size;
        space.largest = std::max<long>(space.largest, gap->size);
    }
    return space;
}

void print_space(const Heap& heap, bool json) {
    const Space space = space_of(heap);
    const struct {
        const char* key;
        const char* words;
        long value;
    } rows[] = {{"length", "bytes in the file", heap->length},
                {"entries", "entries with a name", space.entries},
                {"used", "bytes in them", space.used},
                {"data", "bytes of data", space.data},
                {"gaps", "free entries", space.gaps},
                {"free", "bytes in them", space.free},
                {"largest", "bytes in the largest", space.largest}};
    JsonObject object;
    for (const auto& row : rows) {
        char line[64];
        std::snprintf(line, sizeof line, "%12ld  %s\n", row.value, row.words);
        if (json)
            object.number(row.key, row.value);
        else
            print(line);
    }
    if (json) print(object.str() + "\n");
}

int stats(const Arguments& arguments) {
    const Heap heap = open_heap(arguments, Access::read);
    if (!heap) return kUnusable;
    print_space(heap, arguments.has("--json"));
    return finish(kDone);
}

int compact(const Arguments& arguments) {
    const Heap heap = open_heap(arguments, Access::change);
    if (!heap || collapsex(heap.get()) != 0) return kUnusable;
    if (arguments.has("--json")) print_space(heap, true);
    return finish(kDone);
}

int salvage(const Arguments& arguments) {
    const std::string file = arguments.text("FILE");
    if (!is_there(file)) return kUnusable;
    const Heap heap = opened(Heap(mapx(file.c_str(), "r+", kSize)), file);
    if (!heap) return kUnusable;
    const long found = salvagex(heap.get());
    const Space space = space_of(heap);
    if (arguments.has("--json")) {
        JsonObject object;
        print(object.number("found", found).number("entries", space.entries).str() + "\n");
    } else {
        print(std::to_string(space.entries) + " entries, " + std::to_string(found) +
              " of them found again\n");
    }
    return finish(kDone);
}

constexpr Parameter kFile = {"FILE", Takes::file, "a heap file"};
constexpr Parameter kName = {"NAME", Takes::text, "the name of an entry"};
constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON, an object a line"};

constexpr Parameter kNames[] = {
    kFile, {"-l,--long", Takes::nothing, "print the bytes of data of each, too"}, kJson};
constexpr Parameter kGet[] = {
    kFile, kName, {"-x,--hex", Takes::nothing, "print the bytes in hex"}, kJson};
constexpr Parameter kPut[] = {
    kFile,
    kName,
    {"DATA", Takes::text, "what to store, instead of standard input", "", Given::optional},
    {"-f,--from", Takes::file, "store what is in a file; - is standard input", "PATH"},
    {"-s,--size", Takes::count, "bytes of a heap that is made; 65536 when not given", "BYTES"},
    kJson};
constexpr Parameter kRm[] = {
    kFile, {"NAME", Takes::text, "names of entries", "", Given::many}, kJson};
constexpr Parameter kPlain[] = {kFile, kJson};

constexpr Command kCommands[] = {
    {"names", "list the names", "", kNames, names},
    {"get", "print the data of an entry", "Ends with 1 when there is no such name.", kGet, get},
    {"put", "store data under a name",
     "A missing heap is made. Whatever happens, the old data or the new are there.\n\n"
     "    morva heap put facts station AAK\n"
     "    date | morva heap put facts started",
     kPut, put},
    {"rm", "remove entries", "Ends with 1 when a name is missing.", kRm, rm},
    {"verify", "check a heap without changing it",
     "Ends with 1 when anything is inconsistent; any other command that changes a heap repairs\n"
     "it first, by dropping what is damaged.",
     kPlain, verify},
    {"compact", "move all entries together", "Only while no program has the heap open to write.",
     kPlain, compact},
    {"stats", "tell how the space is used", "", kPlain, stats},
    {"salvage", "find entries again behind a wrong size",
     "Opening such a heap to write drops them for good: salvage a damaged heap first.", kPlain,
     salvage}};

}  // namespace

const Group heap_group = {"heap", "named bytes in shared heaps",
                          "Heaps are files that programs map; docs/formats/heap.md draws them.",
                          kCommands};

}  // namespace tool
