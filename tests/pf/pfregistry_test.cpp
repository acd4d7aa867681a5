// Trees that the whole program shares.
#include <skerrows.h>

#include <atomic>
#include <set>
#include <thread>

#include "pf/pf_files.hpp"

namespace {

using kit::holds;
using kit::Logged;

class PfRegistry : public kit::PfFiles {
  protected:
    ~PfRegistry() override { freePf("x"); }
};

TEST_F(PfRegistry, ReadsATreeOnce) {
    EXPECT_EQ(existsPf("x"), nullptr);
    EXPECT_EQ(getPf("x"), nullptr);
    write("a/x.pf", "k 1\n}\n");
    const Logged logged;
    EXPECT_EQ(getPf("x"), nullptr);  // nor with errors
    EXPECT_EQ(existsPf("x"), nullptr);
    write("a/x.pf", "k 1\n");
    Pf* const pf = getPf("x");
    EXPECT_TRUE(holds(pf, "k 1\n"));
    write("a/x.pf", "k 2\n");
    EXPECT_EQ(getPf("x"), pf);
    EXPECT_EQ(existsPf("x"), pf);
    EXPECT_EQ(getarr(Pflist, "x"), pf);
    EXPECT_EQ(freePf("x"), 0);
    EXPECT_EQ(existsPf("x"), nullptr);
    EXPECT_EQ(freePf("x"), -1);
}

TEST_F(PfRegistry, HasNothingUnderNoName) {
    EXPECT_EQ(existsPf(nullptr), nullptr);
    EXPECT_EQ(getPf(nullptr), nullptr);
    EXPECT_EQ(updatePf(nullptr), -1);
    EXPECT_EQ(freePf(nullptr), -1);
    Pf* pf = nullptr;
    EXPECT_EQ(pfupdate(nullptr, &pf), -1);
    EXPECT_EQ(pf, nullptr);
}

// What is not freed here is freed by the registry, and the other way round.
TEST_F(PfRegistry, PutReplacesAndFrees) {
    Pf *first = pfnew(PFFILE), *second = pfnew(PFFILE), *third = pfnew(PFFILE);
    EXPECT_EQ(putPf("x", first), 0);
    EXPECT_EQ(putPf("x", first), 0);
    EXPECT_EQ(putPf("x", second), 0);
    EXPECT_EQ(putPf_nofree("x", third), 0);
    EXPECT_EQ(getPf("x"), third);
    EXPECT_EQ(second->type, PFFILE);
    pffree(second);
}

TEST_F(PfRegistry, UpdateBringsTheNewTreeIn) {
    EXPECT_EQ(updatePf("x"), -1);
    write("a/x.pf", "k 1\n");
    EXPECT_EQ(updatePf("x"), 1);
    Pf* pf = existsPf("x");
    EXPECT_TRUE(holds(pf, "k 1\n"));
    EXPECT_EQ(updatePf("x"), 0);
    EXPECT_EQ(existsPf("x"), pf);
    write("a/x.pf", "k 2\n");
    EXPECT_EQ(updatePf("x"), 1);
    pf = existsPf("x");
    EXPECT_TRUE(holds(pf, "k 2\n"));

    const Logged logged;
    write("a/x.pf", "k 3\n}\n");
    EXPECT_EQ(updatePf("x"), -2);
    EXPECT_EQ(existsPf("x"), pf);
    remove("a/x.pf");
    EXPECT_EQ(updatePf("x"), -1);
    EXPECT_EQ(existsPf("x"), pf);
    EXPECT_TRUE(holds(pf, "k 2\n"));
}

TEST_F(PfRegistry, UpdateGoesOnAfterPutAndFree) {
    write("a/x.pf", "k 1\n");
    EXPECT_EQ(updatePf("x"), 1);
    EXPECT_EQ(freePf("x"), 0);
    EXPECT_EQ(updatePf("x"), 0);  // read again by getPf
    EXPECT_TRUE(holds(existsPf("x"), "k 1\n"));
    putPf("x", pfnew(PFFILE));
    EXPECT_EQ(updatePf("x"), 0);
    EXPECT_TRUE(holds(existsPf("x"), ""));
    write("a/x.pf", "k 2\n");
    EXPECT_EQ(updatePf("x"), 1);
    EXPECT_TRUE(holds(existsPf("x"), "k 2\n"));
}

// Each thread gets a whole tree of its own or the one that was there first; the last is registered.
TEST_F(PfRegistry, RacingReadersAllGetATree) {
    constexpr int kThreads = 4;
    write("a/x.pf", "k 1\n");
    Pf* trees[kThreads] = {};
    std::atomic<int> waiting{kThreads};
    std::vector<std::thread> threads;
    for (Pf*& tree : trees)
        threads.emplace_back([&] {
            for (--waiting; waiting > 0;) std::this_thread::yield();
            tree = getPf("x");
        });
    for (auto& thread : threads) thread.join();
    Pf* const registered = existsPf("x");
    EXPECT_THAT(trees, testing::Contains(registered));
    for (Pf* tree : std::set<Pf*>(trees, trees + kThreads)) {
        EXPECT_TRUE(holds(tree, "k 1\n"));
        if (tree != registered) pffree(tree);
    }
}

}  // namespace
