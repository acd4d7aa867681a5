// Streams and access lists beside what a program would write by hand.
//
//   100 MB of ...       items put and flushed in messages of 64 kB by a thread, got by another,
//   over
//                       a socket pair; beside it stdio and plain calls, with the same conversion
//   1e6 single ints     put one by one, flushed every 4096, got one by one
//   legit_ip_pf         an address that the last of so many entries lets in; beside it the text
//   read
//                       for each check, and entries that were parsed before
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "bench.hpp"
#include "skerrows.h"

namespace {

constexpr int kMessage = 1 << 16;
constexpr int kMessages = 100000000 / kMessage;
constexpr int kInts = 1000000;
constexpr int kIntsAtOnce = 4096;

struct Kind {
    const char* name;
    int type, size;
    void (*convert)(char** source, void* destination, long count);
};
constexpr Kind kKinds[] = {{"doubles", BNS_DOUBLE, 8, hd2md},
                           {"ints", BNS_INT, 4, hi2mi},
                           {"bytes", BNS_BYTE, 1, nullptr}};

struct Pair {
    int ends[2];
    Pair() {
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
    }
};

std::vector<char> message() {
    std::vector<char> bytes(kMessage);
    bench::Random random(5);
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

// Each way to move messages is made from one end of the pair.
struct Streams {
    const Kind& kind;
    Bns* bns;
    Streams(const Kind& k, int fd, const char*) : kind(k), bns(bnsnew(fd, kMessage)) {}
    ~Streams() { bnsclose(bns); }
    void send(const char* items) {
        bnsput(bns, items, kind.type, kMessage / kind.size);
        bnsflush(bns);
    }
    void receive(char* items) { bnsget(bns, items, kind.type, kMessage / kind.size); }
};

void swap(const Kind& kind, const char* from, char* to) {
    char* source = const_cast<char*>(from);
    if (kind.convert != nullptr)
        kind.convert(&source, to, kMessage / kind.size);
    else if (from != to)
        std::memcpy(to, from, kMessage);
}

struct Stdio {
    const Kind& kind;
    FILE* file;
    std::vector<char> scratch = std::vector<char>(kMessage);
    Stdio(const Kind& k, int fd, const char* mode) : kind(k), file(::fdopen(fd, mode)) {}
    ~Stdio() { std::fclose(file); }
    void send(const char* items) {
        swap(kind, items, scratch.data());
        ::fwrite_unlocked(scratch.data(), 1, kMessage, file);
        ::fflush_unlocked(file);
    }
    void receive(char* items) {
        if (::fread_unlocked(items, 1, kMessage, file) != kMessage) std::abort();
        swap(kind, items, items);
    }
};

struct Plain {
    const Kind& kind;
    int fd;
    std::vector<char> scratch = std::vector<char>(kMessage);
    Plain(const Kind& k, int descriptor, const char*) : kind(k), fd(descriptor) {}
    ~Plain() { ::close(fd); }
    void send(const char* items) {
        if (kind.convert != nullptr) swap(kind, items, scratch.data());
        const char* from = kind.convert != nullptr ? scratch.data() : items;
        for (int sent = 0; sent < kMessage;)
            sent +=
                static_cast<int>(::write(fd, from + sent, static_cast<size_t>(kMessage - sent)));
    }
    void receive(char* items) {
        for (int got = 0; got < kMessage;)
            got += static_cast<int>(::read(fd, items + got, static_cast<size_t>(kMessage - got)));
        swap(kind, items, items);
    }
};

template <class Way>
void move_bulk(benchmark::State& state, const Kind& kind) {
    const std::vector<char> sent = message();
    std::vector<char> received(kMessage);
    for (auto _ : state) {
        Pair pair;
        Way reader(kind, pair.ends[0], "r");
        std::thread other([&] {
            Way writer(kind, pair.ends[1], "w");
            for (int i = 0; i < kMessages; ++i) writer.send(sent.data());
        });
        for (int i = 0; i < kMessages; ++i) reader.receive(received.data());
        other.join();
    }
    if (sent != received) state.SkipWithError("bytes were lost");
    state.SetBytesProcessed(state.iterations() * kMessages * kMessage);
}

void single_by_stream(benchmark::State& state) {
    Pair pair;
    Bns *out = bnsnew(pair.ends[0], 0), *in = bnsnew(pair.ends[1], 0);
    for (auto _ : state) {
        for (int done = 0; done < kInts; done += kIntsAtOnce) {
            for (int i = 0; i < kIntsAtOnce; ++i) bnsput(out, &i, BNS_INT, 1);
            bnsflush(out);
            int value = 0;
            for (int i = 0; i < kIntsAtOnce; ++i)
                if (bnsget(in, &value, BNS_INT, 1) != 0) std::abort();
            benchmark::DoNotOptimize(value);
        }
    }
    bnsclose(out);
    bnsclose(in);
}

void single_by_stdio(benchmark::State& state) {
    Pair pair;
    FILE *out = ::fdopen(pair.ends[0], "w"), *in = ::fdopen(pair.ends[1], "r");
    // The size counts only together with a buffer.
    std::vector<char> out_buffer(32768), in_buffer(32768);
    ::setvbuf(out, out_buffer.data(), _IOFBF, out_buffer.size());
    ::setvbuf(in, in_buffer.data(), _IOFBF, in_buffer.size());
    for (auto _ : state) {
        for (int done = 0; done < kInts; done += kIntsAtOnce) {
            for (int i = 0; i < kIntsAtOnce; ++i) {
                const unsigned swapped = __builtin_bswap32(static_cast<unsigned>(i));
                ::fwrite_unlocked(&swapped, sizeof swapped, 1, out);
            }
            ::fflush_unlocked(out);
            unsigned value = 0;
            for (int i = 0; i < kIntsAtOnce; ++i) {
                if (::fread_unlocked(&value, sizeof value, 1, in) != 1) std::abort();
                value = __builtin_bswap32(value);
            }
            benchmark::DoNotOptimize(value);
        }
    }
    std::fclose(out);
    std::fclose(in);
}

// ---- access lists

// So many networks, of which only the last holds the address.
std::vector<std::string> entries(int count) {
    std::vector<std::string> lines;
    for (int i = 0; i < count; ++i)
        lines.push_back("172." + std::to_string(i / 256 % 16 + 16) + "." + std::to_string(i % 256) +
                        ".0 255.255.255.0 network " + std::to_string(i));
    lines.back() = "10.0.0.0 255.0.0.0 the institute";
    return lines;
}

Pf* access_file(const std::vector<std::string>& lines) {
    Pf* pf = nullptr;
    std::string text = "valid_ip_addresses &Tbl{\n";
    for (const std::string& line : lines) text += line + "\n";
    pfcompile((text + "}\n").c_str(), &pf);
    return pf;
}

void check_pf(benchmark::State& state, int count) {
    Pf* pf = access_file(entries(count));
    const uint32_t ip = ::inet_addr("10.1.2.3");
    for (auto _ : state) {
        char* comment = nullptr;
        if (legit_ip_pf(pf, ip, &comment) != 1) state.SkipWithError("turned away");
        std::free(comment);
    }
    pffree(pf);
}

void check_compiled(benchmark::State& state, int count) {
    Pf* pf = access_file(entries(count));
    Access_list* list = newaccess(pf);
    sockaddr_storage storage{};
    auto* address = reinterpret_cast<sockaddr*>(&storage);
    vk_inet_pton("10.1.2.3", address);
    for (auto _ : state) {
        char* comment = nullptr;
        if (legit_access(list, address, &comment) != 1) state.SkipWithError("turned away");
        std::free(comment);
    }
    freeaccess(list);
    pffree(pf);
}

void check_text(benchmark::State& state, int count) {
    const std::vector<std::string> lines = entries(count);
    const uint32_t ip = ::inet_addr("10.1.2.3");
    for (auto _ : state) {
        bool found = false;
        for (const std::string& line : lines) {
            char address[64], mask[64];
            if (std::sscanf(line.c_str(), "%63s %63s", address, mask) != 2) continue;
            const uint32_t bits = ::inet_addr(mask);
            if ((found = ((::inet_addr(address) ^ ip) & bits) == 0)) break;
        }
        benchmark::DoNotOptimize(found);
    }
}

void check_parsed(benchmark::State& state, int count) {
    struct Parsed {
        uint32_t address, mask;
        std::string comment;
    };
    std::vector<Parsed> list;
    for (const std::string& line : entries(count)) {
        char address[64], mask[64];
        std::sscanf(line.c_str(), "%63s %63s", address, mask);
        list.push_back({::inet_addr(address), ::inet_addr(mask), "comment"});
    }
    uint32_t ip = ::inet_addr("10.1.2.3");
    for (auto _ : state) {
        benchmark::DoNotOptimize(ip);
        for (const Parsed& entry : list)
            if (((entry.address ^ ip) & entry.mask) == 0) {
                char* comment = ::strdup(entry.comment.c_str());
                benchmark::DoNotOptimize(comment);
                std::free(comment);
                break;
            }
    }
}

template <class Run, class... Arguments>
void add(const std::string& name, Run run, Arguments... arguments) {
    benchmark::RegisterBenchmark(name.c_str(), run, arguments...);
}

const bool registered = [] {
    for (const Kind& kind : kKinds) {
        const std::string work = std::string("100 MB of ") + kind.name;
        const std::pair<const char*, void (*)(benchmark::State&, const Kind&)> ways[] = {
            {" : morva", move_bulk<Streams>},
            {" : fwrite, fread", move_bulk<Stdio>},
            {" : write, read", move_bulk<Plain>}};
        for (const auto& [who, run] : ways)
            benchmark::RegisterBenchmark((work + who).c_str(), run, kind)->UseRealTime();
    }
    add("1e6 single ints : morva", single_by_stream);
    add("1e6 single ints : unlocked fwrite, fread", single_by_stdio);
    for (const int count : {10, 1000}) {
        const std::string entries = std::to_string(count) + " entries : ";
        add("legit_ip_pf " + entries + "morva", check_pf, count);
        add("legit_ip_pf " + entries + "text read each time", check_text, count);
        add("legit_access " + entries + "morva", check_compiled, count);
        add("legit_access " + entries + "parsed before", check_parsed, count);
    }
    return true;
}();

}  // namespace
