#include "digest/crc_fold.hpp"

#include "digest/checksums_kit.hpp"
#include "morva/checksums.h"

namespace {

constexpr std::string_view kDigits = "123456789";

// The remainder by long division, a bit at a time.
template <class Crc>
typename Crc::Word divided(typename Crc::Word crc, std::string_view bytes) {
    using Word = typename Crc::Word;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        crc ^= static_cast<Word>(Crc::kReflected ? byte : Word{byte} << (Crc::kWidth - 8));
        for (int bit = 0; bit < 8; ++bit) {
            const bool out = (crc & (Crc::kReflected ? Word{1} : Crc::kTop)) != 0;
            crc = static_cast<Word>(Crc::kReflected ? crc >> 1 : crc << 1);
            if (out) crc ^= Crc::kPolynomial;
        }
    }
    return crc;
}

// The exported functions of each CRC under the same names.
struct Vk16 : morva::Crc16 {
    static constexpr auto kAdd = &morva::CrcVersion::crc16;
    static Word add(Word crc, std::string_view bytes) {
        Word result = crc;
        EXPECT_EQ(vk_crc16(&result, bytes.data(), kit::count_of(bytes)), result);
        return result;
    }
    static Word combine(Word a, Word b, long n) { return vk_crc16_combine(a, b, n); }
};
struct Vk32 : morva::Crc32 {
    static constexpr auto kAdd = &morva::CrcVersion::crc32;
    static Word add(Word crc, std::string_view bytes) {
        Word result = crc;
        EXPECT_EQ(vk_crc32(&result, bytes.data(), kit::count_of(bytes)), result);
        return result;
    }
    static Word combine(Word a, Word b, long n) { return vk_crc32_combine(a, b, n); }
};
struct Vk64 : morva::Crc64 {
    static constexpr auto kAdd = &morva::CrcVersion::crc64;
    static Word add(Word crc, std::string_view bytes) {
        Word result = crc;
        EXPECT_EQ(vk_crc64(&result, bytes.data(), kit::count_of(bytes)), result);
        return result;
    }
    static Word combine(Word a, Word b, long n) { return vk_crc64_combine(a, b, n); }
};

template <class Crc>
class Crcs : public testing::Test {};
struct Qt : morva::QtCrc {
    static constexpr auto kAdd = &morva::CrcVersion::qtcrc;
    static Word add(Word crc, std::string_view bytes) {
        Word result = 1;
        return crc == 0 ? qtcrc(&result, bytes.data(), kit::count_of(bytes))
                        : add_plain(crc, kit::bytes_of(bytes), bytes.size());
    }
    static Word combine(Word a, Word b, long n) { return qtcrc_combine(a, b, n); }
};
using All = testing::Types<Vk16, Vk32, Vk64, Qt>;
TYPED_TEST_SUITE(Crcs, All);

TYPED_TEST(Crcs, AreTheRemaindersOfDivision) {
    using Word = typename TypeParam::Word;
    for (const std::size_t n : {0u, 1u, 2u, 7u, 40u, 64u, 300u}) {
        const std::string text = kit::noise(n);
        for (const Word start :
             {Word{0}, static_cast<Word>(-1), static_cast<Word>(0x9234567890abcdef)})
            EXPECT_EQ(TypeParam::add(start, text), divided<TypeParam>(start, text)) << n;
    }
    typename TypeParam::Word crc = 77;
    EXPECT_EQ(TypeParam::add(77, std::string_view()), crc);
}

TYPED_TEST(Crcs, OfPiecesCombineToThatOfTheWhole) {
    const std::string text = kit::noise(1000);
    const std::string_view whole = text;
    const auto crc = TypeParam::add(5, whole);
    for (const std::size_t at : {0u, 1u, 500u, 999u, 1000u}) {
        const auto first = TypeParam::add(5, whole.substr(0, at));
        EXPECT_EQ(TypeParam::add(first, whole.substr(at)), crc) << at;
        const auto second = TypeParam::add(0, whole.substr(at));
        EXPECT_EQ(TypeParam::combine(first, second, static_cast<long>(1000 - at)), crc) << at;
    }
    // Zeros in a row, more than could be added, in one step and in many.
    constexpr long kStep = 1L << 40;
    auto stepped = crc;
    for (int i = 0; i < 5; ++i) stepped = TypeParam::combine(stepped, 0, kStep);
    EXPECT_EQ(TypeParam::combine(crc, 0, 5 * kStep), stepped);
    EXPECT_EQ(TypeParam::combine(crc, 9, -1), crc);
}

TEST(Checksums, AreTheKnownOnes) {
    const std::string text = "The quick brown fox jumps over the lazy dog";
    EXPECT_EQ(Vk16::add(0, kDigits), 0xbb3d);                    // CRC-16/ARC
    EXPECT_EQ(Vk16::add(0xffff, kDigits), 0x4b37);               // CRC-16/MODBUS
    EXPECT_EQ(Vk32::add(~0u, kDigits), 0x0376e6e7u);             // CRC-32/MPEG-2
    EXPECT_EQ(~Vk32::add(~0u, kDigits), 0xfc891918u);            // CRC-32/BZIP2
    EXPECT_EQ(Vk32::add(0, kDigits), 0x89a1897fu);               // CRC-32/CKSUM before its length
    EXPECT_EQ(Vk64::add(0, kDigits), 0x46a5a9388a5beffeu);       // as in SWISS-PROT
    EXPECT_EQ(~Vk64::add(~0ull, kDigits), 0xb90956c775a41001u);  // CRC-64/GO-ISO
    uint32_t crc = 12345;
    EXPECT_EQ(qtcrc(&crc, kDigits.data(), 9), 0x37c7ca30u);
    EXPECT_EQ(crc, 0x37c7ca30u);
    EXPECT_EQ(crc, divided<morva::QtCrc>(0, kDigits));
    EXPECT_EQ(qtcrc(&crc, kDigits.data(), 0), 0u);
    uint16_t sum = 12345;
    EXPECT_EQ(qtchecksum(&sum, kDigits.data(), 9), 477);
    EXPECT_EQ(sum, 477);
    const std::string high(300, '\xff');
    EXPECT_EQ(qtchecksum(&sum, high.data(), 300), 300 * 255 - 65536);
    EXPECT_EQ(qtchecksum(&sum, high.data(), -1), 0);
}

// Each version over bytes that end at an unmapped page, so that none is read behind them, and that
// begin at every alignment.
TYPED_TEST(Crcs, AreTheSameByEveryVersion) {
    using Word = typename TypeParam::Word;
    const std::string text = kit::noise(3000);
    for (const auto& version : morva::crc_versions()) {
        if (!version.runs()) continue;
        for (size_t n = 1; n <= 3000; n += n < 700 ? 1 : 37) {
            const kit::Guarded guarded(std::string_view(text).substr(0, n));
            const unsigned char* bytes = kit::bytes_of({guarded.data(), n});
            for (const Word start : {Word{0}, static_cast<Word>(0x8a2b3c4d5e6f7081 * (n + 1))}) {
                Word result = 0;
                ASSERT_EQ((version.*TypeParam::kAdd)(start, bytes, n, &result),
                          TypeParam::add_plain(start, bytes, n))
                    << version.name << " " << n;
                ASSERT_EQ(result, TypeParam::add_plain(start, bytes, n));
            }
        }
    }
}

// The first bytes of a message in front of which nothing may be read either.
TYPED_TEST(Crcs, ReadNothingInFront) {
    const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    auto* map = static_cast<unsigned char*>(
        ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(::mprotect(map, page, PROT_NONE), 0);
    std::memcpy(map + page, kit::noise(400).data(), 400);
    for (size_t n = 0; n < 400; ++n)
        ASSERT_EQ(TypeParam::add(0, {reinterpret_cast<char*>(map) + page, n}),
                  TypeParam::add_plain(0, map + page, n));
    ::munmap(map, 2 * page);
}

}  // namespace
