// Clock, sleep, poll and timers. Signals arrive from a thread that sends them to this one until
// told to stop.
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_of(const std::function<void()>& body) {
    const auto start = Clock::now();
    body();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::atomic<int> g_interruptions;

// Interrupts the calling thread about every millisecond.
class Interruptions {
  public:
    Interruptions() : thread_([this, target = ::pthread_self()] { send(target); }) {
        struct sigaction action {};
        action.sa_handler = [](int) { ++g_interruptions; };  // without SA_RESTART
        g_interruptions = 0;
        ::sigaction(SIGUSR1, &action, &old_);
        ready_ = true;
    }
    ~Interruptions() {
        stop_ = true;
        thread_.join();
        ::sigaction(SIGUSR1, &old_, nullptr);
    }

  private:
    void send(pthread_t target) {
        while (!ready_) std::this_thread::yield();
        for (; !stop_; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            ::pthread_kill(target, SIGUSR1);
    }
    struct sigaction old_ {};
    std::atomic<bool> ready_ = false, stop_ = false;
    std::thread thread_;
};

TEST(StdNow, IsTheTimeOfDay) {
    const auto before = static_cast<double>(::time(nullptr));
    const double now = std_now();
    EXPECT_GE(now, before - 1);
    EXPECT_LE(now, before + 5);
}

TEST(StdSleep, SleepsTheWholeTimeDespiteSignals) {
    const Interruptions interruptions;
    EXPECT_GE(seconds_of([] { EXPECT_EQ(std_sleep(0.05), 0); }), 0.05);
    EXPECT_GE(g_interruptions, 2);
}

TEST(StdSleep, DoesNotSleepForNoTime) {
    for (const double none : {0.0, -1e300, double{-INFINITY}, double{NAN}})
        EXPECT_LT(seconds_of([&] { std_sleep(none); }), 5);
}

class StdPoll : public testing::Test {
  protected:
    StdPoll() {
        EXPECT_EQ(::pipe(ends_), 0);
        fds_ = {ends_[0], POLLIN, 0};
    }
    ~StdPoll() override { ::close(ends_[0]), ::close(ends_[1]); }
    int ends_[2];
    pollfd fds_;
};

TEST_F(StdPoll, WaitsTheWholeTimeDespiteSignals) {
    const Interruptions interruptions;
    EXPECT_GE(seconds_of([&] { EXPECT_EQ(std_poll(&fds_, 1, 50), 0); }), 0.05);
    EXPECT_GE(g_interruptions, 2);
}

TEST_F(StdPoll, WithANegativeTimeoutWaitsThroughSignalsForAnEvent) {
    const Interruptions interruptions;
    std::thread writer([&] {
        while (g_interruptions < 3) std::this_thread::yield();
        EXPECT_EQ(::write(ends_[1], "x", 1), 1);
    });
    EXPECT_EQ(std_poll(&fds_, 1, -7), 1);
    EXPECT_EQ(fds_.revents, POLLIN);
    writer.join();
}

TEST_F(StdPoll, ReportsErrors) {
    EXPECT_EQ(std_poll(&fds_, 1, 0), 0);
    EXPECT_EQ(std_poll(reinterpret_cast<pollfd*>(8), 1, 10), -1);
    EXPECT_EQ(errno, EFAULT);
}

sem_t g_rung;
std::atomic<int> g_rings;
std::atomic<bool> g_other_thread;
pthread_t g_test_thread;

void ring() {
    g_other_thread = ::pthread_equal(::pthread_self(), g_test_thread) == 0;
    ++g_rings;
    ::sem_post(&g_rung);
}

class StdTimer : public testing::Test {
  protected:
    StdTimer() {
        testing::FLAGS_gtest_death_test_style = "threadsafe";
        ::sem_init(&g_rung, 0, 0);
        g_rings = 0;
        g_test_thread = ::pthread_self();
    }
    static void await(int rings) {
        while (rings-- > 0)
            while (::sem_wait(&g_rung) != 0) continue;
    }
};

TEST_F(StdTimer, RingsOnceInAThreadOfItsOwnAndNotEarly) {
    EXPECT_GE(seconds_of([] {
                  ASSERT_EQ(std_set_timer(ring, 0.05), 0);
                  await(1);
              }),
              0.05);
    EXPECT_TRUE(g_other_thread);
    ASSERT_EQ(std_set_timer(ring, 0), 0);
    ASSERT_EQ(std_set_timer(ring, -INFINITY), 0);
    await(2);
    EXPECT_EQ(g_rings, 3);
}

TEST_F(StdTimer, ALaterTimerDoesNotHoldUpAnEarlierOne) {
    static std::atomic<int> order;
    order = 0;
    ASSERT_EQ(std_set_timer([] { order = order * 10 + 3, ring(); }, 0.3), 0);
    ASSERT_EQ(std_set_timer([] { order = order * 10 + 1, ring(); }, 0.01), 0);
    ASSERT_EQ(std_set_timer([] { order = order * 10 + 2, ring(); }, 0.15), 0);
    await(3);
    EXPECT_EQ(order, 123);
}

TEST_F(StdTimer, ASlowFunctionDelaysNoOther) {
    static sem_t release;
    ::sem_init(&release, 0, 0);
    ASSERT_EQ(std_set_timer([] { ::sem_wait(&release), ring(); }, 0), 0);
    ASSERT_EQ(std_set_timer([] { ring(), ::sem_post(&release); }, 0.01), 0);
    await(2);
}

TEST_F(StdTimer, ManyThreadsArmAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 10; ++round) EXPECT_EQ(std_set_timer(ring, 0.001), 0);
        });
    for (auto& thread : threads) thread.join();
    await(40);
    EXPECT_EQ(g_rings, 40);
}

TEST_F(StdTimer, IsArmedInASignalHandler) {
    ASSERT_EQ(std_prepare_timer(), 0);
    struct sigaction action {
    }, old;
    action.sa_handler = [](int) { std_set_timer(ring, 0.01); };
    ::sigaction(SIGUSR1, &action, &old);
    ::raise(SIGUSR1);
    await(1);
    ::sigaction(SIGUSR1, &old, nullptr);
    EXPECT_TRUE(g_other_thread);
}

TEST_F(StdTimer, KeepsTheProgramsSignalsToTheProgram) {
    ASSERT_EQ(std_prepare_timer(), 0);
    static std::atomic<bool> here;
    here = false;
    struct sigaction action {
    }, old;
    action.sa_handler = [](int) { here = ::pthread_equal(::pthread_self(), g_test_thread) != 0; };
    ::sigaction(SIGUSR2, &action, &old);
    sigset_t set, mask;
    ::sigemptyset(&set);
    ::sigaddset(&set, SIGUSR2);
    ::pthread_sigmask(SIG_BLOCK, &set, &mask);
    ::kill(::getpid(), SIGUSR2);  // no other thread takes it: it waits for this one
    ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    EXPECT_TRUE(here);
    ::sigaction(SIGUSR2, &old, nullptr);
}

using StdTimerDeathTest = StdTimer;

TEST_F(StdTimerDeathTest, RefusesWhatItCannotDo) {
    EXPECT_EQ(std_set_timer(nullptr, 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(std_set_timer(ring, NAN), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EXIT(
        {
            for (int i = 0; i < STD_MAX_TIMERS; ++i)
                if (std_set_timer(ring, 1e300) != 0) ::_exit(2);
            ::_exit(std_set_timer(ring, 1) == -1 && errno == EAGAIN ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(StdTimer, AForkedChildStartsAnew) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer allows no threads in a child of a threaded process";
#endif
    static std::atomic<bool> inherited;
    inherited = false;
    // The address sanitizer cannot fork while a thread of its process starts.
    ASSERT_EQ(std_prepare_timer(), 0);
    std_sleep(0.05);
    ASSERT_EQ(std_set_timer([] { inherited = true, ring(); }, 0.2), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        if (std_set_timer([] { ::_exit(inherited ? 1 : 7); }, 0.1) != 0) ::_exit(2);
        for (;;) ::pause();
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 7);
    await(1);
}

TEST_F(StdTimerDeathTest, MayEndTheProcess) {
    EXPECT_EXIT(
        {
            std_set_timer([] { elog_die(0, "the bell tolls"); }, 0.01);
            for (;;) ::pause();
        },
        testing::ExitedWithCode(1), "the bell tolls");
}

}  // namespace
