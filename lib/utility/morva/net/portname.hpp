// The port names of the process.
#pragma once

#include <atomic>
#include <mutex>

#include "morva/pf.h"

namespace morva::net {

// Read once and kept for good; null when there are none.
struct PortFile {
    std::atomic<bool> tried{false};
    std::mutex reading;
    Pf* names = nullptr;
};
PortFile& port_file();

}  // namespace morva::net
