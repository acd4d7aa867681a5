#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "base/posix.hpp"
#include "morva/pfexpand.h"
#include "pf/pf_tree.hpp"

namespace {

using kit::Logged;
using pf_tree::Tree;

// The value of one call in a tree with some other values.
std::string value_of(const std::string& call) {
    const Tree tree(
        "name MORVA_TEST\nlist &Tbl{\n    a\n    &name\n    &env(MORVA_TEST)\n    "
        "&undef()\n}\narray &Arr{\n    key &{list[1]}\n    sub &Arr{\n        t &ref(list)\n"
        "    }\n}\nx " +
        call + "\n");
    Pf* result = pfinterpret(tree.at("x"));
    if (result == nullptr) return "<nothing>";
    if (result->type == PFSTRING) return pfexpand(result);
    std::string text;
    if (result->type != PFTBL) return "type " + std::to_string(result->type);
    for (long i = 0; i < maxtbl(result->value.tbl); ++i) {
        Pf* item = static_cast<Pf*>(gettbl(result->value.tbl, i));
        EXPECT_EQ(item->parent, result);
        text += std::string(pfexpand(item)) + ";";
    }
    return text;
}

struct Interpret : testing::Test {
    kit::TempDir folder;
    kit::Env variable{"MORVA_TEST", "value && &name"};
    kit::Env data{"DATAPATH", folder.path().c_str()};
    kit::Env other{"MORVA_TEST_PATH", nullptr};
    Interpret() {
        kit::write_file(folder.file("text"), "two\nlines &name\n");
        kit::write_file(folder.file("zero"), std::string_view("a\0b", 3));
        ::mkfifo(folder.file("fifo").c_str(), 0600);
        Pfprompt = [](const char* prompt) {
            return *prompt == '\0' ? nullptr : strdup((std::string("re: ") + prompt).c_str());
        };
    }
    ~Interpret() override { Pfprompt = nullptr; }
};

TEST_F(Interpret, EvaluatesEachFunction) {
    const std::string at = folder.path();
    const struct {
        std::string call;
        std::string value;
    } rows[] = {
        {"&env(MORVA_TEST)", "value && &name"},
        {"&env( 'MORVA_TEST' )", "value && &name"},
        {"&env(&name)", "value && &name"},
        {"&env(MORVA_TEST_PATH)", "<nothing>"},
        {"&undef()", "<nothing>"},
        {"&ref(name)", "MORVA_TEST"},
        {"&ref(list)", "a;MORVA_TEST;value && &name;"},
        {"&ref( array{key} )", "MORVA_TEST"},
        {"&ref(array{sub}{t}[-1])", "value && &name"},
        {"&ref(array)", "type 3"},
        {"&file(" + at + "/text)", "two\nlines &name\n"},
        {"&file(\"" + at + "/text\")", "two\nlines &name\n"},
        {"&filename(" + at + "/./sub/../text)", at + "/text"},
        {"&datafile(text)", "two\nlines &name\n"},
        {"&datafile(MORVA_TEST_PATH, 'text')", "two\nlines &name\n"},
        {"&datafilename(text)", at + "/text"},
        {"&glob(" + at + "/[tz]*)", at + "/text;" + at + "/zero;"},
        {"&glob(" + at + "/none*)", ""},
        {"&exec(echo a && echo \"b  c\"; cat; echo)", "a\nb  c"},
        {"&exec(exit 0)", ""},
        {"&ask(Your name?)", "re: Your name?"},
        {"&ask()", "<nothing>"},
    };
    for (const auto& row : rows) {
        const Logged complaint;
        EXPECT_EQ(value_of(row.call), row.value) << row.call;
        EXPECT_EQ(complaint.text(), "");
    }
}

TEST_F(Interpret, GivesNothingAndAReasonForWhatFails) {
    const std::string at = folder.path();
    const struct {
        std::string call;
        const char* reason;
    } rows[] = {
        {"&nonsense(x)", "there is no such function"},
        {"&env()", "its argument is empty"},
        {"&ref(nowhere)", "there is no such value"},
        {"&ref(list[)", "column 5"},
        {"&ref(x)", "it refers to itself"},
        {"&file(" + at + "/none)", "No such file"},
        {"&file(" + at + ")", "this is no regular file"},
        {"&file(" + at + "/fifo)", "this is no regular file"},
        {"&file(" + at + "/zero)", "zero byte"},
        {"&file(" + std::string(1100, 'x') + ")", "x"},
        {"&datafile(none)", "the data search finds no such file"},
        {"&exec(exit 3)", "'exit 3' ended with status 3"},
        {"&exec(kill -9 $$)", "ended with signal 9"},
        {"&exec(printf 'a\\0b')", "zero byte"},
        {"&exec(yes)", "more than 16 MB"},
    };
    for (const auto& row : rows) {
        const Logged reason;
        EXPECT_EQ(value_of(row.call), "<nothing>") << row.call;
        EXPECT_NE(reason.text().find(row.reason), std::string::npos) << reason.text();
    }
    Pfprompt = nullptr;
    const Logged reason;
    EXPECT_EQ(value_of("&ask(x)"), "<nothing>");
    EXPECT_NE(reason.text().find("there is nobody to ask"), std::string::npos);
}

TEST_F(Interpret, RunsCommandsOnlyWhileThatIsAllowed) {
    pfconfig("exec", nullptr);
    const Logged reason;
    EXPECT_EQ(value_of("&exec(touch " + folder.file("made") + ")"), "<nothing>");
    EXPECT_NE(reason.text().find("commands are switched off"), std::string::npos);
    EXPECT_NE(::access(folder.file("made").c_str(), F_OK), 0);
    pfconfig("exec", folder.path().empty() ? nullptr : this);
    EXPECT_EQ(value_of("&exec(echo on)"), "on");
}

// A program may reap its children itself, or let the system do it.
TEST_F(Interpret, RunsCommandsWhateverTheProgramDoesWithItsChildren) {
    static volatile sig_atomic_t reaped;
    struct sigaction reaper {
    }, before{};
    reaper.sa_handler = [](int) {
        const morva::ErrnoSaver keep;
        while (::waitpid(-1, nullptr, WNOHANG) > 0) reaped = 1;
    };
    ::sigaction(SIGCHLD, &reaper, &before);
    EXPECT_EQ(value_of("&exec(echo handled; exit 1)"), "<nothing>");
    EXPECT_EQ(reaped, 0);
    reaper.sa_handler = SIG_IGN;
    ::sigaction(SIGCHLD, &reaper, nullptr);
    EXPECT_EQ(value_of("&exec(echo ignored)"), "ignored");
    ::sigaction(SIGCHLD, &before, nullptr);
    elog_clear();
}

TEST_F(Interpret, HandsNoDescriptorsOn) {
    const char* count = "ls /proc/self/fd | wc -l";
    FILE* plain = ::popen(count, "r");
    int expected = 0;
    EXPECT_EQ(std::fscanf(plain, "%d", &expected), 1);
    ::pclose(plain);
    EXPECT_EQ(std::stoi(value_of("&exec(" + std::string(count) + ")")), expected);
}

TEST_F(Interpret, SeesFilesFromTheFolderOfTheSource) {
    kit::write_file(folder.file("a.pf"), "f &file(text)\nn &filename(sub/x)\n");
    FILE* stream = std::fopen(folder.file("a.pf").c_str(), "r");
    Tree tree("");
    pfin(stream, &tree.root);
    std::fclose(stream);
    const std::string source = folder.file("a.pf");
    for (const char* name : {"f", "n"}) tree.at(name)->filename = const_cast<char*>(source.c_str());
    EXPECT_EQ(tree.expanded("f"), "two\nlines &name\n");
    EXPECT_EQ(tree.expanded("n"), folder.file("sub/x"));
}

TEST_F(Interpret, KeepsTheResultUntilTheCallChanges) {
    const std::string log = folder.file("log");
    const Tree tree("x &exec(echo run >> " + log + "; echo done)\nplain text\n");
    Pf* node = tree.at("x");
    Pf* result = pfinterpret(node);
    EXPECT_EQ(pfinterpret(node), result);
    EXPECT_EQ(node->value.funct->result, result);
    EXPECT_EQ(kit::read_file(log), "run\n");
    free(node->value.funct->text);
    node->value.funct->text = strdup("&exec(echo other)");
    EXPECT_EQ(tree.expanded("x"), "other");
    EXPECT_EQ(pfinterpret(tree.at("plain")), tree.at("plain"));
    EXPECT_EQ(pfinterpret(nullptr), nullptr);
    for (const char* text : {"env(HOME)", "&env(HOME", "&env HOME"}) {
        free(node->value.funct->text);
        node->value.funct->text = strdup(text);
        EXPECT_EQ(pfinterpret(node), nullptr) << text;
    }
    elog_clear();
}

}  // namespace
