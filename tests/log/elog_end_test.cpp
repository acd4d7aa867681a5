// How the program ends: fatal messages, fault signals, no memory. All of it in child processes.
#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <set>
#include <thread>

#include "base/memory.hpp"
#include "log/elog.hpp"
#include "log/elog_child.hpp"
#include "morva/tbl.h"

namespace {

using kit::Ended;
using kit::in_child;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

void* value(const char* text) {
    return const_cast<char*>(text);
}

// The body must end the process.
Ended ends(const std::function<void()>& body) {
    return in_child([&] {
        char name[] = "prog";
        char* argv[] = {name, nullptr};
        elog_init(1, argv);
        body();
        return 99;
    });
}

TEST(ElogEnd, ExitHandlersMayLogAndMayDie) {
    const Ended ended = ends([] {
        std::atexit([] { elog_die(0, "second"); });
        std::atexit([] { elog_complain(0, "from a handler"); });
        elog_log(0, "reason");
        elog_die(0, "first");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors,
              "prog: reason\nprog *fatal*: first\nprog: from a handler\nprog *fatal*: second\n");
}

TEST(ElogEnd, TheCallbackMayDie) {
    const Ended ended = ends([] {
        std::atexit([] {  // the lock that the callback held is free for other threads
            elog_set(ELOG_CALLBACK, 0, nullptr);
            std::thread([] { elog_complain(0, "from a thread"); }).join();
        });
        const Elog_callback callback = [](int, char*, Tbl*) -> int { elog_die(0, "enough"); };
        elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(callback));
        elog_notify(0, "x");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, "prog *fatal*: enough\nprog: from a thread\n");
}

TEST(ElogEnd, DoesNotWaitForAReaderOfStandardInput) {
    int ends_of_pipe[2];
    ASSERT_EQ(pipe(ends_of_pipe), 0);
    const Ended ended = ends([&] {
        dup2(ends_of_pipe[0], 0);
        std::thread([] { getchar(); }).detach();
        while (ftrylockfile(stdin) == 0) {
            funlockfile(stdin);
            std::this_thread::yield();
        }
        std::thread([] { elog_die(0, "no input"); }).join();
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, "prog *fatal*: no input\n");
    close(ends_of_pipe[0]);
    close(ends_of_pipe[1]);
}

TEST(ElogEnd, TellsOfStreamsThatCannotBeFlushed) {
    const Ended ended = ends([] {
        fputs("x", fopen("/dev/full", "w"));
        elog_die(0, "full");
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, "prog *fatal*: full\nfflush(0) failed: 28 : No space left on device\n");
}

TEST(ElogEnd, ManyThreadsMayDieAtOnce) {
    for (int i = 0; i < 10; ++i) {
        const Ended ended = ends([] {
            std::atomic<int> ready{0};
            std::vector<std::thread> threads;
            for (int t = 0; t < 8; ++t)
                threads.emplace_back([&] {
                    for (++ready; ready < 8;) std::this_thread::yield();
                    elog_die(0, "end");
                });
            for (auto& thread : threads) thread.join();
        });
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.errors, StartsWith("prog *fatal*: end\n"));
    }
}

TEST(ElogEnd, AForkedChildEndsThoughItsParentIsEnding) {
    static std::atomic<bool> ending{false}, done{false};
    const Ended ended = ends([] {
        std::atexit([] {
            for (ending = true; !done;) std::this_thread::yield();
        });
        std::thread([] { elog_die(0, "parent"); }).detach();
        while (!ending) std::this_thread::yield();
        const Ended child = in_child([]() -> int {
            done = true;
            elog_die(0, "child");
        });
        std::fprintf(stderr, "%d %s", child.status, child.errors.c_str());
        for (done = true;;) pause();
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors, StartsWith("prog *fatal*: parent\n1 prog *fatal*: child\n"));
}

TEST(ElogEnd, TheLimitCountsWhatStays) {
    const Ended ended = in_child([] {
        const kit::Env limit("ELOG_MAXMSG", "3");
        for (int i = 0; i < 3; ++i) elog_log(0, "%d", i);
        elog_log(0, "2");
        elog_notify(0, "shown");
        for (int i = 0; i < 4; ++i) elog_log(0, "%d", i);
        return 99;
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors,
                EndsWith("shown\nUnknown_Program: 0\nUnknown_Program: 1\nUnknown_Program: 2\n"
                         "Unknown_Program *fatal*: quitting because log has 3 messages\n"
                         "   eliminate this limit with\n      setenv ELOG_MAXMSG 0\n"
                         "   or by editing elog.pf.  See elog(3).\n"));
    const Ended unlimited = in_child([] {
        const kit::Env limit("ELOG_MAXMSG", "0");
        for (int i = 0; i < 1000; ++i) elog_log(0, "%d", i);
        return elog_mark() == 1000 ? 0 : 1;
    });
    EXPECT_EQ(unlimited.status, 0);
}

TEST(ElogEnd, FatalMessagesThatAreKeptStillEnd) {
    for (const char* delivery : {"", "log", "bogus"}) {
        const Ended ended = ends([&] {
            elog_set(ELOG_DELIVER, ELOG_DIE, value(delivery));
            va_list none{};
            elog(ELOG_DIE, 0, "x", none);
        });
        EXPECT_EQ(ended.status, 1) << delivery;
    }
}

// --- Fault signals. TRAP stands for all of them: sanitizers keep the others for themselves.

TEST(ElogSignals, AreReportedAndTakeTheirCourse) {
    const Ended ended = ends([] {
        elog_log(0, "reason");
        std::raise(SIGTRAP);
    });
    EXPECT_EQ(ended.status, 128 + SIGTRAP);
    EXPECT_EQ(ended.errors,
              "prog: reason\n"
              "prog *fault*: received signal TRAP: Trace/breakpoint trap\n");
}

TEST(ElogSignals, FollowTheDeliveryOfFaults) {
    kit::TempDir dir;
    const Ended ended = ends([&] {
        elog_set(ELOG_DELIVER, ELOG_FAULT, value((dir.file("f") + " stderr").c_str()));
        elog_set(ELOG_TAG, ELOG_FAULT, value("*stack*"));
        std::raise(SIGTRAP);
    });
    EXPECT_EQ(kit::read_file(dir.file("f")),
              "*stack*: received signal TRAP: Trace/breakpoint trap\n");
    EXPECT_THAT(ended.errors, StartsWith(kit::read_file(dir.file("f")) + "\t#0 "));
    const Ended kept = ends([] {
        elog_set(ELOG_DELIVER, ELOG_FAULT, value("log"));
        std::raise(SIGTRAP);
    });
    EXPECT_THAT(kept.errors, StartsWith("prog *fault*: received signal TRAP"));
}

TEST(ElogSignals, DoNotWaitForTheRegister) {
    const char* const expected = "prog *fault*: received signal TRAP: Trace/breakpoint trap\n";
    const Ended in_callback = ends([] {
        const Elog_callback callback = [](int, char*, Tbl*) { return std::raise(SIGTRAP); };
        elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(callback));
        elog_notify(0, "x");
    });
    const Ended at_work = ends([] {
        morva::log::Locked lock;
        morva::log::Busy busy;
        std::raise(SIGTRAP);
    });
    const Ended by_another = ends([] {
        std::atomic<bool> locked{false};
        std::thread([&] {
            morva::log::Locked lock;
            locked = true;
            for (;;) pause();
        }).detach();
        while (!locked) std::this_thread::yield();
        std::raise(SIGTRAP);
    });
    for (const Ended& ended : {in_callback, at_work, by_another}) {
        EXPECT_EQ(ended.status, 128 + SIGTRAP);
        EXPECT_EQ(ended.errors, expected);
    }
}

// A handler that interrupts the register is no different from a call at that place.
TEST(ElogSignals, HandlersThatLogFindTheRegisterWholeOrGoAround) {
    const Ended ended = ends([] {
        const auto handler = [] { elog_complain(0, "from a handler"); };
        elog_log(0, "kept");
        {
            morva::log::Locked lock;
            handler();
            elog_log(0, "kept too");
            morva::log::Busy busy;
            handler();
            elog_flush(0, 0);
        }
        std::_Exit(elog_mark());
    });
    EXPECT_EQ(ended.status, 1) << "a busy register is left alone";
    EXPECT_EQ(ended.errors, "prog: kept\nprog: from a handler\nprog: from a handler\n");
}

#ifndef __SANITIZE_THREAD__  // which wants no allocation in a handler

std::atomic<int> g_handled{0};

void log_from_handler(int) {
    const int error = errno;
    const int n = ++g_handled;
    if (n % 5 == 0) elog_complain(0, "handler %d", n);
    if (n % 5 == 1) elog_log(0, "x");
    if (n % 5 == 2) elog_log(0, "handler %d", n);
    if (n % 5 == 3) elog_clear();
    if (n % 5 == 4) elog_notify(0, "handler %d", n);
    errno = error;
}

// Interrupts the calling thread again and again, until `count` signals have been handled.
std::thread interrupt_this_thread(int count) {
    std::signal(SIGUSR1, log_from_handler);
    return std::thread([count, self = pthread_self()] {
        for (int sent = 0; sent < count; ++sent) {
            pthread_kill(self, SIGUSR1);
            while (g_handled <= sent) std::this_thread::yield();
        }
    });
}

TEST(ElogSignals, HandlersMayLogAtAnyMoment) {
    for (const char* delivery : {"stderr", "stdout", "/dev/null", "orb:x"}) {
        for (const Elog_callback callback : {Elog_callback{}, elog_json}) {
            const Ended ended = ends([&] {
                if (freopen("/dev/null", "w", stdout) == nullptr) return;
                elog_json_stream(stdout);
                elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(callback));
                elog_set_orb_logger([](const char*, const char*, const char*) { return 0; });
                for (const int severity : {ELOG_NOTIFY, ELOG_COMPLAIN})
                    elog_set(ELOG_DELIVER, severity, value(delivery));
                constexpr int kCount = 1000;
                std::thread other = interrupt_this_thread(kCount);
                for (int i = 0; g_handled < kCount; ++i) {
                    elog_log(0, "x");
                    elog_log(0, "x");
                    if (i % 3 == 0) elog_complain(0, "%d", i);
                    if (i % 7 == 0) elog_flush(1, elog_mark() / 2);
                }
                other.join();
                std::_Exit(0);
            });
            EXPECT_EQ(ended.status, 0) << delivery << ended.errors.substr(0, 2000);
        }
    }
}

#endif

// --- Memory. Each scenario runs with its nth allocation failing, for every n.

struct Scenario {
    const char* name;
    std::function<void()> body;
    std::set<std::string> words;  // what the messages must have named in the end
};

int answer_nothing(int, char*, Tbl*) {
    return 0;
}

const std::vector<Scenario> kScenarios = {
    {"log",
     [] {
         for (int i = 0; i < 30; ++i) elog_log(0, "reason %d", i);
         elog_clear();
     },
     {"msg"}},
    {"string", [] { elog_log(0, "x"), kit::taken(elog_string(0)); }, {"msg", "s"}},
    {"elogs", [] { kit::taken(elogs(0, 0, "x")); }, {"result"}},
    {"commandline", [] { kit::taken(elog_commandline_str()); }, {"buf"}},
    {"callback",
     [] {
         elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(answer_nothing));
         elog_notify(0, "x");
     },
     {"s"}},
    {"long story",
     [] {
         for (int i = 0; i < 3; ++i) elog_log(0, "%d%9000s", i, "");
         elog_notify(0, "x");
     },
     {"msg"}},
    {"init",
     [] {
         char path[] = "/a/b", flag[] = "-v";
         char* argv[] = {path, flag, nullptr};
         elog_init(2, argv);
     },
     {"argv", "Program_Name"}},
    {"copies",
     [] {
         elog_log(0, "x");
         Tbl* copies = nullptr;
         if (elog_query(ELOG_TBLCP, 0, &copies) == 0) freetbl(copies, elog_free_msg);
     },
     {"msg"}},
};

std::string word_of(const Ended& ended) {
    const size_t at = ended.errors.find("prog *fatal*: Out of memory");
    char function[64], file[64], word[64] = "<no message>";
    int line = 0;
    unsigned long bytes = 0;
    constexpr char kShape[] =
        "prog *fatal*: Out of memory in %63s at line %d of '%63[a-z_.]'\n"
        "\tCan't malloc %lu bytes for %63s\n";
    if (at != ended.errors.npos)
        sscanf(ended.errors.c_str() + at, kShape, function, &line, file, &bytes, word);
    return word;
}

// A child with the nth allocation of the body failing: 0 when there are fewer, 42 when the body did
// without.
Ended starved(const std::function<void()>& body, long nth, bool from_then_on) {
    return in_child([&] {
        char name[] = "prog";
        char* argv[] = {name, nullptr};
        elog_init(1, argv);
        morva::fail_allocation(nth, from_then_on);
        body();
        return morva::allocations_seen() < nth ? 0 : 42;
    });
}

TEST(ElogMemory, EveryAllocationEndsWithItsMessage) {
    for (const Scenario& scenario : kScenarios) {
        for (const bool from_then_on : {false, true}) {
            std::set<std::string> words;
            for (long nth = 1;; ++nth) {
                const Ended ended = starved(scenario.body, nth, from_then_on);
                if (ended.status == 0) break;
                if (ended.status == 42) continue;
                ASSERT_EQ(ended.status, 1) << scenario.name << nth << ended.errors;
                words.insert(word_of(ended));
                ASSERT_LT(nth, 1000);
            }
            EXPECT_EQ(words.count("<no message>"), 0u) << scenario.name;
            for (const std::string& word : scenario.words)
                EXPECT_EQ(words.count(word), 1u) << scenario.name << ": " << word;
        }
    }
}

TEST(ElogMemory, FatalMessagesNeedNone) {
    const std::function<void()> deaths[] = {
        [] { elog_die(0, "the end"); },
        [] {
            elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(answer_nothing));
            elog_die(0, "the end");
        },
        [] { elog_die(0, "%9000s the end", ""); },
        [] {
            elog_set(ELOG_DELIVER, ELOG_DIE, value("log"));
            elog_die(0, "the end");
        },
    };
    for (const auto& death : deaths) {
        // The list of the callback is made here, so that only the end itself is starved.
        const auto body = [&] {
            morva::fail_allocation(0, false);
            elog_set(ELOG_TBL, 0, nullptr);
            morva::fail_allocation(1, true);
            death();
        };
        const Ended ended = starved(body, 1, true);
        EXPECT_EQ(ended.status, 1);
        EXPECT_THAT(ended.errors, StartsWith("prog *fatal*: "));
        EXPECT_THAT(ended.errors, EndsWith("the end\n"));
    }
}

TEST(ElogMemory, ACopyThatFailsIsNoCopy) {
    elog_log(0, "x");
    Tbl* copies = nullptr;
    for (long nth = 1; nth < 10; ++nth) {
        const Ended ended = in_child([&] {
            morva::fail_allocation(nth, false);
            if (elog_query(ELOG_TBLCPCL, 0, &copies) == 0) return 10;
            return copies == nullptr && elog_mark() == 1 && elog_mark() == 1 ? 11 : 12;
        });
        EXPECT_NE(ended.status, 12) << nth;
    }
    elog_clear();
}

}  // namespace
