// Trees that follow their files.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <deque>
#include <thread>

#include "pf/pf_files.hpp"

namespace {

using kit::holds;
using kit::Logged;

class PfUpdate : public kit::PfFiles {
  protected:
    void set_time(const std::string& name, timespec time) {
        const timespec times[] = {time, time};
        ASSERT_EQ(::utimensat(AT_FDCWD, file(name).c_str(), times, 0), 0);
    }
    timespec time_of(const std::string& name) {
        struct stat status;
        EXPECT_EQ(restat(file(name).c_str(), &status), 0);
        return status.st_mtim;
    }
    int update(const char* name = "x") { return pfupdate(name, &pf_); }

    // A variable that no other test has had: its state would still be there. The tree in it is
    // never the caller's.
    static Pf*& new_variable() {
        static std::deque<Pf*> variables;
        return variables.emplace_back(nullptr);
    }

    Pf*& pf_ = new_variable();
};

TEST_F(PfUpdate, TimesAreThoseOfTheFiles) {
    write("a/x.pf", "k 1\n");
    write("b/x.pf", "k 22\n");
    set_time("a/x.pf", {1'000'000'000, 250'000'000});
    set_time("b/x.pf", {-5, 0});
    Tbl* times = pftimes("x");
    ASSERT_EQ(maxtbl(times), 2);
    const auto* first = static_cast<Pftime*>(gettbl(times, 0));
    const auto* second = static_cast<Pftime*>(gettbl(times, 1));
    EXPECT_EQ(first->mtime, 1'000'000'000.25);
    EXPECT_EQ(first->modified_ns, 1'000'000'000'250'000'000);
    EXPECT_EQ(first->name, file("a/x.pf"));
    EXPECT_EQ(second->mtime, -5.0);
    EXPECT_EQ(second->size, 5);
    EXPECT_EQ(second->name, file("b/x.pf"));
    freetbl(times, freepftime);
}

// Every step is taken twice: at once, when times cannot be relied on, and after a while.
class PfUpdateStep : public PfUpdate, public testing::WithParamInterface<bool> {
  protected:
    void settle() {
        if (GetParam()) std::this_thread::sleep_for(std::chrono::milliseconds(60));
        EXPECT_EQ(update(), 0);
    }
};

TEST_P(PfUpdateStep, SeesWhateverHappensToTheFiles) {
    struct Step {
        const char* what;
        std::function<void()> act;
        int result;
        const char* tree;
        bool away = false;
    };
    timespec before{};
    const Step steps[] = {
        {"first", [&] { write("b/x.pf", "k 1\n"); }, 1, "k 1\n"},
        {"other bytes of the same size", [&] { write("b/x.pf", "k 2\n"); }, 1, "k 2\n"},
        {"touched",
         [&] {
             set_time("b/x.pf", {2'000'000'000, 0});
         },
         1, "k 2\n"},
        {"touched within a second",
         [&] {
             set_time("b/x.pf", {2'000'000'000, 1});
         },
         1, "k 2\n"},
        {"other bytes with the old time",
         [&] {
             before = time_of("b/x.pf");
             write("b/x.pf", "k 3\n\n");
             set_time("b/x.pf", before);
         },
         0, "k 2\n"},
        {"other mode", [&] { ::chmod(file("b/x.pf").c_str(), 0600); }, 0, "k 2\n"},
        {"one comes", [&] { write("a/x.pf", "k 4\nl 4\n"); }, 1, "k 3\nl 4\n"},
        {"one goes", [&] { remove("b/x.pf"); }, 1, "k 4\nl 4\n"},
        {"all are away", [&] { std::filesystem::rename(file("a/x.pf"), file("x")); }, -1,
         "k 4\nl 4\n", true},
        {"it is back", [&] { std::filesystem::rename(file("x"), file("a/x.pf")); }, 0,
         "k 4\nl 4\n"},
        {"an error", [&] { write("a/x.pf", "k 5\n}\nl 5\n"); }, -2, "k 5\n"},
        {"a copy with the same time in its place",
         [&] {
             before = time_of("a/x.pf");
             std::filesystem::copy_file(file("a/x.pf"), file("x"));
             std::filesystem::rename(file("x"), file("a/x.pf"));
             set_time("a/x.pf", before);
         },
         0, "k 5\n"},
        {"empty", [&] { write("a/x.pf", ""); }, -1, ""},
        {"good again", [&] { write("a/x.pf", "k 6\n"); }, 1, "k 6\n"},
        {"a folder in its place",
         [&] {
             remove("a/x.pf");
             remove("b");
             write("b", "k 7\n");
         },
         1, "k 7\n"},
    };
    const Logged logged;
    EXPECT_EQ(update(), -1);
    EXPECT_EQ(pf_, nullptr);
    for (const Step& step : steps) {
        Pf* const tree = pf_;
        step.act();
        EXPECT_EQ(update(), step.result) << step.what;
        EXPECT_TRUE(holds(pf_, step.tree)) << step.what;
        EXPECT_EQ(pf_ == tree, step.result == 0 || step.away) << step.what;
        if (!step.away) settle();
        elog_clear();
    }
}

INSTANTIATE_TEST_SUITE_P(Table, PfUpdateStep, testing::Bool(),
                         [](const auto& row) { return row.param ? "Settled" : "AtOnce"; });

TEST_F(PfUpdate, FollowsThePathAndTheCurrentFolder) {
    write("a/x.pf", "k a\n");
    write("b/x.pf", "k b\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    const struct {
        const char *path, *variable, *folder;
        int result;
        const char* tree;
    } rows[] = {
        {"@/a", "", "a", 1, "k a\n"},        {"@/b", "", "a", 1, "k b\n"},
        {"@/$MORVAX", "b", "a", 0, "k b\n"}, {"@/$MORVAX", "a", "a", 1, "k a\n"},
        {".", "", "a", 1, "k a\n"},          {".", "", "a", 0, "k a\n"},
        {".", "", "b", 1, "k b\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.path) + " " + row.variable + " " + row.folder);
        const kit::Env path("PFPATH", here(row.path).c_str()), x("MORVAX", row.variable);
        std::filesystem::current_path(file(row.folder));
        EXPECT_EQ(update(), row.result);
        EXPECT_TRUE(holds(pf_, row.tree));
    }
    std::filesystem::current_path("/");
}

TEST_F(PfUpdate, KeepsStatesApartByNameAndVariable) {
    write("a/x.pf", "k x\n");
    write("a/y.pf", "k y\n");
    Pf*& other = new_variable();
    EXPECT_EQ(update("x"), 1);
    EXPECT_EQ(pfupdate("x", &other), 1);
    EXPECT_NE(pf_, other);
    Pf* const x = pf_;
    EXPECT_EQ(update("y"), 1);  // x's tree stays
    EXPECT_TRUE(holds(pf_, "k y\n"));
    EXPECT_EQ(update("x"), 0);
    EXPECT_EQ(pf_, x);
    EXPECT_TRUE(holds(pf_, "k x\n"));
    EXPECT_TRUE(holds(other, "k x\n"));
}

TEST_F(PfUpdate, DoesNotFreeATreeOfTheCaller) {
    write("a/x.pf", "k x\n");
    Pf* const mine = pf_ = pfnew(PFFILE);
    EXPECT_EQ(update(), 1);
    EXPECT_NE(pf_, mine);
    pffree(mine);
}

TEST_F(PfUpdate, KeepsTheTreeWhileDescriptorsAreOut) {
    write("a/x.pf", "k 1\n");
    EXPECT_EQ(update(), 1);
    write("a/x.pf", "k 22\n");
    rlimit limit, none{0, 0};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    none.rlim_max = limit.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const int starved = update();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(starved, -1);
    EXPECT_TRUE(holds(pf_, "k 1\n"));
    EXPECT_EQ(update(), 1);
    EXPECT_TRUE(holds(pf_, "k 22\n"));
}

// Another process replaces, removes and restores the files; each holds one number many times.
constexpr int kVersions = 1000;

std::string version(int n) {
    std::string text;
    for (int i = 0; i < 40; ++i) text += "k" + std::to_string(i) + " " + std::to_string(n) + "\n";
    return text;
}

void rewrite(const std::string& folder) {
    const std::string target = folder + "/a/x.pf", aside = folder + "/aside";
    for (int n = 1; n <= kVersions; ++n) {
        kit::write_file(aside, version(n));
        ::rename(aside.c_str(), target.c_str());
        if (n % 3 == 0) ::rename(target.c_str(), (folder + "/away").c_str());
        if (n % 7 == 0) ::rename((folder + "/away").c_str(), target.c_str());
    }
    kit::write_file(aside, version(kVersions + 1));
    ::rename(aside.c_str(), target.c_str());
}

TEST_F(PfUpdate, SeesOnlyStatesThatWereWritten) {
    const pid_t writer = ::fork();
    if (writer == 0) {
        ::alarm(60);
        rewrite(folder_.path());
        ::_exit(0);
    }
    std::vector<long> wrong;
    long last = 0, seen = 0;
    while (last <= kVersions) {
        const int result = update();
        if (result != 1 && result != 0 && result != -1) wrong.push_back(result);
        if (result != 1) continue;
        ++seen;
        last = std::atol(static_cast<Pf*>(getarr(pf_->value.arr, "k0"))->value.string);
        if (!holds(pf_, version(static_cast<int>(last)).c_str())) wrong.push_back(last);
    }
    int status = 0;
    ::waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(wrong, testing::IsEmpty());
    EXPECT_GT(seen, 1);
    update();  // may be a second reading of what came between the look and the first
    EXPECT_EQ(update(), 0);
}

TEST_F(PfUpdate, ThreadsCompileAndUpdateAtOnce) {
    const auto work = [&](int me) {
        const std::string name = "t" + std::to_string(me % 2);
        Pf* pf = nullptr;
        for (int i = 0; i < 100; ++i) {
            if (me < 2) write("a/" + name + ".pf", "k " + std::to_string(i) + "\n");
            Pf* compiled = nullptr;
            pfcompile("l &Tbl{\na\n}\n", &compiled);
            EXPECT_TRUE(holds(compiled, "l &Tbl{\na\n}\n"));
            pffree(compiled);
            updatePf(name.c_str());
            const int result = pfupdate(name.c_str(), &pf);
            EXPECT_EQ(result, me < 2 ? 1 : std::max(result, -1));
        }
    };
    for (const char* name : {"t0", "t1"}) {
        write(std::string("a/") + name + ".pf", "k\n");
        EXPECT_EQ(updatePf(name), 1);
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(work, i);
    for (auto& thread : threads) thread.join();
}

}  // namespace
