// The table of checksums, and the reading of files.
#include "sum_files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tool {

namespace {

constexpr std::size_t kChunk = 256 * 1024;  // stays in the cache while every checksum reads it

std::string digits_of(std::uint64_t word, int digits) {
    char text[17];
    std::snprintf(text, sizeof text, "%0*llx", digits, static_cast<unsigned long long>(word));
    return text;
}

std::string digits_of(std::span<const unsigned char> bytes) {
    std::string text;
    for (const unsigned char byte : bytes) text += digits_of(byte, 2);
    return text;
}

constexpr Algorithm kAlgorithms[] = {
    {"crc16", "CRC16", 4,
     [](Sums& sums, const void* bytes, int n) { vk_crc16(&sums.crc16, bytes, n); },
     [](Sums& sums) { return digits_of(sums.crc16, 4); }},
    {"crc32", "CRC32", 8,
     [](Sums& sums, const void* bytes, int n) { vk_crc32(&sums.crc32, bytes, n); },
     [](Sums& sums) { return digits_of(sums.crc32, 8); }},
    {"crc64", "CRC64", 16,
     [](Sums& sums, const void* bytes, int n) { vk_crc64(&sums.crc64, bytes, n); },
     [](Sums& sums) { return digits_of(sums.crc64, 16); }},
    {"qtcrc", "QTCRC", 8,
     [](Sums& sums, const void* bytes, int n) {
         std::uint32_t piece;
         qtcrc(&piece, bytes, n);
         sums.qtcrc = qtcrc_combine(sums.qtcrc, piece, n);
     },
     [](Sums& sums) { return digits_of(sums.qtcrc, 8); }},
    {"qtchecksum", "QTCHECKSUM", 4,
     [](Sums& sums, const void* bytes, int n) {
         std::uint16_t piece;
         sums.bytes = static_cast<std::uint16_t>(sums.bytes + qtchecksum(&piece, bytes, n));
     },
     [](Sums& sums) { return digits_of(sums.bytes, 4); }},
    {"adler32", "ADLER32", 8,
     [](Sums& sums, const void* bytes, int n) {
         sums.adler32 = vk_adler32(sums.adler32, bytes, n);
     },
     [](Sums& sums) { return digits_of(sums.adler32, 8); }},
    {"md5", "MD5", 32,
     [](Sums& sums, const void* bytes, int n) { vk_md5update(&sums.md5, bytes, n); },
     [](Sums& sums) {
         unsigned char digest[MD5_SIZE];
         vk_md5final(digest, &sums.md5);
         return digits_of(digest);
     }},
    {"sha1", "SHA1", 40,
     [](Sums& sums, const void* bytes, int n) { sha_update(&sums.sha, bytes, n); },
     [](Sums& sums) {
         unsigned char digest[SHA_SIZE];
         sha_final(&sums.sha);
         sha_digest(&sums.sha, digest);
         return digits_of(digest);
     }},
};

// The next bytes: their number, 0 at the end, -1 with errno.
ssize_t read_some(int fd, std::vector<char>& chunk) {
    ssize_t n;
    do {
        n = ::read(fd, chunk.data(), chunk.size());
    } while (n < 0 && errno == EINTR);
    return n;
}

}  // namespace

Sums::Sums() {
    vk_md5init(&md5);
    sha_init(&sha);
}

std::span<const Algorithm> algorithms() {
    return kAlgorithms;
}

Summed sum_file(const std::string& file, const std::vector<const Algorithm*>& wanted) {
    const bool standard_input = file == "-";
    const int fd = standard_input ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    Summed result;
    Sums sums;
    std::vector<char> chunk(kChunk);
    ssize_t n = -1;
    while (fd >= 0 && (n = read_some(fd, chunk)) > 0) {
        result.length += n;
        for (const Algorithm* algorithm : wanted)
            algorithm->add(sums, chunk.data(), static_cast<int>(n));
    }
    if (n < 0) result.reason = std::strerror(errno);
    if (fd >= 0 && !standard_input) ::close(fd);
    if (n == 0)
        for (const Algorithm* algorithm : wanted) result.texts.push_back(algorithm->text(sums));
    return result;
}

}  // namespace tool
