// The checksums of files, several of each in one reading, several files at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "morva.h"

namespace tool {

// All checksums in the making; only those that are asked for are added to.
struct Sums {
    std::uint16_t crc16 = 0;
    std::uint32_t crc32 = 0xffffffff;
    std::uint64_t crc64 = 0;
    std::uint32_t qtcrc = 0;
    std::uint16_t bytes = 0;
    std::uint32_t adler32 = 1;
    Md5 md5;
    Sha sha;
    Sums();
};

struct Algorithm {
    const char* name;
    const char* tag;  // as lists write it
    std::size_t digits;
    void (*add)(Sums& sums, const void* bytes, int n);
    std::string (*text)(Sums& sums);  // in hexadecimal digits
};
std::span<const Algorithm> algorithms();

// What one file gives: a text for each algorithm, or the reason why it can't be read.
struct Summed {
    std::vector<std::string> texts;
    std::string reason;
    long length = 0;
};

// "-" is standard input.
Summed sum_file(const std::string& file, const std::vector<const Algorithm*>& wanted);

// Calls work(i) for 0 .. count-1 on several threads, and take(i, result) in order.
template <class Result>
void in_order(std::size_t count, const std::function<Result(std::size_t)>& work,
              const std::function<void(std::size_t, const Result&)>& take) {
    std::vector<std::promise<Result>> results(count);
    std::atomic<std::size_t> next = 0;
    std::vector<std::thread> threads;
    const std::size_t most = std::max(1u, std::thread::hardware_concurrency());
    for (std::size_t i = 0; i < std::min(count, most); ++i)
        threads.emplace_back([&] {
            for (std::size_t mine; (mine = next++) < count;) results[mine].set_value(work(mine));
        });
    for (std::size_t i = 0; i < count; ++i) take(i, results[i].get_future().get());
    for (std::thread& thread : threads) thread.join();
}

}  // namespace tool
