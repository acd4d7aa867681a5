// Where messages go: deliveries, the callback, packet rings, the debugger, JSON lines.
#include <sys/stat.h>

#include <cerrno>

#include "log/elog_child.hpp"
#include "morva/tbl.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

void* value(const char* text) {
    return const_cast<char*>(text);
}

void deliver_to(int severity, const std::string& delivery) {
    ASSERT_EQ(elog_set(ELOG_DELIVER, severity, value(delivery.c_str())), 0);
}

void install(Elog_callback callback) {
    elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(callback));
}

std::string text(int start = 0) {
    return kit::taken(elog_string(start));
}

class ElogDelivery : public testing::Test {
  protected:
    void SetUp() override {
        std::string path = dir_.file("prog");
        char* argv[] = {path.data(), nullptr};
        elog_init(1, argv);
    }
    void TearDown() override { elog_clear(); }
    kit::TempDir dir_;
    std::string file_ = dir_.file("f");
};

TEST_F(ElogDelivery, GoesToEveryWord) {
    const mode_t mask = umask(0);
    deliver_to(ELOG_NOTIFY, "log \t stdout\t " + file_ + " /dev/null");
    elog_log(0, "a");
    std::string out;
    const std::string err =
        kit::captured(2, [&] { out = kit::captured(1, [] { elog_notify(0, "b"); }); });
    EXPECT_EQ(out, "prog: a\nprog: b\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(kit::read_file(file_), out);
    EXPECT_EQ(elog_mark(), 0);
    elog_notify(0, "c");
    EXPECT_EQ(kit::read_file(file_), out + "prog: c\n") << "files grow";
    struct stat status {};
    ASSERT_EQ(stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0664u);
    umask(mask);
}

TEST_F(ElogDelivery, KeepsWhatNoWordTakes) {
    for (const char* delivery : {"", " \t", "log", " log log"}) {
        deliver_to(ELOG_COMPLAIN, delivery);
        EXPECT_EQ(kit::captured(2, [] { elog_complain(0, "kept"); }), "");
    }
    EXPECT_EQ(elog_mark(), 4) << "only severity log counts repeats";
    deliver_to(ELOG_COMPLAIN, "/dev/null");
    elog_complain(0, "gone");
    EXPECT_EQ(elog_mark(), 0);
}

TEST_F(ElogDelivery, LosesNothingToABadDestination) {
    const std::string missing = dir_.file("no/f"), file = dir_.path();
    const struct {
        std::string delivery, report;
    } rows[] = {
        {"bogus", "unrecognized delivery 'bogus'\n"},
        {missing, "Can't open error file '" + missing + "'\n\t: No such file or directory\n"},
        {file, "Can't open error file '" + file + "'\n\t: Is a directory\n"},
        {"/dev/full", "Can't write error file '/dev/full'\n\t: No space left on device\n"},
        {"orb:ring", "No logger for packet ring 'ring'\n"},
    };
    for (const auto& row : rows) {
        deliver_to(ELOG_NOTIFY, row.delivery);
        elog_log(0, "a");
        errno = EACCES;  // the caller's own error is not the delivery's
        EXPECT_EQ(kit::captured(2, [] { elog_notify(0, "b"); }), row.report + "prog: a\nprog: b\n");
        EXPECT_EQ(elog_mark(), 0);
    }
    deliver_to(ELOG_NOTIFY, "bogus " + file_);
    elog_log(0, "a");
    EXPECT_EQ(kit::captured(2, [] { elog_notify(0, "b"); }),
              "unrecognized delivery 'bogus'\nprog: a\n");
    EXPECT_EQ(kit::read_file(file_), "prog: b\n");
}

TEST_F(ElogDelivery, WritesLongStoriesWhole) {
    const std::string line(3000, 'x');
    std::string expected;
    for (int i = 0; i < 5; ++i) {
        elog_log(0, "%d%s", i, line.c_str());
        expected += "prog: " + std::to_string(i) + line + "\n";
    }
    deliver_to(ELOG_NOTIFY, file_);
    elog_notify(0, "end");
    EXPECT_EQ(kit::read_file(file_), expected + "prog: end\n");
}

TEST_F(ElogDelivery, KeepsTheLinesOfProcessesApart) {
    deliver_to(ELOG_NOTIFY, file_);
    std::vector<pid_t> children;
    for (int i = 0; i < 4; ++i) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        for (int j = 0; j < 100; ++j) {
            elog_log(0, "first %d.%d", i, j);
            elog_notify(0, "second %d.%d", i, j);
        }
        _exit(0);
    }
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    std::istringstream lines(kit::read_file(file_));
    int pairs = 0;
    for (std::string first, second; std::getline(lines, first) && std::getline(lines, second);) {
        ASSERT_THAT(first, StartsWith("prog: first "));
        ASSERT_EQ(second, "prog: second " + first.substr(12));
        ++pairs;
    }
    EXPECT_EQ(pairs, 400);
}

TEST_F(ElogDelivery, TakesARecordFromTheCaller) {
    const auto record = [] {
        auto* message = static_cast<Elog_msg*>(calloc(1, sizeof(Elog_msg)));
        message->tag = strdup("tag");
        message->msg = strdup("own\n");
        message->sys = strdup("error");
        message->count = 2;
        return message;
    };
    elog_log(0, "a");
    elog_log(0, "b");
    EXPECT_EQ(elog_deliver("log", 0, record()), 0);
    EXPECT_EQ(text(2), "tag: own\n\terror\n\t** repeated 2 times\n");
    EXPECT_EQ(kit::captured(1, [&] { elog_deliver("stdout", 1, record()); }),
              "prog: b\n" + text(2) + "tag: own\n\terror\n\t** repeated 2 times\n");
    EXPECT_EQ(text(), "prog: a\n");
    EXPECT_EQ(kit::captured(1, [&] { elog_deliver("stdout", 0, nullptr); }), "prog: a\n");
    Elog_msg* message = record();
    EXPECT_EQ(kit::written([&](FILE* f) { EXPECT_EQ(elog_msg_print(f, message), 0); }),
              "tag: own\n\terror\n\t** repeated 2 times\n");
    elog_free_msg(message);
}

TEST_F(ElogDelivery, TellsOfAStreamThatFails) {
    const kit::Ended ended = kit::in_child([] {
        if (freopen("/dev/full", "w", stdout) == nullptr) return 1;
        deliver_to(ELOG_NOTIFY, "stdout");
        elog_notify(0, "b");
        return 0;
    });
    EXPECT_EQ(ended.errors, "fflush() failed: 28 : No space left on device\nprog: b\n");
    FILE* full = fopen("/dev/full", "w");
    elog_log(0, "a");
    EXPECT_EQ(kit::captured(2, [&] { EXPECT_EQ(elog_print(full, 0), -1); }),
              "fflush() failed: 28 : No space left on device\n");
    fclose(full);
}

TEST_F(ElogDelivery, PrintsAStackTraceWhenAsked) {
    const auto shown = [](const char* text) {
        return kit::captured(2, [&] { elog_notify(0, "%s", text); });
    };
    EXPECT_THAT(shown("*stack*where"), MatchesRegex("prog: \\*stack\\*where\n\t#0 (.|\n)*"));
    EXPECT_THAT(shown("\n*stack*where"), MatchesRegex("\nprog: \\*stack\\*where\n\t#0 (.|\n)*"));
    EXPECT_EQ(shown("a *stack*"), "prog: a *stack*\n");
    elog_set(ELOG_TAG, ELOG_NOTIFY, value("*stack*"));
    EXPECT_THAT(shown("x"), MatchesRegex("\\*stack\\*: x\n\t#0 (.|\n)*"));
    const kit::Env stack("ELOG_STACK", "n");
    elog_set(ELOG_TAG, ELOG_NOTIFY, value("%P"));
    elog_init(0, nullptr);
    EXPECT_THAT(shown("x"), MatchesRegex("prog: x\n\t#0 (.|\n)*"));
}

TEST_F(ElogDelivery, RunsTheDebugger) {
    elog_set(ELOG_DEBUG, ELOG_ALERT, value("echo %p %P > %r.out"));
    errno = EIO;
    kit::captured(2, [] { elog_alert(0, "x"); });
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(kit::read_file(dir_.file("prog.out")), std::to_string(getpid()) + " prog\n");
    std::string odd = dir_.file("my $(prog)'s");
    char* argv[] = {odd.data(), nullptr};
    elog_init(1, argv);
    kit::captured(2, [] { elog_alert(0, "x"); });
    EXPECT_EQ(kit::read_file(odd + ".out"), std::to_string(getpid()) + " my $(prog)'s\n");
}

// --- The callback.

struct Call {
    int severity;
    std::string text;
    long messages;
};
std::vector<Call> g_calls;
int g_answer;

int note(int severity, char* text, Tbl* messages) {
    g_calls.push_back({severity, text, maxtbl(messages)});
    return g_answer;
}

TEST_F(ElogDelivery, CallbackSeesEverythingAndDecides) {
    install(note);
    Elog_callback callback = nullptr;
    EXPECT_EQ(elog_query(ELOG_CALLBACK, 0, &callback), 0);
    EXPECT_EQ(callback, note);
    g_answer = 0;
    elog_log(0, "a");
    elog_log(0, "a");
    EXPECT_EQ(kit::captured(2, [] { elog_complain(0, "b"); }),
              "prog: a\n\t** repeated 2 times\nprog: b\n");
    ASSERT_EQ(g_calls.size(), 2u) << "a repeat is not told";
    EXPECT_EQ(g_calls[1].severity, ELOG_COMPLAIN);
    EXPECT_EQ(g_calls[1].text, "prog: a\n\t** repeated 2 times\nprog: b\n");
    EXPECT_EQ(g_calls[1].messages, 1);
    elog_log(0, "kept");
    const int mark = elog_mark();
    elog_log(0, "c");
    g_answer = 1;
    EXPECT_EQ(kit::captured(2, [&] { elog_flush(1, mark); }), "");
    EXPECT_EQ(g_calls.back().severity, ELOG_NOTIFY);
    EXPECT_EQ(g_calls.back().text, "prog: c\n");
    EXPECT_EQ(text(), "prog: kept\n");
    EXPECT_EQ(kit::captured(2, [] { elog_complain(0, "d"); }), "");
    EXPECT_EQ(elog_mark(), 0);
}

TEST_F(ElogDelivery, CallbackMayCallIn) {
    install([](int severity, char*, Tbl*) {
        if (severity == ELOG_NOTIFY) {
            elog_log(0, "from the callback");
            elog_complain(0, "also");
            EXPECT_EQ(elog_mark(), 0);
        }
        return 0;
    });
    elog_log(0, "a");
    EXPECT_EQ(kit::captured(2, [] { elog_notify(0, "b"); }),
              "prog: a\nprog: from the callback\nprog: also\nprog: b\n");
    install(nullptr);
}

ssize_t log_while_writing(void*, const char*, size_t size) {
    elog_log(0, "from the stream");
    return static_cast<ssize_t>(size);
}

TEST_F(ElogDelivery, StreamsMayCallIn) {
    cookie_io_functions_t functions{};
    functions.write = log_while_writing;
    FILE* stream = fopencookie(nullptr, "w", functions);
    elog_log(0, "a");
    EXPECT_EQ(elog_print(stream, 0), 0);
    fclose(stream);
    EXPECT_EQ(text(), "prog: a\nprog: from the stream\n");
}

// --- Packet rings.

std::string g_ring_text;

TEST_F(ElogDelivery, HandsTextToTheRingLogger) {
    elog_set_orb_logger([](const char* ring, const char* program, const char* text) {
        char other[] = "other";
        char* argv[] = {other, nullptr};
        elog_init(1, argv);
        g_ring_text += std::string(ring) + "|" + program + "|" + text;
        elog_log(0, "meanwhile");
        return 0;
    });
    deliver_to(ELOG_NOTIFY, "orb:host:6510 " + file_);
    elog_log(0, "a");
    elog_notify(0, "b");
    EXPECT_EQ(g_ring_text, "host:6510|prog|prog: a\nprog: b\n");
    EXPECT_EQ(kit::read_file(file_), "prog: a\nprog: b\n");
    EXPECT_EQ(text(), "other: meanwhile\n") << "what came while the lock was free stays";
}

TEST_F(ElogDelivery, RingLoggerMayShowTheStoryItself) {
    elog_set_orb_logger([](const char*, const char*, const char*) {
        elog_complain(0, "c");
        elog_log(0, "later");
        return 0;
    });
    deliver_to(ELOG_NOTIFY, "orb:r");
    elog_log(0, "a");
    EXPECT_EQ(kit::captured(2, [] { elog_notify(0, "b"); }), "prog: a\nprog: c\n");
    EXPECT_EQ(text(), "prog: later\n") << "the place of a is taken by a message not yet shown";
    elog_set_orb_logger([](const char*, const char*, const char*) {
        errno = EPIPE;
        return -1;
    });
    EXPECT_EQ(kit::captured(2, [] { elog_notify(0, "b"); }),
              "Can't log to packet ring 'r'\n\t: Broken pipe\nprog: later\nprog: b\n");
    EXPECT_EQ(elog_mark(), 0);
}

// --- JSON lines.

std::string json(const std::function<void()>& body) {
    install(elog_json);
    return kit::written([&](FILE* stream) {
        elog_json_stream(stream);
        body();
        elog_json_stream(nullptr);
    });
}

std::string without_time_and_thread(std::string lines) {
    for (size_t at; (at = lines.find("\"time\":")) != lines.npos;)
        lines.erase(at, lines.find(',', at) + 1 - at);
    for (size_t at; (at = lines.find("\"thread\":")) != lines.npos;)
        lines.erase(at, lines.find(',', at) + 1 - at);
    return lines;
}

TEST_F(ElogDelivery, WritesJson) {
    const std::string lines = json([] {
        errno = ENOENT;
        elog_log(1, "can't open \"%s\"\n", "a\\b");
        elog_log(0, "y");
        elog_log(0, "y");
        elog_alert(0, "\ntwo\nlines\t\x01");
    });
    EXPECT_EQ(without_time_and_thread(lines),
              "{\"severity\":\"log\",\"program\":\"prog\",\"tag\":\"prog\","
              "\"text\":\"can't open \\\"a\\\\b\\\"\",\"error\":\"No such file or directory\"}\n"
              "{\"severity\":\"log\",\"program\":\"prog\",\"tag\":\"prog\",\"text\":\"y\","
              "\"count\":2}\n"
              "{\"severity\":\"alert\",\"program\":\"prog\",\"tag\":\"\\nprog *alert*\","
              "\"text\":\"two\\nlines\\t\\u0001\"}\n");
    EXPECT_THAT(lines, MatchesRegex("\\{\"time\":1[0-9]{9}\\.[0-9]{6},(.|\n)*"));
    EXPECT_THAT(lines, HasSubstr("\"thread\":" + std::to_string(pthread_self()) + ","));
    EXPECT_EQ(elog_mark(), 0);
}

TEST_F(ElogDelivery, WritesJsonThatIsUtf8) {
    const struct {
        const char *bytes, *expected;
    } rows[] = {
        {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x8c\x8d", "\xc3\xa9\xe2\x82\xac\xf0\x9f\x8c\x8d"},
        {"caf\xe9", "caf\\u00e9"},                             // Latin-1
        {"\xc3", "\\u00c3"},                                   // cut short
        {"\xe2\x82", "\\u00e2\\u0082"},                        // cut short
        {"\xc0\xaf", "\\u00c0\\u00af"},                        // overlong
        {"\xe0\x9f\xbf", "\\u00e0\\u009f\\u00bf"},             // overlong
        {"\xed\xa0\x80", "\\u00ed\\u00a0\\u0080"},             // a surrogate
        {"\xf4\x90\x80\x80", "\\u00f4\\u0090\\u0080\\u0080"},  // beyond the last character
        {"\x7f", "\\u007f"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(json([&] { elog_alert(0, "%s", row.bytes); }),
                    HasSubstr(std::string("\"text\":\"") + row.expected + "\"}\n"));
}

TEST_F(ElogDelivery, JsonLeavesTheRestToTheDelivery) {
    deliver_to(ELOG_DEBUGGING, "log");
    EXPECT_EQ(json([] {
                  elog_log(0, "a");
                  elog_debug(0, "b");
              }),
              "");
    EXPECT_EQ(text(), "prog: a\nprog *debug*: b\n");
    EXPECT_EQ(without_time_and_thread(json([] { elog_flush(1, 1); })),
              "{\"severity\":\"debug\",\"program\":\"prog\",\"tag\":\"prog *debug*\","
              "\"text\":\"b\"}\n");
    EXPECT_EQ(text(), "prog: a\n");
    FILE* full = fopen("/dev/full", "w");
    elog_json_stream(full);
    EXPECT_EQ(kit::captured(2, [] { elog_notify(0, "c"); }), "prog: a\nprog: c\n");
    fclose(full);
}

}  // namespace
