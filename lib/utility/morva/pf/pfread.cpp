// pfread and pfload: files into trees. No state, and no locks but the reader's own.
#include "pf/pfread.hpp"

#include <cerrno>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "containers/tbl.hpp"
#include "morva/paths.h"
#include "morva/pfread.h"
#include "morva/strings.h"
#include "pf/pf.hpp"
#include "pf/pflex.hpp"

namespace morva::pf {
namespace {

Descriptor open_file(const char* path) {
    return Descriptor(retry([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY); }));
}

// Errors that are the process's own, and will pass.
bool is_passing(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// The root of a tree that goes by the name, whatever its files are called.
Pf* new_root(const char* name) {
    Pf* root = pfnew(PFFILE);
    root->filename = lasting_name(name != nullptr ? name : "");
    return root;
}

int cannot_open(const char* path) {
    if (errno != ENOENT) elog_log(1, "can't open '%s'", path);
    return -1;
}

}  // namespace

Reading read_merged(const char* name, Pf** pf) {
    *pf = new_root(name);
    Reading reading;
    Tbl* files = pffiles(name, 0);
    for (const char* path : tbl_pointers<char>(files)) {
        const Descriptor fd = open_file(path);
        if (!fd && is_passing(errno)) reading.complete = false;
        if (!fd) continue;
        ++reading.opened;
        reading.result += read_descriptor(fd.get(), path, pf);
    }
    freetbl(files, std::free);
    if (cntarr((*pf)->value.arr) == 0) reading.result = -1;
    return reading;
}

}  // namespace morva::pf

extern "C" {

using namespace morva::pf;

int pfread(const char* name, Pf** pf) {
    return read_merged(name, pf).result;
}

int pfload(const char* envname, const char* dir, const char* name, Pf** pf) {
    *pf = new_root(name);
    const morva::malloced<char> path(datapath(envname, dir, name, "pf"));
    if (path == nullptr) {
        elog_log(0, "Can't find parameter file %s/%s\n", dir != nullptr ? dir : "", okstr(name));
        return -1;
    }
    const morva::Descriptor fd = open_file(path.get());
    return fd ? read_descriptor(fd.get(), path.get(), pf) : cannot_open(path.get());
}

}  // extern "C"
