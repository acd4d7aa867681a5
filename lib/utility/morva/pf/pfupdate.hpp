// Reloading, for callers that keep the trees themselves.
#pragma once

#include <mutex>

#include "morva/pf.h"

namespace morva::pf {

// Held for the whole of an update.
extern std::mutex g_update_mutex;

// What an update that finds its state by a name and the address of a variable keeps.
struct UpdateState;

struct Update {
    int result;          // as pfupdate's
    Pf* fresh;           // what was read, the caller's; null when nothing was
    UpdateState* state;  // null before the first reading
};

// Reads the files of `name` when they have changed since the last call for the name and variable.
// The mutex is held.
Update update(const char* name, const void* variable);

}  // namespace morva::pf
