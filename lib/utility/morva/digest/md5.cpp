#include "digest/md5.hpp"

#include <cstdarg>

#include "morva/md5.h"

namespace {

void take_bytes(Md5* md5, const void* bytes, int n) {
    if (n > 0)
        morva::take(*md5, static_cast<const unsigned char*>(bytes), static_cast<std::size_t>(n),
                    morva::md5::add_blocks);
}

char* write_hex(Md5* md5, char* hex) {
    static constexpr char kDigits[] = "0123456789abcdef";
    unsigned char digest[MD5_SIZE];
    vk_md5final(digest, md5);
    char* out = hex;
    for (const unsigned char byte : digest) {
        *out++ = kDigits[byte >> 4];
        *out++ = kDigits[byte & 15];
    }
    *out = '\0';
    return hex;
}

}  // namespace

extern "C" {

void vk_md5init(Md5* md5) {
    *md5 = {{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {0, 0}, {}};
}

void vk_md5update(Md5* md5, const void* bytes, int n) {
    take_bytes(md5, bytes, n);
}

void vk_md5final(unsigned char* digest, Md5* md5) {
    morva::pad<std::endian::little>(*md5, morva::md5::add_blocks);
    morva::store_words<std::endian::little>(md5->state, digest);
    *md5 = {};
}

void vk_md5transform(uint32_t* state, const unsigned char* block) {
    morva::md5::add_blocks(state, block, 1);
}

char* mdhex(char* hex, const void* bytes, int n) {
    Md5 md5;
    vk_md5init(&md5);
    take_bytes(&md5, bytes, n);
    return write_hex(&md5, hex);
}

char* mdhexlist(char* hex, const void* bytes, int n, ...) {
    Md5 md5;
    vk_md5init(&md5);
    va_list rest;
    va_start(rest, n);
    while (bytes != nullptr) {
        take_bytes(&md5, bytes, n);
        bytes = va_arg(rest, const void*);
        if (bytes != nullptr) n = va_arg(rest, int);
    }
    va_end(rest);
    return write_hex(&md5, hex);
}

void vk_mdbegin(Md5* md5) {
    vk_md5init(md5);
}

void vk_mdupdate(Md5* md5, const void* bytes, int n) {
    take_bytes(md5, bytes, n);
}

void MDblock(Md5* md5, const unsigned char* block) {
    take_bytes(md5, block, morva::kBlock);
}
}
