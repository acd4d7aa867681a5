// How far a long piece of work is: a line on standard error, on a terminal only.
#pragma once

#include <chrono>
#include <string>

namespace tool {

class Progress {
  public:
    explicit Progress(std::string what) : what_(std::move(what)) {}
    ~Progress();  // wipes the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // So many bytes are done, of `all`; of an unknown number when that is 0. Work that is done
    // within half a second is not shown.
    void bytes(long done, long all);
    // Shows at once what is being done.
    void now(const std::string& doing);

  private:
    using Clock = std::chrono::steady_clock;
    std::string what_;
    Clock::time_point next_ = Clock::now() + std::chrono::milliseconds(500);
    bool shown_ = false;
};

}  // namespace tool
