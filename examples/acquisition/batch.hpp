// Packets that came together, and what there is to find out about each without knowing the others.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "../wf_units.hpp"
#include "codecs.hpp"
#include "morva.h"
#include "packet.hpp"

// What one packet turned out to be. Where `problem` is not null, the fields after it mean nothing.
struct Checked {
    const char* problem = nullptr;
    Packet packet = {};
    std::string_view body = {};  // of the batch, as is packet.payload
    double amplitude = 0;        // in counts
    uint64_t crc = 0;            // CRC-64 of the samples
};

// What a thread needs to check packets.
struct Tools {
    Memory memory;
    Decoders decoders;
};

class Batch {
  public:
    static constexpr int kEnough = 100000;  // bytes

    // Adds the next packet of a stream, and returns 0; 1 when no packet comes, -1 when not all of
    // it has come. `size` is kept from call to call: of the body that comes next, or -1.
    int get(Bns* in, int32_t& size) {
        const int result = size < 0 ? get_size(in, kPacket, &size) : 0;
        if (result != 0) return result;
        char *body = &bytes_[used_], *behind = body + size;
        if (bnsget(in, body, BNS_BYTE, size + kCrcSize) != 0) return -1;
        uint32_t crc;
        mi2hi(&behind, &crc, 1);
        bodies_.push_back({{body, static_cast<std::size_t>(size)}, crc});
        used_ += size + kCrcSize;
        size = -1;
        return 0;
    }
    bool has_enough() const { return used_ >= kEnough; }
    bool is_empty() const { return bodies_.empty(); }

    // Checks all packets, up to the first with a problem.
    void check(Tools& tools) {
        checked_.clear();
        for (const Body& body : bodies_) {
            checked_.push_back(check(body, tools));
            if (checked_.back().problem != nullptr) break;
        }
    }
    const std::vector<Checked>& checked() const { return checked_; }

    void clear() {
        used_ = 0;
        bodies_.clear();
    }

  private:
    static constexpr int kCrcSize = 4;

    struct Body {
        std::string_view bytes;
        uint32_t crc;
    };

    static Checked check(const Body& body, Tools& tools) {
        Checked found;
        found.body = body.bytes;
        const int size = static_cast<int>(body.bytes.size());
        if (crc_of(body.bytes.data(), size) != body.crc ||
            !get_body(body.bytes, &found.packet, tools.memory)) {
            found.problem = "a damaged packet";
            return found;
        }
        const Packet& packet = found.packet;
        Samples samples;
        if (packet.sequence < 0) return found;  // a sign of life
        if (!tools.decoders.decode(packet.codec, packet.payload, packet.nsamp, &samples)) {
            found.problem = "a packet that can't be decoded";
            return found;
        }
        found.amplitude = amplitude_of(samples, 1);
        found.crc = crc_of(samples.data(), packet.nsamp);
        return found;
    }

    std::unique_ptr<char[]> bytes_{new char[kEnough + kMostBytes + kCrcSize]};
    int used_ = 0;
    std::vector<Body> bodies_;
    std::vector<Checked> checked_;
};
