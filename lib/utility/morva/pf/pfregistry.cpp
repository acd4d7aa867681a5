// Trees by name, for the whole program: Pflist, guarded by Pflist_mutex, which is never held while
// files are read, trees are freed or anything is logged.
#include <skerrows.h>

#include <mutex>

#include "base/posix.hpp"
#include "morva/arr.h"
#include "morva/pfread.h"
#include "pf/pfupdate.hpp"

namespace {

class Registry {
  public:
    Registry() { pthread_mutex_lock(&Pflist_mutex); }
    ~Registry() { pthread_mutex_unlock(&Pflist_mutex); }
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;
    Pf* find(const char* name) const {
        return Pflist != nullptr ? static_cast<Pf*>(getarr(Pflist, text(name))) : nullptr;
    }
    // Both return what stood there before.
    Pf* put(const char* name, Pf* pf) {
        if (Pflist == nullptr) Pflist = newarr(nullptr);
        return static_cast<Pf*>(setarr(Pflist, text(name), pf));
    }
    Pf* take(const char* name) {
        return Pflist != nullptr ? static_cast<Pf*>(delarr(Pflist, text(name))) : nullptr;
    }

  private:
    static const char* text(const char* name) { return name != nullptr ? name : ""; }
};

Pf* replace(const char* name, Pf* pf) {
    Pf* before = Registry().put(name, pf);
    return before != pf ? before : nullptr;
}

// The states of registered trees are told from others by this address, which is the same for all
// names.
char g_registered;

}  // namespace

extern "C" {

Pf* existsPf(const char* name) {
    return Registry().find(name);
}

Pf* getPf(const char* name) {
    if (Pf* registered = existsPf(name)) return registered;
    Pf* pf = nullptr;
    if (pfread(name, &pf) < 0) {
        pffree(pf);
        return nullptr;
    }
    // Another thread may have registered its own meanwhile and given it to its caller.
    replace(name, pf);
    return pf;
}

int putPf(const char* name, Pf* pf) {
    pffree(replace(name, pf));
    return 0;
}

int putPf_nofree(const char* name, Pf* pf) {
    replace(name, pf);
    return 0;
}

int updatePf(const char* name) {
    using namespace morva::pf;
    if (getPf(name) == nullptr) return -1;
    const std::lock_guard lock(g_update_mutex);
    const Update done = update(name, &g_registered);
    if (done.result == 1)
        putPf(name, done.fresh);
    else
        pffree(done.fresh);
    return done.result;
}

int freePf(const char* name) {
    Pf* pf = Registry().take(name);
    pffree(pf);
    return pf != nullptr ? 0 : -1;
}

}  // extern "C"
