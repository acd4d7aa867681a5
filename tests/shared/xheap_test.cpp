#include "morva/xheap.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <map>
#include <memory>
#include <random>

#include "support/kit.hpp"

namespace {

using kit::captured;
using kit::Logged;
using kit::read_file;
using kit::write_file;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using namespace std::string_literals;

struct Close {
    void operator()(Xheap* heap) const { closex(&heap); }
};
using Opened = std::unique_ptr<Xheap, Close>;

std::string word(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
    return bytes;
}

std::string free_entry(uint32_t size) {
    return word(size) + std::string(size - 4, '\0');
}

// An entry with a CRC that is right unless `wrong` is mixed in.
std::string entry(uint32_t size, const std::string& name, const std::string& data,
                  uint32_t wrong = 0) {
    const std::string body = name + '\0' + data;
    uint32_t crc = 0;
    vk_crc32(&crc, body.data(), static_cast<int>(body.size()));
    std::string bytes = word(size) + word(static_cast<uint32_t>(name.size() + 1)) +
                        word(static_cast<uint32_t>(data.size())) + word(crc ^ wrong) + body;
    bytes.resize(std::max<std::size_t>(size, bytes.size()));
    return bytes;
}

class XheapFile : public testing::Test {
  protected:
    Opened open(const char* mode = "r+", int size = 4096) {
        return Opened(openx(path(), mode, size));
    }
    const char* path() const { return path_.c_str(); }
    static int put(const Opened& heap, const std::string& name, const std::string& data) {
        return putx(heap.get(), name.c_str(), data.data(), static_cast<int>(data.size()));
    }
    static std::string get(const Opened& heap, const std::string& name) {
        void* where = nullptr;
        int n = 0;
        if (getxaddr(heap.get(), name.c_str(), &where, &n) != 0) return "<none>";
        return std::string(static_cast<char*>(where), static_cast<std::size_t>(n));
    }
    static std::vector<std::string> names(const Opened& heap) {
        std::vector<std::string> all;
        Tbl* list = namesx(heap.get());
        for (long i = 0; i < maxtbl(list); ++i) all.push_back(static_cast<char*>(gettbl(list, i)));
        freetbl(list, nullptr);
        return all;
    }
    static std::string faults(const Opened& heap) {
        std::string all;
        Tbl* list = faultsx(heap.get());
        for (long i = 0; i < maxtbl(list); ++i) all += static_cast<char*>(gettbl(list, i)) + "\n"s;
        freetbl(list, std::free);
        return all;
    }
    // Offsets and sizes of the free entries.
    static std::vector<std::pair<long, int>> gaps(const Opened& heap) {
        std::vector<std::pair<long, int>> all;
        for (long i = 0; i < maxtbl(heap->free_list); ++i) {
            const auto* gap = static_cast<Xheap_entry*>(gettbl(heap->free_list, i));
            all.emplace_back(gap->address - heap->address, gap->size);
        }
        return all;
    }

    kit::TempDir dir_;
    std::string path_ = dir_.file("heap");
    Logged logged_;
};

using Gaps = std::vector<std::pair<long, int>>;

// docs/formats/heap.md works these bytes out.
TEST_F(XheapFile, IsWrittenByteForByte) {
    Opened heap = open("r+", 128);
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(read_file(path_), "\0\0\0\x80"s + std::string(124, '\0'));
    EXPECT_EQ(put(heap, "a", "0123456789"), 0);
    const std::string kFirst =
        "\0\0\0\x1c\0\0\0\x02\0\0\0\x0a\xf8\xf5\xea\xd6"
        "a\0"
        "0123456789"s;
    EXPECT_EQ(read_file(path_), kFirst + "\0\0\0\x64"s + std::string(96, '\0'));
    EXPECT_EQ(put(heap, "a", "new bits"), 0);
    EXPECT_EQ(read_file(path_).substr(0, 28),
              "\0\0\0\x1c\0\0\0\x02\0\0\0\x08\xf0\x7f\xd5\x32"
              "a\0new bits89"s);
    EXPECT_EQ(put(heap, "b", "xyz"), 0);
    EXPECT_EQ(read_file(path_).substr(28, 24),
              "\0\0\0\x15\0\0\0\x02\0\0\0\x03\x2f\x1f\x58\x45"
              "b\0xyz"
              "\0\0\0"s);
    EXPECT_EQ(delx(heap.get(), "a"), 0);
    EXPECT_EQ(read_file(path_).substr(0, 32),
              "\0\0\0\x1c"s + std::string(24, '\0') + "\0\0\0\x15"s);
    EXPECT_EQ(delx(heap.get(), "b"), 0);
    EXPECT_EQ(delx(heap.get(), "b"), 0);
    EXPECT_EQ(read_file(path_), "\0\0\0\x80"s + std::string(124, '\0'));
}

TEST_F(XheapFile, SplitsRewritesAndMerges) {
    Opened heap = open();
    EXPECT_EQ(gaps(heap), (Gaps{{0, 4096}}));
    EXPECT_EQ(reqx("a", 10), 28);
    put(heap, "a", "0123456789");
    EXPECT_EQ(gaps(heap), (Gaps{{28, 4068}}));
    put(heap, "a", "01234567");
    EXPECT_EQ(gaps(heap), (Gaps{{28, 4068}}));
    EXPECT_EQ(get(heap, "a"), "01234567");
    put(heap, "a", std::string(100, 'x'));
    EXPECT_EQ(gaps(heap), (Gaps{{118, 3978}}));
    // What is left must be more than 16 bytes to stay free: 4096 - 118 - 3961 = 17.
    put(heap, "b", std::string(3978 - 17 - 18, 'y'));
    EXPECT_EQ(gaps(heap), (Gaps{{4079, 17}}));
    delx(heap.get(), "b");
    put(heap, "b", std::string(3978 - 16 - 18, 'y'));
    EXPECT_EQ(gaps(heap), Gaps{});
    EXPECT_EQ(faults(heap), "");
    EXPECT_THAT(names(heap), ElementsAre("a", "b"));
    heap = open("r");
    EXPECT_EQ(get(heap, "b"), std::string(3944, 'y'));
    EXPECT_EQ(put(heap, "a", ""), -1);
    EXPECT_EQ(delx(heap.get(), "a") + expandx(heap.get(), 1) + collapsex(heap.get()), -3);
    EXPECT_THAT(logged_.text(), HasSubstr("was opened to be read only"));
}

TEST_F(XheapFile, GetsIntoAGrowingBuffer) {
    Opened heap = open();
    put(heap, "long", std::string(50, 'l'));
    put(heap, "short", "s");
    put(heap, "", "");
    void* buffer = nullptr;
    int n = 7, size = 0;
    EXPECT_EQ(getx(heap.get(), "none", &buffer, &n, &size), -1);
    EXPECT_EQ(n, 7);
    for (const auto& [name, length, room] :
         {std::tuple{"short", 1, 1}, {"long", 50, 50}, {"short", 1, 50}, {"", 0, 50}}) {
        EXPECT_EQ(getx(heap.get(), name, &buffer, &n, &size), 0);
        EXPECT_EQ(n, length);
        EXPECT_EQ(size, room);
        EXPECT_EQ(std::string(static_cast<char*>(buffer), static_cast<std::size_t>(n)),
                  std::string(static_cast<std::size_t>(n), *name));
        EXPECT_EQ(readx(heap.get(), name, &buffer, &n, &size), 0);
        EXPECT_EQ(n, length);
    }
    std::free(buffer);
    EXPECT_EQ(putx(heap.get(), "a", "", -1), -1);
    EXPECT_EQ(putx(heap.get(), "a", "", INT32_MAX), -1);
    EXPECT_EQ(putx(heap.get(), nullptr, "", 0), -1);
    EXPECT_THAT(names(heap), ElementsAre("", "long", "short"));
}

// Forty entries of 100 bytes, every other one deleted: 20 gaps, and 96 bytes at the end.
class XheapSpace : public XheapFile {
  protected:
    static std::string name(int i) { return "e" + std::to_string(i + 10); }
    static std::string data(int i) { return std::string(80, static_cast<char>('A' + i)); }
    Opened fragmented() {
        Opened heap = open();
        for (int i = 0; i < 40; ++i) put(heap, name(i), data(i));
        for (int i = 0; i < 40; i += 2) delx(heap.get(), name(i).c_str());
        return heap;
    }
    static void expect_rest(const Opened& heap) {
        for (int i = 0; i < 40; ++i)
            EXPECT_EQ(get(heap, name(i)), i % 2 == 0 ? "<none>" : data(i)) << i;
        EXPECT_EQ(faults(heap), "");
    }
};

TEST_F(XheapSpace, IsCompactedWhenMoreThanTenTimesTheNeedIsFree) {
    Opened heap = fragmented();
    EXPECT_EQ(gaps(heap).size(), 21u);
    Tbl* all = namesx(heap.get());
    const std::string value(209 - 20, 'v');
    EXPECT_EQ(putx(heap.get(), "new", value.data(), 189), 0);
    EXPECT_EQ(heap->length, 4096);
    EXPECT_EQ(gaps(heap), (Gaps{{2209, 4096 - 2209}}));
    EXPECT_STREQ(static_cast<char*>(gettbl(all, 0)), "e11");  // names outlive the move
    freetbl(all, nullptr);
    expect_rest(heap);
    std::string golden;
    for (int i = 1; i < 40; i += 2) golden += entry(100, name(i), data(i));
    golden += entry(209, "new", value) + free_entry(4096 - 2209);
    EXPECT_EQ(read_file(path_), golden);
}

TEST_F(XheapSpace, GrowsOtherwise) {
    Opened heap = fragmented();
    const std::string value(210 - 20, 'v');
    EXPECT_EQ(putx(heap.get(), "new", value.data(), 190), 0);
    EXPECT_EQ(heap->length, 8192);
    EXPECT_EQ(get(heap, "new"), value);
    expect_rest(heap);
    // A small file grows by twice the need, and what lies in the heap itself may be stored.
    path_ = dir_.file("small");
    Opened small = open("r+", 64);
    put(small, "a", "0123456789");
    void* data;
    int n;
    getxaddr(small.get(), "a", &data, &n);
    EXPECT_EQ(putx(small.get(), "b", std::string(200, 'b').data(), 200), 0);
    EXPECT_EQ(small->length, 64 + 2 * 218);
    getxaddr(small.get(), "b", &data, &n);
    Tbl* all = namesx(small.get());
    EXPECT_EQ(putx(small.get(), static_cast<char*>(gettbl(all, 0)), data, 200), 0);
    freetbl(all, nullptr);
    EXPECT_EQ(get(small, "a"), std::string(200, 'b'));
    EXPECT_EQ(faults(small), "");
    small = open();
    EXPECT_EQ(get(small, "b"), std::string(200, 'b'));
    EXPECT_THAT(names(small), ElementsAre("a", "b"));
}

TEST_F(XheapSpace, ThatCannotGrowStaysAsItIs) {
    Opened heap = fragmented();
    const rlimit before = [] {
        rlimit limit;
        ::getrlimit(RLIMIT_FSIZE, &limit);
        return limit;
    }();
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit full{5000, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_EQ(put(heap, "e11", std::string(300, 'x')), -1);
    EXPECT_EQ(putx_safe(heap.get(), "e13", std::string(300, 'x').data(), 300), -1);
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_THAT(logged_.text(), HasSubstr("Failed to write byte at end of new file '" + path_));
    EXPECT_EQ(std::filesystem::file_size(path_), 4096u);
    EXPECT_EQ(get(heap, "e11"), "<none>");
    EXPECT_EQ(get(heap, "e13"), data(3));
    EXPECT_EQ(faults(heap), "");
    EXPECT_EQ(expandx(heap.get(), INT32_MAX), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Failed to seek to end of new file '" + path_));
    std::filesystem::rename(path_, path_ + "2");
    EXPECT_EQ(expandx(heap.get(), 1), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't create new file '" + path_));
    write_file(path_, std::string(4096, '\0'));  // another one, as long
    EXPECT_EQ(expandx(heap.get(), 1), -1);
    EXPECT_EQ(std::filesystem::file_size(path_), 4096u);
    EXPECT_EQ(put(heap, "e11", data(1)), 0);
    expect_rest(heap);
}

TEST_F(XheapFile, HoldsWhatAMapWould) {
    std::mt19937 random(7);
    Opened heap = open("r+", 1000);
    std::map<std::string, std::string> model;
    for (int step = 0; step < 20000; ++step) {
        const std::string name = "n" + std::to_string(random() % 60);
        const std::string data(random() % (random() % 20 == 0 ? 900 : 90),
                               static_cast<char>(random()));
        const auto n = static_cast<int>(data.size());
        switch (random() % 8) {
            case 0:
                delx(heap.get(), name.c_str());
                model.erase(name);
                break;
            case 1:
                ASSERT_EQ(putx_safe(heap.get(), name.c_str(), data.data(), n), 0);
                model[name] = data;
                break;
            case 2:
                ASSERT_EQ(get(heap, name), model.count(name) != 0 ? model[name] : "<none>");
                break;
            default:
                ASSERT_EQ(putx(heap.get(), name.c_str(), data.data(), n), 0);
                model[name] = data;
        }
        if (step % 500 != 0) continue;
        if (step % 1000 == 0) collapsex(heap.get());
        ASSERT_EQ(faults(heap), "") << "step " << step;
        if (step % 2000 == 0) heap = open();
        ASSERT_EQ(faults(heap), "") << "reopened at step " << step;
        ASSERT_EQ(names(heap).size(), model.size());
        for (const auto& [key, value] : model) ASSERT_EQ(get(heap, key), value);
    }
    EXPECT_LT(heap->length, 1 << 20);
    EXPECT_EQ(logged_.text(), "");
}

TEST_F(XheapFile, ThatIsDamagedIsRepaired) {
    const std::string a = entry(28, "a", "0123456789"), b = entry(30, "b", "left"),
                      c = entry(40, "c", "last");
    const std::string crc = "crc failed: 'a' 10 bytes ", small = "entry too small for data\n";
    const struct {
        const char* why;
        std::string file;
        std::vector<std::string> names;
        std::string said;
        std::string repaired;  // or empty
        std::string unsaid = "";
    } rows[] = {
        {"nothing", a + b + c, {"a", "b", "c"}, "", a + b + c},
        {"a flipped bit", entry(28, "a", "0123456789", 1) + b, {"b"}, crc, free_entry(28) + b},
        {"a size of 0", a + word(0) + b.substr(4) + c, {"a"}, "", a + free_entry(70)},
        {"a negative size", word(~0u) + a.substr(4) + c, {}, "", free_entry(68)},
        {"a size beyond the end", a + word(71) + b.substr(4) + c, {"a"}, "", a + free_entry(70)},
        {"data longer than the entry", a + entry(20, "b", "much"), {"a"}, small, ""},
        {"data that run into the next entry",
         a + word(20) + b.substr(4) + c,
         {"a"},
         small,
         "",
         "'b'"},
        {"a name longer than the entry",
         word(28) + word(99) + a.substr(8),
         {},
         small,
         free_entry(28)},
        {"a huge data length",
         word(28) + word(2) + word(INT32_MAX) + a.substr(12) + b,
         {"b"},
         small,
         free_entry(28) + b},
        {"a negative name length", word(28) + word(~0u) + a.substr(8) + b, {"b"}, small, ""},
        {"negative data", word(28) + word(12) + word(~0u) + a.substr(12) + b, {"b"}, small, ""},
        {"the same name twice",
         a + b + entry(28, "a", "later"),
         {"a", "b"},
         "",
         free_entry(28) + b + entry(28, "a", "later")},
        {"traces in a free entry",
         a + word(30) + word(0) + b.substr(8),
         {"a"},
         "",
         a + free_entry(30)},
        {"one byte", "\1", {}, "", "\0"s},
        {"15 bytes", a.substr(0, 15), {}, "", word(15) + std::string(11, '\0')},
        {"a tail", a + "tail", {"a"}, "", a + word(4)},
        {"all zeros", std::string(100, '\0'), {}, "", free_entry(100)},
    };
    for (const auto& row : rows) {
        for (const char* mode : {"r", "r+"}) {
            write_file(path_, row.file);
            const Logged logged;
            const std::string said = captured(2, [&] {
                const Opened heap = open(mode);
                ASSERT_NE(heap, nullptr) << row.why;
                EXPECT_EQ(names(heap), row.names) << row.why;
                for (const auto& name : row.names) EXPECT_NE(get(heap, name), "<none>") << row.why;
            });
            if (row.said.empty())
                EXPECT_EQ(said, "") << row.why;
            else
                EXPECT_THAT(said, HasSubstr(row.said)) << row.why;
            if (!row.unsaid.empty()) {
                EXPECT_THAT(said, Not(HasSubstr(row.unsaid))) << row.why;
            }
        }
        if (!row.repaired.empty()) {
            EXPECT_EQ(read_file(path_), row.repaired) << row.why;
        }
        const Opened again = open();
        EXPECT_EQ(names(again), row.names) << row.why;
        EXPECT_EQ(faults(again), "") << row.why;
    }
}

TEST_F(XheapFile, DumpsWhatItDrops) {
    write_file(path_, entry(28, "a", "0123456789", 0x11));
    const std::string said = captured(2, [&] { open(); });
    EXPECT_THAT(said, HasSubstr("crc failed: 'a' 10 bytes f8f5ead6 != f8f5eac7\n"));
    EXPECT_THAT(said, HasSubstr("00 00 00 1c 00 00 00 02"));
    EXPECT_THAT(said, HasSubstr("|0123456789|"));
}

TEST_F(XheapFile, IsListed) {
    Opened heap = open("r+", 64);
    const std::string heading = "    Offset  EntrySize DataSize Name\n";
    EXPECT_EQ(captured(1, [&] { showx(heap.get()); }),
              heading +
                  "          0       64 **free**\n\nNo entries with data\n\n"
                  "Total = 64 bytes used=0  free=64\n\n");
    put(heap, "a", "line\n");
    const std::string rest =
        "         23       41 **free**\n\nTotal = 64 bytes used=23  free=41\n\n";
    EXPECT_EQ(captured(1, [&] { showx(heap.get()); }),
              heading + "          0       23        5 a => line\\n\n" + rest);
    EXPECT_EQ(captured(1, [&] { xheapshowlist(heap.get()); }),
              heading + "          0       23        5 a\n" + rest);
    put(heap, "b", std::string(23, 'b'));
    EXPECT_THAT(captured(1, [&] { showx(heap.get()); }), HasSubstr("\nNo free entries\n"));
}

std::string shown(const char* address) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", static_cast<const void*>(address));
    return text;
}

TEST_F(XheapFile, IsVerified) {
    const Opened heap = open("r+", 256);
    for (const char* name : {"a", "b", "c"}) put(heap, name, "0123456789");
    delx(heap.get(), "b");
    char* const at = heap->address;
    const struct {
        const char* why;
        int offset;
        std::string bytes;
        std::string what;
        int where;  // the address in the message, or -1
        const char* end;
    } rows[] = {
        {"data changed", 20, "x", "crc failed for entry at ", 0, "\n"},
        {"an unknown name", 16, "z", "no name for entry at ", 0, "\n"},
        {"no end of a name", 17, "z", "no name for entry at ", 0, "\n"},
        {"traces of a name", 28 + 16, "b", "free entry at ", 28, " has name\n"},
        {"too much data", 8, word(11), "too much data (13 bytes) for size (28 bytes)", -1, "\n"},
        {"a broken chain", 56, word(0), "sum of entry bytes (56) != file size (256)", -1, "\n"},
    };
    for (const auto& row : rows) {
        const std::string before(at, 256);
        std::memcpy(at + row.offset, row.bytes.data(), row.bytes.size());
        const std::string expected =
            row.what + (row.where < 0 ? "" : shown(at + row.where)) + row.end;
        EXPECT_EQ(faults(heap), expected) << row.why;
        EXPECT_THAT(captured(2, [&] { EXPECT_EQ(verifyx(heap.get()), -1); }), HasSubstr(expected));
        std::memcpy(at, before.data(), before.size());
    }
    std::free(deltbl(heap->free_list, 0));
    EXPECT_EQ(faults(heap), "unreferenced space before " + shown(at + 56) +
                                "\n56 used + 172 free != 256 file size!!!\n");
    EXPECT_EQ(assimilatex(heap.get()), 0);
    EXPECT_EQ(verifyx(heap.get()), 0);
}

TEST_F(XheapFile, IsSalvaged) {
    std::string file;
    std::vector<std::string> all;
    for (int i = 0; i < 20; ++i) {
        all.push_back("name" + std::to_string(i + 10));
        file += entry(40 + static_cast<uint32_t>(i % 3) * 20, all.back(), "value");
        if (i % 4 == 0) file += free_entry(24 + static_cast<uint32_t>(i));
    }
    std::mt19937 random(3);
    for (int round = 0; round < 400; ++round) {
        std::string broken = file;
        std::vector<std::size_t> starts;
        for (std::size_t at = 0; at < file.size();) {
            starts.push_back(at);
            const auto* size = reinterpret_cast<const unsigned char*>(&file[at]);
            at += static_cast<std::size_t>(size[2] << 8 | size[3]);
        }
        for (unsigned hits = 1 + random() % 2; hits > 0; --hits) {
            const uint32_t size = round % 3 == 0 ? static_cast<uint32_t>(random())
                                                 : static_cast<uint32_t>(random() % 300);
            broken.replace(starts[random() % starts.size()], 4, word(size));
        }
        write_file(path_, broken);
        Opened heap(mapx(path(), "r+", 0));
        ASSERT_NE(heap, nullptr);
        EXPECT_GE(salvagex(heap.get()), 0);
        ASSERT_EQ(names(heap), all) << "round " << round;
        ASSERT_EQ(faults(heap), "") << "round " << round;
        heap = open("r");
        EXPECT_EQ(names(heap), all);
    }
    EXPECT_EQ(captured(2, [] {}), "");
}

TEST_F(XheapFile, ThatCannotBeOpenedIsNamed) {
    EXPECT_EQ(open("r"), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Couldn't open " + path_ + "\n"));
    EXPECT_EQ(open("r+", 15), nullptr);
    write_file(path_, "");
    EXPECT_EQ(open("r"), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't map file " + path_ + "\n"));
    EXPECT_NE(open("r+", 16), nullptr);
    EXPECT_EQ(std::filesystem::file_size(path_), 16u);
    EXPECT_EQ(openx(dir_.path().c_str(), "r+", 64), nullptr);
    Xheap* none = nullptr;
    EXPECT_EQ(closex(&none), 0);
    std::filesystem::resize_file(path_, (1ull << 31) + 4096);
    EXPECT_EQ(open("r"), nullptr);
}

TEST_F(XheapFile, NothingComesOfNothing) {
    Opened heap = open();
    void* where = nullptr;
    int n = 3, size = 0;
    EXPECT_EQ(put(heap, "a", "data"), 0);
    EXPECT_EQ(putx(heap.get(), "a", nullptr, 3), -1);
    EXPECT_EQ(putx_safe(heap.get(), "b", nullptr, 3), -1);
    EXPECT_EQ(putx_safe(heap.get(), "b", nullptr, 0), 0);
    EXPECT_EQ(getx(heap.get(), "a", nullptr, &n, &size), -1);
    EXPECT_EQ(readx(heap.get(), "a", &where, nullptr, &size), -1);
    EXPECT_EQ(getxaddr(heap.get(), "a", nullptr, &n), 0);
    EXPECT_EQ(getxaddr(heap.get(), "a", &where, nullptr), 0);
    EXPECT_EQ(std::string(static_cast<char*>(where), static_cast<std::size_t>(n)), "data");
    EXPECT_EQ(reqx(nullptr, 3), 20);
    xdrop(heap.get(), nullptr, nullptr);
    EXPECT_EQ(unusedx(nullptr, 20, &n), nullptr);
    EXPECT_EQ(spacex(nullptr, 20), nullptr);
    EXPECT_EQ(refreshx(nullptr), -1);
    EXPECT_THAT(captured(2, [] { EXPECT_EQ(verifyx(nullptr), -1); }),
                HasSubstr("heap pointer is null"));
}

TEST(XheapDeathTest, NeedsAHeap) {
    EXPECT_EXIT(assimilatex(nullptr), testing::ExitedWithCode(1),
                HasSubstr("heap pointer is null"));
}

TEST_F(XheapFile, CutOffByAnotherProcessEndsNoProgram) {
    Opened heap = open("r+", 100000);
    for (int i = 0; i < 500; ++i) put(heap, "n" + std::to_string(i), std::string(100, 'x'));
    std::filesystem::resize_file(path_, 4096);
    EXPECT_EQ(get(heap, "n499"), "<none>");
    EXPECT_THAT(captured(2,
                         [&] {
                             EXPECT_EQ(put(heap, "n400", "some"), -1);
                             EXPECT_EQ(get(heap, "n1"), "<none>");
                             heap.reset();
                         }),
                HasSubstr("cut off the heap '" + path_));
}

// ---- several processes

// A value that tells its own name and whether it is whole.
std::string self_made(const std::string& name, unsigned count, std::size_t length) {
    std::string text = name + ":" + std::to_string(count) + ":";
    while (text.size() < length) text += static_cast<char>('a' + (text.size() + count) % 26);
    return text;
}

bool is_self_made(const std::string& name, const std::string& value) {
    const std::size_t first = value.find(':');
    if (first == std::string::npos || value.substr(0, first) != name) return false;
    return value == self_made(name, static_cast<unsigned>(std::stoul(value.substr(first + 1))),
                              value.size());
}

using Put = int (*)(Xheap*, const char*, const void*, int);
constexpr int kNames = 12;
constexpr unsigned kLongest = 100;  // seconds that a process works on when nobody ends it

std::string name_of(unsigned i) {
    return "name" + std::to_string(i % kNames);
}

[[noreturn]] void store_for_ever(const char* path, Put put, unsigned seed, int ready) {
    std::mt19937 random(seed);
    ::alarm(kLongest);
    Xheap* heap = openx(path, "r+", 2000);
    (void)!::write(ready, "r", 1);
    for (unsigned count = 0;; ++count) {
        const std::string name = name_of(random());
        const std::string value = self_made(name, count, random() % 8 == 0 ? 1500 : random() % 200);
        if (count % 64 == 63 && put == putx) collapsex(heap);
        if (put(heap, name.c_str(), value.data(), static_cast<int>(value.size())) != 0) ::_exit(1);
    }
}

class XheapProcesses : public XheapFile, public testing::WithParamInterface<bool> {
  protected:
    // Starts a writer and kills it soon.
    void kill_a_writer(Put put, std::mt19937& random) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        ASSERT_NE(child, -1);
        if (child == 0) store_for_ever(path(), put, static_cast<unsigned>(random()), ready[1]);
        char byte;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        for (unsigned spin = random() % 200000; spin > 0; --spin) asm volatile("");
        ::kill(child, SIGKILL);
        int status;
        ::waitpid(child, &status, 0);
        ::close(ready[0]), ::close(ready[1]);
        ASSERT_TRUE(WIFSIGNALED(status));
    }
};

// Every name has a value; a writer in flight may cost one, a safe one none.
TEST_P(XheapProcesses, LeaveAWholeFileWhenKilled) {
    const bool safe = GetParam();
    const char* asked = ::getenv("MORVA_KILLS");
    const int kills = asked != nullptr ? std::atoi(asked) : 300;
    std::mt19937 random(11);
    int lost = 0;
    for (int kill = 0; kill < kills; ++kill) {
        if (kill % 20 == 0) std::filesystem::remove(path_);
        const Logged logged;
        Opened heap = open("r+", 2000);
        for (unsigned i = 0; i < kNames; ++i)
            if (get(heap, name_of(i)) == "<none>")
                put(heap, name_of(i), self_made(name_of(i), 0, 20));
        heap.reset();
        kill_a_writer(safe ? putx_safe : putx, random);
        if (HasFatalFailure()) return;
        const std::string said = captured(2, [&] { heap = open(); });
        ASSERT_NE(heap, nullptr);
        ASSERT_EQ(faults(heap), "") << "kill " << kill;
        int missing = 0;
        for (unsigned i = 0; i < kNames; ++i) {
            const std::string value = get(heap, name_of(i));
            if (value == "<none>")
                ++missing;
            else
                ASSERT_TRUE(is_self_made(name_of(i), value)) << "kill " << kill << ": " << value;
        }
        ASSERT_LE(missing, safe ? 0 : 1) << "kill " << kill << ": " << said;
        lost += missing;
    }
    RecordProperty("lost", lost);
    if (asked != nullptr) std::printf("%d of %d kills lost an entry\n", lost, kills);
}

INSTANTIATE_TEST_SUITE_P(Putx, XheapProcesses, testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Safe" : "InPlace"; });

// Opens the heap again and again, and works on it until that fails.
[[noreturn]] void open_for_ever(const char* path, const char* mode, unsigned seed) {
    std::mt19937 random(seed);
    ::alarm(kLongest);
    ::close(2);
    for (void* buffer = nullptr;; elog_clear()) {
        Xheap* heap = openx(path, mode, 1000);
        for (int status = heap == nullptr ? -1 : 0, n, size = 0; status == 0;) {
            const std::string name = name_of(random()), value(random() % 3000, 'v');
            status = *mode == 'r' && mode[1] == '\0'
                         ? readx(heap, name.c_str(), &buffer, &n, &size)
                         : putx(heap, name.c_str(), value.data(), static_cast<int>(value.size()));
            if (status == 0 && random() % 64 == 0) status = expandx(heap, 1);
        }
        closex(&heap);
    }
}

TEST_F(XheapFile, CutOffWhileOthersWorkEndsNoneOfThem) {
    std::vector<pid_t> workers;
    for (const char* mode : {"r+", "r"}) {
        workers.push_back(::fork());
        ASSERT_NE(workers.back(), -1);
        if (workers.back() == 0) open_for_ever(path(), mode, 7);
    }
    std::mt19937 random(5);
    for (int cut = 0; cut < 500; ++cut) {
        ::usleep(random() % 1000);
        (void)!::truncate(path(), random() % 2 == 0 ? 0 : random() % 30000);
    }
    for (const pid_t worker : workers) {
        EXPECT_EQ(::waitpid(worker, nullptr, WNOHANG), 0);
        ::kill(worker, SIGKILL);
        ::waitpid(worker, nullptr, 0);
    }
}

TEST_F(XheapFile, IsReadAsAWholeBesideAWriter) {
    Opened heap = open("r+", 2000);
    for (unsigned i = 0; i < kNames; ++i) put(heap, name_of(i), self_made(name_of(i), 0, 30));
    heap.reset();
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t writer = ::fork();
    ASSERT_NE(writer, -1);
    if (writer == 0) store_for_ever(path(), putx, 5, ready[1]);
    std::vector<pid_t> readers;
    for (unsigned seed = 1; seed <= 3; ++seed) {
        readers.push_back(::fork());
        if (readers.back() != 0) continue;
        ::close(2);
        Xheap* mine = openx(path(), "r", 0);
        std::mt19937 random(seed);
        void* buffer = nullptr;
        int n, size = 0, whole = 0;
        for (int i = 0; i < 20000; ++i) {
            const std::string name = name_of(random());
            if (readx(mine, name.c_str(), &buffer, &n, &size) != 0) continue;
            const std::string value(static_cast<char*>(buffer), static_cast<std::size_t>(n));
            if (!is_self_made(name, value)) ::_exit(1);
            ++whole;
        }
        ::_exit(whole > 10000 ? 0 : 2);
    }
    for (const pid_t reader : readers) {
        int status;
        ::waitpid(reader, &status, 0);
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 0);
    }
    ::kill(writer, SIGKILL);
    ::waitpid(writer, nullptr, 0);
    ::close(ready[0]), ::close(ready[1]);
}

}  // namespace
