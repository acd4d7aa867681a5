#include "progress.hpp"

#include <unistd.h>

#include <cstdio>

#include "output.hpp"

namespace tool {

namespace {

bool is_terminal() {
    static const bool terminal = ::isatty(STDERR_FILENO) != 0;
    return terminal;
}

constexpr const char* kWipe = "\r\033[K";

}  // namespace

Progress::~Progress() {
    if (shown_) std::fputs(kWipe, stderr);
}

void Progress::bytes(long done, long all) {
    const auto time = Clock::now();
    if (!is_terminal() || time < next_) return;
    next_ = time + std::chrono::milliseconds(100);
    now(all > 0 ? std::to_string(100 * done / all) + " %" : std::to_string(done / 1000000) + " MB");
}

void Progress::now(const std::string& doing) {
    if (!is_terminal()) return;
    std::fprintf(stderr, "%s%s: %s", kWipe, one_line(what_).c_str(), doing.c_str());
    std::fflush(stderr);
    shown_ = true;
}

}  // namespace tool
