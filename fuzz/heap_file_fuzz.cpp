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

// One file for all runs: to make and to remove one takes longer than all that is done to it.
class File {
  public:
    File() : fd_(::memfd_create("heap", 0)) {
        std::snprintf(path_, sizeof path_, "/proc/self/fd/%d", fd_);
    }
    const char* holding(const uint8_t* bytes, size_t size) const {
        demand(::ftruncate(fd_, 0) == 0);
        demand(::pwrite(fd_, bytes, size, 0) == static_cast<ssize_t>(size));
        return path_;
    }

  private:
    int fd_;
    char path_[64];
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
    static const std::string data(300, 'd');
    for (const int n : {0, 20, 300, 7}) {
        demand(putx(heap, "new", data.data(), n) == 0);
        demand(putx_safe(heap, "safe", data.data(), n) == 0);
    }
    demand_consistent(heap);
    Tbl* names = namesx(heap);
    if (maxtbl(names) > 0) delx(heap, static_cast<char*>(gettbl(names, 0)));
    freetbl(names, nullptr);
    demand(collapsex(heap) == 0);
}

long opened(const char* path, const char* mode, void (*then)(Xheap*)) {
    Xheap* heap = openx(path, mode, 64);
    if (heap == nullptr) return 0;
    if (std::strcmp(mode, "r") != 0) demand_consistent(heap);
    const long count = read_all(heap);
    if (then != nullptr) then(heap);
    closex(&heap);
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const File file;
    const char* path = file.holding(bytes, size);
    const long count = opened(path, "r", nullptr);
    demand(opened(path, "r+", change) == count);
    opened(path, "r+", nullptr);
    Xheap* heap = mapx(file.holding(bytes, size), "r+", 64);
    if (heap != nullptr) {
        demand(salvagex(heap) >= 0);
        demand_consistent(heap);
        closex(&heap);
    }
    elog_clear();
    return 0;
}
