// The register under many threads, forks and cancellation. Run under the thread sanitizer, too.
#include <cerrno>
#include <set>
#include <sstream>
#include <thread>

#include "log/elog_child.hpp"
#include "morva/tbl.h"

namespace {

constexpr int kThreads = 16;

void in_threads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(body, i);
    for (auto& thread : threads) thread.join();
}

class ElogThreads : public testing::Test {
  protected:
    void SetUp() override {
        elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char*>(file_.c_str()));
        Max_msg = 0;
    }
    void TearDown() override { elog_clear(); }
    kit::TempDir dir_;
    std::string file_ = dir_.file("f");
};

TEST_F(ElogThreads, LoseNoMessageAndShowNoneTwice) {
    constexpr int kEach = 500;
    in_threads([](int t) {
        for (int i = 0; i < kEach; ++i) {
            elog_log(0, "log %d %d", t, i);
            errno = ENOENT;
            elog_notify(1, "notify %d %d", t, i);
            ASSERT_EQ(errno, 0);
        }
    });
    std::istringstream lines(kit::read_file(file_));
    std::set<std::string> seen;
    int errors = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == '\t')
            errors += line == "\tNo such file or directory";
        else
            ASSERT_TRUE(seen.insert(line).second) << line;
    }
    EXPECT_EQ(seen.size(), 2u * kThreads * kEach);
    EXPECT_EQ(errors, kThreads * kEach);
    EXPECT_EQ(elog_mark(), 0);
}

TEST_F(ElogThreads, LoseNothingWhileARingIsSlow) {
    constexpr int kEach = 200;
    static std::multiset<std::string> seen;
    static std::mutex mutex;
    elog_set_orb_logger([](const char*, const char*, const char* text) {
        std::this_thread::yield();
        std::istringstream lines(text);
        const std::lock_guard lock(mutex);
        for (std::string line; std::getline(lines, line);) seen.insert(line);
        return 0;
    });
    elog_set(ELOG_DELIVER, ELOG_NOTIFY, const_cast<char*>("orb:r"));
    in_threads([](int t) {
        for (int i = 0; i < kEach; ++i) {
            elog_log(0, "log %d %d", t, i);
            elog_notify(0, "notify %d %d", t, i);
        }
    });
    elog_notify(0, "last");
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kEach; ++i) {
            const std::string number = std::to_string(t) + " " + std::to_string(i);
            EXPECT_EQ(seen.count("Unknown_Program: notify " + number), 1u);
            EXPECT_GE(seen.count("Unknown_Program: log " + number), 1u);
        }
}

TEST_F(ElogThreads, MayUseEverythingAtOnce) {
    in_threads([](int t) {
        char tag[] = "%P";
        for (int i = 0; i < 300; ++i) {
            const int mark = elog_mark();
            elog_log(0, "%d", i);
            if (i % 7 == t % 7) elog_notify(0, "%d", t);
            kit::taken(elog_string(mark));
            kit::taken(elogs(ELOG_DIE, 0, "x"));
            Tbl* copies = nullptr;
            if (elog_query(ELOG_TBLCPCL, 0, &copies) == 0) freetbl(copies, elog_free_msg);
            elog_set(ELOG_TAG, i % 9, tag);
            elog_init(0, nullptr);
            elog_flush(0, mark);
        }
    });
}

TEST(ElogFirstMessage, InitialisesOnceForAll) {
    errno = EPERM;
    in_threads([](int t) { elog_log(0, "%d", t); });
    EXPECT_EQ(elog_mark(), kThreads);
    EXPECT_EQ(errno, EPERM);
    elog_clear();
}

TEST_F(ElogThreads, LetAForkedChildLog) {
    std::atomic<bool> stop{false};
    std::thread logger([&] {
        for (int i = 0; !stop; ++i) {
            elog_log(0, "%d", i);
            if (i % 3 == 0) elog_notify(0, "%d", i);
        }
    });
    for (int i = 0; i < 50; ++i) {
        const kit::Ended ended = kit::in_child([] {
            elog_clear();
            elog_log(0, "a");
            elog_complain(0, "b");
            return elog_mark();
        });
        ASSERT_EQ(ended.status, 0);
        ASSERT_EQ(ended.errors, "Unknown_Program: a\nUnknown_Program: b\n");
    }
    stop = true;
    logger.join();
}

TEST_F(ElogThreads, MayBeCancelled) {
    for (int i = 0; i < 20; ++i) {
        pthread_t thread;
        pthread_create(
            &thread, nullptr,
            [](void*) -> void* {
                for (;;) {
                    elog_notify(0, "x");
                    pthread_testcancel();
                }
            },
            nullptr);
        elog_notify(0, "main");
        pthread_cancel(thread);
        void* result = nullptr;
        pthread_join(thread, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        elog_notify(0, "main goes on");
    }
}

}  // namespace
