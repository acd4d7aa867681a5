#include "morva/signals.h"

#include <signal.h>

#include <atomic>
#include <thread>

#include "log/elog_child.hpp"
#include "morva/dynamic_controls.h"
#include "morva/periodic.h"

namespace {

using testing::HasSubstr;

TEST(Signals, HaveNames) {
    EXPECT_EQ(signal_bysig(SIGINT)->number, SIGINT);
    EXPECT_STREQ(signal_bysig(SIGINT)->name, "INT");
    EXPECT_STREQ(signal_bysig(SIGINT)->description, "Interrupt");
    EXPECT_STREQ(signal_bysig(4711)->name, "4711");
    EXPECT_EQ(signal_byname("SIGTERM")->number, SIGTERM);
    EXPECT_STREQ(signal_byname("TERM")->description, "Terminated");
    for (const char* unknown : {"NOSUCH", ""}) {
        EXPECT_EQ(signal_byname(unknown)->number, -1);
        EXPECT_STREQ(signal_byname(unknown)->description, "no description for unrecognized signal");
    }
    char text[64] = "before";
    EXPECT_STREQ(signal_desc(SIGINT, text, 64), "INTInterrupt");
    EXPECT_STREQ(signal_desc(SIGINT, text, 32), "Interrupt");
    EXPECT_STREQ(signal_desc(SIGINT, text, 4), "Int");
    EXPECT_THAT(signal_desc(4711, text, 64), testing::StartsWith("4711Unknown signal"));
}

TEST(Halt, RaisesTheFlag) {
    static int halt;
    for (const int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        const kit::Ended ended = kit::in_child([&] {
            setup_signals(&halt, nullptr, 0);
            ::raise(signo);
            return halt;
        });
        EXPECT_EQ(ended.status, 1) << signo;
    }
}

TEST(Halt, EndsAProgramThatDoesNot) {
    static int halt;
    const kit::Ended ended = kit::in_child([] {
        setup_signals(
            &halt, [](Pf*) { (void)!::write(2, "last words\n", 11); }, 1);
        ::raise(SIGTERM);
        for (;;) ::pause();
        return 0;
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors, HasSubstr("last words\n"));
    EXPECT_THAT(ended.errors, HasSubstr("quitting from resurrection alarm"));
}

TEST(DieSoon, Dies) {
    const kit::Ended ended = kit::in_child([] {
        if (die_soon(0.05) != 0) return 2;
        for (;;) ::pause();
        return 0;
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors, HasSubstr("quitting from die_soon alarm"));
}

// The end of a task is told by its last message; the text is complete when that has appeared.
std::string told(const std::function<void()>& body) {
    return kit::captured(2, [&] {
        body();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    });
}

void wait_for(const std::atomic<int>& count, int least) {
    while (count < least) std::this_thread::yield();
}

TEST(Periodic, TasksRunUntilTheyAreStopped) {
    const kit::Env none("NO_DYNAMIC_CONTROLS", "1");
    static std::atomic<int> calls;
    static int quit;
    const auto count = [](void* private_data) {
        ++calls;
        return static_cast<std::atomic<int>*>(private_data)->load();
    };
    static std::atomic<int> result = 0;
    EXPECT_THAT(told([&] {
                    const int task = periodically("sweep", count, &result, &quit, 0.001);
                    EXPECT_GE(task, 0);
                    wait_for(calls, 3);
                    EXPECT_EQ(pkill(task), 0);
                }),
                testing::AllOf(HasSubstr("Task sweep starting"), HasSubstr("finds sweep"),
                               HasSubstr("Stopping task sweep"),
                               HasSubstr("Task sweep quits because of task quit flag")));
    // A long sleep ends at once.
    EXPECT_THAT(told([&] {
                    const int before = calls;
                    const int task = periodically("long", count, &result, nullptr, 1e6);
                    wait_for(calls, before + 1);
                    pkill(task);
                }),
                HasSubstr("Task long quits because of task quit flag"));
    result = 5;
    EXPECT_THAT(told([&] { periodically("once", count, &result, &quit, 0); }),
                HasSubstr("Task once quits because of return code = 5"));
    std::atomic_ref<int>(quit).store(1);
    EXPECT_THAT(told([&] { periodically("never", count, &result, &quit, 0); }),
                HasSubstr("Task never quits because of global quit flag"));
    EXPECT_THAT(told([] { EXPECT_EQ(pkill(1000), -1); }), HasSubstr("pkill(1000) finds <no task>"));
}

}  // namespace
