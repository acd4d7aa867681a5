#include "morva/vkcompress.h"

#include <sys/mman.h>
#include <zlib.h>

#include <thread>

#include "base/memory.hpp"
#include "digest/checksums_kit.hpp"

namespace {

struct Buffer : Vk_packet {
    Buffer() : Vk_packet{nullptr, 0, 0} {}
    ~Buffer() { std::free(data); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    std::string text() const { return {data, used}; }
};

Vk_packet packet_of(std::string& text) {
    return {text.data(), text.size(), text.size()};
}

std::string frame_of(std::string text) {
    Buffer out;
    const Vk_packet in = packet_of(text);
    EXPECT_LE(vkcompress(&in, &out), 0);
    return out.text();
}

// What vkexpand makes of a frame that ends at an unmapped page.
struct Expanded {
    int result;
    std::string text;
    std::string reason;
};
Expanded expanded(std::string_view frame, Buffer& out) {
    kit::Logged logged;
    kit::Guarded guarded(frame);
    const Vk_packet in = {guarded.data(), guarded.size(), guarded.size()};
    const int result = vkexpand(&in, &out);
    return {result, out.text(), logged.text()};
}
Expanded expanded(std::string_view frame) {
    Buffer out;
    return expanded(frame, out);
}

void state_length(std::string& frame, uint32_t length) {
    for (int i = 0; i < 4; ++i)
        frame[static_cast<size_t>(4 + i)] = static_cast<char>(length >> (24 - 8 * i));
}

TEST(Vkcompress, LeavesShortPacketsAlone) {
    Buffer out;
    out.used = 7;
    std::string text(100, '\0');
    Vk_packet in = packet_of(text);
    EXPECT_EQ(vkcompress(&in, &out), 1);
    EXPECT_EQ(out.used, 0u);
    EXPECT_EQ(out.data, nullptr);
    text.push_back('\0');
    in = packet_of(text);
    EXPECT_EQ(vkcompress(&in, &out), 0);
    EXPECT_EQ(out.text().substr(0, 8), std::string("zlib\0\0\0\x65", 8));
    EXPECT_EQ(expanded(out.text()).text, text);
}

TEST(Vkcompress, WritesTheStreamOfCompress) {
    for (const size_t n : {101u, 16384u, 300000u})
        for (const bool noisy : {false, true}) {
            std::string text = noisy ? kit::noise(n) : std::string(n, 'x');
            std::string stream(compressBound(n), '\0');
            uLong length = stream.size();
            ::compress(reinterpret_cast<Bytef*>(stream.data()), &length, kit::bytes_of(text), n);
            stream.resize(length);
            Buffer out;
            const Vk_packet in = packet_of(text);
            EXPECT_EQ(vkcompress(&in, &out), noisy ? -2 : 0);
            EXPECT_EQ(out.text().substr(8), stream);
            const Expanded back = expanded(out.text());
            EXPECT_EQ(back.result, 0);
            EXPECT_EQ(back.text, text);
        }
}

TEST(Vkcompress, AllocatesOnlyWhatIsTooSmall) {
    std::string text = kit::noise(5000);
    const Vk_packet in = packet_of(text);
    Buffer frame, back;
    for (int round = 0; round < 3; ++round) {
        morva::fail_allocation(1000, false);  // counts
        vkcompress(&in, &frame);
        vkexpand(&frame, &back);
        EXPECT_EQ(morva::allocations_seen() > 0, round == 0);
    }
    morva::fail_allocation(0, false);
    EXPECT_EQ(back.text(), text);
    std::string small(500, 'a');
    const char* const data = back.data;
    EXPECT_EQ(expanded(frame_of(small), back).text, small);
    EXPECT_EQ(back.data, data);
    Buffer short_of_room, without_data;
    short_of_room.data = static_cast<char*>(std::malloc(1));
    short_of_room.size = 1;
    without_data.size = 1000;
    for (Buffer* out : {&short_of_room, &without_data}) {
        EXPECT_EQ(expanded(frame_of(small), *out).text, small);
        EXPECT_EQ(out->size, 510U);
    }
}

TEST(Vkcompress, RefusesWhatAFrameCannotState) {
    kit::Logged logged;
    Buffer out;
    char byte = 0;
    const Vk_packet in = {&byte, size_t{1} << 32, size_t{1} << 32};
    EXPECT_EQ(vkcompress(&in, &out), -1);
    EXPECT_EQ(out.data, nullptr);
    EXPECT_THAT(logged.text(), testing::HasSubstr("4294967296 bytes are too many for a frame"));
}

// A thread's state ends with the thread, and what other ends of the thread compress still works.
TEST(Vkcompress, WorksInThreadsToTheirEnd) {
    struct Last {
        std::string* text = nullptr;
        ~Last() {
            if (text != nullptr) *text = expanded(frame_of(std::string(200, 'b'))).text;
        }
    };
    std::string last;
    std::thread([&] {
        static thread_local Last at_end;
        at_end.text = &last;
        frame_of(std::string(300, 'c'));
    }).join();
    EXPECT_EQ(last, std::string(200, 'b'));
}

TEST(Vkexpand, TellsWhatIsNoFrame) {
    for (const char* text : {"", "z", "zli", "zlip12345678", "a packet"}) {
        Buffer out;
        const Expanded seen = expanded(text, out);
        EXPECT_EQ(seen.result, 1) << text;
        EXPECT_EQ(seen.reason, "");
        EXPECT_EQ(out.data, nullptr);
    }
}

TEST(Vkexpand, RefusesWrongLengths) {
    const std::string text(2000, 'y');
    const struct {
        int difference;
        int result;
        const char* reason;
    } rows[] = {
        {1, -2, "uncompress fails, returning 2000 bytes instead of 2001\n"},
        {100000000, -2, "uncompress fails, returning 2000 bytes instead of 100002000\n"},
        {-1, -2, "vkexpand: zlib uncompress fails, returning 2000 bytes instead of 1999\n"},
        {-10, -2, "uncompress fails, returning 2000 bytes instead of 1990\n"},
        // There is no room for the stream.
        {-11, -1, "vkexpand: zlib uncompress fails, returning -5\n"},
    };
    for (const auto& row : rows) {
        std::string frame = frame_of(text);
        state_length(frame, static_cast<uint32_t>(2000 + row.difference));
        const Expanded seen = expanded(frame);
        EXPECT_EQ(seen.result, row.result) << row.difference;
        EXPECT_THAT(seen.reason, testing::HasSubstr(row.reason));
        EXPECT_EQ(seen.text, "");
    }
}

TEST(Vkexpand, RefusesDamage) {
    const std::string text = kit::noise(150) + std::string(500, 'q');
    const std::string frame = frame_of(text);
    for (size_t n = 4; n < frame.size(); ++n) {
        const Expanded seen = expanded(std::string_view(frame).substr(0, n));
        ASSERT_EQ(seen.result, -1) << n;
        ASSERT_THAT(seen.reason, testing::HasSubstr("uncompress fails, returning -3"));
    }
    for (size_t i = 8; i < frame.size(); ++i) {
        std::string damaged = frame;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x20);
        const Expanded seen = expanded(damaged);  // a bit of padding harms nothing
        ASSERT_TRUE(seen.result < 0 || seen.text == text) << i;
    }
    std::string dictionary = frame;
    dictionary[9] = static_cast<char>(0xbb);  // preset dictionary wanted
    EXPECT_THAT(expanded(dictionary).reason, testing::HasSubstr("returning -3"));
    EXPECT_EQ(expanded(frame + "behind the stream").result, 0);
}

TEST(Vkexpand, DoesNotAllocateWhatAStreamCannotGive) {
    std::string frame = frame_of(std::string(101, 'z'));
    state_length(frame, 0xffffffff);
    Buffer out;
    EXPECT_EQ(expanded(frame, out).result, -2);
    EXPECT_LE(out.size, 1032 * frame.size() + 64);
    const std::string zeros(1000000, '\0');
    EXPECT_EQ(expanded(frame_of(zeros)).text, zeros);
}

// zlib counts in 32 bits. What lies behind the stream, and behind the text, is not touched.
TEST(Vkexpand, TakesMoreRoomThan32BitsCount) {
    constexpr size_t kSize = size_t{5} << 30;
    void* const mapped = mmap(nullptr, 2 * kSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED) GTEST_SKIP() << "no room";
    Vk_packet in = {static_cast<char*>(mapped), kSize, kSize};
    Vk_packet out = {in.data + kSize, 0, kSize};
    const std::string text(3000, 'x'), frame = frame_of(text);
    frame.copy(in.data, frame.size());
    EXPECT_EQ(vkexpand(&in, &out), 0);
    EXPECT_EQ(std::string(out.data, out.used), text);
    munmap(mapped, 2 * kSize);
}

TEST(VkexpandMax, RefusesLargeFramesUnseen) {
    std::string frame = frame_of(std::string(1000, 'z'));
    const Vk_packet in = packet_of(frame);
    Buffer out;
    kit::Logged logged;
    EXPECT_EQ(vkexpand_max(&in, &out, 999), -3);
    EXPECT_EQ(out.data, nullptr);
    EXPECT_THAT(logged.text(),
                testing::HasSubstr("vkexpand: a frame of 1000 bytes, 999 are allowed"));
    EXPECT_EQ(vkexpand_max(&in, &out, 1000), 0);
    EXPECT_EQ(out.used, 1000u);
}

// Compresses and expands with the nth allocation failing, in a thread that has no state yet, and
// tells how many allocations there were.
long allocations(long nth) {
    long seen = 0;
    std::thread([&] {
        std::string text(200, 'x');
        const Vk_packet in = packet_of(text);
        Buffer out, back;
        morva::fail_allocation(nth, true);
        vkcompress(&in, &out);
        vkexpand(&out, &back);
        seen = morva::allocations_seen();
        morva::fail_allocation(0, false);
    }).join();
    return seen;
}

TEST(VkcompressDeathTest, RunningOutOfMemoryIsFatal) {
    const long all = allocations(1000);
    for (long nth = 1; nth <= all; ++nth) {
        const char* const what = nth == 1 ? "vkcompress at line .* bytes for out->data"
                                          : "Out of memory in .* bytes for (out->data|zlib state)";
        EXPECT_EXIT(allocations(nth), testing::ExitedWithCode(1), what) << nth;
    }
}

}  // namespace
