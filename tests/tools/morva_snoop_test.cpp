// morva snoop, run as a user runs it.
#include <random>

#include "tools/run.hpp"

namespace {

using testing::HasSubstr;

constexpr char kFile[] =
    "\n\n#msg 12 < 5 anon 3 1403613015\nabc"
    "\n\n#msg 12 > 6 my id 100 1403613016\nxy"
    "\n\n#msg 12 > 6 a 38 1403613016\n\n\n#msg 1 < 1 a 1 1403613016\nwithin ..."
    "\n\n#msg 12 < 5 anon -1 1403613016\njunk\n\n#msg zz\n";

TEST(MorvaSnoop, Decodes) {
    const kit::TempDir folder;
    kit::write_file(folder.file("s"), kFile);
    EXPECT_EQ(kit::run(folder, "morva snoop s"),
              "1 2014-06-24T12:30:15.000Z  <  anon  3 bytes  (process 12, descriptor 5)\n"
              "00000000  61 62 63                                          |abc|\n"
              "2014-06-24T12:30:16.000Z  >  my id  100 bytes, of which 2 were written  "
              "(process 12, descriptor 6)\n"
              "00000000  78 79                                             |xy|\n"
              "2014-06-24T12:30:16.000Z  >  a  38 bytes  (process 12, descriptor 6)\n"
              "00000000  0a 0a 23 6d 73 67 20 31  20 3c 20 31 20 61 20 31  |..#msg 1 < 1 a 1|\n"
              "00000010  20 31 34 30 33 36 31 33  30 31 36 0a 77 69 74 68  | 1403613016.with|\n"
              "00000020  69 6e 20 2e 2e 2e                                 |in ...|\n"
              "2014-06-24T12:30:16.000Z  <  anon  -1 bytes: it failed  (process 12, descriptor 5)\n"
              "morva: s has 14 bytes that belong to no message\n");
    EXPECT_EQ(kit::run(folder, "morva snoop --json --id 'my id' s 2>/dev/null"),
              "1 {\"time\":1403613016,\"iso\":\"2014-06-24T12:30:16.000Z\",\"direction\":\"out\","
              "\"id\":\"my id\",\"pid\":12,\"fd\":6,\"count\":100,\"bytes\":\"7879\"}\n");
    EXPECT_EQ(kit::run(folder, "morva snoop -q --direction in s 2>/dev/null | wc -l"), "0 2\n");
    EXPECT_EQ(kit::run(folder, "morva snoop -n 1 s 2>/dev/null | grep -c '|a|'"), "0 1\n");
    EXPECT_EQ(kit::run(folder, "morva snoop none 2>/dev/null"), "2 ");
}

// What a stream writes is read; and whatever becomes of the file, the command comes to its end.
TEST(MorvaSnoop, ReadsWhatStreamsWriteHoweverDamaged) {
    const kit::TempDir folder;
    const kit::Env alone("NO_DYNAMIC_CONTROLS", "1");
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    Bns* bns = bnsnew(ends[1], 0);
    bnssnoop(bns, folder.file("s").c_str());
    dcsetb(bns->snoopflag, 1);
    for (const char* text : {"first", "#msg", "\n\n#msg 1 > 1 x 9 9\n"}) {
        bnsput(bns, text, BNS_BYTE, static_cast<int>(std::strlen(text)));
        bnsflush(bns);
    }
    dcsetb(bns->snoopflag, 0);
    bnsclose(bns);
    ::close(ends[0]);
    EXPECT_THAT(
        kit::run(folder, "morva snoop --json s | grep -o 'count.*'"),
        HasSubstr("0 count\":5,\"bytes\":\"6669727374\"}\ncount\":4,\"bytes\":\"236d7367\"}\n"
                  "count\":19,"));
    std::mt19937 random(7);
    const std::string whole = kit::read_file(folder.file("s"));
    for (int i = 0; i < 20; ++i) {
        std::string damaged = whole;
        for (int k = 0; k < 5; ++k)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        damaged.resize(random() % damaged.size());
        kit::write_file(folder.file("damaged"), damaged);
        const std::string seen = kit::run(folder, "morva snoop damaged >out");
        EXPECT_TRUE(seen[0] == '0' || seen[0] == '1') << i << ": " << seen;
    }
}

}  // namespace
