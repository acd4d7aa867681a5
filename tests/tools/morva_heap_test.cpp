// morva heap, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

TEST(MorvaHeap, Commands) {
    const kit::TempDir dir;
    const auto damage = [&](std::size_t at, char byte) {
        std::string bytes = kit::read_file(dir.file("facts"));
        bytes[at] = byte;
        kit::write_file(dir.file("facts"), bytes);
    };
    const struct {
        const char* command;
        int status;
        std::string out;
        int damaged_at = -1;  // first
        char byte = 0;
    } rows[] = {
        {"names facts", 2, "morva: there is no file facts\n"},
        {"put --size 200 facts b two", 0, ""},
        {"put facts a </dev/null", 0, ""},
        {"put --json facts c 'thr\303\251e'", 0,
         "{\"name\":\"c\",\"bytes\":6,\"offset\":39,\"size\":24}\n"},
        {"put facts a one", 0, ""},
        {"names facts", 0, "a\nb\nc\n"},
        {"names -l facts", 0, "         3  a\n         3  b\n         6  c\n"},
        {"get facts b", 0, "two"},
        {"get facts d", 1, "morva: the heap has no 'd'\n"},
        {"get -x facts a", 0,
         "00000000  6f 6e 65                                          |one|\n"},
        {"get --json facts c", 0,
         "{\"name\":\"c\",\"bytes\":6,\"offset\":39,\"size\":24,\"data\":\"thr\303\251e\"}\n"},
        {"put --from nowhere facts a", 2, "morva: can't read nowhere\n"},
        {"stats --json facts", 0,
         "{\"length\":200,\"entries\":3,\"used\":66,\"data\":12,\"gaps\":2,\"free\":134,"
         "\"largest\":116}\n"},
        {"compact facts && morva heap stats facts | tail -3", 0,
         "           1  free entries\n         134  bytes in them\n"
         "         134  bytes in the largest\n"},
        {"rm facts c d", 1, "morva: the heap has no 'd'\n"},
        {"verify facts", 0, ""},
        {"verify facts 2>&1 | cut -d' ' -f1-5", 0, "sum of entry bytes (0)\n", 0, 1},
        {"salvage facts", 0, "2 entries, 2 of them found again\n"},
        {"names --json facts", 0,
         "{\"name\":\"a\",\"bytes\":3,\"offset\":45,\"size\":21}\n"
         "{\"name\":\"b\",\"bytes\":3,\"offset\":0,\"size\":21}\n"},
        {"verify --json facts 2>/dev/null | cut -c1-35", 0,
         "{\"finding\":\"no name for entry at 0x\n", 20, 'x'},
        {"names facts 2>&1 | head -1", 0, "morva: crc failed: 'b' 3 bytes 40a449fb != 12f2c28e\n"},
        {"get . a", 2, "morva: there is no file .\n"},
    };
    for (const auto& row : rows) {
        if (row.damaged_at >= 0) damage(static_cast<std::size_t>(row.damaged_at), row.byte);
        const std::string line = "cd '" + dir.path() +
                                 "' && PATH='" MORVA_BINARY_DIR "/bin':$PATH && { morva heap " +
                                 row.command + "; } 2>&1";
        FILE* pipe = ::popen(line.c_str(), "r");
        std::string seen;
        for (int c; (c = std::fgetc(pipe)) != EOF;) seen.push_back(static_cast<char>(c));
        const int ended = ::pclose(pipe);
        EXPECT_EQ(WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, row.status) << row.command;
        EXPECT_EQ(seen, row.out) << row.command;
    }
}

}  // namespace
