#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <cmath>
#include <random>
#include <thread>

#include "log/elog_child.hpp"
#include "morva/gravesite.h"
#include "morva/pflex.h"

namespace {

using testing::HasSubstr;

// A process has one grave: each test has a child for every life.
class Gravesite : public testing::Test {
  protected:
    kit::Ended run(const std::function<int()>& body) { return kit::in_child(body); }
    void expect_zero(const std::function<int()>& body) {
        const kit::Ended ended = run(body);
        EXPECT_EQ(ended.status, 0) << ended.errors;
    }
    std::string saved() const { return kit::read_file(path_); }
    std::string value(const std::string& key) const {
        Pf* pf = nullptr;
        pfcompile(saved().c_str(), &pf);
        const char* text = pfget_string(pf, key.c_str());
        const std::string copy = text != nullptr ? text : "<none>";
        pffree(pf);
        return copy;
    }
    kit::TempDir folder_;
    const std::string path_ = folder_.file("state/run/grave");
};

struct Variables {
    int count = 7;
    double rate = 0.1;
    char name[32] = "  &Tbl{ and #\n blanks ";
    char* text = name;
    char* none = nullptr;
    double time = 1403613015.5;

    void resurrect_all(int wanted) {
        EXPECT_EQ(resurrect("count", &count, RELIC_INT), wanted);
        EXPECT_EQ(resurrect("rate", &rate, RELIC_DOUBLE), wanted);
        EXPECT_EQ(resurrect("text", &text, RELIC_STRING), wanted);
        EXPECT_EQ(resurrect("none", &none, RELIC_STRING), wanted);
        EXPECT_EQ(resurrect("time", &time, RELIC_TIME), wanted);
    }
};

TEST_F(Gravesite, GivesBackWhatWasBuried) {
    for (const char* zone : {"UTC", "Australia/Lord_Howe", "America/St_Johns"}) {
        const kit::Env tz("TZ", zone);
        std::filesystem::remove(path_);
        expect_zero([&] {
            Variables before;
            int unused = 0;
            EXPECT_EQ(gravesite(), nullptr);
            EXPECT_EQ(bury(), -1);
            EXPECT_EQ(resurrect("x", &unused, RELIC_INT), -1);
            EXPECT_EQ(exhume(path_.c_str(), nullptr, 0, nullptr), 0);
            EXPECT_EQ(errno, 0);
            EXPECT_EQ(exhume("elsewhere", nullptr, 0, nullptr), -2);
            EXPECT_STREQ(gravesite(), path_.c_str());
            before.resurrect_all(1);
            EXPECT_EQ(bury(), 0);
            return std::fflush(nullptr), HasFailure();
        });
        EXPECT_EQ(value("count"), "7");
        EXPECT_EQ(value("rate"), ".1");
        EXPECT_THAT(value("time"),
                    testing::StartsWith("1403613015.500 (175) 2014-06-24  12:30:15.50000 UTC"));
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.file("state/run")), {}),
                  1);
        expect_zero([&] {
            Variables after{0, 0, "", nullptr, nullptr, 0};
            EXPECT_EQ(exhume(path_.c_str(), nullptr, 0, nullptr), 1);
            after.resurrect_all(0);
            EXPECT_EQ(after.count, 7);
            EXPECT_EQ(after.rate, 0.1);
            EXPECT_STREQ(after.text, Variables().name);
            EXPECT_STREQ(after.none, "");
            EXPECT_EQ(after.time, 1403613015.5);
            return std::fflush(nullptr), HasFailure();
        });
    }
}

TEST_F(Gravesite, MorticiansAddValues) {
    expect_zero([&] {
        exhume(path_.c_str(), nullptr, 0,
               [](Pf* pf) { pfput_int(pf, const_cast<char*>("extra"), 5); });
        return bury();
    });
    EXPECT_EQ(value("extra"), "5");
}

TEST_F(Gravesite, FailuresKeepTheOldFile) {
    const kit::Ended ended = run([&] {
        int count = 1;
        exhume(path_.c_str(), nullptr, 0, nullptr);
        resurrect("count", &count, RELIC_INT);
        bury();
        count = 2;
        std::filesystem::create_directory(path_ + "+");
        const int folder = bury();
        std::filesystem::remove(path_ + "+");
        kit::write_file(folder_.file("victim"), "precious");
        std::filesystem::create_symlink(folder_.file("victim"), path_ + "+");
        const int link = bury();
        return folder == -1 && link == -1 ? 0 : 1;
    });
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.errors, HasSubstr("Can't write alternate state file " + path_ + "+"));
    EXPECT_EQ(value("count"), "1");
    EXPECT_EQ(kit::read_file(folder_.file("victim")), "precious");
    expect_zero([] { return exhume("/proc/no/such/folder", nullptr, 0, nullptr) == -1 ? 0 : 1; });
    std::filesystem::remove(path_ + "+");
    kit::write_file(path_, "a 1\nb &Tbl{\n");
    expect_zero([&] { return exhume(path_.c_str(), nullptr, 0, nullptr) == 2 ? 0 : 1; });
}

// A longer text of a killed burial is not left behind the new one.
TEST_F(Gravesite, CutsTheAlternateFile) {
    expect_zero([&] {
        exhume(path_.c_str(), nullptr, 0, nullptr);
        kit::write_file(path_ + "+", std::string(5000, 'x'));
        return bury();
    });
    EXPECT_EQ(saved(), "");
}

TEST_F(Gravesite, HasOneOwnerAlsoAfterABurial) {
    for (const bool buried : {false, true}) {
        expect_zero([&] {
            exhume(path_.c_str(), nullptr, 0, nullptr);
            if (buried) bury(), bury();
            const kit::Ended second =
                kit::in_child([&] { return exhume(path_.c_str(), nullptr, 0, nullptr), 0; });
            EXPECT_EQ(second.status, 0) << "a child of the same process has the grave already";
            grave = nullptr;  // as a process of its own
            const kit::Ended other =
                kit::in_child([&] { return exhume(path_.c_str(), nullptr, 0, nullptr), 0; });
            EXPECT_EQ(other.status, 1);
            EXPECT_THAT(other.errors, HasSubstr("*fatal* Can't lock state file '" + path_ +
                                                "' for exclusive use: it is already in use."));
            return std::fflush(nullptr), HasFailure();
        });
    }
}

TEST_F(Gravesite, FatalMessagesBury) {
    const kit::Ended ended = run([&] {
        int count = 3;
        exhume(path_.c_str(), nullptr, 0, nullptr);
        resurrect("count", &count, RELIC_INT);
        count = 4;
        elog_die(0, "the end\n");
        return 0;
    });
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(value("count"), "4");
}

TEST_F(Gravesite, SignalsBury) {
    const struct {
        int signo, wait;
        bool leaves;
        const char* said;
    } rows[] = {{SIGTERM, 0, true, ""},
                {SIGHUP, 1, true, "quitting from resurrection alarm"},
                {SIGINT, -1, false, ""}};
    for (const auto& row : rows) {
        std::filesystem::remove_all(folder_.file("state"));
        const kit::Ended ended = run([&] {
            static int caught;
            int count = 9;
            caught = 77;
            exhume(path_.c_str(), &caught, row.wait, nullptr);
            if (caught != 0) return 3;
            resurrect("count", &count, RELIC_INT);
            ::raise(row.signo);
            if (row.wait == 0) return 4;  // too late
            if (row.leaves)
                for (;;) ::pause();
            return caught == row.signo ? 42 : 2;
        });
        EXPECT_EQ(ended.status, row.leaves ? 1 : 42) << row.signo << ended.errors;
        EXPECT_THAT(ended.errors, HasSubstr(row.said));
        EXPECT_EQ(value("count"), row.leaves ? "9" : "<none>");
    }
}

// A program that buries within its time is left alone.
TEST_F(Gravesite, AFinishedProgramIsNotBuriedAgain) {
    expect_zero([&] {
        static int caught;
        exhume(path_.c_str(), &caught, 1, nullptr);
        ::raise(SIGTERM);
        bury();
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));
        return caught == SIGTERM ? 0 : 1;
    });
}

// Allocates, logs and buries in two threads until a signal comes.
[[noreturn]] void work_until_signalled(const std::string& path) {
    static int caught;
    static double numbers[2];
    exhume(path.c_str(), &caught, 0, nullptr);
    resurrect("a", &numbers[0], RELIC_DOUBLE);
    resurrect("b", &numbers[1], RELIC_DOUBLE);
    const auto work = [] {
        for (double i = 1;; ++i) {
            std::free(std::malloc(1000));
            elog_flush(0, 0);
            elog_log(0, "working\n");
            for (double& number : numbers)
                std::atomic_ref<double>(number).store(std::fmod(i, 1000));
            if (std::fmod(i, 50) == 0) bury();
        }
    };
    std::thread(work).detach();
    work();
    ::_exit(9);
}

// MORVA_KILLS asks for more rounds than a quick test can afford.
TEST_F(Gravesite, SurvivesSignalsAtAnyInstant) {
    const char* rounds = std::getenv("MORVA_KILLS");
    std::minstd_rand random(static_cast<unsigned>(::getpid()));
    for (int round = rounds != nullptr ? std::atoi(rounds) : 60; round > 0; --round) {
        const int signo = round % 3 == 0 ? SIGKILL : round % 3 == 1 ? SIGTERM : SIGHUP;
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(30);
            work_until_signalled(path_);
        }
        struct stat status {};
        while (::stat(path_.c_str(), &status) != 0) ::usleep(1000);
        ::usleep(5000 + random() % 5000);
        ::kill(child, signo);
        int ended = 0;
        ::waitpid(child, &ended, 0);
        if (signo == SIGKILL) {
            ASSERT_TRUE(WIFSIGNALED(ended) && WTERMSIG(ended) == SIGKILL);
        } else {
            ASSERT_TRUE(WIFEXITED(ended) || WTERMSIG(ended) == signo) << "status " << ended;
            ASSERT_TRUE(!WIFEXITED(ended) || WEXITSTATUS(ended) == 1);
        }
        Pf* pf = nullptr;
        ASSERT_EQ(pfcompile(saved().c_str(), &pf), 0) << saved();
        // Values that the variables had: whole numbers below 1000.
        for (const char* key : {"a", "b"}) {
            if (saved().empty()) break;
            const char* text = pfget_string(pf, key);
            ASSERT_NE(text, nullptr) << saved();
            const double number = std::atof(text);
            ASSERT_TRUE(number >= 0 && number < 1000 && number == std::floor(number)) << saved();
        }
        pffree(pf);
    }
}

}  // namespace
