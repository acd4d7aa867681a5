// Any frame: it expands when zlib expands its stream, and to the same, the buffer never grows
// beyond what deflate can give, a ceiling holds, and what expands comes back when compressed again.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "morva.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// What zlib makes of the stream, in the same room; nothing when it fails.
std::optional<std::string> by_zlib(const Vk_packet& frame, std::size_t room) {
    std::string text(room, '\0');
    uLongf length = room;
    const int result = uncompress(reinterpret_cast<Bytef*>(text.data()), &length,
                                  reinterpret_cast<const Bytef*>(frame.data) + 8, frame.used - 8);
    if (result != Z_OK) return std::nullopt;
    text.resize(length);
    return text;
}

void check_result(const Vk_packet& frame, Vk_packet& text, int result) {
    const auto expected = by_zlib(frame, text.size);
    require((result == -1) == !expected.has_value());
    if (result != 0) return;
    require(*expected == std::string(text.data, text.used));
    Vk_packet again = {nullptr, 0, 0}, back = {nullptr, 0, 0};
    if (vkcompress(&text, &again) <= 0) {
        require(vkexpand(&again, &back) == 0 && back.used == text.used);
        require(std::memcmp(back.data, text.data, text.used) == 0);
    }
    std::free(again.data);
    std::free(back.data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data), size);
    const Vk_packet frame = {bytes.data(), bytes.size(), bytes.size()};
    Vk_packet text = {nullptr, 0, 0}, small = {nullptr, 0, 0};
    const int result = vkexpand(&frame, &text);
    require(text.size <= 1032 * size + 64);
    require((result == 1) == (size < 4 || std::memcmp(data, "zlib", 4) != 0));
    if (result != 1 && size >= 8) check_result(frame, text, result);
    const int bounded = vkexpand_max(&frame, &small, 1000);
    require(bounded == result || (bounded == -3 && small.data == nullptr));
    require(small.size <= 1010);
    std::free(text.data);
    std::free(small.data);
    elog_clear();
    return 0;
}
