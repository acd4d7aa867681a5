// Streams: made, set, put to and ended.
#include "morva/bns.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/dynamic_controls.h"
#include "morva/files.h"
#include "net/bns.hpp"
#include "skerrows.h"

int BNS_TIMEOUT = 60000;
int OrbVerbose = 0;

namespace morva::stream {
namespace {

constexpr int kDefaultSize = 32767;
constexpr int kDumped = 96;

using Converter = void (*)(char** source, void* destination, long count);
constexpr Converter kConverters[kTypes] = {nullptr, ms2hs, mi2hi, ml2hl, mf2hf, md2hd};

Site in_stream(const char* function, int line) {
    return {function, line, "bns.c"};
}

int timeout_now() {
    if (const char* set = std_getenv("BNS_TIMEOUT")) BNS_TIMEOUT = std::atoi(set);
    return BNS_TIMEOUT;
}

// Makes room for n more bytes behind `lp`.
void make_room(Bns* bns, int64_t n) {
    if (bns->sz - bns->lp < n) bnsresize(bns, n - (bns->sz - bns->lp));
}

// Apart from single items, which need no frame on the stack.
[[gnu::noinline]] int put_many(Bns* bns, const void* buffer, int type, int count) {
    const int64_t n = bytes_of(type, count);
    if (n < 0) return -1;
    make_room(bns, n);
    convert(static_cast<const char*>(buffer), bns->data + bns->lp, type, count);
    bns->lp += n;
    bns->nout += n;
    return 0;
}

template <class Word>
[[gnu::aligned(kLine)]] int put_word(Bns* bns, const void* buffer) {
    constexpr auto size = static_cast<int64_t>(sizeof(Word));
    const int64_t at = bns->lp;
    convert_word<Word>(static_cast<const char*>(buffer), bns->data + at);
    bns->lp = at + size;
    bns->nout += size;
    return 0;
}

constexpr int (*kPuts[kTypes])(Bns*, const void*) = {put_word<uint8_t>,  put_word<uint16_t>,
                                                     put_word<uint32_t>, put_word<uint64_t>,
                                                     put_word<uint32_t>, put_word<uint64_t>};

void dump_part(FILE* stream, const Bns* bns, int64_t from) {
    const int64_t n = bns->lp - from;
    hexdump(stream, bns->data + from, static_cast<int>(n < kDumped ? n : kDumped));
}

void dump_marks(FILE* stream, const Bns* bns) {
    const long n = maxtbl(bns->marktbl);
    std::fprintf(stream, "marktbl has %ld entries:", n);
    for (long i = 0; i < n; ++i)
        std::fprintf(stream, " %ld", reinterpret_cast<long>(gettbl(bns->marktbl, i)));
    std::fprintf(stream, "\n");
}

}  // namespace

int64_t bytes_of(int type, int count) {
    if (type < 0 || type >= kTypes) {
        elog_log(0, "unrecognized type %d\n", type);
        return -1;
    }
    if (count >= 0) [[likely]]
        return static_cast<int64_t>(count) * kItemSizes[type];
    elog_log(0, "can't move %d items\n", count);
    return -1;
}

void convert(const char* from, void* to, int type, int count) {
    if (Converter converter = kConverters[type]) {
        char* source = const_cast<char*>(from);
        converter(&source, to, count);
    } else if (count > 0) {
        std::memcpy(to, from, static_cast<std::size_t>(count));
    }
}

}  // namespace morva::stream

using namespace morva::stream;

Bns* bnsnew(int fd, int size) {
    if (size <= 0) size = kDefaultSize;
    Bns* bns =
        static_cast<Bns*>(morva::must_calloc(1, sizeof(Bns), "bns", in_stream("bnsnew", __LINE__)));
    bns->data = static_cast<char*>(morva::must_calloc(static_cast<std::size_t>(size), 1,
                                                      "bns->data", in_stream("bnsnew", __LINE__)));
    bns->sz = size;
    bns->fd = fd;
    bns->mark = -1;
    bns->timeout = timeout_now();
    bns->read_routine = plain_read;
    bns->write_routine = plain_write;
    bns->snoopfd = -1;
    bns->is_socket = -1;
    if (const char* name = std_getenv("BNS_SNOOP")) bnssnoop(bns, name);
    bns->snoopflag = dcsetupbyt("bnssnoop", 0);
    return bns;
}

int bnsclose(Bns* bns) {
    if (bns == nullptr) return 0;
    const int flushed = bnsflush(bns);
    const int closed = ::close(bns->fd) == 0 || errno == EINTR ? 0 : -1;
    bnsfree(bns);
    return flushed | closed;
}

void bnsfree(Bns* bns) {
    if (bns == nullptr) return;
    std::free(bns->data);
    std::free(bns->id);
    std::free(bns->snoop);
    freetbl(bns->marktbl, nullptr);
    freetbl(bns->snooped, std::free);
    std::free(bns);
}

[[gnu::aligned(kLine)]] int bnsput(Bns* bns, const void* buffer, int type, int count) {
    if (count != 1 || bns->lp + kLargestItem > bns->sz) [[unlikely]]
        return put_many(bns, buffer, type, count);
    if (type == BNS_INT) [[likely]]
        return put_word<uint32_t>(bns, buffer);
    if (type < 0 || type >= kTypes) return put_many(bns, buffer, type, count);
    return kPuts[type](bns, buffer);
}

int buf2bns(Bns* bns, const void* buffer, int n) {
    return n > 0 ? bnsput(bns, buffer, BNS_BYTE, n) : 0;
}

int bnsresize(Bns* bns, long extra) {
    int64_t size = 0;
    const morva::Site site = in_stream("bnsresize", __LINE__);
    if (__builtin_add_overflow(bns->sz, extra > bns->sz ? extra : bns->sz, &size))
        morva::out_of_memory(PTRDIFF_MAX, "bns->data", site);
    // A fresh block costs no zeroing of what lies behind the bytes that count.
    char* data = static_cast<char*>(
        morva::must_calloc(static_cast<std::size_t>(size), 1, "bns->data", site));
    const bool empty = bns->fp == bns->lp && (bns->mark < 0 || bns->mark == bns->lp);
    if (!empty) std::memcpy(data, bns->data, static_cast<std::size_t>(bns->lp));
    std::free(bns->data);
    bns->data = data;
    bns->sz = size;
    return 0;
}

int bnstimeout(Bns* bns, int milliseconds) {
    return std::exchange(bns->timeout, milliseconds);
}

double bnsdeadline(Bns* bns, double seconds) {
    return std::exchange(bns->deadline, seconds > 0 ? seconds : 0);
}

long bnslimit(Bns* bns, long bytes) {
    return std::exchange(bns->limit, bytes > 0 ? bytes : 0);
}

char* bnsid(Bns* bns, const char* text) {
    char* before = bns->id;
    if (text != nullptr) bns->id = morva::must_strdup(text, "id", MORVA_HERE);
    return before;
}

long bnsin(Bns* bns) {
    return std::exchange(bns->nin, 0);
}

long bnsout(Bns* bns) {
    return std::exchange(bns->nout, 0);
}

int bnsclr(Bns* bns) {
    bns->eof = 0;
    bns->syserrno = 0;
    bns->fp = bns->lp = 0;
    bns->mark = -1;
    bns->nin = bns->nout = 0;
    return 0;
}

int bnsdump(FILE* stream, Bns* bns) {
    if (bns->id != nullptr) std::fprintf(stream, "  id='%s'\n", bns->id);
    std::fprintf(stream, "  fp=%ld  lp=%ld  mark=%ld  sz=%8ld\n", bns->fp, bns->lp, bns->mark,
                 bns->sz);
    std::fprintf(stream, "  eof=%d  err=%d  syserrno=%d  flags=%d\n", bns->eof, bns->err,
                 bns->syserrno, bns->flags);
    std::fprintf(stream, "  timeout=%d  nbytes=%ld  nsys=%ld\n", bns->timeout, bns->nbytes,
                 bns->nsys);
    if (bns->marktbl != nullptr) dump_marks(stream, bns);
    if (bns->mark >= 0) {
        std::fprintf(stream, "\n data+mark=%ld\n", bns->mark);
        dump_part(stream, bns, bns->mark);
    }
    if (bns->fp != bns->mark) {
        std::fprintf(stream, "\ndata+fp : %ld bytes\n", unread(bns));
        dump_part(stream, bns, bns->fp);
    }
    if (bns->snoop != nullptr)
        std::fprintf(stream, "  snoop=%s (fd=%d)\n", bns->snoop, bns->snoopfd);
    return 0;
}
