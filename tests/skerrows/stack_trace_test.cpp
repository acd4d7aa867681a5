#include <dlfcn.h>
#include <signal.h>

#include "skerrows.h"
#include "support/kit.hpp"

namespace trace_test {

// Outside of the unnamed namespace, and not inlined: the tests look for their names.
[[gnu::noinline]] std::string outer_function(int depth, const std::function<std::string()>& body) {
    std::string text = depth > 0 ? outer_function(depth - 1, body) : body();
    return text + (text.empty() ? "?" : "");  // no tail call
}

static volatile int g_result;

[[gnu::noinline]] static void fault_here() {
    ::raise(SIGUSR1);
    g_result = 1;
}

[[gnu::noinline]] void touch(volatile char* place) {
    *place = 1;
    g_result = 2;
}

}  // namespace trace_test

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

std::string trace() {
    return kit::written([](FILE* stream) { EXPECT_EQ(show_stack_trace(stream), 0); });
}

TEST(StackTrace, NamesTheCallersDemangled) {
    const std::string text = trace_test::outer_function(0, trace);
    EXPECT_THAT(text, ContainsRegex("#[0-9]+ +0x[0-9a-f]{16} trace_test::outer_function\\(int, "
                                    "[^\n]*\\)[^\n]* \\+ 0x[0-9a-f]+ \\(morva_tests\\)\n"));
    EXPECT_THAT(text, HasSubstr(" main + 0x"));
    EXPECT_THAT(text, Not(HasSubstr("show_stack_trace")));
    EXPECT_EQ(text.substr(0, 4), "\t#0 ");
}

TEST(StackTrace, EndsAfterSoManyCalls) {
    const std::string text = trace_test::outer_function(500, trace);
    EXPECT_THAT(text, HasSubstr("\t#127 "));
    EXPECT_THAT(text, HasSubstr("\n\t...\n"));
}

FILE* g_stream;

// Traces from a handler of SIGUSR1, to a file that needs no buffer.
class TraceInHandler : public testing::Test {
  protected:
    TraceInHandler() {
        g_stream = std::fopen(folder_.file("trace").c_str(), "w");
        std::setvbuf(g_stream, nullptr, _IONBF, 0);
    }
    ~TraceInHandler() override { std::fclose(g_stream); }
    std::string trace(int flags) {
        struct sigaction action {
        }, old;
        action.sa_handler = [](int) { show_stack_trace(g_stream); };
        action.sa_flags = flags;
        ::sigaction(SIGUSR1, &action, &old);
        trace_test::fault_here();
        ::sigaction(SIGUSR1, &old, nullptr);
        return kit::read_file(folder_.file("trace"));
    }
    kit::TempDir folder_;
};

// The signal interrupts `raise`, which lies in the C library: names stay as the linker knows them.
TEST_F(TraceInHandler, ShowsWhatTheSignalInterrupted) {
    EXPECT_THAT(trace(0), ContainsRegex("_ZN10trace_test[^\n]*fault_here"));
}

TEST_F(TraceInHandler, WorksOnAnAlternateStack) {
    std::vector<char> memory(128 * 1024);
    stack_t stack{}, none{};
    stack.ss_sp = memory.data();
    stack.ss_size = memory.size();
    ASSERT_EQ(::sigaltstack(&stack, nullptr), 0);
    const std::string text = trace(SA_ONSTACK);
    none.ss_flags = SS_DISABLE;
    ::sigaltstack(&none, nullptr);
    EXPECT_THAT(text, ContainsRegex("_ZN10trace_test[^\n]*fault_here"));
}

TEST(StackTraceDeathTest, ShowsTheFaultDemangled) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "names stay as they are under the thread sanitizer";
#endif
    const kit::Guarded empty("");
    EXPECT_EXIT(
        {
            struct sigaction action {};
            action.sa_handler = [](int) { ::_exit(show_stack_trace(stderr) == 0 ? 3 : 4); };
            ::sigaction(SIGSEGV, &action, nullptr);
            trace_test::touch(empty.data());
        },
        testing::ExitedWithCode(3), "trace_test::touch\\(char volatile\\*\\) \\+ 0x");
}

TEST(StackTrace, ReportsThatNothingCouldBeWritten) {
    EXPECT_EQ(show_stack_trace(nullptr), -1);
    FILE* full = std::fopen("/dev/full", "w");
    if (full == nullptr) GTEST_SKIP();
    errno = 77;
    EXPECT_EQ(show_stack_trace(full), -1);
    EXPECT_EQ(errno, 77);
    std::fclose(full);
}

}  // namespace
