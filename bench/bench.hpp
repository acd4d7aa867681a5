// What the benchmarks share. Every benchmark is registered under "WORK : WHO", where WHO is "morva"
// for the library and a peer's name otherwise; bench/report pairs them by WORK and prints peer /
// ours.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "morva.h"

namespace bench {

using Random = std::mt19937_64;

// Keys of `length` letters and digits, the same on every run.
inline std::vector<std::string> random_keys(std::size_t count, std::size_t length,
                                            std::uint64_t seed = 1) {
    static constexpr char kLetters[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    Random random(seed);
    std::vector<std::string> keys(count, std::string(length, ' '));
    for (auto& key : keys)
        for (char& c : key) c = kLetters[random() % (sizeof kLetters - 1)];
    return keys;
}

}  // namespace bench
