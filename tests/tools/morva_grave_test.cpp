// morva grave, run as a user runs it.
#include <fcntl.h>

#include "log/elog_child.hpp"
#include "tools/run.hpp"

namespace {

using testing::HasSubstr;

// A program keeps values of every type and is looked at while it runs.
TEST(MorvaGrave, ShowsAndCompares) {
    const kit::TempDir folder;
    const std::string path = folder.file("state");
    std::string shown;
    const kit::Ended ended = kit::in_child([&] {
        int count = 7;
        double level = 2.5, last = 1403613015.5;
        char* name = const_cast<char*>("a b");
        exhume(path.c_str(), nullptr, 0, nullptr);
        resurrect("count", &count, RELIC_INT);
        resurrect("level", &level, RELIC_DOUBLE);
        resurrect("last", &last, RELIC_TIME);
        resurrect("name", &name, RELIC_STRING);
        bury();
        const std::string id = std::to_string(::getpid());
        const std::string seen = kit::run(folder, "morva grave show state");
        return seen.find("in use by process " + id + "\n") == seen.npos ? 1 : 0;
    });
    EXPECT_EQ(ended.status, 0) << ended.errors;
    EXPECT_EQ(kit::run(folder, "morva grave show state"),
              "0 count  7\nlast   2014-06-24T12:30:15.500Z\nlevel  2.5\nname   a b\n");
    EXPECT_EQ(kit::run(folder, "morva grave show --json state"),
              "0 {\"file\":\"state\",\"process\":null,\"values\":{\"count\":7,\"last\":{\"time\":"
              "1403613015.5,\"iso\":\"2014-06-24T12:30:15.500Z\"},\"level\":2.5,\"name\":\"a "
              "b\"}}\n");
    EXPECT_EQ(kit::run(folder, "sed 's/7$/8/' state >new; morva grave diff state new"),
              "1 - count\t7\n+ count\t8\n");
    EXPECT_EQ(kit::run(folder, "morva grave diff --json state state"), "0 []\n");
    EXPECT_THAT(kit::run(folder, "morva grave show none"), HasSubstr("can't read the state file"));
    EXPECT_EQ(kit::run(folder, "morva grave diff state none 2>/dev/null"), "2 ");
}

}  // namespace
