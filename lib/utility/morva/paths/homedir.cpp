// Home directories, from the user database.
#include <pwd.h>
#include <skerrows.h>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/paths.h"
#include "paths/cleanpath.hpp"

namespace {

using morva::paths::Cleaned;
using morva::paths::Path;

constexpr std::size_t kFirstRoom = 1024, kMostRoom = std::size_t{1} << 20;

// The room for an entry of the user database, as much as it takes.
int look_up(const char* user, passwd* entry, passwd** found, morva::Vector<char>* room) {
    int error;
    do {
        error = ::getpwnam_r(user, entry, room->data(), room->size(), found);
        if (error == ERANGE && room->size() < kMostRoom) room->resize(2 * room->size());
    } while (error == EINTR || (error == ERANGE && room->size() < kMostRoom));
    return error;
}

}  // namespace

morva::paths::Cleaned morva::paths::append_home(std::string_view user, Path* result) {
    char name[kPathSize];
    if (user.size() >= sizeof name) return Cleaned::kNoHome;
    std::memcpy(name, user.data(), user.size());
    name[user.size()] = '\0';
    if (user.empty() && my_username(name, sizeof name) != 0) return Cleaned::kNoHome;
    passwd entry, *found = nullptr;
    Vector<char> room(kFirstRoom);
    if (look_up(name, &entry, &found, &room) != 0 || found == nullptr) return Cleaned::kNoHome;
    if (*found->pw_dir != '/') return Cleaned::kNoHome;
    return result->append(found->pw_dir) ? Cleaned::kDone : Cleaned::kTooLong;
}

extern "C" char* homedir(const char* user) {
    Path home;
    const Cleaned found = morva::paths::append_home(morva::paths::view(user), &home);
    if (found == Cleaned::kDone) return morva::must_strdup(home.c_str(), "home", MORVA_HERE);
    morva::paths::register_failure(found, user != nullptr ? user : "", home);
    return nullptr;
}
