#include <fcntl.h>
#include <netinet/in.h>
#include <sys/wait.h>

#include "base/posix.hpp"
#include "morva/bns.h"
#include "morva/sockets.h"
#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

// A server on a free port of the loopback interface.
class Listener {
  public:
    explicit Listener(int family = AF_INET) : fd_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_storage storage{};
        auto* address = reinterpret_cast<sockaddr*>(&storage);
        vk_inet_pton(family == AF_INET ? "127.0.0.1" : "::1", address);
        socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        works_ = ::bind(fd_.get(), address, length) == 0 && ::listen(fd_.get(), 5) == 0 &&
                 ::getsockname(fd_.get(), address, &length) == 0;
        port_ = ntohs(reinterpret_cast<sockaddr_in*>(address)->sin_port);
    }
    bool works() const { return works_; }
    std::string port() const { return std::to_string(port_); }
    morva::Descriptor accept() { return morva::Descriptor(::accept(fd_.get(), nullptr, nullptr)); }

  private:
    morva::Descriptor fd_;
    bool works_;
    int port_;
};

struct Opened {
    morva::Descriptor fd;
    char host[256] = "", description[256] = "";
    int port = 0;
};

Opened open_server(const std::string& name, double seconds = 0, const char* emulator = "") {
    Opened opened;
    opened.fd =
        morva::Descriptor(seconds > 0 ? vk_open_socket_t(name.c_str(), "1", emulator, opened.host,
                                                         &opened.port, opened.description, seconds)
                                      : vk_open_socket2(name.c_str(), "1", emulator, opened.host,
                                                        &opened.port, opened.description));
    return opened;
}

TEST(Connect, ReachesAServer) {
    const kit::Env none("ORB_IP_ADDRESS", nullptr);
    for (const double seconds : {0.0, 5.0}) {
        Listener listener;
        Opened opened = open_server(":" + listener.port() + ":the test", seconds);
        ASSERT_TRUE(opened.fd);
        EXPECT_EQ(errno, 0);
        EXPECT_STREQ(opened.host, "localhost");
        EXPECT_STREQ(opened.description, "the test");
        EXPECT_EQ(std::to_string(opened.port), listener.port());
        EXPECT_EQ(::fcntl(opened.fd.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(::fcntl(opened.fd.get(), F_GETFL) & O_NONBLOCK, 0);
        const morva::Descriptor peer = listener.accept();
        char name[46];
        EXPECT_EQ(vk_getpeername(peer.get(), name), 0);
        EXPECT_STREQ(name, "127.0.0.1");
    }
    Listener six(AF_INET6);
    if (six.works()) {
        EXPECT_TRUE(open_server("[::1]:" + six.port()).fd);
    }
}

TEST(Connect, OlderFormDoesSo) {
    Listener listener;
    char description[256];
    const morva::Descriptor fd(
        vk_open_socket(("localhost:" + listener.port()).c_str(), nullptr, description));
    EXPECT_TRUE(fd);
}

TEST(Connect, FailuresHaveReasons) {
    const kit::Env none("ORB_IP_ADDRESS", nullptr);
    std::string closed;
    {
        const Listener listener;
        closed = listener.port();
    }
    for (const double seconds : {0.0, 5.0}) {
        const kit::Logged logged;
        EXPECT_FALSE(open_server(":" + closed, seconds).fd);
        EXPECT_THAT(logged.text(), HasSubstr("failed to connect to :" + closed + " (localhost:"));
    }
    const kit::Logged logged;
    EXPECT_FALSE(open_server("no.such.host.invalid:1").fd);
    EXPECT_THAT(logged.text(), HasSubstr("couldn't find ip address for 'no.such.host.invalid' : "));
    char name[46];
    EXPECT_EQ(vk_getpeername(-1, name), -1);
    EXPECT_STREQ(name, "*unknown*");
}

// A listener whose queue is full answers nothing: the connection ends at the deadline.
TEST(Connect, EndsAtTheDeadline) {
    const morva::Descriptor fd(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    socklen_t length = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(::listen(fd.get(), 0), 0);
    ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &length);
    const std::string name = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    const kit::Logged logged;
    std::vector<Opened> queue;
    do {
        queue.push_back(open_server(name, 0.2));
    } while (queue.back().fd && queue.size() < 20);
    EXPECT_FALSE(queue.back().fd);
    EXPECT_THAT(logged.text(), HasSubstr("failed to connect to " + name));
}

TEST(Connect, BindsTheLocalAddress) {
    Listener listener;
    {
        const kit::Env local("ORB_IP_ADDRESS", "127.0.0.1");
        EXPECT_TRUE(open_server("127.0.0.1:" + listener.port()).fd);
    }
    const kit::Env elsewhere("ORB_IP_ADDRESS", "192.0.2.1");
    const kit::Logged logged;
    EXPECT_FALSE(open_server("127.0.0.1:" + listener.port()).fd);
    EXPECT_THAT(logged.text(), HasSubstr("Failed to bind ip address '192.0.2.1'"));
}

std::string all_of(int fd) {
    Bns* bns = bnsnew(fd, 0);
    bnstimeout(bns, 5000);
    char text[256];
    bnsgetc(bns, text, sizeof text, '\0');
    bnsclose(bns);
    return text;
}

TEST(Spawn, TalksToAProgram) {
    char* argv[] = {const_cast<char*>("echo"), const_cast<char*>("-V"), const_cast<char*>("words"),
                    nullptr};
    std::string said;
    const std::string errors = kit::captured(2, [&] { said = all_of(vk_spawn(argv)); });
    EXPECT_EQ(said, "-V words\n");
    EXPECT_EQ(errors, "(echo -V words) spawned\n");
    EXPECT_EQ(all_of(vk_exec_subprogram("/bin/echo", "file")), "file\n");
    EXPECT_EQ(all_of(vk_exec_subprogram("/bin/echo", "a@b@opt")), "-opt a@b\n");
    while (::wait(nullptr) > 0) continue;
    EXPECT_EQ(all_of(vk_exec_subprogram("/no/such/program", "x")), "");
    int status = 0;
    EXPECT_GT(::wait(&status), 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

}  // namespace
