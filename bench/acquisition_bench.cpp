// The acquisition pair beside a plain copy of the bytes that go over its socket.
//
//   pair, CODEC, N a packet   wfclient receives 144 million samples from wfserver over loopback, in
//                             packets of N samples, and does with them what it always does: CRC-32
//                             of each packet, decoding, CRC-64 of all samples, amplitude, rings,
//                             shared heap. From its start to its end.
//   socket copy               one thread sends the same bytes over loopback, another receives them,
//                             64 kB at a time
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "../examples/acquisition/packet.hpp"
#include "bench.hpp"
#include "seismogram.hpp"

namespace {

constexpr std::size_t kSamples = 400000;  // of a channel
constexpr int kRepetitions = 30;

// A folder with a recording of twelve channels and the settings of both programs.
class Folder {
  public:
    Folder() {
        char name[] = "/tmp/acquisition_bench.XXXXXX";
        if (::mkdtemp(name) == nullptr) std::abort();
        path_ = name;
        ::setenv("KORVALIN", MORVA_ROOT, 1);
        ::setenv("PFPATH", (MORVA_ROOT "/data/pf:" + path_).c_str(), 1);
        write("wfclient.pf", "announce no\n");
        write("recording.gse2", recording());
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    const std::string& path() const { return path_; }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(path_ + "/" + name) << text;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(path_ + "/" + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    static std::string recording() {
        const bench::Samples samples = bench::seismogram(kSamples, 27);
        char* text = nullptr;
        int length, size = 0;
        cm6(samples.data(), static_cast<int>(kSamples), &text, &length, &size);
        std::string message;
        for (int i = 0; i < 12; ++i) {
            char line[128];
            std::snprintf(line, sizeof line,
                          "WID2 2026/03/14 04:21:07.350 STA%d  HH%c      CM6 %8zu  100.000000   "
                          "6.25e-02   1.000 STS-2   -1.0  0.0\nDAT2\n",
                          i / 3, "ENZ"[i % 3], kSamples);
            message.append(line).append(text, static_cast<std::size_t>(length));
        }
        std::free(text);
        return message + "STOP\n";
    }
    std::string path_;
};

const Folder& folder() {
    static const Folder made;
    return made;
}

pid_t started(const std::string& program, const std::string& arguments) {
    const std::string line = "cd " + folder().path() + " && exec " MORVA_PROGRAMS "/" + program +
                             " " + arguments + " >" + program + ".out 2>" + program + ".log";
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    ::_exit(127);
}

// A server that releases the recording a hundred times a second.
class Server {
  public:
    Server(const std::string& codec, int length) {
        folder().write("wfserver.pf", "announce no\nrepeat yes\ncontrols no\ncodec " + codec +
                                          "\npacket_samples " + std::to_string(length) + "\n");
        std::filesystem::remove(folder().path() + "/wfserver.state");
        pid_ = started("wfserver", "-p 0 -s 1e9 recording.gse2");
        const std::string before = "listening on port ";
        for (int i = 0; i < 1000 && port_ == 0; ++i) {
            std_sleep(0.01);
            const std::string log = folder().read("wfserver.log");
            const auto at = log.find(before);
            if (at != log.npos) port_ = std::atoi(log.c_str() + at + before.size());
        }
    }
    ~Server() {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    int port() const { return port_; }

  private:
    pid_t pid_;
    int port_ = 0;
};

void receive(benchmark::State& state, const char* codec, int length) {
    const Server server(codec, length);
    std_sleep(0.02 * kRepetitions);  // until all is there to be sent
    const std::string arguments = "-n " + std::to_string(kRepetitions) +
                                  " -o received localhost:" + std::to_string(server.port());
    for (auto _ : state) {
        int status;
        ::waitpid(started("wfclient", arguments), &status, 0);
        if (status != 0 || folder().read("wfclient.out").find("exactly once") == std::string::npos)
            return state.SkipWithError("the recording did not come whole");
    }
    state.SetItemsProcessed(state.iterations() * 12 * kRepetitions *
                            static_cast<std::int64_t>(kSamples));
}

int connected(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        std::abort();
    return fd;
}

// What a server sends for the whole recording.
std::string sent_bytes(const char* codec, int length) {
    const Server server(codec, length);
    Memory memory;
    Bns *out = bnsnew(connected(server.port()), 0), *in = bnsnew(out->fd, 0), *kept = bnsnew(-1, 0);
    put_request(out, Request());
    bnsflush(out);
    Packet packet;
    while (packet.total == 0 || packet.sequence < packet.total - 1) {
        if (!get_packet(in, &packet, memory)) std::abort();
        put_packet(kept, packet);
    }
    const std::string bytes(kept->data, static_cast<std::size_t>(kept->lp));
    bnsfree(kept);
    bnsfree(in);
    bnsclose(out);
    return bytes;
}

constexpr std::size_t kPiece = 65536;

void send_all(int port, const std::string& bytes) {
    const int fd = connected(port);
    for (int i = 0; i < kRepetitions; ++i)
        for (std::size_t at = 0; at < bytes.size();) {
            const ssize_t n = ::write(fd, &bytes[at], std::min(kPiece, bytes.size() - at));
            if (n < 0) std::abort();
            at += static_cast<std::size_t>(n);
        }
    ::close(fd);
}

void copy(benchmark::State& state, const char* codec, int length) {
    const std::string bytes = sent_bytes(codec, length);
    std::vector<char> received(kPiece);
    const int listening = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    ::bind(listening, reinterpret_cast<const sockaddr*>(&address), size);
    ::listen(listening, 1);
    ::getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size);
    for (auto _ : state) {
        std::thread sender([&] { send_all(ntohs(address.sin_port), bytes); });
        const int fd = ::accept(listening, nullptr, nullptr);
        while (::read(fd, received.data(), kPiece) > 0) {
        }
        ::close(fd);
        sender.join();
    }
    ::close(listening);
    state.SetBytesProcessed(state.iterations() * kRepetitions *
                            static_cast<std::int64_t>(bytes.size()));
}

const bool registered = [] {
    for (const char* codec : {"gencompress", "raw"})
        for (const int length : {250, 10000}) {
            const std::string work =
                std::string("pair, ") + codec + ", " + std::to_string(length) + " a packet";
            for (const auto& [who, run] :
                 {std::pair{" : morva", &receive}, {" : socket copy", &copy}})
                benchmark::RegisterBenchmark((work + who).c_str(), run, codec, length)
                    ->UseRealTime()
                    ->Unit(benchmark::kMillisecond);
        }
    return true;
}();

}  // namespace
