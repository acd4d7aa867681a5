#include "digest/adler32.hpp"

#include <zlib.h>

#include "digest/checksums_kit.hpp"
#include "morva/checksums.h"

namespace {

TEST(Adler32, IsThatOfZlib) {
    EXPECT_EQ(vk_adler32(1, "Wikipedia", 9), 0x11e60398u);
    EXPECT_EQ(vk_adler32(77, nullptr, 9), 1u);
    EXPECT_EQ(vk_adler32(77, "", 0), 77u);
    // The sums are largest in runs of 0xff from the largest start values.
    for (const std::string& text : {kit::noise(20000), std::string(20000, '\xff')})
        for (const std::size_t n : {1u, 2u, 15u, 16u, 5551u, 5552u, 5553u, 11104u, 20000u})
            for (const uint32_t start : {1u, 0xfff0fff0u})
                EXPECT_EQ(vk_adler32(start, text.data(), static_cast<int>(n)),
                          adler32(start, kit::bytes_of(text), static_cast<uInt>(n)))
                    << n;
}

TEST(Adler32, IsTheSameByEveryVersion) {
    for (const std::string& text : {kit::noise(20000), std::string(20000, '\xff')})
        for (const auto& version : morva::adler::versions()) {
            if (!version.runs()) continue;
            for (size_t n = 0; n <= text.size(); n += n < 300 ? 1 : 499) {
                const kit::Guarded guarded(std::string_view(text).substr(0, n));
                const unsigned char* bytes = kit::bytes_of({guarded.data(), n});
                for (const uint32_t start : {1u, 0xfff0fff0u})
                    ASSERT_EQ(version.add(start, bytes, n),
                              morva::adler::add_plain(start, bytes, n))
                        << version.name << " " << n;
            }
        }
}

TEST(Adler32, CombinesFromPieces) {
    const std::string text = kit::noise(9000);
    const uint32_t whole = vk_adler32(1, text.data(), 9000);
    for (const int at : {0, 1, 4000, 8999, 9000}) {
        const uint32_t first = vk_adler32(1, text.data(), at);
        const uint32_t second = vk_adler32(1, text.data() + at, 9000 - at);
        EXPECT_EQ(vk_adler32_combine(first, second, 9000 - at), whole) << at;
    }
    const uint32_t zeros = vk_adler32(1, std::string(65521, '\0').data(), 65521);
    EXPECT_EQ(vk_adler32_combine(whole, zeros, 65521), whole);
}

}  // namespace
