// Opens the input as a heap, to read and to change. What was repaired must be consistent, hold what
// is stored in it, and open again without a finding. Salvaging leaves a
// consistent heap. Complaints go to standard error: -close_fd_mask=2 silences them.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva.h"

namespace {

void demand(bool held) {
    if (!held) std::abort();
}

struct File {
    int fd;
    char path[64];

    File(const uint8_t* bytes, size_t size) : fd(::memfd_create("heap", 0)) {
        demand(::write(fd, bytes, size) == static_cast<ssize_t>(size));
        std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    }
    ~File() { ::close(fd); }
};

void demand_consistent(Xheap* heap) {
    Tbl* findings = faultsx(heap);
    demand(maxtbl(findings) == 0);
    freetbl(findings, std::free);
}

long read_all(Xheap* heap) {
    Tbl* names = namesx(heap);
    void* buffer = nullptr;
    int n = 0, size = 0;
    for (long i = 0; i < maxtbl(names); ++i)
        demand(getx(heap, static_cast<char*>(gettbl(names, i)), &buffer, &n, &size) == 0);
    const long count = maxtbl(names);
    std::free(buffer);
    freetbl(names, nullptr);
    return count;
}

void change(Xheap* heap) {
    const std::string data(300, 'd');
    for (const int n : {0, 20, 300, 7}) {
        demand(putx(heap, "new", data.data(), n) == 0);
        demand(putx_safe(heap, "safe", data.data(), n) == 0);
        demand_consistent(heap);
    }
    Tbl* names = namesx(heap);
    if (maxtbl(names) > 0) delx(heap, static_cast<char*>(gettbl(names, 0)));
    freetbl(names, nullptr);
    demand(collapsex(heap) == 0);
    demand_consistent(heap);
}

long opened(const File& file, const char* mode) {
    Xheap* heap = openx(file.path, mode, 64);
    if (heap == nullptr) return 0;
    const long count = read_all(heap);
    if (std::strcmp(mode, "r") != 0) {
        demand_consistent(heap);
        change(heap);
    }
    closex(&heap);
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const File file(bytes, size), broken(bytes, size);
    const long count = opened(file, "r");
    demand(opened(file, "r+") == count);
    opened(file, "r+");
    Xheap* heap = mapx(broken.path, "r+", 64);
    if (heap != nullptr) {
        demand(salvagex(heap) >= 0);
        demand_consistent(heap);
        closex(&heap);
    }
    elog_clear();
    return 0;
}
