// Packets compressed with zlib, in a frame: "zlib", the length of what is inside (32 bits,
// big-endian), a zlib stream. See docs/formats/vkcompress.md.
#include "morva/vkcompress.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "codec/zlib_state.hpp"

namespace {

constexpr char kMagic[] = {'z', 'l', 'i', 'b'};
constexpr std::size_t kHeader = sizeof kMagic + sizeof(std::uint32_t);
constexpr std::size_t kShortest = 101;    // packets below are not worth the work
constexpr std::size_t kSpare = 10;        // room beyond the stated length: shows longer streams
constexpr std::size_t kExpansion = 1032;  // deflate gives at most so many bytes for one

std::uint32_t big_endian(std::uint32_t word) {
    return std::endian::native == std::endian::little ? __builtin_bswap32(word) : word;
}

// Bytes needed for the stream of `n` bytes at the worst: zlib's own bound, without its overflow.
std::size_t stream_bound(std::size_t n) {
    return n + (n >> 12) + (n >> 14) + (n >> 25) + 13;
}

bool is_frame(const Vk_packet* in) {
    return in->used >= sizeof kMagic && std::memcmp(in->data, kMagic, sizeof kMagic) == 0;
}

// The length that a frame states; 0 when the frame ends before it.
std::uint32_t stated_length(const Vk_packet* in) {
    if (in->used < kHeader) return 0;
    std::uint32_t word;
    std::memcpy(&word, in->data + sizeof kMagic, sizeof word);
    return big_endian(word);
}

void make_room(Vk_packet* out, std::size_t size, const char* what, morva::Site site) {
    if (out->size >= size && out->data != nullptr) return;
    if (out->size > 0) std::free(out->data);
    out->data = static_cast<char*>(morva::must_calloc(1, size, what, site));
    out->size = size;
}

int zlib_fails(int result) {
    elog_log(0, "vkexpand: zlib uncompress fails, returning %d", result);
    return -1;
}

int expand(const Vk_packet* in, Vk_packet* out, morva::Site site) {
    const std::uint32_t stated = stated_length(in);
    if (in->used < kHeader) return zlib_fails(Z_DATA_ERROR);
    const std::size_t stream = in->used - kHeader;
    make_room(out, std::min(stated + kSpare, kExpansion * stream + 64), "out->data", site);
    std::size_t length = 0;
    const int result =
        morva::zlib::inflate_bytes(in->data + kHeader, stream, out->data, out->size, &length);
    if (result != Z_OK) return zlib_fails(result);
    if (length != stated) {
        elog_log(0, "vkexpand: zlib uncompress fails, returning %lu bytes instead of %u",
                 static_cast<unsigned long>(length), stated);
        return -2;
    }
    out->used = length;
    return 0;
}

}  // namespace

extern "C" {

int vkcompress(const Vk_packet* in, Vk_packet* out) {
    if (in->used < kShortest) {
        out->used = 0;
        return 1;
    }
    if (in->used > UINT32_MAX) {
        elog_log(0, "vkcompress: %lu bytes are too many for a frame",
                 static_cast<unsigned long>(in->used));
        return -1;
    }
    make_room(out, kHeader + stream_bound(in->used), "out->data", MORVA_HERE);
    std::size_t length = 0;
    const int result = morva::zlib::deflate_bytes(in->data, in->used, out->data + kHeader,
                                                  out->size - kHeader, &length);
    if (result != Z_OK) {
        elog_log(0, "vkcompress: zlib compress fails, returning %d", result);
        return -1;
    }
    const std::uint32_t stated = big_endian(static_cast<std::uint32_t>(in->used));
    std::memcpy(out->data, kMagic, sizeof kMagic);
    std::memcpy(out->data + sizeof kMagic, &stated, sizeof stated);
    out->used = kHeader + length;
    return out->used <= in->used ? 0 : -2;
}

int vkexpand(const Vk_packet* in, Vk_packet* out) {
    return is_frame(in) ? expand(in, out, MORVA_HERE) : 1;
}

int vkexpand_max(const Vk_packet* in, Vk_packet* out, size_t most) {
    if (is_frame(in) && stated_length(in) > most) {
        elog_log(0, "vkexpand: a frame of %u bytes, %lu are allowed", stated_length(in),
                 static_cast<unsigned long>(most));
        return -3;
    }
    return vkexpand(in, out);
}
}
