// Settings from the environment, by elog_set, and what elog_query tells of them.
#include <csignal>
#include <map>

#include "log/elog.hpp"
#include "morva/tbl.h"
#include "support/kit.hpp"

namespace {

using kit::Env;
using morva::log::state;

std::string setting(int code, int severity) {
    char* text = nullptr;
    return elog_query(code, severity, &text) == 0 ? text : "<none>";
}

std::vector<std::string> settings(int code) {
    std::vector<std::string> all;
    for (int i = 0; i < ELOG_NSEVERITY; ++i) all.push_back(setting(code, i));
    return all;
}

std::string text() {
    return kit::taken(elog_string(0));
}

void* text_value(const char* text) {
    return const_cast<char*>(text);
}
void* number(intptr_t n) {
    return reinterpret_cast<void*>(n);
}

const std::vector<std::string> kTags = {"%P", "%P *debug*", "%P",        "%P *alert*",
                                        "%P", "%P *fatal*", "%P *fault*"};

TEST(ElogConfig, HasItsDefaults) {
    EXPECT_EQ(settings(ELOG_DELIVER), (std::vector<std::string>{"", "stderr", "stderr", "stderr",
                                                                "stderr", "stderr", "stderr"}));
    EXPECT_EQ(settings(ELOG_TAG), kTags);
    EXPECT_EQ(settings(ELOG_DEBUG), std::vector<std::string>(7, ""));
    EXPECT_EQ(setting(ELOG_SIGNALS, 0), "ILL:TRAP:FPE:BUS:SEGV:SYS");
    EXPECT_EQ(setting(15, 0), "Unknown_Program");
    EXPECT_EQ(Max_msg, 50);
}

// The debugger texts, since they are all empty at first: log, debug, notify, alert, complain, die,
// fault.
using Seven = std::vector<std::string>;
struct Groups {
    const char* name;
    std::string text;
    Seven expected;
    const char* complaint = "";
};
const std::string k48(48, 'x');
const Groups kGroups[] = {
    {"OneValueForAll", "a b", Seven(7, "a b")},
    {"Letters", "v@lac", {"v", "", "", "v", "v", "", ""}},
    {"AllLetters", "0@l 1@D 2@n 3@a 4@c 5@d 6@f", {"0", "1", "2", "3", "4", "5", "6"}},
    {"BlanksBelongToValues", "a b@c  c d@d", {"", "", "", "", "a b", " c d", ""}},
    {"AtSeparatesGroups", "a@c@b@d", {"", "", "", "", "a", "b", ""}},
    {"EmptyValueIsTheDefault", "@df", {"", "", "", "", "", "gdb %r %p", "gdb %r %p"}},
    {"EmptyValueIsTheDefaultOfEach", "v@c @cd", {"", "", "", "", "", "gdb %r %p", ""}},
    {"LastValueIsForAll", "a@c b", Seven(7, "b")},
    {"TrailingBlankIsNothing", "a@c ", {"", "", "", "", "a", "", ""}},
    {"NoLetters", "a@", Seven(7, "")},
    {"BackslashTakesTheNext", "a\\@b\\ \\\\c@n", {"", "", "a@b \\c", "", "", "", ""}},
    {"BackslashAtTheEnd", "a\\", Seven(7, "a\\")},
    {"Cut", k48 + "yz@n", {"", "", k48, "", "", "", ""}},
    {"CutForAll", k48 + "yz", Seven(7, k48)},
    {"UnknownLetter",
     "a@nzd b@n",
     {"", "", "a", "", "", "", ""},
     "prog: Unrecognized severity 'zd b@n'\n"},
    {"TabIsNoSeparator",
     "a@n\tb",
     {"", "", "a", "", "", "", ""},
     "prog: Unrecognized severity '\tb'\n"},
};

void PrintTo(const Groups& row, std::ostream* out) {
    *out << row.text;
}

class ElogGroups : public testing::TestWithParam<Groups> {};

TEST_P(ElogGroups, AreAppliedByInit) {
    char name[] = "prog";
    char* argv[] = {name, nullptr};
    elog_init(1, argv);
    const Env env("ELOG_DEBUG", GetParam().text.c_str());
    const std::string told = kit::captured(2, [] { elog_init(0, nullptr); });
    EXPECT_EQ(settings(ELOG_DEBUG), GetParam().expected);
    EXPECT_EQ(told, GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(Table, ElogGroups, testing::ValuesIn(kGroups),
                         [](const auto& row) { return row.param.name; });

TEST(ElogConfig, SeveritiesThatTheEnvironmentLeavesOutKeepTheirs) {
    const Env deliver("ELOG_DELIVER", "stdout@c"), tag("ELOG_TAG", "[%P]@n");
    elog_init(0, nullptr);
    EXPECT_EQ(settings(ELOG_DELIVER), (std::vector<std::string>{"", "stderr", "stderr", "stderr",
                                                                "stdout", "stderr", "stderr"}));
    EXPECT_EQ(setting(ELOG_TAG, ELOG_NOTIFY), "[%P]");
    EXPECT_EQ(setting(ELOG_TAG, ELOG_DIE), "%P *fatal*");
}

TEST(ElogConfig, EveryInitReadsTheEnvironmentAgain) {
    elog_init(0, nullptr);
    {
        const Env limit("ELOG_MAXMSG", "7"), stack("ELOG_STACK", "lxa"),
            deliver("ELOG_DELIVER", "log");
        elog_init(0, nullptr);
        EXPECT_EQ(Max_msg, 7);
        for (int i = 0; i < ELOG_NSEVERITY; ++i)  // "a" is fault here, not alert
            EXPECT_EQ(state().severities[i].show_stack, i == ELOG_LOG || i == ELOG_FAULT) << i;
        EXPECT_EQ(settings(ELOG_DELIVER), std::vector<std::string>(7, "log"));
    }
    Max_msg = 8;
    elog_set(ELOG_DELIVER, ELOG_NOTIFY, text_value(""));
    elog_init(0, nullptr);
    EXPECT_EQ(Max_msg, 8) << "a variable that is not set changes nothing";
    EXPECT_EQ(setting(ELOG_DELIVER, ELOG_NOTIFY), "stderr") << "but empty settings are filled";
    EXPECT_EQ(setting(ELOG_DELIVER, ELOG_DIE), "log");
}

// What the reader of the parameter file will hand over.
TEST(ElogConfig, TakesSettingsOfTheParameterFile) {
    elog_init(0, nullptr);
    elog_set(ELOG_DELIVER, ELOG_DIE, text_value("log"));
    const struct {
        const char *key, *entry, *value;
    } rows[] = {
        {"ELOG_MAXMSG", nullptr, "12x"},     {"t_format", nullptr, "%H"},
        {"u_format", nullptr, "%Y"},         {"ELOG_SIGNALS", nullptr, "SYS"},
        {"ELOG_WAIT", nullptr, "later"},     {"other", nullptr, "ignored"},
        {"ELOG_DELIVER", "", nullptr},       {"ELOG_DELIVER", "complain", "stdout"},
        {"ELOG_DELIVER", "nobody", "x"},     {"ELOG_DEBUG", "", nullptr},
        {"ELOG_DEBUG", "notify", "command"}, {"other", "log", "ignored"},
    };
    for (const auto& row : rows) morva::log::take_setting(nullptr, row.key, row.entry, row.value);
    EXPECT_EQ(Max_msg, 12);
    EXPECT_STREQ(state().t_format, "%H");
    EXPECT_STREQ(state().u_format, "%Y");
    EXPECT_STREQ(state().wait, "later");
    EXPECT_EQ(setting(ELOG_SIGNALS, 0), "SYS");
    EXPECT_EQ(settings(ELOG_DELIVER), (std::vector<std::string>{"", "stderr", "stderr", "stderr",
                                                                "stdout", "stderr", "stderr"}))
        << "an array that leaves a severity out gives it the default";
    EXPECT_EQ(settings(ELOG_DEBUG),
              (std::vector<std::string>{"", "", "command", "", "", "gdb %r %p", "gdb %r %p"}));
    EXPECT_EQ(settings(ELOG_TAG), kTags);
}

TEST(ElogConfig, AProcessWithMoreRightsSeesNoEnvironment) {
    const Env deliver("ELOG_DELIVER", "/tmp/no"), debug("ELOG_DEBUG", "no"),
        limit("ELOG_MAXMSG", "1"), stack("ELOG_STACK", "l"), tag("ELOG_TAG", "no"),
        signals("ELOG_SIGNALS", "USR1");
    EXPECT_EQ(state().environment, std_getenv);
    state().environment = [](const char*) -> const char* { return nullptr; };
    elog_init(0, nullptr);
    EXPECT_EQ(setting(ELOG_DELIVER, ELOG_LOG), "");
    EXPECT_EQ(settings(ELOG_DEBUG), std::vector<std::string>(7, ""));
    EXPECT_EQ(settings(ELOG_TAG), kTags);
    EXPECT_EQ(Max_msg, 50);
    EXPECT_FALSE(state().severities[ELOG_LOG].show_stack);
}

TEST(ElogConfig, RecordsTheCommandLine) {
    EXPECT_EQ(kit::taken(elog_commandline_str()), "");
    char program[] = "/opt/bin/prog", verbose[] = "-v", file[] = "in file";
    char* argv[] = {program, verbose, file, nullptr};
    elog_init(3, argv);
    EXPECT_STREQ(Program_Name, "prog");
    EXPECT_STREQ(state().directory, "/opt/bin");
    ASSERT_EQ(Argc, 3);
    EXPECT_NE(Argv[1], verbose);
    verbose[1] = 'x';
    EXPECT_STREQ(Argv[1], "-v");
    EXPECT_EQ(Argv[3], nullptr);
    char** before = Argv;
    elog_init(3, Argv);
    EXPECT_EQ(Argv, before);
    elog_init(0, nullptr);
    EXPECT_STREQ(Program_Name, "prog");
    EXPECT_EQ(kit::taken(elog_commandline_str()), "/opt/bin/prog -v in file");
    EXPECT_EQ(kit::captured(2, elog_commandline), "\nprog: --> /opt/bin/prog -v in file <#>\n\n");
    char root[] = "/prog", bare[] = "bare";
    argv[0] = root, elog_init(1, argv);
    EXPECT_STREQ(state().directory, "/");
    argv[0] = bare, elog_init(1, argv);
    EXPECT_STREQ(state().directory, "");
    EXPECT_STREQ(Program_Name, "bare");
    EXPECT_EQ(Argc, 1);
    argv[0] = root;
    elog_set(ELOG_ARGV, 0, argv);  // not a copy yet, and no name
    elog_init(1, argv);
    EXPECT_NE(Argv, argv);
    EXPECT_STREQ(Program_Name, "prog");
}

TEST(ElogTags, ExpandTheirTokens) {
    char program[] = "/opt/my bin/prog";
    char* argv[] = {program, nullptr};
    elog_init(1, argv);
    char host[256];
    ASSERT_EQ(gethostname(host, sizeof host), 0);
    const std::map<std::string, std::string> rows = {
        {"%P", "prog"},
        {"<%P>", "<prog>"},
        {"%p", std::to_string(getpid())},
        {"%r", program},
        {"%d", "/opt/my bin"},
        {"%h", host},
        {"100%% %P", "100% prog"},
        {"%q %", "%q %"},
    };
    for (const auto& [pattern, expected] : rows) {
        elog_set(ELOG_TAG, 99, text_value(pattern.c_str()));
        EXPECT_EQ(settings(ELOG_TAG), std::vector<std::string>(7, pattern));
        EXPECT_EQ(kit::taken(elogs(ELOG_DIE, 0, "x")), expected + ": x\n");
    }
    elog_set(ELOG_TAG, ELOG_LOG, text_value(""));
    EXPECT_EQ(kit::taken(elogs(ELOG_LOG, 0, "x")), "x\n");
}

TEST(ElogTags, StampTheTime) {
    const Env zone("TZ", "XXX-2");
    tzset();
    elog_init(0, nullptr);
    const time_t before = time(nullptr);
    const double reference = static_cast<double>(before) - 1000;
    elog_set(14, 0, const_cast<double*>(&reference));
    double back = 0;
    EXPECT_EQ(elog_query(14, 0, &back), 0);
    EXPECT_EQ(back, reference);
    elog_set(ELOG_TAG, 99, text_value("%s|%t|%u"));
    char tag[200] = "";
    EXPECT_EQ(sscanf(kit::taken(elogs(0, 0, "x")).c_str(), "%199[^\n]", tag), 1);
    double seconds = 0;
    char local[100] = "", universal[100] = "";
    ASSERT_EQ(sscanf(tag, "%lf|%99[^|]|%99[^:]", &seconds, local, universal), 3) << tag;
    EXPECT_GE(seconds, 1000);
    EXPECT_LT(seconds, 1100);
    tm fields{};
    ASSERT_NE(strptime(local, "%a %b %e %H:%M:%S %Y", &fields), nullptr) << local;
    EXPECT_NEAR(static_cast<double>(timegm(&fields) - 7200), static_cast<double>(before), 100);
    EXPECT_EQ(strftime(local, sizeof local, "%Y-%j %H", gmtime(&before)), 11u);
    EXPECT_EQ(std::string(universal), std::string(local)) << "or the hour just struck";
}

TEST(ElogTags, AreCutTo1023Characters) {
    const std::string name(600, 'n');
    std::string path = name;
    char* argv[] = {path.data(), nullptr};
    elog_init(1, argv);
    elog_set(ELOG_TAG, 99, text_value("%P%P"));
    const std::string cut(1023, 'n');
    EXPECT_EQ(kit::taken(elogs(0, 0, "x")), cut + ": x\n");
    EXPECT_EQ(kit::taken(elogs(0, 0, "\nx")), "\n" + cut + ": x\n");
}

TEST(ElogQuery, AnswersEveryCode) {
    elog_log(0, "a");
    errno = ENOENT;
    elog_log(1, "b");
    Tbl* list = nullptr;
    ASSERT_EQ(elog_query(ELOG_TBL, 0, &list), 0);
    ASSERT_EQ(maxtbl(list), 2);
    const auto* second = static_cast<Elog_msg*>(gettbl(list, 1));
    EXPECT_STREQ(second->msg, "b\n");
    EXPECT_STREQ(second->tag, "Unknown_Program");
    EXPECT_STREQ(second->sys, "No such file or directory");
    EXPECT_EQ(second->severity, ELOG_LOG);
    EXPECT_EQ(second->count, 1);
    EXPECT_TRUE(pthread_equal(second->thread, pthread_self()));
    int count = 0;
    EXPECT_EQ(elog_query(ELOG_COUNT, 0, &count), 0);
    EXPECT_EQ(count, 2);
    char* all = nullptr;
    EXPECT_EQ(elog_query(ELOG_STRING, 1, &all), 0);
    EXPECT_EQ(kit::taken(all), "Unknown_Program: b\n\tNo such file or directory\n");
    Tbl* copy = nullptr;
    ASSERT_EQ(elog_query(ELOG_TBLCP, 0, &copy), 0);
    EXPECT_EQ(elog_mark(), 2);
    ASSERT_EQ(maxtbl(copy), 2);
    EXPECT_STREQ(static_cast<Elog_msg*>(gettbl(copy, 1))->sys, "No such file or directory");
    freetbl(copy, elog_free_msg);
    ASSERT_EQ(elog_query(ELOG_TBLCPCL, 0, &copy), 0);
    EXPECT_EQ(elog_mark(), 0);
    EXPECT_EQ(elog_set(ELOG_TBL, 0, copy), 0);
    EXPECT_EQ(elog_mark(), 2) << "the copy is the register now";
    freetbl(list, elog_free_msg);
    EXPECT_EQ(elog_set(ELOG_COUNT, 0, number(1)), 0);
    EXPECT_EQ(text(), "Unknown_Program: a\n");
    char argument[] = "x";
    char* arguments[] = {argument, nullptr};
    char** vector = nullptr;
    EXPECT_EQ(elog_set(ELOG_ARGV, 0, arguments), 0);
    EXPECT_EQ(elog_set(ELOG_ARGC, 0, number(1)), 0);
    EXPECT_EQ(elog_query(ELOG_ARGV, 0, &vector), 0);
    EXPECT_EQ(vector, arguments);
    EXPECT_EQ(elog_query(ELOG_ARGC, 0, &count), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(elog_set(ELOG_MAXMSG, 0, number(-3)), 0);
    EXPECT_EQ(elog_query(ELOG_MAXMSG, 0, &count), 0);
    EXPECT_EQ(count, -3);
    Elog_callback callback = elog_json;
    EXPECT_EQ(elog_query(ELOG_CALLBACK, 0, &callback), 0);
    EXPECT_EQ(callback, nullptr);
    elog_set(ELOG_TBL, 0, nullptr);
    EXPECT_EQ(elog_mark(), 0);
    freetbl(copy, elog_free_msg);
}

TEST(ElogQuery, TakesAListWithGaps) {
    Tbl* list = newtbl(0);
    auto* blank = static_cast<Elog_msg*>(calloc(1, sizeof(Elog_msg)));
    settbl(list, 2, blank);
    EXPECT_EQ(elog_set(ELOG_TBL, 0, list), 0);
    elog_log(0, "a");
    Tbl* copy = nullptr;
    ASSERT_EQ(elog_query(ELOG_TBLCPCL, 0, &copy), 0);
    EXPECT_EQ(maxtbl(copy), 4);
    EXPECT_EQ(gettbl(copy, 1), nullptr);
    EXPECT_STREQ(static_cast<Elog_msg*>(gettbl(copy, 3))->msg, "a\n");
    freetbl(copy, elog_free_msg);
}

TEST(ElogQuery, RefusesTheRest) {
    void* result = nullptr;
    for (const int code : {-1, static_cast<int>(ELOG_VERSION), 16, 1000})
        EXPECT_EQ(elog_query(code, 0, &result), -1) << code;
    for (const int code : {-1, static_cast<int>(ELOG_TBLCP), static_cast<int>(ELOG_TBLCPCL),
                           static_cast<int>(ELOG_VERSION), static_cast<int>(ELOG_STRING), 15, 16})
        EXPECT_EQ(elog_set(code, 0, text_value("1")), -1) << code;
    for (const int severity : {-1, 7}) {
        for (const int code : {ELOG_DELIVER, ELOG_DEBUG}) {
            EXPECT_EQ(elog_set(code, severity, text_value("x")), -1);
            EXPECT_EQ(elog_query(code, severity, &result), -1);
        }
        EXPECT_EQ(elog_query(ELOG_TAG, severity, &result), -1);
        EXPECT_EQ(elog_set(ELOG_TAG, severity, text_value("all")), 0);
        EXPECT_EQ(settings(ELOG_TAG), std::vector<std::string>(7, "all"));
    }
    EXPECT_EQ(elog_set(ELOG_DELIVER, 0, nullptr), -1);
    EXPECT_EQ(elog_query(ELOG_COUNT, 0, nullptr), -1);
    const std::string longer(60, 'x');
    EXPECT_EQ(elog_set(ELOG_DEBUG, 0, text_value(longer.c_str())), 0);
    EXPECT_EQ(setting(ELOG_DEBUG, 0), longer.substr(0, 48));
}

TEST(ElogQuery, NamesItsSymbols) {
    std::map<std::string, int> table;
    for (const Xlat& row : Elog_xlat) table[row.name] = row.num;
    EXPECT_EQ(table.size(), 22u);
    EXPECT_EQ(table["ELOG_FAULT"], 6);
    EXPECT_EQ(table["ELOG_NSEVERITY"], 7);
    EXPECT_EQ(table["ELOG_STRING"], 13);
    EXPECT_STREQ(elog_severity(ELOG_COMPLAIN), "complain");
    EXPECT_STREQ(elog_severity(7), "unknown");
}

TEST(ElogSignals, TakesOverOnlyWhatIsFree) {
    struct sigaction now {};
    const auto handler = [&](int signo) {
        sigaction(signo, nullptr, &now);
        return now.sa_handler;
    };
    std::signal(SIGFPE, SIG_IGN);
    std::signal(SIGSYS, SIG_DFL);
    elog_init(0, nullptr);
    EXPECT_EQ(handler(SIGFPE), SIG_IGN);
    EXPECT_NE(handler(SIGSYS), SIG_DFL);
    EXPECT_EQ(elog_set(ELOG_SIGNALS, 0, text_value("FPE:SIGTRAP:NOSUCH")), -1);
    EXPECT_EQ(text(), "Unknown_Program: Can't intercept signal 'NOSUCH'\n");
    EXPECT_NE(handler(SIGFPE), SIG_IGN) << "asked for, so taken";
    EXPECT_EQ(handler(SIGSYS), SIG_DFL) << "no longer in the list";
    EXPECT_EQ(setting(ELOG_SIGNALS, 0), "FPE:SIGTRAP:NOSUCH");
    EXPECT_EQ(elog_set(ELOG_SIGNALS, 0, text_value("")), 0);
    EXPECT_EQ(handler(SIGFPE), SIG_DFL);
    elog_clear();
}

}  // namespace
