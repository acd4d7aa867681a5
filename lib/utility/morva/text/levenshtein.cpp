// Edit distance with unit costs.
#include <algorithm>
#include <cstring>

#include "base/memory.hpp"
#include "morva/strings.h"

extern "C" {

int levenshtein_distance(const char* a, const char* b) {
    const std::size_t m = std::strlen(a), n = std::strlen(b);
    if (m == 0 || n == 0) return -1;
    morva::malloced<int> row(morva::must_alloc<int>(n + 1, "d", MORVA_HERE));
    int* d = row.get();
    for (std::size_t j = 0; j <= n; ++j) d[j] = static_cast<int>(j);
    for (std::size_t i = 1; i <= m; ++i) {
        int diagonal = d[0];
        d[0] = static_cast<int>(i);
        for (std::size_t j = 1; j <= n; ++j) {
            const int replaced = diagonal + (a[i - 1] != b[j - 1]);
            diagonal = d[j];
            d[j] = std::min(replaced, 1 + std::min(d[j], d[j - 1]));
        }
    }
    return d[n];
}

}  // extern "C"
