// Reading from streams: waiting, refilling the buffer, and what is made of the bytes.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/files.h"
#include "net/bns.hpp"
#include "skerrows.h"

namespace morva::stream {
namespace {

constexpr short kEvents = POLLIN | POLLPRI | POLLERR | POLLRDNORM | POLLRDBAND;
constexpr int kMostJunk = 32;
constexpr int kShown = 256;

// What was kept is gone; messages flushed from now on are kept as before.
void forget_kept(Bns* bns) {
    if (bns->mark > 0) bns->mark = 0;
    clrtbl(bns->marktbl, nullptr);
}

// Milliseconds that a wait may take: the timeout, or less when the call must end sooner.
int patience(const Bns* bns) {
    if (bns->until == 0) return bns->timeout;
    const double left = std::ceil(1000 * std::max(bns->until - std_now(), 0.0));
    const bool sooner = bns->timeout < 0 || left < bns->timeout;
    return sooner ? static_cast<int>(std::min(left, 2e9)) : bns->timeout;
}

// Bounds a call by the stream's deadline, from its first wait on.
class Call {
  public:
    explicit Call(Bns* bns) : bns_(bns) {}
    ~Call() { bns_->until = 0; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    // Refills until n bytes are there. False when they do not come.
    bool fetch(int64_t n);
    // Refills by whatever comes, at least one byte.
    bool more(int64_t need);

  private:
    Bns* bns_;
};

// Makes room for `need` bytes behind lp; false when that is beyond the stream's limit.
bool make_room(Bns* bns, int64_t need) {
    compact(bns, bns->mark >= 0 ? bns->mark : bns->fp);
    const int64_t room = bns->sz - bns->lp;
    if (room >= need) return true;
    const int64_t extra = std::min<int64_t>(need - room, INT64_MAX / 4);
    if (bns->limit == 0 || bns->lp + need <= bns->limit) {
        bnsresize(bns, 2 * extra);
        return true;
    }
    errno = EMSGSIZE;
    failed(bns);
    elog_log(0, "input of %ld bytes is beyond the stream's limit of %ld\n", bns->lp + need,
             bns->limit);
    return false;
}

void tell_timeout(const Bns* bns) {
    if (OrbVerbose != 0 && bns->timeout > 0)
        elog_debug(1, "%d msec timeout on read from fd #%d\n", bns->timeout, bns->fd);
}

int note_nothing(Bns* bns, ssize_t count) {
    bns->eof = count == 0;
    if (count == 0) {
        if (OrbVerbose != 0) elog_debug(1, "bns->read_routine returned eof on fd #%d\n", bns->fd);
        return -1;
    }
    failed(bns);
    if (OrbVerbose != 0) {
        elog_debug(1, "bns->read_routine returned %ld on fd #%d\n", static_cast<long>(count),
                   bns->fd);
        bnsdump(stderr, bns);
    }
    return -1;
}

ssize_t read_once(Bns* bns) {
    ++bns->nsys;
    ssize_t count;
    errno = 0;
    while ((count = bns->read_routine(bns->fd, bns->data + bns->lp,
                                      static_cast<std::size_t>(bns->sz - bns->lp), bns->flags)) <
               0 &&
           errno == EINTR)
        errno = 0;
    return count;
}

// Waits for input and takes in what one call gives: 1, 0 after the timeout, or -1.
int refill(Bns* bns, int64_t need) {
    if (!make_room(bns, need)) return -1;
    const int ready = bnswait(bns);
    if (ready < 1) {
        tell_timeout(bns);
        return ready;
    }
    const ssize_t count = read_once(bns);
    // Snooping shows the bytes at the reading position, not where the new ones landed.
    snoop(bns, Direction::in, bns->data + bns->fp, bns->sz - bns->fp, count);
    if (count <= 0) return note_nothing(bns, count);
    bns->eof = 0;
    bns->lp += count;
    bns->nbytes += count;
    return 1;
}

bool Call::more(int64_t need) {
    if (bns_->until == 0 && bns_->deadline > 0) bns_->until = std_now() + bns_->deadline;
    return refill(bns_, need) > 0;
}

bool Call::fetch(int64_t n) {
    while (unread(bns_) < n)
        if (!more(n - unread(bns_))) return false;
    return true;
}

void consume(Bns* bns, int64_t n) {
    bns->fp += n;
    bns->nin += n;
}

// Apart from single items, which need no frame on the stack.
[[gnu::noinline]] int get_many(Bns* bns, void* buffer, int type, int count) {
    const int64_t n = bytes_of(type, count);
    if (n < 0) return -1;
    if (unread(bns) < n && !Call(bns).fetch(n)) return -1;
    convert(bns->data + bns->fp, buffer, type, count);
    consume(bns, n);
    return 0;
}

template <class Word>
[[gnu::aligned(kLine)]] int get_word(Bns* bns, void* buffer) {
    constexpr auto size = static_cast<int64_t>(sizeof(Word));
    const int64_t at = bns->fp;
    convert_word<Word>(bns->data + at, static_cast<char*>(buffer));
    bns->fp = at + size;
    bns->nin += size;
    return 0;
}

constexpr int (*kGets[kTypes])(Bns*, void*) = {get_word<uint8_t>,  get_word<uint16_t>,
                                               get_word<uint32_t>, get_word<uint64_t>,
                                               get_word<uint32_t>, get_word<uint64_t>};

// Copies what fits of the next n bytes, ends it, and consumes them and `behind` more.
int64_t store_text(Bns* bns, char* buffer, int size, int64_t n, int behind) {
    const int64_t stored = std::max<int64_t>(std::min<int64_t>(n, size - 1), 0);
    if (stored > 0) std::memcpy(buffer, bns->data + bns->fp, static_cast<std::size_t>(stored));
    if (size > 0) buffer[stored] = '\0';
    consume(bns, n + behind);
    return stored;
}

// Bytes that were skipped in search of a pattern.
class Junk {
  public:
    // False when there is no room for more.
    bool add(char byte) {
        bytes_[count_++] = byte;
        return count_ < kMostJunk;
    }
    bool add(const char* bytes, int n) {
        for (int i = 0; i < n; ++i)
            if (!add(bytes[i])) return false;
        return true;
    }
    void tell(const char* sync, int n) const {
        if (count_ == 0) return;
        char shown[kShown];
        elog_complain(0, "skipped %d bytes looking for sync '%s'\n", count_,
                      printable_string(sync, n, shown, sizeof shown));
        hexdump(stderr, bytes_, count_);
    }

  private:
    char bytes_[kMostJunk];
    int count_ = 0;
};

int find_sync(Bns* bns, const char* sync, int n, bool nojunk, Junk& junk) {
    Call call(bns);
    for (int matched = 0; matched < n;) {
        if (!call.fetch(1)) return -1;
        const char byte = bns->data[bns->fp];
        consume(bns, 1);
        if (byte == sync[matched]) {
            ++matched;
            continue;
        }
        if (nojunk || !junk.add(sync, matched) || !junk.add(byte)) return -2;
        matched = 0;
    }
    return 0;
}

}  // namespace

void compact(Bns* bns, int64_t from) {
    if (from <= 0) return;
    std::memmove(bns->data, bns->data + from, static_cast<std::size_t>(bns->lp - from));
    bns->fp -= from;
    bns->lp -= from;
    if (bns->mark < 0) return;
    bns->mark = 0;
    for (long i = 0; i < maxtbl(bns->marktbl); ++i) {
        const auto start = reinterpret_cast<intptr_t>(gettbl(bns->marktbl, i)) - from;
        settbl(bns->marktbl, i, reinterpret_cast<void*>(start));
    }
}

ssize_t plain_read(int fd, void* buffer, size_t length, int) {
    return ::read(fd, buffer, length);
}

}  // namespace morva::stream

using namespace morva::stream;

int bnswait(Bns* bns) {
    pollfd descriptor{bns->fd, kEvents, 0};
    int ready;
    do {
        errno = 0;
        ready = std_poll(&descriptor, 1, patience(bns));
    } while (ready < 0 && errno == EINTR);
    bns->revents = descriptor.revents;
    if (ready == 0) return 0;
    // An empty pipe whose writer is gone hangs up and nothing else: reading meets the end.
    const bool hung_up = (descriptor.revents & (POLLHUP | POLLERR | POLLNVAL)) == POLLHUP;
    if (ready == 1 && ((descriptor.revents & POLLRDNORM) != 0 || hung_up)) return 1;
    return failed(bns);
}

[[gnu::aligned(kLine)]] int bnsget(Bns* bns, void* buffer, int type, int count) {
    if (count != 1 || bns->fp + kLargestItem > bns->lp) [[unlikely]]
        return get_many(bns, buffer, type, count);
    if (type == BNS_INT) [[likely]]
        return get_word<uint32_t>(bns, buffer);
    if (type < 0 || type >= kTypes) return get_many(bns, buffer, type, count);
    return kGets[type](bns, buffer);
}

long bnsgetc(Bns* bns, char* buffer, int size, int delimiter) {
    Call call(bns);
    int64_t searched = 0;
    do {
        const char* start = bns->data + bns->fp;
        const auto length = static_cast<std::size_t>(unread(bns) - searched);
        const void* found = std::memchr(start + searched, delimiter, length);
        if (found != nullptr)
            return store_text(bns, buffer, size, static_cast<const char*>(found) - start, 1);
        searched = unread(bns);
    } while (call.more(1));
    store_text(bns, buffer, size, unread(bns), 0);
    return -1;
}

int bnspeek(Bns* bns, const char* text) {
    const std::size_t n = std::strlen(text);
    const auto wanted = static_cast<int64_t>(n);
    if (!Call(bns).fetch(wanted)) {
        elog_log(0, "bnspeek wanted %d bytes, got only %ld", static_cast<int>(n), unread(bns));
        return -1;
    }
    const char* found = bns->data + bns->fp;
    if (std::memcmp(found, text, n) == 0) {
        consume(bns, wanted);
        return 0;
    }
    const morva::malloced<char> dump(hexdump_string(nullptr, found, static_cast<int>(n)));
    elog_log(0, "bnspeek wanted '%s', but got \n\t%s", text, dump.get());
    return 1;
}

int gbnsSync(Bns* bns, const char* sync, int n, int nojunk) {
    if (n < 1) return 0;
    Junk junk;
    const int result = find_sync(bns, sync, n, nojunk != 0, junk);
    junk.tell(sync, n);
    return result;
}

long bns2buf(Bns* bns, void* buffer, int max) {
    const int64_t n = std::min<int64_t>(unread(bns), std::max(max, 0));
    if (n > 0) std::memcpy(buffer, bns->data + bns->fp, static_cast<std::size_t>(n));
    bns->fp = bns->lp = 0;
    forget_kept(bns);
    return n;
}
