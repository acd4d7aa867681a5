// Fortran twins of the parameter trees.
#include "morva/pf.h"

#include <charconv>
#include <cstdint>
#include <cstring>

#include "base/fortran.hpp"
#include "fortran/lists.hpp"
#include "morva/fortran.h"
#include "morva/pflex.h"
#include "morva/pfread.h"
#include "morva/pftime.h"
#include "morva/pfwrite.h"

using morva::fortran::give;
using morva::fortran::Pointers;
using morva::fortran::Text;

namespace {

// A key or path as the C functions take it: for a list the decimal number is the index, and what is
// no number names no item.
class Key {
  public:
    Key(const Pf* pf, const char* field, std::size_t length)
        : text_(field, length), key_(text_.c_str()) {
        if (pf != nullptr && pf->type == PFTBL) key_ = index();
    }
    operator char*() const { return key_; }

  private:
    char* index() const {
        std::intptr_t index = -1;
        std::from_chars(text_.c_str(), text_.c_str() + std::strlen(text_.c_str()), index);
        return reinterpret_cast<char*>(index);
    }

    Text text_;
    char* key_;
};

}  // namespace

extern "C" {

Pf* pfnew_(const int* type) {
    return pfnew(*type);
}

void pffree_(Pf* const* pf) {
    pffree(*pf);
}

Pf* pfdup_(Pf* const* pf) {
    return pfdup(*pf);
}

int pfcmp_(Pf* const* a, Pf* const* b) {
    return pfcmp(*a, *b);
}

int pfread_(const char* name, Pf** pf, size_t name_length) {
    return pfread(Text(name, name_length).c_str(), pf);
}

int pfupdate_(const char* name, Pf** pf, size_t name_length) {
    return pfupdate(Text(name, name_length).c_str(), pf);
}

int pfcompile_(const char* text, Pf** pf, size_t text_length) {
    return pfcompile(Text(text, text_length).c_str(), pf);
}

int pfwrite_(const char* filename, Pf* const* pf, size_t filename_length) {
    return pfwrite(Text(filename, filename_length).c_str(), *pf);
}

int pfget_(Pf* const* pf, const char* key, Pf** value, size_t key_length) {
    void* found = nullptr;
    const int type = pfget(*pf, Key(*pf, key, key_length), &found);
    *value = static_cast<Pf*>(found);
    return type;
}

long pfget_string_(Pf* const* pf, const char* path, char* text, size_t path_length,
                   size_t text_length) {
    return give(text, text_length, pfget_string(*pf, Key(*pf, path, path_length)));
}

long pfget_int_(Pf* const* pf, const char* path, size_t path_length) {
    return pfget_int(*pf, Key(*pf, path, path_length));
}

double pfget_double_(Pf* const* pf, const char* path, size_t path_length) {
    return pfget_double(*pf, Key(*pf, path, path_length));
}

double pfget_size_(Pf* const* pf, const char* path, size_t path_length) {
    return pfget_size(*pf, Key(*pf, path, path_length));
}

int pfget_boolean_(Pf* const* pf, const char* path, size_t path_length) {
    return pfget_boolean(*pf, Key(*pf, path, path_length));
}

Tbl* pfget_tbl_(Pf* const* pf, const char* path, size_t path_length) {
    return pfget_tbl(*pf, Key(*pf, path, path_length));
}

Arr* pfget_arr_(Pf* const* pf, const char* path, size_t path_length) {
    return pfget_arr(*pf, Key(*pf, path, path_length));
}

long pfmaxtbl_(Pf* const* pf) {
    return pfmaxtbl(*pf);
}

Tbl* pfkeys_(Pf* const* pf) {
    return pfkeys(*pf);
}

int pfput_(Pf* const* pf, const char* key, const intptr_t* value, const int* type,
           size_t key_length) {
    return pfput(*pf, Key(*pf, key, key_length), reinterpret_cast<void*>(*value), *type);
}

int pfput_string_(Pf* const* pf, const char* key, const char* text, size_t key_length,
                  size_t text_length) {
    return pfput_string(*pf, Key(*pf, key, key_length), Text(text, text_length).c_str());
}

int pfput_int_(Pf* const* pf, const char* key, const long* value, size_t key_length) {
    return pfput_int(*pf, Key(*pf, key, key_length), *value);
}

int pfput_double_(Pf* const* pf, const char* key, const double* value, size_t key_length) {
    return pfput_double(*pf, Key(*pf, key, key_length), *value);
}

int pfput_boolean_(Pf* const* pf, const char* key, const int* value, size_t key_length) {
    return pfput_boolean(*pf, Key(*pf, key, key_length), *value);
}

int pfput_tbl_(Pf* const* pf, const char* key, Tbl* const* tbl, size_t key_length) {
    return pfput_tbl(*pf, Key(*pf, key, key_length), Pointers(*tbl).list());
}

int pfput_arr_(Pf* const* pf, const char* key, Arr* const* arr, size_t key_length) {
    return pfput_arr(*pf, Key(*pf, key, key_length), *arr);
}

int pfset_(Pf* const* pf, const char* path, const char* text, size_t path_length,
           size_t text_length) {
    return pfset(*pf, Key(*pf, path, path_length), Text(text, text_length).c_str());
}

Pf* pfdel_(Pf* const* pf, const char* key, size_t key_length) {
    return pfdel(*pf, Key(*pf, key, key_length));
}

double pfget_time_(Pf* const* pf, const char* path, size_t path_length) {
    return pfget_time(*pf, Key(*pf, path, path_length));
}

int pfput_time_(Pf* const* pf, const char* key, const double* epoch, size_t key_length) {
    return pfput_time(*pf, Key(*pf, key, key_length), *epoch);
}

int pfrequire_(const char* name, const char* date, size_t name_length, size_t date_length) {
    return pfrequire(Text(name, name_length).c_str(), Text(date, date_length).c_str());
}

// Some compilers add a second underscore.
#define MORVA_SAME(twin, original) decltype(original) twin __attribute__((alias(#original)))
MORVA_SAME(pfnew__, pfnew_);
MORVA_SAME(pffree__, pffree_);
MORVA_SAME(pfread__, pfread_);
MORVA_SAME(pfcompile__, pfcompile_);
MORVA_SAME(pfwrite__, pfwrite_);
MORVA_SAME(pfget__, pfget_);
MORVA_SAME(pfget_string__, pfget_string_);
MORVA_SAME(pfget_int__, pfget_int_);
MORVA_SAME(pfget_double__, pfget_double_);
MORVA_SAME(pfget_size__, pfget_size_);
MORVA_SAME(pfget_boolean__, pfget_boolean_);
MORVA_SAME(pfget_time__, pfget_time_);
MORVA_SAME(pfget_tbl__, pfget_tbl_);
MORVA_SAME(pfget_arr__, pfget_arr_);
MORVA_SAME(pfput__, pfput_);
MORVA_SAME(pfput_string__, pfput_string_);
MORVA_SAME(pfput_int__, pfput_int_);
MORVA_SAME(pfput_double__, pfput_double_);
MORVA_SAME(pfput_boolean__, pfput_boolean_);
MORVA_SAME(pfput_time__, pfput_time_);
MORVA_SAME(pfput_tbl__, pfput_tbl_);
MORVA_SAME(pfput_arr__, pfput_arr_);

}  // extern "C"
