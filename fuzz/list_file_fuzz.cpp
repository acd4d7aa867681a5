// List files: whatever the bytes, the file is refused with a reason or gives a list that obeys its
// rules, whose items can all be read, and that comes back equal when it is saved and read again.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "morva/elog.h"
#include "morva/tbl.h"

namespace {

std::string path(const char* name) {
    static const std::string folder = [] {
        const char* shared_memory = "/dev/shm/list-fuzz-XXXXXX";
        const char* other = "/tmp/list-fuzz-XXXXXX";
        std::string made = ::access("/dev/shm", W_OK) == 0 ? shared_memory : other;
        return std::string(::mkdtemp(made.data()));
    }();
    return folder + name;
}

void require(bool holds) {
    if (!holds) std::abort();
}

void read_all(Tbl* tbl) {
    require(verifytbl(tbl) == 0);
    unsigned sum = 0;
    for (long i = -1; i <= maxtbl(tbl); ++i) {
        const auto* item = static_cast<const unsigned char*>(gettbl(tbl, i));
        for (int k = 0; item != nullptr && k < tbl->itemsize; ++k) sum += item[k];
    }
    require(sum != 1 || maxtbl(tbl) >= 0);
}

void change(Tbl* tbl) {
    pushtbl(tbl, nullptr);
    unshifttbl(tbl, shifttbl(tbl));
    deltbl(tbl, maxtbl(tbl) / 2);
    read_all(tbl);
}

void save_and_read(Tbl* tbl, const char* label) {
    char* label_again = nullptr;
    require(savetbl(tbl, path("/copy").c_str(), label) == 0);
    Tbl* again = readtbl(path("/copy").c_str(), &label_again, 0);
    require(again != nullptr && cmptbl(tbl, again) == 0);
    require((label == nullptr) == (label_again == nullptr));
    freetbl(again, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string file = path("/list");
    FILE* stream = std::fopen(file.c_str(), "w");
    require(std::fwrite(data, 1, size, stream) == size && std::fclose(stream) == 0);
    for (int writable : {0, 1}) {
        char* label = nullptr;
        Tbl* tbl = readtbl(file.c_str(), &label, writable);
        if (tbl == nullptr) continue;
        read_all(tbl);
        save_and_read(tbl, label);
        // Growth by gigabytes is legal, but not what this target is for.
        const bool modest = tbl->right_increment < 100 && tbl->left_increment < 100;
        if (writable != 0 && modest && tbl->itemsize < 1000) change(tbl);
        freetbl(tbl, nullptr);
    }
    elog_clear_register(0);
    return 0;
}
