#include "morva/bns.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <random>
#include <thread>

#include "log/elog_child.hpp"
#include "morva/dynamic_controls.h"
#include "skerrows.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

// A pair of streams on the two ends of a socket, in an empty folder.
class BnsStream : public testing::Test {
  protected:
    BnsStream() : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder_.path());
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends_) != 0) ::abort();
        in_ = bnsnew(ends_[0], 16);
        out_ = bnsnew(ends_[1], 0);
        bnstimeout(in_, 20);
    }
    ~BnsStream() override {
        for (Bns* bns : {in_, out_}) bnsclose(bns);
        dcsetb(dcsetupbyt("bnssnoop", 0), 0);
        std::filesystem::current_path(before_);
    }
    void send(std::string_view bytes) {
        ASSERT_EQ(::write(ends_[1], bytes.data(), bytes.size()), static_cast<long>(bytes.size()));
    }
    // The peer of `in_` is gone.
    void hang_up() {
        bnsclose(out_);
        out_ = nullptr;
    }
    // The next n bytes, or what is there of them.
    std::string next(int n) {
        std::string bytes(static_cast<std::size_t>(n), '\0');
        if (bnsget(in_, bytes.data(), BNS_BYTE, n) == 0) return bytes;
        bytes.resize(static_cast<std::size_t>(bns2buf(in_, bytes.data(), n)));
        return bytes + "|";
    }

    const kit::Env environment_[3] = {
        {"BNS_TIMEOUT", nullptr}, {"BNS_SNOOP", nullptr}, {"NO_DYNAMIC_CONTROLS", "1"}};
    kit::TempDir folder_;
    const std::filesystem::path before_;
    kit::Logged logged_;
    int ends_[2];
    Bns* in_;
    Bns* out_;
};

template <class T>
void expect_round_trip(Bns* out, Bns* in, int type) {
    std::vector<T> items(1000), back(items.size());
    std::mt19937_64 random(static_cast<unsigned>(type));
    for (T& item : items) item = static_cast<T>(random());
    const int n = static_cast<int>(items.size());
    bnsput(out, items.data(), type, 1);
    bnsput(out, items.data() + 1, type, n - 1);
    ASSERT_EQ(bnsflush(out), 0);
    ASSERT_EQ(bnsget(in, back.data(), type, n - 1), 0);
    ASSERT_EQ(bnsget(in, back.data() + n - 1, type, 1), 0);
    EXPECT_EQ(items, back) << type;
}

TEST_F(BnsStream, MovesItemsOfEveryType) {
    expect_round_trip<signed char>(out_, in_, BNS_BYTE);
    expect_round_trip<short>(out_, in_, BNS_SHORT);
    expect_round_trip<int>(out_, in_, BNS_INT);
    expect_round_trip<long>(out_, in_, BNS_LONG);
    expect_round_trip<float>(out_, in_, BNS_FLOAT);
    expect_round_trip<double>(out_, in_, BNS_DOUBLE);
    EXPECT_EQ(bnsout(out_), bnsin(in_));
    EXPECT_EQ(bnsout(out_), 0);
    EXPECT_EQ(in_->nbytes, 27000);
    EXPECT_EQ(out_->nsys, 6);
    for (int type : {6, -1}) {
        EXPECT_EQ(bnsget(in_, nullptr, type, 1), -1);
        EXPECT_EQ(bnsput(out_, nullptr, type, 1), -1);
    }
    EXPECT_THAT(logged_.text(), HasSubstr("unrecognized type 6\n"));
    EXPECT_EQ(bnsput(out_, nullptr, BNS_INT, -1), -1);
}

TEST_F(BnsStream, WritesTheOrderOfTheNetwork) {
    const int one = 0x01020304;
    const double pi = 2.0;
    bnsput(out_, &one, BNS_INT, 1);
    bnsput(out_, &pi, BNS_DOUBLE, 1);
    buf2bns(out_, "end", 3);
    bnsflush(out_);
    EXPECT_EQ(next(15), std::string("\1\2\3\4\x40\0\0\0\0\0\0\0end", 15));
}

TEST_F(BnsStream, StartsAsDocumented) {
    EXPECT_EQ(out_->sz, 32767);
    EXPECT_EQ(out_->mark, -1);
    EXPECT_EQ(out_->timeout, 60000);
    EXPECT_EQ(out_->snoopfd, -1);
    {
        const kit::Env timeout("BNS_TIMEOUT", "250");
        bnsfree(bnsnew(-1, 1));
    }
    EXPECT_EQ(BNS_TIMEOUT, 250);
    BNS_TIMEOUT = 60000;
}

// A short read consumes nothing; what arrives is added to it.
TEST_F(BnsStream, KeepsWhatArrivedThroughTimeouts) {
    char bytes[8];
    send("abc");
    EXPECT_EQ(bnsget(in_, bytes, BNS_BYTE, 8), -1);
    EXPECT_EQ(in_->eof, 0);
    EXPECT_EQ(in_->err, 0);
    EXPECT_EQ(bnspeek(in_, "abcdefgh"), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("bnspeek wanted 8 bytes, got only 3"));
    EXPECT_EQ(in_->nin, 0);
    send("defgh");
    EXPECT_EQ(bnspeek(in_, "abX"), 1);
    EXPECT_THAT(logged_.text(), HasSubstr("bnspeek wanted 'abX', but got \n\t00000000  61 62 63"));
    EXPECT_EQ(bnspeek(in_, "abc"), 0);
    EXPECT_EQ(next(5), "defgh");
    send("rest");
    hang_up();
    EXPECT_EQ(next(9), "rest|");
    EXPECT_EQ(in_->eof, 1);
    EXPECT_EQ(in_->err, 0);
}

TEST_F(BnsStream, ReadsLines) {
    char line[8] = "";
    send(std::string("abcdef\n\n") + std::string(100, 'x') + "\nlast");
    EXPECT_EQ(bnsgetc(in_, line, 4, '\n'), 3);
    EXPECT_STREQ(line, "abc");
    EXPECT_EQ(bnsin(in_), 7);
    EXPECT_EQ(bnsgetc(in_, line, 4, '\n'), 0);
    EXPECT_STREQ(line, "");
    EXPECT_EQ(bnsgetc(in_, line, 8, '\n'), 7);
    EXPECT_EQ(bnsgetc(in_, line, 8, '\n'), -1);
    EXPECT_STREQ(line, "last");
    EXPECT_EQ(in_->fp, in_->lp);
}

TEST_F(BnsStream, FindsAPatternBehindLittleJunk) {
    const struct {
        std::string input;
        int nojunk, result;
        const char* said;  // empty: nothing
        const char* rest;
    } rows[] = {
        {"AB1", 0, 0, "", "1"},
        {"AB1", 1, 0, "", "1"},
        {"xAB1", 1, -2, "", "AB1"},
        {"xyAB1", 0, 0, "skipped 2 bytes looking for sync 'AB'", "1"},
        {"AABAB1", 0, 0, "skipped 3 bytes", "1"},  // the second A starts no match
        {std::string(31, 'x') + "AB1", 0, 0, "skipped 31 bytes", "1"},
        {std::string(32, 'x') + "AB1", 0, -2, "skipped 32 bytes", "AB1"},
        {"A", 0, -1, "", ""},
        {"xA", 0, -1, "skipped 1 bytes", ""},
    };
    for (const auto& row : rows) {
        send(row.input);
        const std::string said =
            kit::captured(2, [&] { EXPECT_EQ(gbnsSync(in_, "AB", 2, row.nojunk), row.result); });
        EXPECT_EQ(said.empty(), *row.said == '\0') << row.input << said;
        EXPECT_THAT(said, HasSubstr(row.said));
        EXPECT_EQ(next(50), row.rest + std::string("|")) << row.input;
    }
    EXPECT_EQ(gbnsSync(in_, "AB", 0, 0), 0);
}

TEST_F(BnsStream, KeepsTheLastMessages) {
    bnskeep(out_, 2);
    EXPECT_EQ(bnsresend(out_), 0);
    for (const char* message : {"one", "second", "3"}) {
        buf2bns(out_, message, static_cast<int>(std::strlen(message)));
        EXPECT_EQ(bnsflush(out_), 0);
    }
    EXPECT_EQ(bnsresend(out_), 0);
    EXPECT_EQ(next(50), "onesecond3second3|");
    EXPECT_EQ(out_->mark, 0);
    EXPECT_EQ(out_->fp, 7);
    EXPECT_THAT(kit::written([&](FILE* file) { bnsdump(file, out_); }),
                testing::StartsWith("  fp=7  lp=7  mark=0  sz=   32767\n"
                                    "  eof=0  err=0  syserrno=0  flags=0\n"
                                    "  timeout=60000  nbytes=17  nsys=4\n"
                                    "marktbl has 1 entries: 6\n\n data+mark=0\n00000000  73 65"));
    // An emptied stream keeps what is flushed from then on.
    EXPECT_EQ(bns2buf(out_, nullptr, 0), 0);
    for (const char* message : {"a", "b", "c"}) {
        buf2bns(out_, message, 1);
        EXPECT_EQ(bnsflush(out_), 0);
    }
    EXPECT_EQ(bnsresend(out_), 0);
    EXPECT_EQ(next(50), "abcbc|");
}

TEST_F(BnsStream, GrowsWithWhatIsAskedFor) {
    const std::string large(100000, 'z');
    std::thread writer([&] { buf2bns(out_, large.data(), 100000), bnsflush(out_); });
    EXPECT_EQ(next(100000), large);
    writer.join();
    EXPECT_GE(in_->sz, 100000);
    bnsclr(in_);
    EXPECT_EQ(bnslimit(in_, 1 << 20), 0);
    EXPECT_EQ(bnsget(in_, nullptr, BNS_DOUBLE, 1 << 20), -1);
    EXPECT_EQ(in_->syserrno, EMSGSIZE);
    EXPECT_THAT(logged_.text(), HasSubstr("beyond the stream's limit"));
}

TEST_F(BnsStream, BoundsAWholeCall) {
    bnstimeout(in_, 1000);
    EXPECT_EQ(bnsdeadline(in_, 0.05), 0);
    std::atomic<bool> done = false;
    std::thread drip([&] {
        while (!done) send("."), std_sleep(0.005);
    });
    char bytes[1000];
    EXPECT_EQ(bnsget(in_, bytes, BNS_BYTE, 1000), -1);
    done = true;
    drip.join();
    EXPECT_EQ(in_->err + in_->eof, 0);
    EXPECT_GT(in_->lp, in_->fp);
}

TEST_F(BnsStream, FailuresKeepTheBytes) {
    ::close(ends_[0]);
    ends_[0] = in_->fd = ::open("/dev/null", O_RDONLY);
    buf2bns(out_, "lost", 4);
    EXPECT_EQ(bnsflush(out_), -1);  // and no signal
    EXPECT_EQ(out_->syserrno, EPIPE);
    EXPECT_EQ(out_->err, 1);
    EXPECT_EQ(out_->lp - out_->fp, 4);
    bnsclr(out_);
    EXPECT_EQ(out_->err, 1);
}

// Routines of the caller's; a write that is interrupted is made again from the start.
TEST_F(BnsStream, UsesOtherRoutines) {
    static std::string written;
    static int interruptions;
    interruptions = 2;
    out_->flags = 42;
    out_->write_routine = [](int, void* bytes, size_t n, int flags) -> ssize_t {
        if (flags != 42) return -1;
        if (interruptions-- > 0) return errno = EINTR, -1;
        written.assign(static_cast<char*>(bytes), n);
        return static_cast<ssize_t>(n);
    };
    buf2bns(out_, "text", 4);
    EXPECT_EQ(bnsflush(out_), 0);
    EXPECT_EQ(written, "text");
    EXPECT_EQ(out_->nsys, 1);
    out_->write_routine = [](int, void*, size_t n, int) { return static_cast<ssize_t>(n) - 1; };
    buf2bns(out_, "text", 4);
    EXPECT_EQ(bnsflush(out_), -1);
    bnsclr(out_);
}

TEST_F(BnsStream, AClosedPipeIsTheEndOfTheInput) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    Bns* bns = bnsnew(pipe[0], 0);
    ::close(pipe[1]);
    EXPECT_EQ(bnswait(bns), 1);
    char byte;
    EXPECT_EQ(bnsget(bns, &byte, BNS_BYTE, 1), -1);
    EXPECT_EQ(bns->eof, 1);
    EXPECT_EQ(bns->err, 0);
    EXPECT_EQ(bnsclose(bns), 0);
}

TEST_F(BnsStream, IsSnoopedWhileTheControlIsSet) {
    const int control = dcsetupbyt("bnssnoop", 0);
    bnsid(out_, "feed");
    EXPECT_EQ(bnssnoop(out_, "traffic"), 0);
    EXPECT_EQ(dcgetb(control), 1);
    buf2bns(out_, "hello", 5);
    bnsflush(out_);
    EXPECT_EQ(next(5), "hello");  // its stream makes a file of its own
    EXPECT_THAT(kit::read_file("traffic"),
                MatchesRegex("\n\n#msg [0-9]+ > [0-9]+ feed 5 [0-9]+\nhello"));
    ASSERT_NE(in_->snoop, nullptr);
    EXPECT_THAT(kit::read_file(in_->snoop),
                MatchesRegex("\n\n#msg [0-9]+ < [0-9]+ anon 5 [0-9]+\nhello"));
    const int number = out_->snoopfd;
    dcsetb(control, 0);
    buf2bns(out_, "quiet", 5);
    bnsflush(out_);
    EXPECT_EQ(out_->snoop, nullptr);
    EXPECT_EQ(out_->snoopfd, number);
    EXPECT_EQ(kit::read_file("traffic").find("quiet"), std::string::npos);
    EXPECT_EQ(bnssnoop(out_, "no/such/folder"), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open snoop file no/such/folder"));
    EXPECT_EQ(out_->snoopfd, -1);
    elog_flush(0, 0);
    // A folder that takes no file costs the records, not the register's room.
    std::filesystem::create_directory("gone");
    std::filesystem::current_path("gone");
    std::filesystem::remove("../gone");
    buf2bns(out_, "unseen", 6);
    EXPECT_EQ(bnsflush(out_), 0);
    EXPECT_EQ(logged_.text(), "");
}

// A snoop file of the environment is closed at the first transfer when the control was not set.
TEST_F(BnsStream, TakesASnoopFileFromTheEnvironment) {
    const kit::Ended ended = kit::in_child([] {
        const kit::Env snoop("BNS_SNOOP", "fromenv");
        Bns* bns = bnsnew(::open("/dev/null", O_WRONLY), 0);
        const bool opened = bns->snoop != nullptr && dcgetb(0) == 1;
        dcsetb(bns->snoopflag, 0);
        buf2bns(bns, "x", 1);
        return opened && bnsflush(bns) == 0 && bns->snoop == nullptr ? 0 : 1;
    });
    EXPECT_EQ(ended.status, 0) << ended.errors;
    EXPECT_EQ(kit::read_file("fromenv"), "");
}

TEST_F(BnsStream, LabelsPassToTheCaller) {
    EXPECT_EQ(bnsid(in_, nullptr), nullptr);
    EXPECT_EQ(bnsid(in_, "a"), nullptr);
    EXPECT_EQ(kit::taken(bnsid(in_, "b")), "a");
    EXPECT_STREQ(bnsid(in_, nullptr), "b");
}

}  // namespace
