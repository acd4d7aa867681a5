// Hooks: what a call site keeps between calls.
#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/strmatches.h"

namespace {

constexpr uint32_t kCheckWord = 0x308E0BC3;

}  // namespace

extern "C" {

Hook* new_hook(void (*free_function)(void*)) {
    Hook* hook = morva::must_alloc<Hook>(1, "pvt", MORVA_HERE);
    hook->check = kCheckWord;
    hook->free_function = free_function;
    pthread_mutex_init(&hook->lock, nullptr);
    return hook;
}

void free_hook(Hook** hook) {
    if (hook == nullptr || *hook == nullptr) return;
    Hook* record = *hook;
    if (record->check != kCheckWord) elog_die(0, "free_hook called with bad pointer.\n");
    if (record->free_function != nullptr && record->pvt != nullptr)
        record->free_function(record->pvt);
    record->check = 0;  // a second free of the same record is caught while its memory lasts
    pthread_mutex_destroy(&record->lock);
    std::free(record);
    *hook = nullptr;
}

}  // extern "C"
