// A stream that is fed random bytes, in random pieces, through every reading call: nothing is lost
// or invented, and the record stays in order.
#include <fcntl.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "morva/bns.h"
#include "morva/elog.h"

namespace {

const uint8_t* g_next;
const uint8_t* g_end;

ssize_t feed(int, void* buffer, size_t length, int) {
    const auto left = static_cast<size_t>(g_end - g_next);
    if (left == 0) return 0;
    const size_t n = std::min({length, left, static_cast<size_t>(1 + (*g_next & 15))});
    std::memcpy(buffer, g_next, n);
    g_next += n;
    return static_cast<ssize_t>(n);
}

void require(bool condition) {
    if (!condition) std::abort();
}

void call(Bns* bns, int operation) {
    char buffer[256];
    switch (operation % 8) {
        case 0:
            bnsget(bns, buffer, operation & 3, (operation >> 2) & 31);
            break;
        case 1:
            bnsget(bns, buffer, BNS_DOUBLE, operation & 31);
            break;
        case 2:
            bnsgetc(bns, buffer, 1 + (operation & 63), operation);
            break;
        case 3:
            bnspeek(bns, "ab");
            break;
        case 4:
            gbnsSync(bns, "abc", operation & 3, 1);
            break;
        case 5:
            bnskeep(bns, operation & 3);
            break;
        case 6:
            bns2buf(bns, buffer, operation & 127);
            break;
        default:
            require(bnsget(bns, nullptr, BNS_LONG, INT32_MAX) == -1);
            break;
    }
    // The register ends a process that keeps fifty reasons.
    elog_clear();
    require(0 <= bns->fp && bns->fp <= bns->lp && bns->lp <= bns->sz);
    require(bns->mark >= -1 && bns->mark <= bns->fp);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int null = ::open("/dev/null", O_RDONLY);
    if (size < 1) return 0;
    const size_t operations = std::min<size_t>(data[0], size - 1);
    const int mark = elog_mark();
    g_next = data + 1 + operations;
    g_end = data + size;
    Bns* bns = bnsnew(null, 8);
    bns->read_routine = feed;
    bnslimit(bns, 1 << 16);
    for (size_t i = 0; i < operations; ++i) call(bns, data[1 + i]);
    bnsfree(bns);
    elog_flush(0, mark);
    return 0;
}
