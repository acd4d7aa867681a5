// The client's side of a connection: reaching the server, asking for packets, getting them.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "batch.hpp"
#include "morva.h"
#include "packet.hpp"

class Connection {
  public:
    ~Connection() { close(); }
    bool is_open() const { return in_ != nullptr; }
    const std::string& reason() const { return reason_; }

    // Connects and sends the request. False with the reason registered.
    bool open(const std::string& server, const Request& request, double patience) {
        char host[256];
        int port;
        const int fd =
            vk_open_socket_t(server.c_str(), "waveforms", "", host, &port, nullptr, patience);
        if (fd < 0) return false;
        in_ = bnsnew(fd, kMostBytes);
        bnsid(in_, server.c_str());
        bnslimit(in_, kMostBytes + 100);
        bnstimeout(in_, 0);  // what has not come yet must not hold up what has
        size_ = -1;
        more_ = false;
        Bns* out = bnsnew(fd, 0);
        put_request(out, request);
        const bool sent = bnsflush(out) == 0;
        bnsfree(out);
        last_ = std_now();
        if (!sent) close();
        return sent;
    }

    // Waits a tenth of a second at most for packets to come, and gets those that have come. False
    // when there won't be more, which reason() tells.
    bool read(Batch& batch, double patience) {
        int result = more_ || is_readable(100) ? 0 : -1;
        while (result == 0 && !batch.has_enough()) result = batch.get(in_, size_);
        more_ = result == 0;
        if (result > 0) return ended_by("a damaged packet");
        if (in_->err != 0) return ended_by(std::strerror(in_->syserrno));
        if (in_->eof != 0) return ended_by("closed by the server");
        if (!batch.is_empty()) last_ = std_now();
        return std_now() - last_ < patience || ended_by("the server is silent");
    }
    // Whether more has come than was got.
    bool has_more() { return is_open() && (more_ || is_readable(0)); }

    void close() {
        if (in_ != nullptr) bnsclose(in_);
        in_ = nullptr;
    }

  private:
    bool is_readable(int milliseconds) {
        const int before = bnstimeout(in_, milliseconds);
        const bool is_readable = bnswait(in_) != 0;
        bnstimeout(in_, before);
        return is_readable;
    }
    bool ended_by(const char* reason) {
        reason_ = reason;
        return false;
    }

    Bns* in_ = nullptr;
    int32_t size_ = -1;  // of the body that comes next, when its head has come
    bool more_ = false;  // there may be packets in the stream's buffer
    double last_ = 0;    // when packets came
    std::string reason_;
};

// The waits between attempts: each twice as long as the one before it, until one succeeds.
class Backoff {
  public:
    Backoff(double least, double most) : least_(least), most_(most), wait_(least) {}
    void reset() { wait_ = least_; }
    double next() {
        const double wait = wait_;
        wait_ = std::min(2 * wait_, most_);
        return wait;
    }

  private:
    double least_, most_, wait_;
};
