// morva dc, run as a user runs it.
#include "tools/run.hpp"

namespace {

using kit::run;

// A file with a program that has one control of each type, by the documented layout.
void make_file(const kit::TempDir& folder) {
    const auto integer = [](int32_t value) {
        return std::string(reinterpret_cast<char*>(&value), sizeof value);
    };
    std::string common(1832, '\0');
    common.replace(0, 7, "#common");
    common.replace(924, 8, integer(896) + "\x40\x10\x10\x10");
    std::string set = common;
    set.replace(0, 7, std::string("prog\0\0\0", 7));
    set[64 + 63] = 7;
    set[128] = 5;
    set.replace(384 + 15 * 32, 3, "abc");
    set.replace(928, 4, "\x3f\x10\x0f\x0f");
    const std::string names("\x3fverbose\0\x8fgain\0\xcftag\0", 21);
    set.replace(932, names.size(), names);
    kit::write_file(folder.file(".dynamic_controls"), common + set);
}

TEST(MorvaDc, Commands) {
    const kit::TempDir folder, empty;
    make_file(folder);
    const struct {
        const char* command;
        const char* out;
    } rows[] = {
        {"list --names", "0 #common\nprog\n"},
        {"list --names prog", "0 verbose\ngain\ntag\ni0\n"},
        {"list prog | tail -n +2",
         "0   verbose                 b63   7\n"
         "  gain                    f15   0\n"
         "  tag                     s15   abc\n"
         "                          i0    5\n"},
        {"get prog verbose", "0 7\n"},
        {"get --json prog tag", "0 \"abc\"\n"},
        {"set prog gain -- -2.5 | cut -d' ' -f 3-", "0 gain  0 -> -2.5\n"},
        {"set --json prog gain nan | grep -o '\"control.*'",
         "0 \"control\":\"gain\",\"old\":-2.5,\"new\":null}\n"},
        {"trigger prog b2 | cut -d' ' -f 3-", "0 b2  0 -> 1\n"},
        {"list >/dev/null; bash -c 'source <(morva generate bash); COMP_WORDS=(morva dc get prog "
         "v);"
         "COMP_CWORD=4; _morva; echo $COMPREPLY'",
         "0 verbose\n"},
        {"trigger prog tag", "1 morva: 'tag' is no byte control\n"},
        {"set prog verbose 256", "2 morva: '256' is no whole number from 0 to 255\n"},
        {"set prog i0 x",
         "2 morva: 'x' is no whole number from -9223372036854775808 to 9223372036854775807\n"},
        {"set prog tag 12345678901234567890123456789012",
         "2 morva: '12345678901234567890123456789012' is longer than 31 bytes\n"},
        {"set '#common' s0 hello | cut -d' ' -f 3-", "0 s0   -> hello\n"},
        {"list --json '#common' | grep -o '\"controls.*'",
         "0 \"controls\":[{\"control\":\"s0\",\"code\":\"s0\",\"value\":\"hello\"}]}\n"},
        {"get prog volume", "1 morva: there is no control 'volume' here\n"},
        {"get nobody gain", "1 morva: no program 'nobody' has controls here\n"},
        {"create", "2 morva: there is a .dynamic_controls already\n"},
        {"rm nobody", "1 morva: no program 'nobody' has controls here\n"},
        {"rm prog", "0 "},
        {"list --names", "0 #common\n"},
        {"list --folder EMPTY",
         "2 morva: there is no .dynamic_controls to work with in EMPTY: see morva dc create\n"},
        {"create -C EMPTY && morva dc list -C EMPTY", "0 #common  0 changes\n"},
    };
    for (const auto& row : rows) {
        const auto placed = [&](std::string text) {
            for (std::size_t at; (at = text.find("EMPTY")) != text.npos;)
                text.replace(at, 5, empty.path());
            return text;
        };
        EXPECT_EQ(run(folder, placed(std::string("morva dc ") + row.command)), placed(row.out))
            << row.command;
    }
}

TEST(MorvaDc, WatchesChanges) {
    const kit::TempDir folder;
    make_file(folder);
    EXPECT_EQ(run(folder,
                  "morva dc watch --count 3 prog | cut -d' ' -f 3- & sleep 0.5;"
                  "for value in 2 2 3; do morva dc set prog gain $value; done >/dev/null;"
                  "morva dc set prog tag 'x y' >/dev/null; wait"),
              "0 gain  0 -> 2\ngain  2 -> 3\ntag  abc -> x y\n");
    EXPECT_EQ(run(folder, "morva dc watch prog & sleep 0.5; morva dc rm prog; wait $!"),
              "1 morva: the controls of 'prog' were removed\n");
}

}  // namespace
