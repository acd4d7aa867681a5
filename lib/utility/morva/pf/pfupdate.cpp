// pfupdate: trees that follow their files. The states live for ever; one mutex, held for the whole
// of an update, guards them.
#include "pf/pfupdate.hpp"

#include <charconv>
#include <cstring>
#include <new>

#include "base/memory.hpp"
#include "morva/arr.h"
#include "morva/pfread.h"
#include "paths/path.hpp"
#include "pf/pfread.hpp"
#include "pf/pftimes.hpp"

namespace morva::pf {

constinit std::mutex g_update_mutex;

struct UpdateState {
    Tbl* times;  // of the last reading
    Watch watch;
    bool complete;  // whether that reading left no file out
    bool trusted;   // whether the watch alone can tell that nothing has changed
    Pf* tree;       // what the variable was given last
};

namespace {

constinit Arr* g_states = nullptr;

// "NAME-ADDRESS", as printf writes "%s-%p".
class Key {
  public:
    Key(const char* name, const void* variable) {
        if (name == nullptr) name = "";
        const std::size_t length = std::min(std::strlen(name), paths::kPathSize);
        std::memcpy(text_, name, length);
        std::memcpy(text_ + length, "-0x", 3);
        const auto address = reinterpret_cast<std::uintptr_t>(variable);
        *std::to_chars(text_ + length + 3, text_ + sizeof text_ - 1, address, 16).ptr = '\0';
    }
    const char* text() const { return text_; }

  private:
    char text_[paths::kPathSize + 32];
};

UpdateState* find_state(const Key& key) {
    return g_states != nullptr ? static_cast<UpdateState*>(getarr(g_states, key.text())) : nullptr;
}

UpdateState* add_state(const Key& key) {
    void* block =
        must_malloc(sizeof(UpdateState), "state", Site{"pfupdate", __LINE__, __FILE_NAME__});
    auto* state = new (block) UpdateState{};
    if (g_states == nullptr) g_states = newarr(nullptr);
    setarr(g_states, key.text(), state);
    return state;
}

// What stands along the search path. The look comes before the list, and both before the reading:
// whatever changes in between differs from one of them in the next update.
struct Present {
    explicit Present(const char* name) : watch(Watch::look(name)), times(pftimes(name)) {}
    ~Present() { freetbl(times, freepftime); }
    Present(const Present&) = delete;
    Present& operator=(const Present&) = delete;
    void move_to(UpdateState* state) {
        std::swap(state->watch, watch);
        std::swap(state->times, times);
        state->trusted = state->complete && state->watch.is_settled();
    }
    Watch watch;
    Tbl* times;
};

}  // namespace

Update update(const char* name, const void* variable) {
    const Key key(name, variable);
    UpdateState* state = find_state(key);
    if (state != nullptr && state->trusted && state->watch.holds(name)) return {0, nullptr, state};
    Present now(name);
    if (maxtbl(now.times) == 0) return {-1, nullptr, state};
    if (state != nullptr && state->complete &&
        same_files(state->times, now.times, state->watch.when())) {
        now.move_to(state);
        return {0, nullptr, state};
    }
    digest_contents(now.times);
    Pf* fresh = nullptr;
    const Reading reading = read_merged(name, &fresh);
    if (reading.opened == 0) {  // they have just gone
        pffree(fresh);
        return {-1, nullptr, state};
    }
    if (state == nullptr) state = add_state(key);
    state->complete = reading.complete;
    now.move_to(state);
    return {reading.result == 0 ? 1 : reading.result, fresh, state};
}

}  // namespace morva::pf

extern "C" int pfupdate(const char* name, Pf** pf) {
    using namespace morva::pf;
    const std::lock_guard lock(g_update_mutex);
    const Update done = update(name, pf);
    if (done.fresh != nullptr) {
        if (*pf == done.state->tree) pffree(*pf);
        done.state->tree = done.fresh;
    }
    *pf = done.state != nullptr ? done.state->tree : nullptr;
    return done.result;
}
