// Opens the input as a ringlet file, reads every record, and pushes some: they must be there.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "morva.h"

namespace {

void demand(bool held) {
    if (!held) std::abort();
}

void use(Ringlet* ringlet) {
    const auto size = static_cast<size_t>(ringlet->size);
    void* record;
    unsigned sum = 0;
    for (long i = 0; getringlet(ringlet, i, &record) == 0; ++i)
        for (size_t at = 0; at < size; ++at) sum += static_cast<unsigned char*>(record)[at];
    std::vector<char> pushed(size, static_cast<char>(sum));
    for (int i = 0; i < 3; ++i) {
        const long before = countringlet(ringlet);
        pushed[0] = static_cast<char>(i);
        demand(pushringlet(ringlet, pushed.data()) == 0);
        demand(countringlet(ringlet) == (before < ringlet->nslots ? before + 1 : before));
        demand(getringlet(ringlet, 0, &record) == 0);
        demand(std::memcmp(record, pushed.data(), size) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const int fd = ::memfd_create("ringlet", 0);
    if (::ftruncate(fd, static_cast<off_t>(size)) != 0 ||
        ::pwrite(fd, bytes, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    if (Ringlet* ringlet = openringlet(path, 0, 0)) {
        use(ringlet);
        closeringlet(ringlet);
    }
    elog_clear();
    return 0;
}
