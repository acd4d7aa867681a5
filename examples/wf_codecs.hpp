// The codecs of the library behind one face, for programs that compare or convert: each turns a
// series of 32-bit samples into bytes and back.
//
//     Bytes packed;
//     Series back;
//     for (const Codec& codec : codecs())
//         if (codec.encode(samples, packed) && codec.decode(packed.view(), back)) ...
//
// Formats that do not hold the number of samples are read without it: it follows from the bytes.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "morva.h"

using Samples = std::span<const std::int32_t>;

// A buffer that an encoder fills, and makes larger as it needs to.
struct Bytes {
    char* data = nullptr;
    int used = 0;
    int size = 0;
    Bytes() = default;
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    ~Bytes() { std::free(data); }
    std::string_view view() const { return {data, static_cast<std::size_t>(used)}; }
};

// A buffer that a decoder fills. It serves one codec: some measure `size` in bytes, some in
// samples.
struct Series {
    std::int32_t* data = nullptr;
    int count = 0;
    int size = 0;
    int most = INT_MAX;  // samples that are wanted: no codec whose bytes may hide more gives them
    Series() = default;
    Series(const Series&) = delete;
    Series& operator=(const Series&) = delete;
    ~Series() { std::free(data); }
    Samples view() const { return {data, static_cast<std::size_t>(count)}; }
};

struct Codec {
    const char* name;
    int block;  // series must be a multiple of this long
    // False with the reason registered: the format cannot hold the series.
    bool (*encode)(Samples samples, Bytes& bytes);
    // False with the reason registered: no bytes of this format, or damaged ones.
    bool (*decode)(std::string_view bytes, Series& series);
};

// The routines of C measure in int.
inline bool fits(std::size_t n) {
    if (n <= INT_MAX) return true;
    elog_log(0, "%zu are too many: at most %d", n, INT_MAX);
    return false;
}

// Calls an encoder of the library with the buffer and the number of samples.
template <class Byte, class Encode>
bool encode_into(Bytes& bytes, Samples samples, Encode encode) {
    if (!fits(samples.size())) return false;
    Byte* data = reinterpret_cast<Byte*>(bytes.data);
    const int result = encode(&data, static_cast<int>(samples.size()));
    bytes.data = reinterpret_cast<char*>(data);
    return result == 0;
}

inline bool encode_cm6(Samples samples, Bytes& bytes) {
    return encode_into<char>(bytes, samples, [&](char** data, int n) {
        return cm6(samples.data(), n, data, &bytes.used, &bytes.size);
    });
}

inline bool decode_cm6(std::string_view bytes, Series& series) {
    return fits(bytes.size()) && um6(bytes.data(), static_cast<int>(bytes.size()), &series.data,
                                     &series.count, &series.size) >= 0;
}

constexpr int kCanadianBlock = 20;

inline bool encode_canada(Samples samples, Bytes& bytes) {
    if (samples.size() < kCanadianBlock) {
        elog_log(0, "a block has 20 samples, and there are fewer");
        return false;
    }
    return encode_into<unsigned char>(bytes, samples, [&](unsigned char** data, int n) {
        return ccanada(samples.data(), n, data, &bytes.used, &bytes.size);
    });
}

// What the packed values of a block take.
inline std::size_t canadian_block_bytes(unsigned key) {
    std::size_t bytes = 0;
    for (int shift = 12; shift >= 0; shift -= 3) {
        const std::size_t code = key >> shift & 7;
        bytes += 2 + (key >> 15 != 0 ? 2 * code : code);
    }
    return bytes;
}

// The number of samples, or -1. Each block adds 12 bytes at least and up to four may follow the
// last one, so that one number at most fits.
inline int canadian_samples(std::string_view bytes) {
    std::size_t needed = 4;
    for (std::size_t blocks = 0; needed <= bytes.size() && 2 * blocks + 1 < bytes.size();) {
        const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
        const unsigned key = static_cast<unsigned>(byte(2 * blocks) << 8 | byte(2 * blocks + 1));
        needed += 2 + canadian_block_bytes(key);
        ++blocks;
        if (needed <= bytes.size() && bytes.size() <= needed + 4)
            return blocks <= INT_MAX / kCanadianBlock ? static_cast<int>(blocks) * kCanadianBlock
                                                      : -1;
    }
    return -1;
}

// With the sample behind the series, unless there was none: then it counts as the smallest number.
inline bool decode_canada(std::string_view bytes, Series& series) {
    int samples = canadian_samples(bytes);
    if (!fits(bytes.size()) || samples < 0) {
        if (samples < 0) elog_log(0, "the keys of no number of blocks ask for these bytes");
        return false;
    }
    if (ucanada(reinterpret_cast<const unsigned char*>(bytes.data()),
                static_cast<int>(bytes.size()), &series.data, &samples, &series.size) < 0)
        return false;
    series.count = series.data[samples] != INT32_MIN ? samples + 1 : samples;
    return true;
}

inline bool encode_ucsd(Samples samples, Bytes& bytes) {
    return encode_into<char>(bytes, samples, [&](char** data, int n) {
        return cucsd_try(samples.data(), n, data, &bytes.used, &bytes.size);
    });
}

// Half a byte a sample is the least, so there is room for all that the runs can give.
inline bool decode_ucsd(std::string_view bytes, Series& series) {
    if (!fits(bytes.size())) return false;
    const int most = static_cast<int>(std::min<std::size_t>(2 * bytes.size(), INT_MAX));
    if (series.size < most) {
        std::free(series.data);
        series.data = static_cast<std::int32_t*>(std::malloc(4 * static_cast<std::size_t>(most)));
        if (series.data == nullptr) elog_die(1, "out of memory for samples");
        series.size = most;
    }
    char* cursor = const_cast<char*>(bytes.data());
    series.count = uucsd_anyway(series.data, &cursor, static_cast<int>(bytes.size()), most);
    const long left = bytes.data() + bytes.size() - cursor;
    if (left > 0) elog_log(0, "no run of samples in the last %ld bytes", left);
    return left == 0;
}

inline bool encode_gencompress(Samples samples, Bytes& bytes) {
    return encode_into<unsigned char>(bytes, samples, [&](unsigned char** data, int n) {
        return gencompress(data, &bytes.used, &bytes.size, samples.data(), n, 0);
    });
}

inline bool decode_gencompress(std::string_view bytes, Series& series) {
    return fits(bytes.size()) && genuncompress(&series.data, &series.count, &series.size,
                                               reinterpret_cast<const unsigned char*>(bytes.data()),
                                               static_cast<int>(bytes.size())) == 0;
}

// The samples as they stand in packets: big-endian.
inline std::string packet_of(Samples samples) {
    std::string packet(4 * samples.size(), '\0');
    char* source = reinterpret_cast<char*>(const_cast<std::int32_t*>(samples.data()));
    hi2mi(&source, packet.data(), static_cast<long>(samples.size()));
    return packet;
}

inline bool read_packet(std::string_view packet, Series& series) {
    if (packet.size() % 4 != 0 || !fits(packet.size())) {
        elog_log(0, "%zu bytes are no whole number of samples", packet.size());
        return false;
    }
    series.count = static_cast<int>(packet.size() / 4);
    if (series.size < series.count) {
        std::free(series.data);
        series.data = static_cast<std::int32_t*>(std::malloc(packet.size()));
        if (series.data == nullptr) elog_die(1, "out of memory for samples");
        series.size = series.count;
    }
    char* source = const_cast<char*>(packet.data());
    mi2hi(&source, series.data, series.count);
    return true;
}

// One frame. Packets of less than 101 bytes stay as they are.
inline bool encode_vkcompress(Samples samples, Bytes& bytes) {
    std::string packet = packet_of(samples);
    if (!fits(packet.size())) return false;
    const Vk_packet in = {packet.data(), packet.size(), packet.size()};
    Vk_packet out = {bytes.data, 0, static_cast<std::size_t>(bytes.size)};
    const int result = vkcompress(&in, &out);
    bytes.data = out.data;
    bytes.size = static_cast<int>(out.size);
    bytes.used = static_cast<int>(out.used);
    if (result != 1) return result != -1;
    if (static_cast<std::size_t>(bytes.size) < packet.size()) {
        bytes.data = static_cast<char*>(std::realloc(bytes.data, packet.size()));
        if (bytes.data == nullptr) elog_die(1, "out of memory for a packet");
        bytes.size = static_cast<int>(packet.size());
    }
    bytes.used = static_cast<int>(packet.copy(bytes.data, packet.size()));
    return true;
}

inline bool decode_vkcompress(std::string_view bytes, Series& series) {
    std::string frame(bytes);
    const Vk_packet in = {frame.data(), frame.size(), frame.size()};
    Vk_packet out = {nullptr, 0, 0};
    const std::size_t most = 4 * static_cast<std::size_t>(series.most);
    const int result = vkexpand_max(&in, &out, std::min<std::size_t>(most, INT_MAX));
    bool good = false;
    if (result == 0)
        good = read_packet({out.data, out.used}, series);
    else if (result == 1 && bytes.size() < 101)
        good = read_packet(bytes, series);
    else if (result == 1)
        elog_log(0, "does not begin with \"zlib\"");
    std::free(out.data);
    return good;
}

inline std::span<const Codec> codecs() {
    static constexpr Codec kCodecs[] = {
        {"cm6", 1, encode_cm6, decode_cm6},
        {"canada", kCanadianBlock, encode_canada, decode_canada},
        {"ucsd", 1, encode_ucsd, decode_ucsd},
        {"gencompress", 1, encode_gencompress, decode_gencompress},
        {"vkcompress", 1, encode_vkcompress, decode_vkcompress},
    };
    return kCodecs;
}

// Null when there is none of the name.
inline const Codec* find_codec(std::string_view name) {
    for (const Codec& codec : codecs())
        if (name == codec.name) return &codec;
    return nullptr;
}

// The samples behind the last whole block, which a codec of blocks cannot take; a single one it
// can.
inline std::size_t left_over(const Codec& codec, std::size_t samples) {
    const std::size_t block = static_cast<std::size_t>(codec.block), rest = samples % block;
    return rest == 1 && samples > block ? 0 : rest;
}

// The samples with the last one repeated to the end of its block, where the codec needs that.
inline std::vector<std::int32_t> filled_up(const Codec& codec, Samples samples) {
    std::vector<std::int32_t> filled(samples.begin(), samples.end());
    if (const std::size_t rest = left_over(codec, samples.size()); rest > 0)
        filled.insert(filled.end(), static_cast<std::size_t>(codec.block) - rest, samples.back());
    return filled;
}

// Takes the texts that were registered since the mark.
inline std::string taken_reason(int mark) {
    std::string reason;
    Tbl* messages = nullptr;
    elog_query(ELOG_TBL, 0, &messages);
    for (long i = mark; i < maxtbl(messages); ++i) {
        reason += reason.empty() ? "" : "; ";
        reason += static_cast<const Elog_msg*>(gettbl(messages, i))->msg;
        reason.erase(reason.find_last_not_of('\n') + 1);
    }
    elog_flush(0, mark);
    return reason;
}
