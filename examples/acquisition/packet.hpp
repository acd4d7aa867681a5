// Packets of waveforms, as wfserver sends them and wfclient reads them over a stream.
//
// A client connects and sends one request; the server answers with packets until either side
// closes. Both travel in frames: a word of four bytes, the length of the body, the body, its
// CRC-32. docs/formats/packets.md shows every byte.
//
// What a packet holds depends on the recording and the sequence number alone, never on the state of
// the server: whoever asks for the packets behind the last one it has misses none.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "morva.h"

constexpr char kRequest[] = "WFR1";
constexpr char kPacket[] = "WFP1";
constexpr int kMostSamples = 10000;  // of a packet
constexpr int kMostBytes = 200000;   // of a body
// Of packets, and of their numbers: clients count in doubles, and bury 15 digits of them.
constexpr int64_t kMostPackets = 1000000000000000;

struct Request {
    int64_t recording = 0;
    int64_t first = 0;
};

struct Packet {
    int64_t recording = 0;
    int64_t sequence = -1;
    int64_t total = 0;
    char station[8] = "";
    char channel[8] = "";
    double time = 0, rate = 1, calibration = 0, period = 0, released = 0;
    int32_t codec = 0;
    int32_t nsamp = 0;
    std::string_view payload;  // kept by whoever made the packet
};

// A stream without a descriptor: what is put to it can be got from it, or taken as bytes.
class Memory {
  public:
    Memory() : bns_(bnsnew(-1, 0)) { bnstimeout(bns_, 0); }  // there is nothing to wait for
    ~Memory() { bnsfree(bns_); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    Bns* stream() { return bns_; }
    const char* bytes() const { return bns_->data + bns_->fp; }
    int size() const { return static_cast<int>(bns_->lp - bns_->fp); }
    // With what was got from it.
    std::string_view all() const { return {bns_->data, static_cast<std::size_t>(bns_->lp)}; }
    // Room for n bytes, which are then what the memory holds.
    char* take(int n) {
        bnsclr(bns_);
        if (bns_->sz < n) bnsresize(bns_, static_cast<long>(n - bns_->sz));
        bns_->lp = n;
        return bns_->data;
    }

  private:
    Bns* bns_;
};

inline uint32_t crc_of(const char* bytes, int n) {
    uint32_t crc = 0xffffffff;
    return vk_crc32(&crc, bytes, n);
}

// Puts a frame around the `size` bytes that put_body() puts. Nothing is sent before the stream is
// flushed.
template <class Put>
void put_frame(Bns* out, const char* magic, int size, Put put_body) {
    bnsput(out, magic, BNS_BYTE, 4);
    bnsput(out, &size, BNS_INT, 1);
    put_body();
    const uint32_t crc = crc_of(out->data + out->lp - size, size);
    bnsput(out, &crc, BNS_INT, 1);
}

// Gets what stands before the body of the next frame: its size. Returns 0; 1 with the reason
// registered when no frame comes; -1 when too little came: it can be asked for again.
inline int get_size(Bns* in, const char* magic, int32_t* size) {
    char head[8];
    if (bnsget(in, head, BNS_BYTE, sizeof head) != 0) return -1;
    char* after_magic = head + 4;
    mi2hi(&after_magic, size, 1);
    if (std::memcmp(head, magic, 4) == 0 && *size >= 0 && *size <= kMostBytes) return 0;
    char* shown = hexdump_string(nullptr, head, sizeof head);
    elog_log(0, "no frame '%s' begins with\n\t%s", magic, shown);
    std::free(shown);
    return 1;
}

// Gets the body of the next frame. False, with the reason registered or told by the stream, when
// there is no frame or it is damaged.
inline bool get_frame(Bns* in, const char* magic, Memory& body) {
    int32_t size;
    uint32_t crc;
    if (get_size(in, magic, &size) != 0 || bnsget(in, body.take(size), BNS_BYTE, size) != 0 ||
        bnsget(in, &crc, BNS_INT, 1) != 0)
        return false;
    if (crc == crc_of(body.bytes(), size)) return true;
    elog_log(0, "a frame with a wrong checksum\n");
    return false;
}

inline void put_request(Bns* out, const Request& request) {
    put_frame(out, kRequest, 16, [&] {
        bnsput(out, &request.recording, BNS_LONG, 1);
        bnsput(out, &request.first, BNS_LONG, 1);
    });
}

inline bool get_request(Bns* in, Request* request, Memory& body) {
    if (!get_frame(in, kRequest, body)) return false;
    if (body.size() == 16 && bnsget(body.stream(), &request->recording, BNS_LONG, 1) == 0 &&
        bnsget(body.stream(), &request->first, BNS_LONG, 1) == 0 && request->first >= -1)
        return true;
    elog_log(0, "a request that can't be read\n");
    return false;
}

// The items of a packet in their order, each handed to move(pointer, type, count): one list for
// putting and for getting.
template <class Move>
void move_header(Packet& packet, Move move) {
    move(&packet.recording, BNS_LONG, 1);
    move(&packet.sequence, BNS_LONG, 1);
    move(&packet.total, BNS_LONG, 1);
    move(packet.station, BNS_BYTE, 8);
    move(packet.channel, BNS_BYTE, 8);
    for (double* item :
         {&packet.time, &packet.rate, &packet.calibration, &packet.period, &packet.released})
        move(item, BNS_DOUBLE, 1);
    move(&packet.codec, BNS_INT, 1);
    move(&packet.nsamp, BNS_INT, 1);
}
constexpr int kHeaderSize = 3 * 8 + 2 * 8 + 5 * 8 + 2 * 4;

inline void put_header(Bns* out, Packet& packet) {
    move_header(packet,
                [&](const void* item, int type, int count) { bnsput(out, item, type, count); });
}

// Puts the body of a packet.
inline void put_body(Bns* out, Packet& packet) {
    put_header(out, packet);
    buf2bns(out, packet.payload.data(), static_cast<int>(packet.payload.size()));
}

inline void put_packet(Bns* out, Packet& packet) {
    const int size = kHeaderSize + static_cast<int>(packet.payload.size());
    put_frame(out, kPacket, size, [&] { put_body(out, packet); });
}

// The same with samples that no codec has packed; there are packet.nsamp of them.
inline void put_raw_packet(Bns* out, Packet& packet, const int32_t* samples) {
    put_frame(out, kPacket, kHeaderSize + 4 * packet.nsamp, [&] {
        put_header(out, packet);
        bnsput(out, samples, BNS_INT, packet.nsamp);
    });
}

inline bool is_sound(const Packet& packet) {
    return packet.sequence >= -1 && packet.sequence < kMostPackets && packet.total > 0 &&
           packet.total <= kMostPackets && packet.station[7] == '\0' && packet.channel[7] == '\0' &&
           std::isfinite(packet.time) && packet.rate > 0 && packet.nsamp >= 0 &&
           packet.nsamp <= kMostSamples;
}

// Gets a packet from a body, which keeps the payload. The memory is room to work in.
inline bool get_body(std::string_view body, Packet* packet, Memory& memory) {
    if (body.size() >= kHeaderSize) {
        std::memcpy(memory.take(kHeaderSize), body.data(), kHeaderSize);
        move_header(*packet, [&](void* item, int type, int count) {
            bnsget(memory.stream(), item, type, count);
        });
        packet->payload = body.substr(kHeaderSize);
        if (is_sound(*packet)) return true;
    }
    elog_log(0, "a packet that can't be read\n");
    return false;
}

// Gets the next packet, whose body the memory keeps.
inline bool get_packet(Bns* in, Packet* packet, Memory& body) {
    Memory header;
    return get_frame(in, kPacket, body) && get_body(body.all(), packet, header);
}

// The CRC-64 of samples as they stand in raw packets.
inline uint64_t crc_of(const int32_t* samples, int n) {
    uint64_t crc = 0;
    char* source = reinterpret_cast<char*>(const_cast<int32_t*>(samples));
    while (n > 0) {
        char bytes[4096];
        const int count = std::min(n, static_cast<int>(sizeof bytes) / 4);
        hi2mi(&source, bytes, count);  // which moves the source on
        vk_crc64(&crc, bytes, 4 * count);
        n -= count;
    }
    return crc;
}

// Adds a packet's station, channel and the CRC-64 of its samples to the CRC-64 of a recording,
// which starts at 0.
inline void add_to_crc(uint64_t* crc, const Packet& packet, uint64_t of_samples) {
    char bytes[24];
    std::memcpy(bytes, packet.station, 8);
    std::memcpy(bytes + 8, packet.channel, 8);
    for (int i = 0; i < 8; ++i) bytes[16 + i] = static_cast<char>(of_samples >> (56 - 8 * i));
    vk_crc64(crc, bytes, sizeof bytes);
}
