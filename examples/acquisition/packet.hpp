// Packets of waveforms, as wfserver sends them and wfclient reads them over a stream.
//
// A client connects and sends one request; the server answers with packets until either side
// closes. Both travel in frames, all items in the machine-independent order of bytes:
//
//     4 bytes  "WFR1" for a request, "WFP1" for a packet
//     int      bytes of the body
//     ...      the body
//     int      CRC-32 of the body
//
//     request: long   CRC-64 of the recording that the client knows, 0 for none
//              long   sequence number of the first packet that it wants; -1: from now on
//
//     packet:  long   CRC-64 of the recording
//              long   sequence number, from 0; -1: a sign of life without samples
//              long   packets of the recording; later numbers belong to its repetitions
//              8 + 8  station and channel, padded with zeros
//              double time of the first sample, samples a second, calibration (nm a count), its
//                     period, and the time when the server had the packet
//              int    codec, as codecs.hpp numbers them
//              int    samples
//              ...    the samples in that codec
//
// What a packet holds depends on the recording and the sequence number alone, never on the state of
// the server: whoever asks for the packets behind the last one it has misses none.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "morva.h"

constexpr char kRequest[] = "WFR1";
constexpr char kPacket[] = "WFP1";
constexpr int kMostSamples = 10000;  // of a packet
constexpr int kMostBytes = 200000;   // of a body

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
    std::string payload;
};

// A stream without a descriptor: what is put to it can be got from it, or taken as bytes.
class Memory {
  public:
    Memory() : bns_(bnsnew(-1, 0)) {}
    ~Memory() { bnsfree(bns_); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    Bns* stream() { return bns_; }
    const char* bytes() const { return bns_->data + bns_->fp; }
    int size() const { return static_cast<int>(bns_->lp - bns_->fp); }

  private:
    Bns* bns_;
};

inline uint32_t crc_of(const char* bytes, int n) {
    uint32_t crc = 0xffffffff;
    return vk_crc32(&crc, bytes, n);
}

// Puts a frame around what is in the memory. Nothing is sent before the stream is flushed.
inline void put_frame(Bns* out, const char* magic, Memory& body) {
    const int size = body.size();
    const uint32_t crc = crc_of(body.bytes(), size);
    bnsput(out, magic, BNS_BYTE, 4);
    bnsput(out, &size, BNS_INT, 1);
    bnsput(out, body.bytes(), BNS_BYTE, size);
    bnsput(out, &crc, BNS_INT, 1);
}

// Gets the body of the next frame. False, with the reason registered or told by the stream, when
// there is none or it is damaged.
inline bool get_frame(Bns* in, const char* magic, Memory& body) {
    int32_t size;
    uint32_t crc;
    if (bnspeek(in, magic) != 0 || bnsget(in, &size, BNS_INT, 1) != 0) return false;
    if (size < 0 || size > kMostBytes) {
        elog_log(0, "a frame of %d bytes\n", size);
        return false;
    }
    std::vector<char> bytes(static_cast<std::size_t>(size));
    if (bnsget(in, bytes.data(), BNS_BYTE, size) != 0 || bnsget(in, &crc, BNS_INT, 1) != 0)
        return false;
    bnsclr(body.stream());
    buf2bns(body.stream(), bytes.data(), size);
    if (crc == crc_of(bytes.data(), size)) return true;
    elog_log(0, "a frame with a wrong checksum\n");
    return false;
}

inline void put_request(Bns* out, const Request& request, Memory& body) {
    bnsclr(body.stream());
    bnsput(body.stream(), &request.recording, BNS_LONG, 1);
    bnsput(body.stream(), &request.first, BNS_LONG, 1);
    put_frame(out, kRequest, body);
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

// Puts the body of a packet into the memory.
inline void put_body(Memory& body, Packet& packet) {
    bnsclr(body.stream());
    move_header(packet,
                [&](void* item, int type, int count) { bnsput(body.stream(), item, type, count); });
    buf2bns(body.stream(), packet.payload.data(), static_cast<int>(packet.payload.size()));
}

inline void put_packet(Bns* out, Packet& packet, Memory& body) {
    put_body(body, packet);
    put_frame(out, kPacket, body);
}

inline bool is_sound(const Packet& packet) {
    return packet.sequence >= -1 && packet.total > 0 && packet.station[7] == '\0' &&
           packet.channel[7] == '\0' && std::isfinite(packet.time) && packet.rate > 0 &&
           packet.nsamp >= 0 && packet.nsamp <= kMostSamples;
}

// Gets a packet from the body that is in the memory.
inline bool get_body(Memory& body, Packet* packet) {
    if (body.size() >= kHeaderSize) {
        move_header(*packet, [&](void* item, int type, int count) {
            bnsget(body.stream(), item, type, count);
        });
        packet->payload.assign(body.bytes(), body.bytes() + body.size());
        if (is_sound(*packet)) return true;
    }
    elog_log(0, "a packet that can't be read\n");
    return false;
}

inline bool get_packet(Bns* in, Packet* packet, Memory& body) {
    return get_frame(in, kPacket, body) && get_body(body, packet);
}

// Adds a packet's station, channel and samples to the CRC-64 of a recording, which starts at 0.
inline void add_to_crc(uint64_t* crc, const Packet& packet, const int32_t* samples) {
    std::vector<char> bytes(static_cast<std::size_t>(packet.nsamp) * 4);
    char* source = reinterpret_cast<char*>(const_cast<int32_t*>(samples));
    hi2mi(&source, bytes.data(), packet.nsamp);
    vk_crc64(crc, packet.station, 8);
    vk_crc64(crc, packet.channel, 8);
    vk_crc64(crc, bytes.data(), static_cast<int>(bytes.size()));
}
