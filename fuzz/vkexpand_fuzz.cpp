// Any frame: it expands when zlib expands its stream, and to the same, the buffer never grows
// beyond what deflate can give, a ceiling holds, and what expands comes back when compressed again.
// Bytes that are no frame become what a stream holds, which is then damaged. Frames and large
// outputs end at an unmapped page, because the sanitizers don't see what zlib reads and writes.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "morva.h"

namespace {

constexpr std::size_t kMost = std::size_t{8} << 20;   // of an output buffer
constexpr std::size_t kSmall = std::size_t{4} << 10;  // outputs that vkexpand allocates itself

void require(bool holds) {
    if (!holds) std::abort();
}

// Memory in front of an unmapped page, used again for every input.
class Fenced {
  public:
    Fenced()
        : end_(static_cast<char*>(::mmap(nullptr, kMost + page(), PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        require(end_ != MAP_FAILED);
        end_ += kMost;
        require(::mprotect(end_, page(), PROT_NONE) == 0);
    }
    char* last(std::size_t n) const { return end_ - n; }

  private:
    static std::size_t page() { return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)); }
    char* end_;
};

struct Packet : Vk_packet {
    Packet() : Vk_packet{nullptr, 0, 0} {}
    ~Packet() { std::free(data); }
    Packet(const Packet&) = delete;
    Packet& operator=(const Packet&) = delete;
};

const Bytef* bytes_of(const char* text) {
    return reinterpret_cast<const Bytef*>(text);
}

void check_round_trip(const Vk_packet& text) {
    static Packet again, back;
    if (text.used > 16 * kSmall || vkcompress(&text, &again) > 0) return;
    require(vkexpand(&again, &back) == 0 && back.used == text.used);
    require(std::memcmp(back.data, text.data, text.used) == 0);
}

// zlib's own answer, in the same room.
void check_result(const Vk_packet& frame, const Vk_packet& text, int result) {
    static std::vector<char> by_zlib(kMost);
    uLongf length = text.size;
    const int expected = uncompress(reinterpret_cast<Bytef*>(by_zlib.data()), &length,
                                    bytes_of(frame.data) + 8, frame.used - 8);
    require((result == -1) == (expected != Z_OK));
    if (result != 0) return;
    require(length == text.used && std::memcmp(by_zlib.data(), text.data, length) == 0);
    check_round_trip(text);
}

int check_frame(const Vk_packet& frame) {
    static const Fenced outputs;
    std::uint32_t stated = 0;
    for (std::size_t i = 4; i < 8 && frame.used >= 8; ++i)
        stated = stated << 8 | static_cast<unsigned char>(frame.data[i]);
    const std::size_t room = std::min<std::size_t>(std::size_t{stated} + 10, 1032 * frame.used);
    Packet own;
    Vk_packet large = {outputs.last(std::min(room, kMost)), 0, room};
    Vk_packet& text = room <= kSmall || room > kMost ? own : large;
    const int result = vkexpand(&frame, &text);
    require(text.size <= 1032 * frame.used + 64);
    const bool is_frame = frame.used >= 4 && std::memcmp(frame.data, "zlib", 4) == 0;
    require((result == 1) == !is_frame);
    if (is_frame && frame.used >= 8) check_result(frame, text, result);
    // The fence stands at what the ceiling and 10 bytes allow.
    char* const ceiling = outputs.last(std::min<std::size_t>(room, 1010));
    Vk_packet bounded = {ceiling, 0, std::min<std::size_t>(room, 1010)};
    const int answer = vkexpand_max(&frame, &bounded, 1000);
    require(bounded.data == ceiling && answer == (is_frame && stated > 1000 ? -3 : result));
    return result;
}

// A frame of the bytes after the first, which chooses how deflate works.
Vk_packet framed(std::string_view bytes, const Fenced& place) {
    static z_stream stream;
    static const int begun = deflateInit2(&stream, 1, Z_DEFLATED, 9, 1, Z_DEFAULT_STRATEGY);
    require(begun == Z_OK);
    static char packed[1 << 16];
    const auto way = static_cast<unsigned char>(bytes[0]);
    bytes.remove_prefix(1);
    deflateReset(&stream);
    deflateParams(&stream, way % 10, way / 10 % 5);
    stream.next_in = const_cast<Bytef*>(bytes_of(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed + 8);
    stream.avail_out = sizeof packed - 8;
    require(deflate(&stream, Z_FINISH) == Z_STREAM_END);
    const std::uint32_t stated = __builtin_bswap32(static_cast<std::uint32_t>(bytes.size()));
    std::memcpy(packed, "zlib", 4);
    std::memcpy(packed + 4, &stated, 4);
    const std::size_t length = stream.total_out + 8;
    return {static_cast<char*>(std::memcpy(place.last(length), packed, length)), length, length};
}

void check_bytes(const char* bytes, std::size_t size) {
    static const Fenced frames;
    char* const copy = frames.last(size);
    if (size > 0) std::memcpy(copy, bytes, size);
    if (check_frame({copy, size, size}) != 1 || size < 2 || size > 60000) return;
    const Vk_packet frame = framed({bytes, size}, frames);
    require(check_frame(frame) == 0);
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    char& damaged = frame.data[4 + (at(size - 1) * 256u + at(size / 2)) % (frame.used - 4)];
    damaged = static_cast<char>(damaged ^ (1 << at(0) % 8));
    check_frame(frame);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size <= kMost) check_bytes(reinterpret_cast<const char*>(data), size);
    elog_clear();
    return 0;
}
