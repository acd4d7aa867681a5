#include "morva/md5.h"

#include <utility>

#include "digest/checksums_kit.hpp"

namespace {

std::string md5_of(std::string_view text) {
    char hex[34] = "................................x";
    hex[33] = '!';
    EXPECT_EQ(mdhex(hex, text.data(), kit::count_of(text)), hex);
    EXPECT_EQ(hex[33], '!');
    return hex;
}

// The test suite of RFC 1321.
const std::pair<const char*, const char*> kSuite[] = {
    {"", "d41d8cd98f00b204e9800998ecf8427e"},
    {"a", "0cc175b9c0f1b6a831c399e269772661"},
    {"abc", "900150983cd24fb0d6963f7d28e17f72"},
    {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
    {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
    {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
     "d174ab98d277d9f5a5611c2c9f419d9f"},
    {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "57edf4a22be3c955ac49da2e2107b67a"}};

TEST(Md5, IsThatOfTheStandard) {
    for (const auto& [text, digest] : kSuite) EXPECT_EQ(md5_of(text), digest);
    EXPECT_EQ(md5_of(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
    char hex[33];
    EXPECT_STREQ(mdhex(hex, nullptr, 0), kSuite[0].second);
    EXPECT_STREQ(mdhex(hex, "a", -1), kSuite[0].second);
}

// Every length around the places where the padding needs another block, in pieces of every size.
TEST(Md5, IsTheSameInPieces) {
    const std::string text = kit::noise(200);
    for (int n = 0; n <= 200; ++n) {
        const std::string whole = md5_of(std::string_view(text).substr(0, static_cast<size_t>(n)));
        for (const int piece : {1, 3, 55, 56, 63, 64, 65, 128}) {
            Md5 md5;
            vk_mdbegin(&md5);
            for (int at = 0; at < n; at += piece)
                vk_mdupdate(&md5, text.data() + at, std::min(piece, n - at));
            unsigned char digest[MD5_SIZE];
            vk_md5final(digest, &md5);
            ASSERT_EQ(kit::hex_of(digest, sizeof digest), whole) << n << " by " << piece;
        }
    }
}

TEST(Md5, TakesBlocksAndStates) {
    const std::string text = kit::noise(131);
    Md5 md5, other;
    vk_md5init(&md5);
    vk_md5init(&other);
    vk_md5update(&md5, text.data(), 3);
    MDblock(&md5, kit::bytes_of(text) + 3);
    MDblock(&md5, kit::bytes_of(text) + 67);
    EXPECT_EQ(md5.count[0], 131u * 8);
    vk_md5transform(other.state, kit::bytes_of(text));
    vk_md5transform(other.state, kit::bytes_of(text) + 64);
    EXPECT_EQ(std::memcmp(md5.state, other.state, sizeof md5.state), 0);
    EXPECT_EQ(other.count[0], 0u);
    unsigned char digest[MD5_SIZE];
    vk_md5final(digest, &md5);
    EXPECT_EQ(kit::hex_of(digest, sizeof digest), md5_of(text));
}

// The count passes 32 bits after half a gigabyte; 2^29 zero bytes and one more.
TEST(Md5, CountsBeyond32Bits) {
    const std::string zeros(1 << 20, '\0');
    Md5 md5;
    vk_md5init(&md5);
    md5.count[0] = 0xffffffff - 511;  // as if blocks had been taken
    vk_md5update(&md5, zeros.data(), 65);
    EXPECT_EQ(md5.count[0], 8u);
    EXPECT_EQ(md5.count[1], 1u);
}

TEST(Mdhexlist, IsTheDigestOfThePiecesInARow) {
    char hex[33];
    EXPECT_EQ(mdhexlist(hex, "mess", 4, "age ", 4, "", 0, "digest", 6, nullptr), hex);
    EXPECT_STREQ(hex, "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_STREQ(mdhexlist(hex, nullptr, 0), kSuite[0].second);
}

}  // namespace
