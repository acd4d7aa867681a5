// Checksums and digests of packets and files.
//
//   vk_crc16 N, vk_crc32 N, vk_crc64 N, qtcrc N   CRC of N bytes
//   vk_adler32 N, mdhex N, SHA-1 N                the same for these
//
// ISA-L has the polynomials of vk_crc32 and vk_crc64; for the other two it stands with another of
// the same width, which is the same work.
// 64 B is a short packet, 4 KB a long one, 1 MB stays in the cache, 16 MB does not.
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "bench.hpp"
#ifdef MORVA_PEER_ISAL
#include <isa-l.h>
#endif
#ifdef MORVA_PEER_LIBDEFLATE
#include <libdeflate.h>
#endif
#ifdef MORVA_PEER_CRYPTO
#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#endif

namespace {

using Work = std::function<std::uint64_t(const unsigned char*, std::size_t)>;

struct Size {
    const char* name;
    std::size_t bytes;
};
constexpr Size kSizes[] = {
    {"64 B", 64}, {"4 KB", 4096}, {"1 MB", std::size_t{1} << 20}, {"16 MB", std::size_t{16} << 20}};

const std::vector<unsigned char>& noise() {
    static const std::vector<unsigned char> bytes = [] {
        bench::Random random(1);
        std::vector<unsigned char> made(std::size_t{16} << 20);
        for (auto& byte : made) byte = static_cast<unsigned char>(random());
        return made;
    }();
    return bytes;
}

// Each work beside its peers, so that all see the machine in the same state.
struct Rival {
    const char* work;
    const char* who;
    Work sum;
};
std::vector<Rival> rivals;

void add(const char* work, const char* who, const Work& sum) {
    rivals.push_back({work, who, sum});
}

void enter(const Rival& rival, const Size& size) {
    benchmark::RegisterBenchmark(
        (std::string(rival.work) + " " + size.name + " : " + rival.who).c_str(),
        [sum = rival.sum, size](benchmark::State& state) {
            const unsigned char* bytes = noise().data();
            for (auto _ : state) benchmark::DoNotOptimize(sum(bytes, size.bytes));
            state.SetBytesProcessed(state.iterations() * static_cast<long>(size.bytes));
        });
}

bool enter_all() {
    std::stable_sort(rivals.begin(), rivals.end(), [](const Rival& a, const Rival& b) {
        return std::string_view(a.work) < b.work;
    });
    for (std::size_t first = 0, end; first < rivals.size(); first = end) {
        end = first;
        while (end < rivals.size() && std::strcmp(rivals[end].work, rivals[first].work) == 0) ++end;
        for (const Size& size : kSizes)
            for (std::size_t i = first; i < end; ++i) enter(rivals[i], size);
    }
    return true;
}

void add_crcs() {
    add("vk_crc16", "morva", [](const unsigned char* bytes, std::size_t n) {
        std::uint16_t crc = 0;
        return vk_crc16(&crc, bytes, static_cast<int>(n));
    });
    add("vk_crc32", "morva", [](const unsigned char* bytes, std::size_t n) {
        std::uint32_t crc = 0;
        return vk_crc32(&crc, bytes, static_cast<int>(n));
    });
    add("vk_crc64", "morva", [](const unsigned char* bytes, std::size_t n) {
        std::uint64_t crc = 0;
        return vk_crc64(&crc, bytes, static_cast<int>(n));
    });
    add("qtcrc", "morva", [](const unsigned char* bytes, std::size_t n) {
        std::uint32_t crc = 0;
        return qtcrc(&crc, bytes, static_cast<int>(n));
    });
#ifdef MORVA_PEER_ISAL
    add("vk_crc16", "ISA-L T10",
        [](const unsigned char* bytes, std::size_t n) { return crc16_t10dif(0, bytes, n); });
    add("vk_crc32", "ISA-L",
        [](const unsigned char* bytes, std::size_t n) { return crc32_ieee(0, bytes, n); });
    add("vk_crc64", "ISA-L",
        [](const unsigned char* bytes, std::size_t n) { return crc64_iso_refl(0, bytes, n); });
    add("qtcrc", "ISA-L",
        [](const unsigned char* bytes, std::size_t n) { return crc32_ieee(0, bytes, n); });
#endif
#ifdef MORVA_PEER_LIBDEFLATE
    for (const char* work : {"vk_crc32", "vk_crc64"})
        add(work, "libdeflate crc32", [](const unsigned char* bytes, std::size_t n) {
            return libdeflate_crc32(0, bytes, n);
        });
#endif
}

void add_digests() {
    add("vk_adler32", "morva", [](const unsigned char* bytes, std::size_t n) {
        return vk_adler32(1, bytes, static_cast<int>(n));
    });
    add("vk_adler32", "zlib", [](const unsigned char* bytes, std::size_t n) {
        return adler32(1, bytes, static_cast<uInt>(n));
    });
    add("mdhex", "morva", [](const unsigned char* bytes, std::size_t n) {
        char hex[33];
        return static_cast<unsigned char>(*mdhex(hex, bytes, static_cast<int>(n)));
    });
    add("SHA-1", "morva", [](const unsigned char* bytes, std::size_t n) {
        Sha sha;
        unsigned char digest[SHA_SIZE];
        sha_init(&sha);
        sha_update(&sha, bytes, static_cast<int>(n));
        sha_final(&sha);
        sha_digest(&sha, digest);
        return digest[0];
    });
#ifdef MORVA_PEER_LIBDEFLATE
    add("vk_adler32", "libdeflate",
        [](const unsigned char* bytes, std::size_t n) { return libdeflate_adler32(1, bytes, n); });
#endif
#ifdef MORVA_PEER_CRYPTO
    add("mdhex", "OpenSSL", [](const unsigned char* bytes, std::size_t n) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        EVP_Digest(bytes, n, digest, nullptr, EVP_md5(), nullptr);
        return digest[0];
    });
    add("SHA-1", "OpenSSL", [](const unsigned char* bytes, std::size_t n) {
        unsigned char digest[SHA_DIGEST_LENGTH];
        SHA1(bytes, n, digest);
        return digest[0];
    });
#endif
}

[[maybe_unused]] const bool kAdded = (add_crcs(), add_digests(), enter_all());

}  // namespace
