// verifytbl: whether a list still obeys the rules of its record.
#include <sys/stat.h>

#include "base/diagnostics.hpp"
#include "containers/tbl_internal.hpp"
#include "morva/tbl.h"

namespace morva::list {
namespace {

struct Rule {
    const char* broken;  // what is wrong when the rule does not hold
    bool (*holds)(const Tbl* tbl);
};

// Bytes of the block, or a negative number when no block can be so large.
int64_t block_size(const Tbl* tbl) {
    int64_t slots = 0, bytes = 0;
    const bool overflow = __builtin_sub_overflow(tbl->alloc_end, tbl->first, &slots) ||
                          __builtin_mul_overflow(slots, int64_t{tbl->itemsize}, &bytes);
    return overflow ? -1 : bytes;
}

constexpr Rule kRules[] = {
    {"item size below 1", [](const Tbl* tbl) { return tbl->itemsize >= 1; }},
    {"indirect, but not with items of pointer size",
     [](const Tbl* tbl) { return tbl->direct || tbl->itemsize == kPointerSize; }},
    {"first above 0", [](const Tbl* tbl) { return tbl->first <= 0; }},
    {"count below 0", [](const Tbl* tbl) { return tbl->count >= 0; }},
    {"more items than slots", [](const Tbl* tbl) { return tbl->count <= tbl->alloc_end; }},
    {"more slots than memory", [](const Tbl* tbl) { return block_size(tbl) >= 0; }},
    {"slots without a block",
     [](const Tbl* tbl) { return tbl->base != nullptr || block_size(tbl) == 0; }},
};

constexpr Rule kMemoryRules[] = {
    {"fields of a file in a list in memory",
     [](const Tbl* tbl) { return tbl->maplen == 0 && tbl->fd == -1 && tbl->mode == 0; }},
    {"increment below 1",
     [](const Tbl* tbl) { return tbl->left_increment >= 1 && tbl->right_increment >= 1; }},
};

bool inside(const Tbl* tbl, const char* from, int64_t bytes) {
    const int64_t start = from - tbl->mapaddr;
    return start >= 0 && bytes <= tbl->maplen && start <= tbl->maplen - bytes;
}

bool file_is_as_long(const Tbl* tbl) {
    struct stat status;
    return ::fstat(tbl->fd, &status) == 0 && status.st_size >= tbl->maplen;
}

constexpr Rule kFileRules[] = {
    {"neither read-only nor writable",
     [](const Tbl* tbl) { return read_only(tbl) || tbl->mode == (kReadable | kWritable); }},
    {"an indirect list in a file", [](const Tbl* tbl) { return tbl->direct != 0; }},
    {"file shorter than its mapping", file_is_as_long},
    {"magic overwritten",
     [](const Tbl* tbl) { return std::memcmp(tbl->mapaddr, kMagic, sizeof kMagic) == 0; }},
    {"null value outside the file",
     [](const Tbl* tbl) {
         return tbl->null_value == nullptr || inside(tbl, tbl->null_value, tbl->itemsize);
     }},
    {"slots outside the file",
     [](const Tbl* tbl) { return inside(tbl, block_of(tbl), block_size(tbl)); }},
};

template <std::size_t N>
bool obeys(const Tbl* tbl, const Rule (&rules)[N]) {
    for (const Rule& rule : rules) {
        if (rule.holds(tbl)) continue;
        elog_log(0, "verifytbl: %s\n", rule.broken);
        return false;
    }
    return true;
}

}  // namespace
}  // namespace morva::list

extern "C" int verifytbl(Tbl* tbl) {
    using namespace morva::list;
    if (tbl == nullptr) {
        elog_log(0, "verifytbl: no list\n");
        return -1;
    }
    const bool good =
        obeys(tbl, kRules) && (in_file(tbl) ? obeys(tbl, kFileRules) : obeys(tbl, kMemoryRules));
    return good ? 0 : -1;
}
