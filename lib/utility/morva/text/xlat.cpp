// Translation tables.
#include "morva/xlat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>

namespace {

std::span<const Xlat> entries(const Xlat* table, int count) {
    if (table == nullptr || count < 1) return {};
    return {table, static_cast<std::size_t>(count)};
}

template <class Fits>
const Xlat* first(const Xlat* table, int count, Fits fits) {
    const auto all = entries(table, count);
    const auto found = std::find_if(all.begin(), all.end(), fits);
    return found != all.end() ? &*found : nullptr;
}

}  // namespace

extern "C" {

char* xlatnum(int value, const Xlat* table, int count) {
    const Xlat* found = first(table, count, [=](const Xlat& entry) { return entry.num == value; });
    return found != nullptr ? const_cast<char*>(found->name) : nullptr;
}

char* xlatnum_str(int value, char* buffer, int size, const Xlat* table, int count) {
    if (size < 1) return buffer;
    const std::size_t room = static_cast<std::size_t>(size);
    if (const char* name = xlatnum(value, table, count))
        std::snprintf(buffer, room, "%s", name);
    else
        std::snprintf(buffer, room, "* unknown: #%d", value);
    return buffer;
}

int xlatname(const char* name, const Xlat* table, int count) {
    if (name == nullptr) return -1;
    const Xlat* found = first(table, count, [=](const Xlat& entry) {
        return entry.name != nullptr && std::strcmp(entry.name, name) == 0;
    });
    return found != nullptr ? found->num : -1;
}

}  // extern "C"
