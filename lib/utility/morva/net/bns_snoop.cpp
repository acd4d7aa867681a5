// Snooping: every transfer of a stream, appended to a file that the control "bnssnoop" switches.
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/dynamic_controls.h"
#include "morva/files.h"
#include "morva/strings.h"
#include "net/bns.hpp"
#include "skerrows.h"

namespace morva::stream {
namespace {

constexpr int kHeaderSize = 256;

// The name of a closed snoop file stays valid as long as the stream.
void retire_name(Bns* bns) {
    if (bns->snooped == nullptr) bns->snooped = newtbl(1);
    pushtbl(bns->snooped, bns->snoop);
    bns->snoop = nullptr;
}

// The control is tried again at every transfer: a folder that takes no file must not fill the
// register with reasons until the process ends.
void start(Bns* bns) {
    const int mark = elog_mark();
    const malloced<char> name(vkunique_filename("snoop"));
    if (name != nullptr) bnssnoop(bns, name.get());
    if (bns->snoop == nullptr) elog_flush(0, mark);
}

void stop(Bns* bns) {
    if (::close(bns->snoopfd) != 0)
        elog_complain(1, "error closing snoopfile %s", okstr(bns->snoop));
    retire_name(bns);
}

// Does what the control says. Without a control of that name, as it is.
void follow_control(Bns* bns) {
    if (bns->snoopflag < 0) return;
    const bool wanted = dcgetb(bns->snoopflag) != 0;
    if (wanted == (bns->snoop != nullptr)) return;
    ErrnoSaver keep;
    wanted ? start(bns) : stop(bns);
}

void write_record(const Bns* bns, Direction direction, const char* bytes, std::size_t n,
                  int64_t count) {
    char header[kHeaderSize];
    const int length =
        std::snprintf(header, sizeof header, "\n\n#msg %d %s %d %s %ld %ld\n", bns->pid,
                      direction == Direction::in ? "<" : ">", bns->fd,
                      bns->id != nullptr ? bns->id : "anon", count, std::time(nullptr));
    const auto header_length = static_cast<std::size_t>(std::min(length, kHeaderSize - 1));
    const iovec parts[] = {{header, header_length}, {const_cast<char*>(bytes), n}};
    ErrnoSaver keep;
    // What a full disk does not take is lost to the snooper, not to the stream.
    if (retry([&] { return ::writev(bns->snoopfd, parts, n > 0 ? 2 : 1); }) < 0) return;
}

}  // namespace

void snoop(Bns* bns, Direction direction, const char* bytes, int64_t available, int64_t count) {
    follow_control(bns);
    if (bns->snoop == nullptr) return;
    const int64_t n = std::clamp<int64_t>(count, 0, std::max<int64_t>(available, 0));
    write_record(bns, direction, bytes, static_cast<std::size_t>(n), count);
}

}  // namespace morva::stream

using namespace morva::stream;

int bnssnoop(Bns* bns, const char* filename) {
    int result = 0;
    if (bns->snoop != nullptr) {
        result = ::close(bns->snoopfd);
        std::free(std::exchange(bns->snoop, nullptr));
        bns->snoopfd = -1;
    }
    const bool secure = std_is_secure() != 0;
    const int flags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | (secure ? O_NOFOLLOW : 0);
    const int fd = morva::retry([&] { return ::open(filename, flags, secure ? 0600 : 0664); });
    bns->snoopfd = fd;
    if (fd >= 0) {
        bns->snoop = morva::must_strdup(filename, "snoop", MORVA_HERE);
        bns->pid = ::getpid();
    } else {
        elog_log(1, "Can't open snoop file %s", filename);
        result = -1;
    }
    if (bns->snoopflag >= 0) dcsetb(bns->snoopflag, 1);
    return result;
}
