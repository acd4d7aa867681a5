// The pair of wfserver and wfclient as users run it: on loopback, killed, disturbed, lied to.
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "../../examples/acquisition/codecs.hpp"
#include "../../examples/acquisition/packet.hpp"
#include "../../examples/acquisition/replay.hpp"
#include "support/kit.hpp"

namespace {

const std::string kRoot = MORVA_SOURCE_DIR;
const std::string kPrograms = MORVA_BINARY_DIR "/bin/";
constexpr char kWhole[] = "every packet came exactly once";

void nap(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A socket that listens on a free port.
int listening(int* port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(fd, 10), 0);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    *port = ntohs(address.sin_port);
    return fd;
}

// A client that has connected and sent its request, or -1: none does within 20 seconds.
int requested(int listening, Request* request = nullptr) {
    pollfd waiting{listening, POLLIN, 0};
    if (::poll(&waiting, 1, 20000) != 1) return -1;
    const int fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    Request unwanted;
    Memory memory, body;
    if (::recv(fd, memory.take(28), 28, MSG_WAITALL) == 28 &&
        get_request(memory.stream(), request != nullptr ? request : &unwanted, body))
        return fd;
    ::close(fd);
    return -1;
}

// A connected socket, or -1.
int connected(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
    ::close(fd);
    return -1;
}

// A program that runs in a folder, its output and errors in files there.
class Program {
  public:
    Program(const std::string& folder, const std::string& name, const std::string& arguments,
            const std::string& log)
        : log_(folder + "/" + log) {
        std::string line = "cd '" + folder + "' && exec " + kPrograms + name + " " + arguments +
                           " >'" + log_ + ".out' 2>'" + log_ + "'";
        pid_ = ::fork();
        if (pid_ == 0) {
            ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            ::_exit(127);
        }
    }
    ~Program() { end(SIGKILL); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Waits until the program has told something; false when it does not within 20 seconds.
    bool tells(const std::string& text) const {
        for (int i = 0; i < 2000; ++i, nap(0.01))
            if (log().find(text) != std::string::npos) return true;
        return false;
    }
    std::string log() const { return kit::read_file(log_); }
    std::string out() const { return kit::read_file(log_ + ".out"); }
    int port() const {
        const std::string before = "listening on port ";
        if (!tells(before)) return -1;
        nap(0.01);  // the line is written at once, but not the number before its end is read
        const std::string text = log();
        return std::atoi(text.c_str() + text.find(before) + before.size());
    }
    // Its exit status, or -1 when it is still there after a minute.
    int status() {
        for (int i = 0; pid_ > 0 && i < 6000; ++i, nap(0.01)) reap(WNOHANG);
        return pid_ > 0 ? -1 : status_;
    }
    int end(int signo) {
        if (pid_ > 0) ::kill(pid_, signo);
        if (pid_ > 0) reap(0);
        return status_;
    }

  private:
    void reap(int flags) {
        int status;
        if (::waitpid(pid_, &status, flags) != pid_) return;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        pid_ = -1;
    }
    std::string log_;
    pid_t pid_;
    int status_ = -1;
};

// Stands between client and server, and disturbs: bytes come late, in other pieces, not at all.
class Proxy {
  public:
    Proxy(int server, unsigned seed, int disturbances)
        : server_(server), random_(seed), left_(disturbances) {
        listening_ = listening(&port_);
        thread_ = std::thread([this] { serve(); });
    }
    ~Proxy() {
        over_ = true;
        thread_.join();
        ::close(listening_);
    }
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
    int port() const { return port_; }
    int left() const { return left_; }

  private:
    int upto(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }

    void serve() {
        while (!over_) {
            pollfd waiting{listening_, POLLIN, 0};
            if (::poll(&waiting, 1, 10) <= 0) continue;
            const int client = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
            const int server = connected(server_);
            if (client >= 0 && server >= 0) relay(client, server);
            if (client >= 0) ::close(client);
            if (server >= 0) ::close(server);
        }
    }

    // Passes bytes on until the next disturbance is due, or one side closes.
    void relay(int client, int server) {
        int budget = upto(4) == 0 ? upto(40) : upto(6000);
        while (!over_) {
            pollfd ends[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
            if (::poll(ends, 2, 10) <= 0) continue;
            for (int i = 0; i < 2; ++i) {
                if (ends[i].revents == 0) continue;
                if (upto(9) == 0) nap(upto(3) / 1000.0);  // late, and merged with what comes next
                char bytes[4096];
                const ssize_t n = ::recv(ends[i].fd, bytes, 1 + upto(sizeof bytes - 1), 0);
                if (n <= 0) return;
                const auto most = left_ > 0 ? std::min<ssize_t>(n, budget) : n;
                if (!pass(ends[1 - i].fd, bytes, most)) return;
                budget -= static_cast<int>(most);
                if (left_ > 0 && budget <= 0) return disturb(client, server);
            }
        }
    }

    // Sends in pieces.
    bool pass(int fd, const char* bytes, ssize_t n) {
        while (n > 0) {
            const ssize_t piece = upto(3) == 0 ? 1 + upto(static_cast<int>(n) - 1) : n;
            if (::send(fd, bytes, piece, MSG_NOSIGNAL) != piece) return false;
            bytes += piece;
            n -= piece;
        }
        return true;
    }

    // The rest is lost: with a reset on either side, or as if it had ended in good order.
    void disturb(int client, int server) {
        const linger at_once{1, 0};
        for (const int fd : {client, server})
            if (upto(1) == 0) ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        --left_;
    }

    int listening_, port_, server_;
    std::mt19937 random_;
    std::atomic<int> left_;
    std::atomic<bool> over_ = false;
    std::thread thread_;
};

class Acquisition : public testing::Test {
  protected:
    void settings(const std::string& program, const std::string& text) {
        kit::write_file(folder_.file(program + ".pf"), "announce no\n" + text);
    }
    Program server(const std::string& arguments, const std::string& log = "server") {
        return {folder_.path(), "wfserver", arguments, log};
    }
    Program client(int port, const std::string& arguments = "", const std::string& log = "client") {
        return {folder_.path(), "wfclient", arguments + " 127.0.0.1:" + std::to_string(port), log};
    }
    void SetUp() override {
        settings("wfserver", "");
        settings("wfclient", "backoff 0.002\nbackoff_max 0.02\nbury_every 0.05\n");
    }

    // Waits until a number in a state file is at least `least`, and no longer than 20 seconds.
    void wait_for(const std::string& file, const std::string& key, double least) {
        for (int i = 0; i < 2000; ++i, nap(0.01)) {
            const std::string text = kit::read_file(folder_.file(file));
            const auto at = text.find(key + "\t");
            if (at != std::string::npos && std::atof(text.c_str() + at + key.size()) >= least)
                return;
        }
        FAIL() << key << " is never " << least;
    }

    kit::TempDir folder_;
    kit::Env root_{"KORVALIN", kRoot.c_str()};
    kit::Env path_{"PFPATH", (kRoot + "/data/pf:" + folder_.path()).c_str()};
    kit::Env tags_{"ELOG_TAG", nullptr}, delivery_{"ELOG_DELIVER", nullptr};
};

// The number before a word of the client's report.
double reported(const Program& client, const std::string& word) {
    const std::string text = client.out();
    const auto at = text.find(" " + word);
    if (at == std::string::npos) return -1;
    const auto start = text.find_last_of(" \n", at - 1) + 1;
    return std::atof(text.c_str() + start);
}

std::string hex_of(const Memory& memory) {
    std::string text;
    for (const char byte : memory.all()) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

// docs/formats/packets.md works these bytes out.
TEST(Packets, StandByteByByte) {
    const int64_t recording = 0x0123456789abcdef;
    Memory bytes, body;
    put_request(bytes.stream(), {recording, 354});
    EXPECT_EQ(hex_of(bytes), "57465231000000100123456789abcdef0000000000000162af35255a");
    Request request;
    EXPECT_TRUE(get_request(bytes.stream(), &request, body));
    EXPECT_EQ(request.recording, recording);
    EXPECT_EQ(request.first, 354);

    const std::string samples("\0\0\0\1\xff\xff\xff\xfe", 8);
    Packet sent{recording, 355, 354, "DUNE", "HHZ", 1.5, 100, 0.0625, 1, 2.5, 0, 2, samples}, got;
    bnsclr(bytes.stream());
    put_packet(bytes.stream(), sent);
    EXPECT_EQ(
        hex_of(bytes),
        "57465031000000600123456789abcdef0000000000000163000000000000016244554e450000000048485a"
        "00000000003ff800000000000040590000000000003fb00000000000003ff0000000000000400400000000"
        "0000000000000000000200000001fffffffef3d76b99");
    EXPECT_TRUE(get_packet(bytes.stream(), &got, body));
    EXPECT_EQ(got.sequence, 355);
    EXPECT_STREQ(got.channel, "HHZ");
    EXPECT_EQ(got.released, 2.5);
    EXPECT_EQ(got.payload, samples);
}

// 90 kB of a packet may be deflated from 90 MB.
TEST(Packets, DoNotInflateBeyondTheirSamples) {
    const kit::Logged logged;
    Bytes packed;
    Decoders decoders;
    Samples samples;
    ASSERT_TRUE(encode_vkcompress(std::vector<int32_t>(1000000), packed));
    const int codec = codec_number("vkcompress");
    EXPECT_FALSE(decoders.decode(codec, packed.view(), 10000, &samples));
    EXPECT_THAT(logged.text(), testing::HasSubstr("of 4000000 bytes, 40000 are allowed"));
    EXPECT_TRUE(decoders.decode(codec, packed.view(), 1000000, &samples));
}

TEST(Replays, StandStillAtSpeedsThatAreNone) {
    Recording recording;
    recording.pieces = {{0, 0, 1, 1e-9}, {0, 1, 1, 2e-9}};
    recording.end = 2e-9;
    Replay replay(recording, false, 0);
    for (const double speed : {std::nan(""), -1e9, 1.0}) {
        EXPECT_EQ(replay.position(), 0) << "before " << speed;
        nap(0.001);
        replay.advance(speed);
    }
    EXPECT_EQ(replay.position(), 2);
}

TEST_F(Acquisition, EveryCodecBringsTheRecording) {
    Program serving = server("-p 0 -s 1e9 -S state.server");
    const int port = serving.port();
    int threads = 0;
    for (const std::string codec : {"raw", "canada", "cm6", "ucsd", "gencompress", "vkcompress"}) {
        settings("wfserver", "codec " + codec + "\n");
        settings("wfclient", "threads " + std::to_string(threads++) + "\n");
        ASSERT_TRUE(serving.tells("codec " + codec + "\n")) << serving.log();
        Program receiving = client(port, "-o " + codec, codec + ".log");
        EXPECT_EQ(receiving.status(), 0) << receiving.log();
        EXPECT_THAT(receiving.out(), testing::HasSubstr(kWhole));
        EXPECT_THAT(receiving.out(), testing::ContainsRegex("\nBREK +HHN +28 +7000 .* nm/s\n"));
        EXPECT_EQ(reported(receiving, "packets,"), 354);
    }
    EXPECT_EQ(serving.end(SIGTERM), 0);
    EXPECT_THAT(serving.log(), testing::HasSubstr("ending at packet 354\n"));
}

TEST_F(Acquisition, OthersFindTheLastPacketsAndTheHistories) {
    Program serving = server("-p 0 -s 1e9 -c raw");
    ASSERT_EQ(client(serving.port()).status(), 0);
    Xheap* heap = openx(folder_.file("waveforms/last.heap").c_str(), "r", 0);
    ASSERT_NE(heap, nullptr);
    Tbl* names = namesx(heap);
    EXPECT_EQ(maxtbl(names), 12);
    freetbl(names, nullptr);
    void* data;
    int n = 0;
    ASSERT_EQ(getxaddr(heap, "DUNE.HHZ", &data, &n), 0);
    Memory body;
    Packet packet;
    EXPECT_TRUE(get_body({static_cast<char*>(data), static_cast<std::size_t>(n)}, &packet, body));
    EXPECT_STREQ(packet.station, "DUNE");
    EXPECT_EQ(packet.nsamp, 250);
    EXPECT_EQ(packet.payload.size(), 1000U);
    EXPECT_EQ(packet.calibration, 6.25e-02);
    // The 28th packet of 2.5 seconds.
    EXPECT_NEAR(packet.time, str2epoch("2026/03/14 04:21:07.350") + 27 * 2.5, 1e-3);
    closex(&heap);

    char id[RING_ID_SIZE];
    Ring* ring = openring(folder_.file("waveforms/DUNE.HHZ.ring").c_str(), id, 0, RING_READONLY);
    ASSERT_NE(ring, nullptr);
    EXPECT_STREQ(id, "DUNE HHZ, nm/s");
    EXPECT_EQ(countring(ring), 28);
    closering(ring);
    ring = openring(folder_.file("waveforms/latency.ring").c_str(), id, 0, RING_READONLY);
    ASSERT_NE(ring, nullptr);
    EXPECT_GT(countring(ring), 0);
    closering(ring);
}

// Also when the client has enough while more packets wait.
TEST_F(Acquisition, TheLastPacketsAreKeptAtTheEnd) {
    settings("wfserver", "repeat yes\nbury_every 0.01\n");
    Program serving = server("-p 0 -s 1e9");
    const int port = serving.port();
    wait_for("wfserver.state", "position", 20 * 354);
    ASSERT_EQ(client(port, "-n 5").status(), 0);
    Xheap* heap = openx(folder_.file("waveforms/last.heap").c_str(), "r", 0);
    ASSERT_NE(heap, nullptr);
    Tbl* names = namesx(heap);
    Memory body;
    Packet packet;
    int64_t newest = 0;
    for (long i = 0; i < maxtbl(names); ++i) {
        void* data;
        int n = 0;
        ASSERT_EQ(getxaddr(heap, static_cast<char*>(gettbl(names, i)), &data, &n), 0);
        ASSERT_TRUE(
            get_body({static_cast<char*>(data), static_cast<std::size_t>(n)}, &packet, body));
        newest = std::max(newest, packet.sequence);
    }
    EXPECT_EQ(newest, 5 * 354 - 1);
    freetbl(names, nullptr);
    closex(&heap);
}

TEST_F(Acquisition, KillingTheServerLosesAndDoublesNothing) {
    settings("wfserver", "bury_every 0.1\n");
    Program first = server("-p 0 -d 2", "first");
    const int port = first.port();
    Program receiving = client(port);
    ASSERT_TRUE(receiving.tells("number 0 on"));
    wait_for("wfserver.state", "position", 50);
    EXPECT_EQ(first.end(SIGTERM), 0) << first.log();
    Program second = server("-d 2 -p " + std::to_string(port), "second");
    EXPECT_EQ(second.port(), port);
    wait_for("wfserver.state", "position", 150);
    EXPECT_EQ(second.end(SIGKILL), 128 + SIGKILL);
    Program third = server("-d 2 -p " + std::to_string(port), "third");
    EXPECT_EQ(receiving.status(), 0) << receiving.log();
    EXPECT_THAT(receiving.out(), testing::HasSubstr(kWhole));
    EXPECT_EQ(reported(receiving, "packets,"), 354);
    for (const Program* later : {&second, &third}) {
        EXPECT_THAT(later->log(), testing::Not(testing::HasSubstr("starting at packet 0\n")));
        EXPECT_THAT(later->log(), testing::Not(testing::HasSubstr("can't be read")));
    }
}

TEST_F(Acquisition, KillingTheClientLosesAndDoublesNothing) {
    Program serving = server("-p 0 -d 2");
    const int port = serving.port();
    for (const int signo : {SIGTERM, SIGKILL}) {
        Program receiving = client(port);
        wait_for("waveforms/state", "next", signo == SIGTERM ? 20 : 120);
        EXPECT_EQ(receiving.end(signo), signo == SIGKILL ? 128 + SIGKILL : 0);
    }
    Program receiving = client(port);
    EXPECT_EQ(receiving.status(), 0);
    EXPECT_THAT(receiving.log(), testing::Not(testing::HasSubstr("number 0 on")));
    EXPECT_THAT(receiving.out(), testing::HasSubstr(kWhole));
    EXPECT_EQ(reported(receiving, "packets,"), 354);
}

// A thousand by hand: MORVA_DISTURBANCES=1000
TEST_F(Acquisition, DisturbedConnectionsLoseAndDoubleNothing) {
    const char* wanted = ::getenv("MORVA_DISTURBANCES");
    const int disturbances = wanted != nullptr ? std::atoi(wanted) : 60;
    const int repetitions = 1 + disturbances / 80;
    settings("wfserver", "repeat yes\ncodec raw\n");
    Program serving = server("-p 0 -s 1e9");
    Proxy proxy(serving.port(), 8, disturbances);
    Program receiving = client(proxy.port(), "-n " + std::to_string(repetitions));
    EXPECT_EQ(receiving.status(), 0) << receiving.log();
    EXPECT_EQ(proxy.left(), 0) << receiving.out();
    EXPECT_THAT(receiving.out(), testing::HasSubstr(kWhole));
    EXPECT_EQ(reported(receiving, "packets,"), 354 * repetitions) << receiving.out();
    EXPECT_EQ(serving.end(SIGTERM), 0) << serving.log();
}

TEST_F(Acquisition, FiftyBadRequestsDoNotEndTheServer) {
    Program serving = server("-p 0 -s 1e9");
    const int port = serving.port();
    std::mt19937 random(3);
    for (int i = 0; i < 60; ++i) {
        std::string bytes = i % 3 == 0 ? "WFR1" : i % 3 == 1 ? "WFR1\x7f\xff\xff\xff" : "GET /";
        for (int j = 0; j < i; ++j) bytes.push_back(static_cast<char>(random()));
        const int fd = connected(port);
        ASSERT_GE(fd, 0);
        EXPECT_GT(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
        ::close(fd);
    }
    Program receiving = client(port);
    EXPECT_EQ(receiving.status(), 0) << receiving.log() << serving.log();
    EXPECT_THAT(receiving.out(), testing::HasSubstr(kWhole));
}

// Takes connections and answers each with bytes that are no packets, or damaged ones.
TEST_F(Acquisition, SixtyBadServersDoNotEndTheClient) {
    int port;
    const int waiting = listening(&port);
    Program receiving = client(port);
    for (int i = 0; i < 60; ++i) {
        const int fd = requested(waiting);
        ASSERT_GE(fd, 0);
        Packet packet;
        packet.sequence = i % 5;
        packet.total = i % 4 == 0 ? 0 : 9;
        packet.codec = i - 20;
        packet.nsamp = i % 7 == 0 ? kMostSamples : i;
        const std::string payload(static_cast<std::size_t>(i * 3), 'x');
        packet.payload = payload;
        std::strcpy(packet.station, "../etc");
        Bns* out = bnsnew(fd, 0);
        put_packet(out, packet);
        if (i % 3 == 0) out->data[out->fp + i] ^= 4;
        if (i % 3 == 1) out->lp -= i % 40;
        bnsclose(out);
    }
    ::close(waiting);
    EXPECT_EQ(receiving.end(SIGTERM), 0) << receiving.log();
    EXPECT_THAT(receiving.log(), testing::HasSubstr("a damaged packet\n"));
    EXPECT_THAT(receiving.log(), testing::HasSubstr("a packet that can't be decoded\n"));
}

TEST_F(Acquisition, NumbersThatCannotBeCountedAreNotBelieved) {
    int port;
    const int waiting = listening(&port);
    Program receiving = client(port, "-n 0");
    for (const int64_t sequence : {INT64_MAX, INT64_MAX - 1, kMostPackets, kMostPackets - 1}) {
        Request request;
        const int fd = requested(waiting, &request);
        ASSERT_GE(fd, 0) << "before " << sequence;
        EXPECT_EQ(request.first, 0);
        Packet packet;
        packet.recording = 1;
        packet.sequence = sequence;
        packet.total = 9;
        packet.nsamp = 1;
        packet.payload = "1234";
        Bns* out = bnsnew(fd, 0);
        put_packet(out, packet);
        bnsclose(out);
    }
    Request request;
    const int fd = requested(waiting, &request);
    EXPECT_EQ(request.first, kMostPackets);
    ::close(fd);
    ::close(waiting);
    EXPECT_EQ(receiving.end(SIGTERM), 0) << receiving.log();
}

// Frames without a body would never make a batch full.
TEST_F(Acquisition, FramesOfNothingAreNotGathered) {
    int port;
    const int waiting = listening(&port);
    Program receiving = client(port);
    const int fd = requested(waiting);
    std::string frames;
    for (int i = 0; i < 10000; ++i) frames.append("WFP1\0\0\0\0\xff\xff\xff\xff", 12);
    int sent = 0;
    while (sent < 300 && ::send(fd, frames.data(), frames.size(), MSG_NOSIGNAL) > 0) ++sent;
    EXPECT_LT(sent, 300);
    ::close(fd);
    ::close(waiting);
    EXPECT_EQ(receiving.end(SIGTERM), 0) << receiving.log();
}

TEST_F(Acquisition, ServersThatStopWithinAPacketHoldNothingUp) {
    settings("wfclient", "patience 1000\nbury_every 0.05\n");
    int port;
    const int waiting = listening(&port);
    Program receiving = client(port);
    const int fd = requested(waiting);
    Packet packet;
    packet.total = 9;
    packet.nsamp = 4;
    packet.payload = "four samples, so";
    Memory bytes;
    for (packet.sequence = 0; packet.sequence < 3; ++packet.sequence)
        put_packet(bytes.stream(), packet);
    const int most = bytes.size() - 3;
    ASSERT_EQ(::send(fd, bytes.bytes(), most, 0), most);
    wait_for("waveforms/state", "next", 2);
    ASSERT_EQ(::send(fd, bytes.bytes() + most, 3, 0), 3);
    wait_for("waveforms/state", "next", 3);
    ASSERT_EQ(::send(fd, bytes.bytes(), 50, 0), 50);
    nap(0.01);
    EXPECT_EQ(receiving.end(SIGTERM), 0) << receiving.log();
    EXPECT_EQ(reported(receiving, "packets,"), 3);
    ::close(fd);
    ::close(waiting);
}

TEST_F(Acquisition, TurnsAwayWhoIsNotListed) {
    settings("wfserver", "reject_ip_addresses &Tbl{\n127.0.0.1 255.255.255.255 not today\n}\n");
    Program serving = server("-p 0");
    const int port = serving.port();
    Program receiving = client(port);
    EXPECT_TRUE(serving.tells("127.0.0.1 is turned away: not today\n")) << serving.log();
    EXPECT_TRUE(receiving.tells("connection ended: closed by the server\n") ||
                receiving.tells("connection ended: Connection reset by peer\n"))
        << receiving.log();
}

// What another process does to a running server; run by the test below in the server's folder.
TEST(AcquisitionHelper, DISABLED_ChangesControls) {
    dcselect("wfserver");
    dcsets(dcsetupstr("codec", ""), "cm6");
    dcsetb(dcsetupbyt("bnssnoop", 0), 1);
    dcsetb(dcsetupbyt("pause", 1), 0);
}

TEST_F(Acquisition, ObeysDynamicControls) {
    settings("wfserver", "pause yes\n");
    Program serving = server("-p 0 -s 1e9");
    const int port = serving.port();
    ASSERT_TRUE(serving.tells("paused at"));
    Program receiving = client(port);
    ASSERT_TRUE(serving.tells("number 0 on"));
    const std::string other = "cd '" + folder_.path() + "' && '" +
                              std::filesystem::read_symlink("/proc/self/exe").string() +
                              "' --gtest_also_run_disabled_tests --gtest_filter=*ChangesControls";
    ASSERT_EQ(std::system((other + " >/dev/null").c_str()), 0);
    EXPECT_EQ(receiving.status(), 0) << serving.log();
    EXPECT_THAT(serving.log(), testing::HasSubstr("replaying at 1e+09 times real time, codec cm6"));
    EXPECT_THAT(receiving.out(), testing::HasSubstr(kWhole));
    bool snooped = false;
    for (const auto& file : std::filesystem::directory_iterator(folder_.path()))
        if (file.path().filename().string().starts_with("snoop"))
            snooped |= kit::read_file(file.path().string()).find("CHK2 ") != std::string::npos;
    EXPECT_TRUE(snooped);
}

TEST_F(Acquisition, TwoInstancesDoNotShareAState) {
    const std::string words = "for exclusive use: it is already in use.\n";
    settings("wfserver", "bury_every 0.01\n");
    Program serving = server("-p 0 -d 10");
    const int port = serving.port();
    Program receiving = client(port);
    wait_for("wfserver.state", "position", 10);  // both have buried by now
    wait_for("waveforms/state", "next", 10);
    Program server2 = server("-p 0", "server2"), client2 = client(port, "", "client2");
    EXPECT_EQ(server2.status(), 1);
    EXPECT_EQ(client2.status(), 1);
    EXPECT_THAT(server2.log(), testing::HasSubstr(words));
    EXPECT_THAT(client2.log(), testing::HasSubstr(words));
}

}  // namespace
