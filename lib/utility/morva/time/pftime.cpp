// Times in parameter files: above both families, so that neither knows the other.
#include "morva/pftime.h"

#include <fcntl.h>

#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/epoch.h"
#include "morva/pfread.h"
#include "morva/str2epoch.h"
#include "pf/pfget.hpp"
#include "pf/pflex.hpp"

using namespace morva;

namespace {

struct FreeTree {
    void operator()(Pf* pf) const { pffree(pf); }
};
using OwnedTree = std::unique_ptr<Pf, FreeTree>;

constexpr int kNoTime = -1;
constexpr int kTooOld = -2;
constexpr int kUnreadable = -3;
constexpr int kMissing = -4;

// The last of the files on the search path; empty when there is none.
String last_file(const char* name) {
    Tbl* files = pffiles(name, 0);
    String last;
    if (maxtbl(files) > 0) last = static_cast<const char*>(gettbl(files, maxtbl(files) - 1));
    freetbl(files, std::free);
    return last;
}

// Null when the file cannot be read without an error.
OwnedTree read_alone(const char* path) {
    Pf* pf = nullptr;
    const Descriptor fd(retry([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
    const int result = fd ? pf::read_descriptor(fd.get(), path, &pf) : -1;
    OwnedTree tree(pf);
    return result == 0 ? std::move(tree) : nullptr;
}

int check_revision(Pf* pf, const char* path, double required) {
    const malloced<char> after(strdate(required));
    const char* text = pfget_string(pf, "pf_revision_time");
    if (text == nullptr) {
        elog_log(0,
                 "no pf_revision_time in the file '%s', \n\tbut program requires date after %s\n",
                 path, after.get());
        return kNoTime;
    }
    const double revised = str2epoch(text);
    if (revised >= required) return 0;
    const malloced<char> date(strdate(revised));
    elog_log(0,
             "pf_revision_time in the file '%s' has date %s, \n\tbut program requires date after "
             "%s\n",
             path, date.get(), after.get());
    return kTooOld;
}

}  // namespace

extern "C" {

double pfget_time(Pf* pf, const char* path) {
    double result = 0;
    const char* text = pf::text_at(pf, path, &result);
    if (text == nullptr) return result;
    if (is_epoch_string(text, &result) == 0)
        elog_complain(0, "Bad time value '%s' for %s", text, pf::PathName(pf, path).c_str());
    return result;
}

int pfput_time(Pf* pf, char* key, double epoch) {
    const malloced<char> text(zepoch2str("%E (%j) %Y-%m-%d  %H:%M:%S.%s %z %A", "", epoch));
    return pfput_string(pf, key, text.get() + std::strspn(text.get(), " "));
}

int pfrequire(const char* name, const char* date) {
    const String path = last_file(name);
    if (path.empty()) {
        elog_log(0, "can't find parameter file %s", okstr(name));
        return kMissing;
    }
    const OwnedTree pf = read_alone(path.c_str());
    if (pf == nullptr) {
        elog_log(0, "error in parameter file %s", path.c_str());
        return kUnreadable;
    }
    return check_revision(pf.get(), path.c_str(), str2epoch(date));
}

}  // extern "C"
