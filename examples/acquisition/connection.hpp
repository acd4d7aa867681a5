// The client's side of a connection: reaching the server, asking for packets, getting them.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

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
        in_ = bnsnew(fd, 0);
        bnsid(in_, server.c_str());
        bnslimit(in_, kMostBytes + 100);
        bnsdeadline(in_, patience);
        Bns* out = bnsnew(fd, 0);
        put_request(out, request, memory_);
        const bool sent = bnsflush(out) == 0;
        bnsfree(out);
        last_ = std_now();
        if (!sent) close();
        return sent;
    }

    // Gets the next packet: 1; 0 when none came for a tenth of a second; -1 when the connection is
    // of no use any more, which reason() tells.
    int get(Packet* packet, double patience) {
        if (in_->lp == in_->fp && !is_readable()) {
            if (std_now() - last_ < patience) return 0;
            return gave_up("the server is silent");
        }
        const int mark = elog_mark();
        bnstimeout(in_, static_cast<int>(patience * 1000));
        const bool got = get_packet(in_, packet, memory_);
        const bool damaged = elog_mark() > mark && in_->eof == 0 && in_->syserrno == 0;
        // A peer can do this as often as it likes: the register must not fill up.
        elog_flush(0, mark);
        last_ = std_now();
        if (got) return 1;
        return gave_up(damaged              ? "a damaged packet"
                       : in_->syserrno != 0 ? std::strerror(in_->syserrno)
                                            : "closed by the server");
    }

    void close() {
        if (in_ != nullptr) bnsclose(in_);
        in_ = nullptr;
    }

  private:
    bool is_readable() {
        bnstimeout(in_, 100);
        return bnswait(in_) != 0;
    }
    int gave_up(const char* reason) {
        reason_ = reason;
        close();
        return -1;
    }

    Bns* in_ = nullptr;
    Memory memory_;
    double last_ = 0;  // when the last packet came
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
