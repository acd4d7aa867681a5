// What the server does for one client, in a thread of its own.
#pragma once

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include "codecs.hpp"
#include "morva.h"
#include "packed.hpp"
#include "packet.hpp"
#include "replay.hpp"

// What all clients look at.
struct Service {
    const Recording& recording;
    Replay replay;
    Packed packed;
    std::atomic<int> codec;
    std::atomic<bool> over = false;
    double patience;  // seconds for the request, and for a client that does not read
};

class Client {
  public:
    // The streams are made by the thread that accepts: they set up a dynamic control.
    Client(Service& service, int fd, std::string peer)
        : service_(service),
          fd_(fd),
          peer_(std::move(peer)),
          in_(bnsnew(fd, 0)),
          out_(bnsnew(fd, 0)) {
        bnsid(in_, peer_.c_str());
        bnsid(out_, peer_.c_str());
        bnslimit(in_, 1000);
        bnsdeadline(in_, service.patience);
        timeval limit{};
        limit.tv_sec = static_cast<time_t>(service.patience) + 1;
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        // The end of a batch does not wait until its start has been acknowledged.
        const int yes = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        thread_ = std::thread([this] { serve(); });
    }
    // Ends the conversation.
    ~Client() {
        ::shutdown(fd_, SHUT_RDWR);
        thread_.join();
        bnsfree(in_);
        bnsclr(out_);
        bnsclose(out_);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    bool is_gone() const { return gone_; }

  private:
    static constexpr int kBatch = 65536;     // bytes that are sent at once when many packets wait
    static constexpr int kTick = 10;         // milliseconds between looks at the replay
    static constexpr double kSilence = 2.0;  // seconds without packets before a sign of life

    void serve() {
        if (!get_request(in_, &request_, memory_)) {
            elog_complain(0, "%s sent no request that can be read\n", peer_.c_str());
        } else {
            next_ = first_wanted();
            elog_notify(0, "%s is sent packets from number %ld on\n", peer_.c_str(),
                        static_cast<long>(next_));
            while (!service_.over && send_waiting() && wait_for_more()) {
            }
            // Whatever ended it, the client comes back when it wants.
            elog_notify(0, "%s has left after %ld packets\n", peer_.c_str(), sent_);
        }
        gone_ = true;
    }

    int64_t first_wanted() const {
        if (request_.first < 0) return service_.replay.position();
        const auto ours = static_cast<int64_t>(service_.recording.crc);
        return request_.recording == 0 || request_.recording == ours ? request_.first : 0;
    }

    // Sends all packets that are there, many in one call.
    bool send_waiting() {
        const int64_t position = service_.replay.position();
        while (next_ < position && !service_.over) {
            for (long bytes = 0; next_ < position && bytes < kBatch; bytes += bnsout(out_))
                put_next();
            if (!flush()) return false;
        }
        return true;
    }

    void put_next() {
        Packet packet = packet_at(service_.recording, next_);
        packet.released = service_.replay.released(next_);
        const Payload& payload = service_.packed.get(service_.codec, next_, encoder_);
        packet.codec = payload.codec;
        packet.payload = payload.bytes;
        if (packet.codec == kRaw)
            put_raw_packet(out_, packet, samples_at(service_.recording, next_).data());
        else
            put_packet(out_, packet);
        ++next_;
        ++sent_;
    }

    // Waits for packets to come. A client has nothing more to say: a descriptor that can be read
    // means that it is gone.
    bool wait_for_more() {
        pollfd descriptor{fd_, POLLIN, 0};
        if (std_poll(&descriptor, 1, kTick) != 0) return false;
        if (std_now() - last_sent_ < kSilence) return true;
        Packet sign = packet_at(service_.recording, 0);
        sign.sequence = -1;
        sign.nsamp = 0;
        put_packet(out_, sign);
        return flush();
    }

    bool flush() {
        last_sent_ = std_now();
        return bnsflush(out_) == 0;
    }

    Service& service_;
    const int fd_;
    const std::string peer_;
    Bns *in_, *out_;
    Memory memory_;
    Request request_;
    Encoder encoder_;
    int64_t next_ = 0;
    long sent_ = 0;
    double last_sent_ = std_now();
    std::atomic<bool> gone_ = false;
    std::thread thread_;
};
