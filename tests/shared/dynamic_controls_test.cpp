#include "morva/dynamic_controls.h"

#include <sys/ptrace.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <random>
#include <thread>

#include "log/elog_child.hpp"
#include "shared/dynamic_controls.hpp"
#include "skerrows.h"
#include "support/kit.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kFile[] = ".dynamic_controls";
constexpr std::size_t kSet = 1832;

// Controls are opened once in a process: each test has a child for every life that it looks at.
class Controls : public testing::Test {
  protected:
    Controls() : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder_.path());
    }
    ~Controls() override { std::filesystem::current_path(before_); }

    // Runs a program of the name in the folder; its exit status is the number of the line of the
    // first failed check, or 0.
    kit::Ended run(const std::function<int()>& body, const char* program = "prog") {
        return kit::in_child([&] {
            morva::dc::config().selected = nullptr;  // as in a fresh process
            std::string name = std::string("/usr/bin/") + program;
            char* argv[] = {name.data(), nullptr};
            elog_init(1, argv);
            return body();
        });
    }
    void check(const std::function<int()>& body, const char* program = "prog") {
        const kit::Ended ended = run(body, program);
        EXPECT_EQ(ended.status, 0) << "failed check " << ended.status << ": " << ended.errors;
    }
    std::string bytes() { return kit::read_file(kFile); }

    const kit::Env environment_{"NO_DYNAMIC_CONTROLS", nullptr};
    const kit::Env path_{"PFPATH", "."};
    kit::TempDir folder_;
    const std::filesystem::path before_;
};

// The number of the first false condition.
int first_false(std::initializer_list<bool> conditions) {
    int n = 0;
    for (const bool condition : conditions)
        if (++n; !condition) return n;
    return 0;
}

template <class T>
T field(const std::string& bytes, std::size_t at) {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

TEST_F(Controls, WorkInMemoryWithoutAFile) {
    check([] {
        return first_false({dcsetupbyt("x", 1) == 63, dcgetb(63) == 1, dcmaxcontrols() == 2,
                            dcchanged() == 1, dcsetupbyt("x", 5) == 63, dcgetb(63) == 1,
                            dcsetupint("x", 1) == -1, dcchanged() == 3, dcexists(nullptr) == 0,
                            dcsetupint("n", -7) == 15, dcgeti(15) == -7, dcsetupflt("f", 2.5) == 15,
                            dcgetf(15) == 2.5, dcsetupstr("s", "text") == 15,
                            kit::taken(dcgets(15)) == "text", std::string(dcname('f', 15)) == "f",
                            *dcname('b', 0) == '\0'});
    });
    EXPECT_FALSE(std::filesystem::exists(kFile));
}

TEST_F(Controls, HoldValues) {
    check([] {
        const double before = std_now();
        const std::string longer(40, 'y');
        dcsetb(0, 256);
        dcsetb(1, 0x1ff);
        dcsetb(2, 0x200 + 7);
        dcsets(3, longer.c_str());
        dcseti(4, INT64_MIN);
        const long changes = dcchanged();
        return first_false({dcgetb(0) == 255, dcgetb(1) == 255, dcgetb(2) == 7,
                            kit::taken(dcgets(3)) == longer.substr(0, 31), dcgeti(4) == INT64_MIN,
                            changes == 5, dctimestamp() >= before, dctrigger(2) == 7,
                            dctrigger(2) == 0, dcchanged() == changes});
    });
}

TEST_F(Controls, AreFoundByName) {
    check([] {
        dcsetupbyt("byte", 200);
        dcsetupint("integer", -3);
        dcsetupflt("float", 0.5);
        dcsetupstr("string", "abc");
        unsigned char b = 0;
        long i = 0;
        double f = 0;
        char* s = nullptr;
        Arr* names = dcnames();
        const auto code = [&](const char* key) {
            return std::string(static_cast<char*>(getarr(names, key)));
        };
        return first_false({dcget("byte", &b) == 'b', b == 200, dcget("integer", &i) == 'i',
                            i == -3, dcget("float", &f) == 'f', f == 0.5,
                            dcget("string", &s) == 's', kit::taken(s) == "abc",
                            dcget("none", &b) == 0, cntarr(names) == 4, code("byte") == "b63",
                            code("integer") == "i15", code("string") == "s15",
                            (freearr(names, std::free), true)});
    });
}

TEST_F(Controls, AreByteForByteInTheFile) {
    check([] {
        const int made = dccreate();
        dcsetupflt("gain", 1.5);
        dcsetb(2, 9);
        dcsets(0, "ab");
        return first_false({made == 0, dccreate() == 0, dcmaxcontrols() == 20});
    });
    const std::string file = bytes();
    ASSERT_EQ(file.size(), 20 * kSet);
    EXPECT_EQ(file.substr(0, 32), std::string("#common") + std::string(25, '\0'));
    EXPECT_EQ(field<double>(file, 896), -1.0);
    EXPECT_EQ(field<int32_t>(file, 904), -1);
    EXPECT_EQ(field<int32_t>(file, 924), 896);
    EXPECT_EQ(file.substr(928, 4), std::string("\x40\x10\x10\x10"));
    const std::string set = file.substr(kSet, kSet);
    EXPECT_EQ(set.substr(0, 64), std::string("prog") + std::string(60, '\0'));
    EXPECT_EQ(set[64 + 2], 9);
    EXPECT_EQ(field<double>(set, 256 + 15 * 8), 1.5);
    EXPECT_EQ(set.substr(384, 32), std::string("ab") + std::string(30, '\0'));
    EXPECT_NEAR(field<double>(set, 896), std_now(), 60);
    EXPECT_EQ(field<int64_t>(set, 912), 3);
    EXPECT_EQ(field<int32_t>(set, 920), 6);
    EXPECT_EQ(set.substr(928, 10), std::string("\x40\x10\x0f\x10\x8fgain\0", 10));
    EXPECT_EQ(file.substr(2 * kSet, 64), std::string(64, '\0'));
}

TEST_F(Controls, SetsBelongToPrograms) {
    kit::write_file("dynamic_controls_config.pf", "maximum_dynamic_control_sets 3\n");
    const auto select = [](int number) {
        return [number] {
            dccreate();
            return first_false({dcsetupint("n", number) == 15, dcmaxcontrols() == 3});
        };
    };
    check(select(1), "first");
    check(select(2), "second");
    check(
        [] {
            dcsetb(0, 1);  // no set is free
            Tbl* programs = dcprograms();
            const bool three = maxtbl(programs) == 3;
            freetbl(programs, nullptr);
            Dcset* common = dcselected();
            return first_false(
                {three, std::string(common->program) == "#common", common[2].integers[15] == 2,
                 dcexists("first") == 1, dcexists("third") == 0, dcremove("third") == -1,
                 dcremove("first") == 0, dcexists("first") == 0,
                 (dcselect("third"), dcselected() == common + 1), dcremove(nullptr) == 0,
                 dcexists(nullptr) == 0, dcremove("") == -1});
        },
        "third");
}

TEST_F(Controls, DumpTellsWhereTheyAre) {
    std::string dump;
    const std::string errors = kit::captured(2, [&] {
        dump = kit::captured(1, [&] {
            run([] {
                dcsetb(0, 1);
                const int sets = dcdump(0);
                std::fflush(nullptr);
                return sets;
            });
        });
    });
    EXPECT_THAT(dump, testing::MatchesRegex("\t 0 .* +-1 #common .*\n\t 1 .* +-1 prog  .*\n"));
}

struct BadFile {
    const char* bytes;
    const char* message;
};

TEST_F(Controls, AFileThatCannotBeUsedIsComplainedOf) {
    for (const BadFile& bad :
         {BadFile{"", "is empty\n\tNo data available"}, BadFile{"short", "too short"}}) {
        kit::write_file(kFile, bad.bytes);
        const kit::Ended ended = run([] {
            return first_false({dcsetupbyt("x", 1) == 63, dcmaxcontrols() == 2});
        });
        EXPECT_EQ(ended.status, 0);
        EXPECT_THAT(ended.errors, HasSubstr("Can't open .dynamic_controls file"));
        EXPECT_THAT(ended.errors, HasSubstr(bad.message));
    }
    std::filesystem::remove(kFile);
    std::filesystem::create_symlink("nowhere", kFile);
    EXPECT_EQ(run([] { return dccreate() == -1 ? 0 : 1; }).status, 0);
    std::filesystem::remove(kFile);
    std::filesystem::create_directory(kFile);
    EXPECT_THAT(run([] { return dcmaxcontrols(); }).errors, HasSubstr("Couldn't open"));
}

// A callback that reads a control hears of the file that is being opened.
TEST_F(Controls, MayBeAskedForByTheRegister) {
    kit::write_file(kFile, "short");
    check([] {
        const Elog_callback callback = [](int, char*, Tbl*) { return dcgetb(3); };
        elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(callback));
        return first_false({dcsetupbyt("x", 1) == 63, dcmaxcontrols() == 2});
    });
}

// Who comes while another process makes the file waits for it.
TEST_F(Controls, AFileInTheMakingIsWaitedFor) {
    kit::write_file(kFile, "");
    check([] {
        const pid_t maker = ::fork();
        if (maker == 0) {
            std_sleep(0.03);
            kit::write_file(kFile, std::string(3 * kSet, '\0'));
            ::_exit(0);
        }
        return first_false({dcmaxcontrols() == 3, ::waitpid(maker, nullptr, 0) == maker});
    });
}

TEST_F(Controls, AnOldFileIsReplaced) {
    kit::write_file(kFile, "#FileTbl of an older release");
    check([] { return first_false({dcmaxcontrols() == 20}); });
    EXPECT_EQ(bytes().size(), 20 * kSet);
}

TEST_F(Controls, ABadNumberOfSetsIsComplainedOf) {
    for (const char* value : {"5000", "-1", "many"}) {
        kit::write_file("dynamic_controls_config.pf",
                        std::string("maximum_dynamic_control_sets ") + value + "\n");
        std::filesystem::remove(kFile);
        const kit::Ended ended = run([] { return dccreate(); });
        EXPECT_EQ(ended.status, 0);
        EXPECT_THAT(ended.errors, HasSubstr("is a bad number, using 20"));
        EXPECT_EQ(bytes().size(), 20 * kSet);
    }
    kit::write_file("dynamic_controls_config.pf", "x 1\n");
    std::filesystem::remove(kFile);
    EXPECT_THAT(run([] { return dccreate(); }).errors,
                HasSubstr("Couldn't find parameter 'maximum_dynamic_control_sets' in "
                          "dynamic_controls_config.pf"));
}

TEST_F(Controls, FaultsAreFatal) {
    struct {
        std::function<void()> body;
        const char* message;
    } rows[] = {
        {[] { dcsetb(64, 1); }, "index = 64 in dcsetb"},
        {[] { dcgets(16); }, "index = 16 in dcgets"},
        {[] { dctrigger(-1); }, "index = -1 in dctrigger"},
        {[] {
             dcsetupint("bad", 1);
             dcselected()->names[0] = 0x40 | 16;
             long value = 0;
             dcget("bad", &value);
         },
         "bad returned type = '?' from typeindex (should never happen)"},
        {[] { dcname('x', 0); }, "unknown type = 120 (should never happen)"},
        {[] { dcname('b', 64); }, "Unexpected failure: "},
        {[] { dcsetupbyt(std::string(893, 'n').c_str(), 1); }, "there's no more string space!"},
        {[] {
             dcsetupbyt("one", 1);
             dcselected()->next[0] = 64;
             dcsetupbyt("two", 1);
         },
         "Conflict: b63 is already assigned the name 'one', can't have new name 'two'"},
    };
    for (const auto& row : rows) {
        const kit::Ended ended = run([&] { return row.body(), 0; });
        EXPECT_EQ(ended.status, 1) << row.message;
        EXPECT_THAT(ended.errors, HasSubstr(row.message));
    }
}

TEST_F(Controls, IndexesRunOutForGood) {
    check([] {
        for (int i = 15; i >= 0; --i)
            if (dcsetupflt(std::to_string(i).c_str(), i) != i) return 1;
        for (int i = 0; i < 300; ++i)
            if (dcsetupflt("more", 0) != -1) return 2;
        return first_false({dcgetf(3) == 3.0, dcsetupint("more", 4) == 15});
    });
}

// Whatever stands in the file, every call comes back.
TEST_F(Controls, HostileFilesAreReadWithinBounds) {
    std::string hostile(2 * kSet + 5, '\xff');
    std::string unended = hostile;
    std::memset(unended.data() + kSet + 932, 'n', 896);
    for (const std::string& file : {hostile, unended, std::string(3 * kSet, '\0')}) {
        kit::write_file(kFile, file);
        const kit::Ended ended = run([] {
            dcselect("prog");
            Tbl* programs = dcprograms();
            for (long i = 0; i < maxtbl(programs); ++i)
                if (std::strlen(static_cast<char*>(gettbl(programs, i))) > 31) return 1;
            freetbl(programs, nullptr);
            freearr(dcnames(), std::free);
            std::free(dcgets(0));
            dcname('b', 63);
            dcsetupint("x", 1);
            return 0;
        });
        EXPECT_EQ(ended.status, 0) << ended.errors;
    }
}

TEST_F(Controls, OfAHugeFileTheFirstOnesAreUsed) {
    kit::write_file(kFile, "");
    std::filesystem::resize_file(kFile, 1 << 30);
    check([] { return first_false({dcmaxcontrols() == 100000, dcseti(0, 1) == 0}); });
}

TEST_F(Controls, SurviveAFileThatIsCutOff) {
    const kit::Ended ended = run([] {
        dccreate();
        dcsetb(0, 5);
        std::filesystem::resize_file(kFile, 0);
        dcsetb(0, 6);
        dcsetb(0, 7);
        return dcgetb(0) == 7 ? 0 : 1;
    });
    EXPECT_EQ(ended.status, 0);
    const std::size_t first = ended.errors.find("cut off");
    EXPECT_NE(first, std::string::npos) << ended.errors;
    EXPECT_EQ(ended.errors.find("cut off", first + 1), std::string::npos);
}

TEST_F(Controls, SurviveCutsAtAnyMoment) {
    std::minstd_rand random(6);
    for (int round = 0; round < 40; ++round) {
        std::filesystem::remove(kFile);
        const double seconds = static_cast<double>(random() % 2000) * 1e-6;
        const std::size_t length = random() % (20 * kSet);
        const kit::Ended ended = run([&] {
            dccreate();
            const pid_t cutter = ::fork();
            if (cutter == 0) {
                std_sleep(seconds);
                ::_exit(::truncate(kFile, static_cast<off_t>(length)));
            }
            for (int i = 0; ::waitpid(cutter, nullptr, WNOHANG) == 0 || i % 8 != 0; ++i) {
                dcsetupint(std::to_string(i % 8).c_str(), i);
                dcsets(3, "text");
                dctrigger(1);
                freearr(dcnames(), std::free);
                if (i % 16 == 0) dcremove("prog");
            }
            return 0;
        });
        EXPECT_EQ(ended.status, 0) << ended.errors;
    }
}

// What a writer leaves if it is killed now: free sets are clean, named controls have their values,
// indexes that are not given away have no names.
int first_fault(Dcset* sets) {
    const int last = dcmaxcontrols() - 1;
    for (int i = 1; i < last; ++i)
        if (*sets[i].program == '\0' && std::memcmp(sets[i].reserved, sets[last].reserved,
                                                    kSet - offsetof(Dcset, reserved)) != 0)
            return 1;
    Dcset& set = sets[1];
    if (*set.program != '\0' && std::strcmp(set.program, "a program with a name of 31 cha") != 0)
        return 2;
    for (const char* name : {"integer", "another"}) {
        long value = 0;
        if (dcget(name, &value) == 'i' && value != 7) return 3;
    }
    return first_false({true, true, true, *dcname('i', set.next[1] - 1) == '\0',
                        set.integers[0] == 0 || set.integers[0] == -1, set.strings[0][31] == '\0'});
}

// Looks at the file after every single instruction of another process.
TEST_F(Controls, HoldWheneverAWriterIsKilled) {
    check([] { return dccreate(); });
    check([] {
        const pid_t writer = ::fork();
        if (writer == 0) {
            dcopen(0);
            if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(9);
            ::raise(SIGSTOP);
            dcselect("a program with a name of 31 cha");
            dcsetupint("integer", 7);
            dcsetupint("another", 7);
            dcseti(0, -1);
            dcsets(0, "a text of more than 31 characters");
            dcremove("a program with a name of 31 cha");
            ::_exit(0);
        }
        dcopen(0);
        Dcset* sets = dcselected();
        morva::dc::config().selected = sets + 1;
        int status = 0, steps = 0;
        while (::waitpid(writer, &status, 0) == writer && WIFSTOPPED(status)) {
            if (const int fault = first_fault(sets)) return ::kill(writer, SIGKILL), fault;
            ::ptrace(PTRACE_SINGLESTEP, writer, nullptr, nullptr);
            ++steps;
        }
        if (WEXITSTATUS(status) == 9) return 0;  // this machine lets nobody trace
        return first_false({true, true, true, true, true, true, status == 0, steps > 1000});
    });
}

// Waits until the control has the number.
int wait_for(long number) {
    for (long seen = dcchanged(); dcgeti(0) != number; seen = dcchanged())
        if (dcgeti(0) != number && dcwait(seen, 20000) != 1) return 1;
    return 0;
}

// Threads that start together find one set and give each name one index.
TEST_F(Controls, AreSetUpByThreadsAtOnce) {
    for (int round = 0; round < 50; ++round) {
        check([] {
            std::atomic<int> ready = 0, right = 0;
            const auto work = [&] {
                for (++ready; ready < 8;) std::this_thread::yield();
                right += dcsetupbyt("one", 1) == 63 && dcsetupbyt("two", 2) == 62;
            };
            std::vector<std::thread> threads;
            for (int i = 0; i < 8; ++i) threads.emplace_back(work);
            for (std::thread& thread : threads) thread.join();
            return first_false({right == 8, dcselected()->next[0] == 62, dcchanged() == 16});
        });
    }
}

// Two processes answer each other's changes and a thread looks on: whoever waits is woken, long
// before it would look by itself, and no mark stays.
TEST_F(Controls, AreWaitedFor) {
    constexpr int kRounds = 100;
    check([] { return dccreate(); });
    check([] {
        dcseti(0, 0);
        if (dcwait(dcchanged() - 1, 0) != 1 || dcwait(dcchanged(), 20) != 0) return 1;
        const pid_t child = ::fork();
        const auto play = [](long first) {
            for (long n = first; n < kRounds; dcseti(0, n + 1), n += 2)
                if (wait_for(n) != 0) return 1;
            return 0;
        };
        if (child == 0) ::_exit(play(1));
        int watched = 1, status = 1;
        std::thread watcher([&] { watched = wait_for(kRounds); });
        const double start = std_now();
        const int played = play(0);
        ::waitpid(child, &status, 0);
        watcher.join();
        return first_false({played == 0, status == 0, watched == 0, dcselected()->waited == 0,
                            std_now() - start < kRounds * 0.09});
    });
}

TEST_F(Controls, AKilledWaiterLeavesNoHarm) {
    check([] { return dccreate(); });
    check([] {
        dcsetb(0, 0);
        const pid_t child = ::fork();
        if (child == 0) ::_exit(dcwait(dcchanged(), -1));
        while (morva::dc::shared(dcselected()->waited).load() == 0) std_sleep(0.001);
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        return first_false(
            {(dcsetb(0, 1), dcselected()->waited == 0), dcwait(dcchanged(), 1) == 0});
    });
}

// Every change is counted, and each trigger is seen once, by processes and threads at work at once.
TEST_F(Controls, AreSharedByProcessesAndThreads) {
    constexpr int kRounds = 2000;
    check([] { return dccreate(); });
    check([] {
        const pid_t child = ::fork();
        const auto work = [] {
            for (int i = 0; i < kRounds; ++i) dcseti(1, i % 2 != 0 ? -1 : 0x0102030405060708);
        };
        dcsetb(0, 0);
        std::thread other(work);
        work();
        other.join();
        if (child == 0) ::_exit(0);
        for (int i = 0; i < kRounds; ++i)
            if (const long value = dcgeti(1); value != -1 && value != 0x0102030405060708) return 1;
        int status = 0;
        ::waitpid(child, &status, 0);
        return first_false({status == 0, dcchanged() == 2 * (1 + 2 * kRounds)});
    });
}

}  // namespace
