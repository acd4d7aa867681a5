// Fortran twins of rings and ringlets.
#include "morva/ring.h"

#include <cstring>

#include "base/fortran.hpp"
#include "morva/fortran.h"
#include "morva/ringlet.h"

using morva::fortran::give;
using morva::fortran::Text;

extern "C" {

int newring_(const char* path, const char* id, const int* size, const int* flags,
             size_t path_length, size_t id_length) {
    return newring(Text(path, path_length).c_str(), Text(id, id_length).c_str(), *size, *flags);
}

Ring* openring_(const char* path, char* id, const int* size, const int* flags, size_t path_length,
                size_t id_length) {
    char buffer[RING_ID_SIZE + 1] = {};
    const Text given(id, id_length);
    std::memcpy(buffer, given.c_str(), ::strnlen(given.c_str(), RING_ID_SIZE));
    Ring* ring = openring(Text(path, path_length).c_str(), buffer, *size, *flags);
    if (ring != nullptr) give(id, id_length, buffer);
    return ring;
}

int closering_(Ring* const* ring) {
    return closering(*ring);
}

int rmring_(Ring* const* ring) {
    return rmring(*ring);
}

long idring_(Ring* const* ring, char* text, size_t text_length) {
    char id[RING_ID_SIZE + 1] = {};
    std::memcpy(id, idring(*ring), RING_ID_SIZE);
    return give(text, text_length, id);
}

long filenamering_(Ring* const* ring, char* text, size_t text_length) {
    return give(text, text_length, filenamering(*ring));
}

int setring_(Ring* const* ring, const double* gap, const double* null_value) {
    return setring(*ring, *gap, *null_value);
}

int pushring_(Ring* const* ring, const double* time, const double* value) {
    return pushring(*ring, *time, *value);
}

int cramring_(Ring* const* ring, const char* method, const double* time, const double* value,
              size_t method_length) {
    return cramring(*ring, Text(method, method_length).c_str(), *time, *value);
}

int addring_(Ring* const* ring, const double* time, const double* value) {
    return addring(*ring, *time, *value);
}

long countring_(Ring* const* ring) {
    return countring(*ring);
}

int getring_(Ring* const* ring, const int* i, double* time, double* value) {
    return getring(*ring, *i, time, value);
}

int valring_(Ring* const* ring, double* time, double* value) {
    return valring(*ring, time, value);
}

int nearbymaxring_(Ring* const* ring, double* time, double* value, const double* halfwidth) {
    return nearbymaxring(*ring, time, value, *halfwidth);
}

long findring_(Ring* const* ring, const double* value, const double* span) {
    return findring(*ring, *value, *span);
}

long tallyring_(Ring* const* ring, const double* span) {
    return tallyring(*ring, *span);
}

long changedring_(Ring* const* ring, const double* span) {
    return changedring(*ring, *span);
}

double maxring_(Ring* const* ring, int* i, const double* span) {
    return maxring(*ring, i, *span);
}

double minring_(Ring* const* ring, int* i, const double* span) {
    return minring(*ring, i, *span);
}

int meanring_(Ring* const* ring, int* n, double* mean, double* deviation, const double* span) {
    return meanring(*ring, n, mean, deviation, *span);
}

double avgring_(Ring* const* ring, const double* span) {
    return avgring(*ring, *span);
}

int linearfitring_(Ring* const* ring, int* n, double* slope, double* intercept, double* r,
                   const double* span) {
    return linearfitring(*ring, n, slope, intercept, r, *span);
}

long quantilesring_(Ring* const* ring, const double* fractions, double* quantiles, const int* n,
                    const double* span) {
    return quantilesring(*ring, fractions, quantiles, *n, *span);
}

long ptsring_(Ring* const* ring, Tbl** points, const double* last_time, const double* span) {
    return ptsring(*ring, points, *last_time, *span);
}

int ptsrange_(Tbl* const* points, double* range) {
    return ptsrange(*points, range);
}

int scalepts_(Tbl* const* points, Tbl** out, const double* scale) {
    return scalepts(*points, out, scale);
}

int iscalepts_(Tbl* const* points, Tbl** out, const double* scale) {
    return iscalepts(*points, out, scale);
}

int decimatepts_(Tbl* const* points, const int* width, const int* height, Tbl** out) {
    return decimatepts(*points, *width, *height, out);
}

int newringlet_(const char* path, const long* nslots, const long* size, size_t path_length) {
    return newringlet(Text(path, path_length).c_str(), *nslots, *size);
}

Ringlet* openringlet_(const char* path, const long* nslots, const long* size, size_t path_length) {
    return openringlet(Text(path, path_length).c_str(), *nslots, *size);
}

int closeringlet_(Ringlet* const* ringlet) {
    return closeringlet(*ringlet);
}

int pushringlet_(Ringlet* const* ringlet, const void* record) {
    return pushringlet(*ringlet, record);
}

long countringlet_(Ringlet* const* ringlet) {
    return countringlet(*ringlet);
}

int getringlet_(Ringlet* const* ringlet, const long* i, void* record) {
    void* found;
    if (getringlet(*ringlet, *i, &found) != 0) return -1;
    if (record != nullptr) std::memcpy(record, found, static_cast<size_t>((*ringlet)->given));
    return 0;
}

}  // extern "C"
