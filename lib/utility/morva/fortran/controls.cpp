// Fortran twins of the dynamic controls.
#include "base/fortran.hpp"
#include "morva/dynamic_controls.h"
#include "morva/fortran.h"

using morva::malloced;
using morva::fortran::give;
using morva::fortran::Text;

extern "C" {

int dcsetupbyt_(const char* name, const int* value, size_t name_length) {
    return dcsetupbyt(Text(name, name_length).c_str(), *value);
}

int dcsetupint_(const char* name, const long* value, size_t name_length) {
    return dcsetupint(Text(name, name_length).c_str(), *value);
}

int dcsetupflt_(const char* name, const double* value, size_t name_length) {
    return dcsetupflt(Text(name, name_length).c_str(), *value);
}

int dcsetupstr_(const char* name, const char* value, size_t name_length, size_t value_length) {
    return dcsetupstr(Text(name, name_length).c_str(), Text(value, value_length).c_str());
}

int dcsetb_(const int* i, const int* value) {
    return dcsetb(*i, *value);
}

int dcseti_(const int* i, const long* value) {
    return dcseti(*i, *value);
}

int dcsetf_(const int* i, const double* value) {
    return dcsetf(*i, *value);
}

int dcsets_(const int* i, const char* text, size_t text_length) {
    return dcsets(*i, Text(text, text_length).c_str());
}

int dcgetb_(const int* i) {
    return dcgetb(*i);
}

long dcgeti_(const int* i) {
    return dcgeti(*i);
}

double dcgetf_(const int* i) {
    return dcgetf(*i);
}

long dcgets_(const int* i, char* text, size_t text_length) {
    const malloced<char> value(dcgets(*i));
    return give(text, text_length, value.get());
}

int dctrigger_(const int* i) {
    return dctrigger(*i);
}

long dcchanged_() {
    return dcchanged();
}

double dctimestamp_() {
    return dctimestamp();
}

int dcwait_(const long* changed, const int* milliseconds) {
    return dcwait(*changed, *milliseconds);
}

int dccreate_() {
    return dccreate();
}

int dcopen_(const int* select) {
    return dcopen(*select);
}

int dcselect_(const char* program, size_t program_length) {
    return dcselect(Text(program, program_length).c_str());
}

int dcmaxcontrols_() {
    return dcmaxcontrols();
}

Tbl* dcprograms_() {
    return dcprograms();
}

long dcname_(const int* type, const int* i, char* name, size_t name_length) {
    return give(name, name_length, dcname(*type, *i));
}

int dcexists_(const char* program, size_t program_length) {
    return dcexists(Text(program, program_length).c_str());
}

int dcremove_(const char* program, size_t program_length) {
    return dcremove(Text(program, program_length).c_str());
}

int dcdump_(const int* flag) {
    return dcdump(*flag);
}

}  // extern "C"
