#include "digest/sha.hpp"

#include "digest/checksums_kit.hpp"
#include "morva/sha.h"

namespace {

std::string digest_of(const Sha& sha) {
    unsigned char digest[SHA_SIZE];
    sha_digest(&sha, digest);
    return kit::hex_of(digest, sizeof digest);
}

std::string sha_of(std::string_view text, size_t piece) {
    Sha sha;
    sha_init(&sha);
    for (size_t at = 0; at < text.size(); at += piece)
        sha_update(&sha, text.data() + at, static_cast<int>(std::min(piece, text.size() - at)));
    sha_update(&sha, text.data(), -1);
    sha_final(&sha);
    return digest_of(sha);
}

// The examples of FIPS 180 and of RFC 3174.
TEST(Sha1, IsThatOfTheStandard) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrl"
         "mnopqrsmnopqrstnopqrstu",
         "a49b2446a02c645bf419f995b67091253a04a259"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"}};
    for (const auto& [text, digest] : rows) EXPECT_EQ(sha_of(text, 1 << 20), digest);
}

TEST(Sha1, IsTheSameInPieces) {
    const std::string text = kit::noise(200);
    for (size_t n = 0; n <= 200; ++n) {
        const auto part = std::string_view(text).substr(0, n);
        const std::string whole = sha_of(part, 1000);
        for (const size_t piece : {1u, 3u, 55u, 56u, 63u, 64u, 65u, 128u})
            ASSERT_EQ(sha_of(part, piece), whole) << n << " by " << piece;
    }
}

TEST(Sha1, IsTheSameByEveryVersion) {
    const auto faster = morva::sha::add_blocks_x86();
    if (faster == nullptr) GTEST_SKIP() << "no instructions for SHA-1";
    const std::string text = kit::noise(64 * 20);
    for (size_t blocks = 0; blocks <= 20; ++blocks) {
        uint32_t plain[] = {1, 2, 3, 0x80000004, ~0u}, fast[] = {1, 2, 3, 0x80000004, ~0u};
        morva::sha::add_blocks_plain(plain, kit::bytes_of(text), blocks);
        faster(fast, kit::bytes_of(text), blocks);
        EXPECT_EQ(std::memcmp(plain, fast, sizeof plain), 0) << blocks;
    }
}

TEST(Sha1, TakesBlocksWordsAndCopies) {
    const std::string text = kit::noise(64);
    Sha sha, copy, mixed;
    sha_init(&sha);
    sha_init(&mixed);
    sha_block(&sha, kit::bytes_of(text));
    EXPECT_EQ(sha.count[0], 512u);
    uint32_t words[16];
    for (size_t i = 0; i < 16; ++i)
        words[i] = static_cast<uint32_t>(
            std::stoul(kit::hex_of(kit::bytes_of(text) + 4 * i, 4), nullptr, 16));
    sha_transform(&mixed, words);
    EXPECT_EQ(digest_of(mixed), digest_of(sha));
    EXPECT_EQ(mixed.count[0], 0u);
    sha_copy(&copy, &sha);
    sha_final(&sha);
    EXPECT_EQ(digest_of(sha), sha_of(text, 64));
    sha_update(&copy, "more", 4);
    sha_final(&copy);
    EXPECT_EQ(digest_of(copy), sha_of(text + "more", 64));
}

}  // namespace
