// The client's side of a connection: reaching the server, asking for packets, getting them.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

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
        bnsdeadline(in_, patience);
        Bns* out = bnsnew(fd, 0);
        put_request(out, request);
        const bool sent = bnsflush(out) == 0;
        bnsfree(out);
        last_ = std_now();
        if (!sent) close();
        return sent;
    }

    // Waits for packets: 1; 0 when none came for a tenth of a second; -1 when the connection is of
    // no use any more, which reason() tells.
    int wait(double patience) {
        bnstimeout(in_, 100);
        const bool is_readable = has_more() || bnswait(in_) != 0;
        if (!is_readable && std_now() - last_ < patience) return 0;
        if (!is_readable) return gave_up("the server is silent");
        bnstimeout(in_, static_cast<int>(patience * 1000));
        last_ = std_now();
        mark_ = elog_mark();
        return 1;
    }
    // Whether more has come than was got.
    bool has_more() const { return in_ != nullptr && in_->fp < in_->lp; }

    // Gets the next packet, which stays until the next call. False as for wait.
    bool get(Packet* packet) {
        if (get_packet(in_, packet, memory_)) return true;
        const bool damaged = elog_mark() > mark_ && in_->eof == 0 && in_->syserrno == 0;
        gave_up(damaged              ? "a damaged packet"
                : in_->syserrno != 0 ? std::strerror(in_->syserrno)
                                     : "closed by the server");
        return false;
    }
    // The body of the packet.
    std::string_view body() const { return memory_.all(); }

    void close() {
        if (in_ != nullptr) bnsclose(in_);
        in_ = nullptr;
    }

  private:
    int gave_up(const char* reason) {
        reason_ = reason;
        close();
        return -1;
    }

    Bns* in_ = nullptr;
    Memory memory_;
    double last_ = 0;  // when packets came
    int mark_ = 0;     // of the register then
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
