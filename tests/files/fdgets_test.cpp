// The same lines from every kind of descriptor.
#include <fcntl.h>
#include <sys/socket.h>

#include <thread>
#include <utility>

#include "support/kit.hpp"

namespace {

struct Ends {
    int in, out;
};

Ends make_pipe() {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    return {ends[0], ends[1]};
}

Ends make_socket() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    return {ends[0], ends[1]};
}

Ends make_file() {
    char name[] = "/tmp/morva-XXXXXX";
    const int out = ::mkstemp(name), in = ::open(name, O_RDONLY);
    ::unlink(name);
    return {in, out};
}

struct Kind {
    const char* name;
    Ends (*make)();
};

class FdGets : public testing::TestWithParam<Kind> {
  protected:
    FdGets() : ends_(GetParam().make()) {}
    ~FdGets() override { ::close(ends_.in), close_writer(); }
    void close_writer() { ::close(std::exchange(ends_.out, -1)); }
    void send(std::string_view text) {
        EXPECT_EQ(::write(ends_.out, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // A line of at most size-1 characters, or "<null>".
    std::string line(int size = 100) {
        std::string room(static_cast<size_t>(size) + 1, '#');
        const char* got = fdgets(room.data(), size, ends_.in);
        EXPECT_EQ(room.back(), '#') << "wrote behind the buffer";
        EXPECT_TRUE(got == nullptr || got == room.data());
        return got != nullptr ? got : "<null>";
    }
    Ends ends_;
};

TEST_P(FdGets, LineByLine) {
    send("first\n\nthird\nlast without newline");
    close_writer();
    EXPECT_EQ(line(), "first\n");
    EXPECT_EQ(line(), "\n");
    EXPECT_EQ(line(), "third\n");
    EXPECT_EQ(line(), "last without newline");
    EXPECT_EQ(line(), "<null>");
    EXPECT_EQ(errno, 0);
}

TEST_P(FdGets, ReadsNothingBehindTheNewline) {
    send("line\nrest");
    EXPECT_EQ(line(), "line\n");
    char rest[16];
    EXPECT_EQ(::read(ends_.in, rest, sizeof rest), 4);
    EXPECT_EQ(std::string(rest, 4), "rest");
}

TEST_P(FdGets, LongLinesComeInPieces) {
    const std::string text(5000, 'x');
    send(text + "\nnext\n");
    EXPECT_EQ(line(4), "xxx");
    EXPECT_EQ(line(5001 - 3), std::string(4997, 'x'));
    EXPECT_EQ(line(), "\n");
    EXPECT_EQ(line(6), "next\n");
}

TEST_P(FdGets, SmallBuffers) {
    send("ab");
    EXPECT_EQ(line(1), "");
    EXPECT_EQ(line(2), "a");
    char untouched = '#';
    EXPECT_EQ(fdgets(&untouched, 0, ends_.in), nullptr);
    EXPECT_EQ(untouched, '#');
    EXPECT_EQ(fdgets(nullptr, 10, ends_.in), nullptr);
    close_writer();
    EXPECT_EQ(line(10), "b");
}

INSTANTIATE_TEST_SUITE_P(Kinds, FdGets,
                         testing::Values(Kind{"Pipe", make_pipe}, Kind{"Socket", make_socket},
                                         Kind{"File", make_file}),
                         [](const auto& info) { return info.param.name; });

TEST(FdGetsErrors, KeepWhatHadArrived) {
    char buffer[16] = "untouched";
    errno = 0;
    EXPECT_EQ(fdgets(buffer, sizeof buffer, -1), nullptr);
    EXPECT_EQ(errno, EBADF);
    EXPECT_STREQ(buffer, "untouched");
    for (const auto make : {make_pipe, make_socket}) {
        const Ends ends = make();
        ::fcntl(ends.in, F_SETFL, O_NONBLOCK);
        EXPECT_EQ(::write(ends.out, "half", 4), 4);
        EXPECT_EQ(fdgets(buffer, sizeof buffer, ends.in), nullptr);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_STREQ(buffer, "half");
        ::close(ends.in), ::close(ends.out);
    }
}

TEST(FdGetsErrors, WaitForTheRestOfALine) {
    for (const auto make : {make_pipe, make_socket}) {
        const Ends ends = make();
        std::thread writer([&] {
            for (const char c : std::string("slowly\n")) EXPECT_EQ(::write(ends.out, &c, 1), 1);
        });
        char buffer[16];
        EXPECT_STREQ(fdgets(buffer, sizeof buffer, ends.in), "slowly\n");
        writer.join();
        ::close(ends.in), ::close(ends.out);
    }
}

}  // namespace
