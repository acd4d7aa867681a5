// Any bytes in place of the frames that a server sends: what is taken for a packet is one that
// could be sent, and is decoded or refused.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../examples/acquisition/codecs.hpp"
#include "../examples/acquisition/packet.hpp"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// A body that is understood is written as it was.
void check_body(std::string_view bytes, Memory& body) {
    Packet packet;
    if (!get_body(bytes, &packet, body)) return;
    require(packet.nsamp >= 0 && packet.nsamp <= kMostSamples && packet.rate > 0);
    static Decoders decoders;
    Samples samples;
    if (decoders.decode(packet.codec, packet.payload, packet.nsamp, &samples)) {
        require(samples.size() == static_cast<std::size_t>(packet.nsamp));
        uint64_t crc = 0;
        add_to_crc(&crc, packet, crc_of(samples.data(), packet.nsamp));
    }
    static Memory again, frame, inner;
    bnsclr(again.stream());
    put_body(again.stream(), packet);
    require(again.all() == bytes);
    bnsclr(frame.stream());
    put_packet(frame.stream(), packet);
    require(get_frame(frame.stream(), kPacket, inner) && inner.all() == bytes);
}

// Frames one behind the other, as a stream has them.
void check_frames(const uint8_t* data, size_t size, Memory& body) {
    static Memory stream;
    bnsclr(stream.stream());
    buf2bns(stream.stream(), data, static_cast<int>(size));
    Packet packet;
    for (int left = stream.size(); get_packet(stream.stream(), &packet, body);) {
        require(stream.size() <= left - 12 - kHeaderSize);
        left = stream.size();
    }
    Request request;
    stream.stream()->fp = 0;
    if (get_request(stream.stream(), &request, body)) require(request.first >= -1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Memory body;
    check_body({reinterpret_cast<const char*>(data), std::min<size_t>(size, kMostBytes)}, body);
    check_frames(data, size, body);
    // The register ends a process that keeps fifty reasons.
    elog_clear();
    return 0;
}
