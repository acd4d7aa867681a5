// The commands of `morva ring`, and what they share.
#pragma once

#include <string.h>

#include <string>
#include <vector>

#include "command.hpp"
#include "morva.h"
#include "numbers.hpp"

namespace tool {

int ring_create(const Arguments& arguments);
int ring_push(const Arguments& arguments);
int ring_tail(const Arguments& arguments);
int ring_stats(const Arguments& arguments);
int ring_watch(const Arguments& arguments);
int ring_plot(const Arguments& arguments);

// A ring that is open; closed at the end.
class OpenRing {
  public:
    OpenRing(const std::string& path, int flags)
        : ring_(openring(path.c_str(), nullptr, 0, flags)) {
        if (ring_ == nullptr) elog_complain(0, "can't use %s", path.c_str());
    }
    OpenRing(OpenRing&& other) noexcept : ring_(other.ring_) { other.ring_ = nullptr; }
    ~OpenRing() { closering(ring_); }
    OpenRing& operator=(OpenRing&&) = delete;
    explicit operator bool() const { return ring_ != nullptr; }
    Ring* get() const { return ring_; }
    std::string path() const { return filenamering(ring_); }
    std::string id() const { return std::string(idring(ring_), ::strnlen(idring(ring_), 64)); }
    // What people call it: its id, or the name of its file.
    std::string title() const { return id().empty() ? path() : id(); }
    bool is_break(const Ring_point& point) const {
        return ring_->header->gap != 0 && point.value == ring_->header->null;
    }
    // The newest points, `most` at most, of one instant; the newest first.
    std::vector<Ring_point> points(long most) const {
        std::vector<Ring_point> all(
            static_cast<std::size_t>(most < ring_->size ? most : ring_->size));
        all.resize(
            static_cast<std::size_t>(snapring(ring_, all.data(), static_cast<long>(all.size()))));
        return all;
    }

  private:
    Ring* ring_;
};

}  // namespace tool
