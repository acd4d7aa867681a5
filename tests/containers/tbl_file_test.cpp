#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <random>

#include "tbl_lists.hpp"

namespace {

using kit::Logged;
using kit::read_file;
using kit::TempDir;
using kit::write_file;
using lists::ints;
using lists::ints_list;
using lists::List;
using testing::ElementsAre;
using testing::HasSubstr;

// docs/formats/list-file.md works this example out byte by byte.
constexpr char kGolden[] =
    "#FileTbl"
    "\x08\0\0\0"
    "\0\0\0\0"
    "pump\0\0\0\0"
    "\0\0\0\0\0\0\0\0"
    "\0\0\0\0\0\0\0\0"
    "\x01\0\0\0\0\0\0\0"
    "\0\0\0\0\0\0\0\0"
    "\xff\xff\xff\xff\xff\xff\xff\xff"
    "\x02\0\0\0\0\0\0\0"
    "\x03\0\0\0\0\0\0\0"
    "\x04\0\0\0"
    "\x01\0\0\0"
    "\0\0\0\0\0\0\0\0"
    "\0\0\0\0"
    "\0\0\0\0"
    "\x0a\0\0\0\0\0\0\0"
    "\x08\0\0\0\0\0\0\0"
    "\xff\xff\xff\xff"
    "\0\0\0\0"
    "\x01\0\0\0"
    "\x02\0\0\0"
    "\x03\0\0\0"
    "\xff\xff\xff\xff";
const std::string kGoldenBytes(kGolden, sizeof kGolden - 1);

// Offsets in the golden file.
enum { kLabelLength = 8, kLabel = 16, kRecord = 24, kSlots = 128 };
enum {
    kNullValue = kRecord + 16,
    kFirst = kRecord + 32,
    kCount = kRecord + 40,
    kEnd = kRecord + 48,
    kItemSize = kRecord + 56,
    kDirect = kRecord + 60,
    kLeft = kRecord + 80,
    kRight = kRecord + 88
};

// The list of the golden file: 1, 2, 3 with room for a fourth, the 1 taken off the front.
List golden_list() {
    const int none = -1;
    List list(inittbl(0, 4, 1, &none, sizeof(int)));
    for (int i : {1, 2, 3}) pushtbl(list.get(), &i);
    shifttbl(list.get());
    return list;
}

class TblFile : public testing::Test {
  protected:
    const char* path() const { return path_.c_str(); }
    List read(int writable = 0, char** label = nullptr) {
        return List(readtbl(path(), label, writable));
    }
    // filetbl with int items.
    int open_ints(Tbl** tbl, long size, const char* label = nullptr, const int* none = nullptr) {
        return filetbl(path(), label, size, none, sizeof(int), tbl);
    }
    TempDir dir_;
    std::string path_ = dir_.file("list");
    Logged logged_;
};
using TblFileDeathTest = TblFile;

TEST_F(TblFile, IsWrittenByteForByte) {
    EXPECT_EQ(kit::written([](FILE* stream) {
                  EXPECT_EQ(writetbl(golden_list().get(), stream, "pump"), 0);
              }),
              kGoldenBytes);
    EXPECT_EQ(savetbl(golden_list().get(), dir_.file("new/folder/list").c_str(), "pump"), 0);
    EXPECT_EQ(read_file(dir_.file("new/folder/list")), kGoldenBytes);
}

// Growth at the front gives slots that no item ever was in.
TEST_F(TblFile, HoldsNothingButItemsAndZerosInSpareSlots) {
    const int none = -1, item = 7;
    List list(inittbl(100, 1, 1, &none, sizeof(int)));
    pushtbl(list.get(), &item);
    unshifttbl(list.get(), &item);
    const std::string bytes =
        kit::written([&](FILE* stream) { EXPECT_EQ(writetbl(list.get(), stream, nullptr), 0); });
    ASSERT_EQ(bytes.size(), 16 + 96 + 8 + 101 * sizeof(int));
    EXPECT_EQ(bytes.substr(124, 98 * sizeof(int)), std::string(98 * sizeof(int), '\0'));
}

TEST_F(TblFile, IsReadAndChangedInPlace) {
    write_file(path_, kGoldenBytes);
    char* label = nullptr;
    {
        List list = read(0, &label);
        EXPECT_STREQ(label, "pump");
        EXPECT_THAT(ints(list), ElementsAre(2, 3));
        EXPECT_EQ(*static_cast<int*>(gettbl(list.get(), 2)), -1);
        EXPECT_EQ(verifytbl(list.get()), 0);
        EXPECT_EQ(::fcntl(list->fd, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(read_file(path_), kGoldenBytes);
    {
        List list = read(1);
        const int item = 9;
        unshifttbl(list.get(), &item);
        for (int i = 0; i < 5000; ++i) pushtbl(list.get(), &i);
        EXPECT_EQ(::fcntl(list->fd, F_GETFD), FD_CLOEXEC);
    }
    List list = read();
    EXPECT_EQ(maxtbl(list.get()), 5003);
    EXPECT_EQ(*static_cast<int*>(gettbl(list.get(), 0)), 9);
    EXPECT_EQ(*static_cast<int*>(gettbl(list.get(), 5002)), 4999);
}

TEST_F(TblFile, NamesWhatCannotBeOpenedOrWritten) {
    EXPECT_EQ(read(), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open " + path_ + " to read tbl."));
    write_file(path_, "");
    EXPECT_EQ(read(), nullptr);
    EXPECT_THAT(logged_.text(), HasSubstr("Error trying to mmap " + path_ + "."));
    EXPECT_EQ(savetbl(golden_list().get(), dir_.path().c_str(), nullptr), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open " + dir_.path() + " to write tbl.\n"));
    List pointers = lists::words_list({1});
    EXPECT_EQ(savetbl(pointers.get(), path(), nullptr), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Errors while writing tbl to " + path_ + ".\n"));
    EXPECT_EQ(savetbl(golden_list().get(), "/dev/full", nullptr), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Failed to close tbl file /dev/full"));
}

TEST_F(TblFile, DoesNotWaitForTheOtherEndOfAPipe) {
    ASSERT_EQ(::mkfifo(path(), 0600), 0);
    EXPECT_EQ(read(), nullptr);
}

// ---- files that are not to be believed

struct Damage {
    const char* name;
    int at;
    long value;
    int bytes;
    const char* reason;
};
void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

class TblDamagedFile : public TblFile, public testing::WithParamInterface<Damage> {};

TEST_P(TblDamagedFile, IsRefusedWithAReason) {
    const Damage& damage = GetParam();
    std::string bytes = kGoldenBytes;
    std::memcpy(&bytes[damage.at], &damage.value, damage.bytes);
    write_file(path_, bytes);
    for (int writable : {0, 1}) {
        char* label = const_cast<char*>("before");
        EXPECT_EQ(readtbl(path(), &label, writable), nullptr);
        EXPECT_EQ(label, nullptr);
        EXPECT_THAT(logged_.text(), HasSubstr(damage.reason));
    }
    EXPECT_EQ(read_file(path_), bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Each, TblDamagedFile,
    testing::Values(
        Damage{"Magic", 7, 'B', 1, "Bad magic number while trying to read tbl. "},
        Damage{"LabelLengthOfOtherByteOrder", kLabelLength, 0x08000000L << 32, 8,
               "was probably created on a different architecture and won't work on the current "
               "machine"},
        Damage{"LabelLengthOdd", kLabelLength, 7, 4, "label does not fit"},
        Damage{"LabelNotTerminated", kLabel + 4, 0x2020202020202020, 8, "label does not end"},
        Damage{"FirstAboveZero", kFirst, 1, 8, "counts contradict"},
        Damage{"FirstFarBelow", kFirst, INT64_MIN, 8, "shorter than its items"},
        Damage{"FirstOneTooLow", kFirst, -2, 8, "shorter than its items"},
        Damage{"CountBelowZero", kCount, -1, 8, "counts contradict"},
        Damage{"CountBeyondSlots", kCount, 5, 8, "counts contradict"},
        // One more than alloc_end is what a killed process can leave, but not beyond the file.
        Damage{"CountBeyondFile", kCount, 4, 8, "shorter than its items"},
        Damage{"EndBeyondFile", kEnd, 4, 8, "shorter than its items"},
        Damage{"EndAbsurd", kEnd, INT64_MAX, 8, "shorter than its items"},
        Damage{"EndTimesSizeWrapsRound", kEnd, 1L << 62, 8, "shorter than its items"},
        Damage{"ItemSizeZero", kItemSize, 0, 4, "item size is below 1"},
        Damage{"ItemSizeNegative", kItemSize, -4, 4, "item size is below 1"},
        Damage{"ItemSizeAbsurd", kItemSize, INT32_MAX, 4, "shorter than its items"},
        Damage{"ItemsArePointers", kDirect, 0, 4, "items are pointers"}),
    [](const auto& info) { return info.param.name; });

TEST_F(TblFile, OfAnyShorterLengthIsRefused) {
    for (std::size_t length = 0; length < kGoldenBytes.size(); ++length) {
        write_file(path_, kGoldenBytes.substr(0, length));
        EXPECT_EQ(read(0), nullptr) << length << " bytes";
        EXPECT_EQ(read(1), nullptr) << length << " bytes";
    }
}

TEST_F(TblFile, DoesNotGrowByWhatNobodyCanHave) {
    std::string bytes = kGoldenBytes;
    for (int at : {kLeft, kRight}) std::memset(&bytes[at], 0x7f, 8);
    write_file(path_, bytes);
    List list = read(1);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->left_increment, (1 << 30) / 4);
    EXPECT_EQ(list->right_increment, (1 << 30) / 4);
}

// Between its stores into window and alloc_end a killed process leaves alloc_end one slot behind.
TEST_F(TblFile, OpensWithTheLastSlotNotYetCounted) {
    std::string bytes = kGoldenBytes;
    bytes[kCount] = 3;
    bytes[kEnd] = 2;
    write_file(path_, bytes);
    for (int writable : {0, 1}) {
        List list = read(writable);
        ASSERT_NE(list, nullptr);
        EXPECT_THAT(ints(list), ElementsAre(2, 3, -1));
        EXPECT_EQ(verifytbl(list.get()), 0);
    }
}

// ---- filetbl

TEST_F(TblFile, IsCreatedWithRoom) {
    Tbl* tbl = nullptr;
    ASSERT_EQ(open_ints(&tbl, 100, "a label"), 0);
    const List list(tbl);
    EXPECT_EQ(maxtbl(tbl), 0);
    EXPECT_EQ(tbl->alloc_end, 101);
    EXPECT_EQ(tbl->right_increment, 50);
    EXPECT_EQ(std::filesystem::file_size(path_), 16 + 8 + 96 + 101 * sizeof(int));
}

TEST_F(TblFile, WithAnotherLabelIsLeftAlone) {
    write_file(path_, kGoldenBytes);
    Tbl* tbl = nullptr;
    EXPECT_EQ(open_ints(&tbl, 1, "other"), -2);
    EXPECT_EQ(tbl, nullptr);
    EXPECT_EQ(read_file(path_), kGoldenBytes);
    ASSERT_EQ(open_ints(&tbl, 1, "pump"), 0);
    freetbl(tbl, nullptr);
    ASSERT_EQ(savetbl(golden_list().get(), path(), nullptr), 0);
    EXPECT_EQ(open_ints(&tbl, 1, "pump"), -2) << "a file without a label differs too";
}

TEST_F(TblFile, WithLessRoomIsRebuiltWithAllItems) {
    write_file(path_, kGoldenBytes);
    const int none = -1;
    Tbl* tbl = nullptr;
    ASSERT_EQ(open_ints(&tbl, 1000, "pump", &none), 0);
    const List list(tbl);
    EXPECT_THAT(ints(tbl), ElementsAre(2, 3));
    EXPECT_GE(tbl->alloc_end - tbl->first, 1000);
    pushtbl(tbl, &none);
    EXPECT_THAT(ints(read()), ElementsAre(2, 3, -1)) << "the list is the file of that name";
    EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));
}

TEST_F(TblFile, KeepsItsPermissionsWhenItIsRebuilt) {
    write_file(path_, kGoldenBytes);
    ASSERT_EQ(::chmod(path(), 0600), 0);
    const int none = -1;
    Tbl* tbl = nullptr;
    ASSERT_EQ(open_ints(&tbl, 1000, "pump", &none), 0);
    freetbl(tbl, nullptr);
    struct stat status;
    ASSERT_EQ(::stat(path(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(TblFile, IsNotEmptiedWhenDescriptorsRunOut) {
    write_file(path_, kGoldenBytes);
    rlimit before;
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    Tbl* tbl = nullptr;
    const char* name = path();
    ::setrlimit(RLIMIT_NOFILE, &none);
    const int result = filetbl(name, "pump", 1, nullptr, sizeof(int), &tbl);
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(result, -1);
    EXPECT_THAT(logged_.text(), HasSubstr("Can't open " + path_ + " to read tbl."));
    EXPECT_EQ(read_file(path_), kGoldenBytes);
}

TEST_F(TblFile, IsNotWrittenUnderItsOwnList) {
    write_file(path_, kGoldenBytes);
    for (int writable : {0, 1}) {
        List list = read(writable);
        EXPECT_EQ(savetbl(list.get(), path(), "other"), -1);
        EXPECT_THAT(logged_.text(), HasSubstr("Can't open " + path_ + " to write tbl.\n"));
        EXPECT_THAT(ints(list), ElementsAre(2, 3));
    }
}

// Libraries and stacks are at random addresses in each process: near them a second process could
// not map the file where the first did, and would change the pointers that the first still uses.
TEST_F(TblFile, IsMappedWhereOtherProcessesFindRoom) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer chooses the addresses";
#endif
    Tbl* tbl = nullptr;
    ASSERT_EQ(open_ints(&tbl, 1), 0);
    const List list(tbl);
    const auto place = reinterpret_cast<std::uintptr_t>(tbl->mapaddr);
    const void* const library = reinterpret_cast<void*>(&::mmap);
    const void* const program = kGolden;
    for (const void* taken : {library, program, static_cast<const void*>(&tbl)}) {
        const auto other = reinterpret_cast<std::uintptr_t>(taken);
        EXPECT_GT(std::max(place, other) - std::min(place, other), std::uintptr_t{1} << 40);
    }
}

// The record is shared, the buffer of the removed item is not.
TEST_F(TblFile, RemovesItemsAfterAnotherProcessDid) {
    constexpr int kSize = 1 << 20;
    Tbl* tbl = nullptr;
    ASSERT_EQ(filetbl(path(), nullptr, 3, nullptr, kSize, &tbl), 0);
    const List list(tbl);
    const std::string items[] = {std::string(kSize, 'a'), std::string(kSize, 'b')};
    for (const std::string& item : items) pushtbl(tbl, item.data());
    const pid_t child = ::fork();
    if (child == 0) ::_exit(*static_cast<char*>(deltbl(tbl, 0)));
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(WEXITSTATUS(status), 'a');
    EXPECT_EQ(*static_cast<char*>(deltbl(tbl, 0)), 'b');
}

TEST_F(TblFile, OfOtherItemsIsNotRebuilt) {
    write_file(path_, kGoldenBytes);
    const int other = -2;
    const long wide = -1;
    Tbl* tbl = nullptr;
    EXPECT_EQ(open_ints(&tbl, 1000, "pump"), -1);
    EXPECT_EQ(open_ints(&tbl, 1000, "pump", &other), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("tbl lists have different null values.\n"));
    EXPECT_EQ(filetbl(path(), "pump", 1000, &wide, sizeof wide, &tbl), -1);
    EXPECT_THAT(logged_.text(), HasSubstr("tbl lists have different entry sizes: 8 4\n"));
    EXPECT_EQ(filetbl(path(), "pump", 1, &wide, sizeof wide, &tbl), -1)
        << "room, but not for these";
    EXPECT_EQ(tbl, nullptr);
    EXPECT_THAT(ints(read()), ElementsAre(2, 3));
}

TEST_F(TblFile, ThatIsNoListFileIsReplacedAndKept) {
    write_file(path_, "Dear diary");
    Tbl* tbl = nullptr;
    EXPECT_EQ(open_ints(&tbl, 1), 0);
    freetbl(tbl, nullptr);
    EXPECT_EQ(logged_.text(), "") << "what the first attempt registered is discarded";
    EXPECT_EQ(read_file(path_ + ".damaged"), "Dear diary");
}

// ---- growth

// The handle lies in the mapping, so it may not move; whatever else is mapped meanwhile.
TEST_F(TblFile, GrowsInPlaceBesideOtherMappings) {
    Tbl* tbl = nullptr;
    ASSERT_EQ(open_ints(&tbl, 1), 0);
    const List list(tbl);
    std::vector<void*> neighbours;
    for (int i = 0; i < 300000; ++i) {
        ASSERT_EQ(pushtbl(tbl, &i), i);
        if (i % 10000 == 0)
            neighbours.push_back(::mmap(nullptr, 1 << 16, PROT_READ | PROT_WRITE,
                                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }
    for (void* neighbour : neighbours) {
        EXPECT_EQ(*static_cast<char*>(neighbour), 0) << "the list must not map over it";
        ::munmap(neighbour, 1 << 16);
    }
    EXPECT_EQ(verifytbl(tbl), 0);
    EXPECT_EQ(*static_cast<int*>(gettbl(tbl, 299999)), 299999);
}

TEST_F(TblFile, OpensAndGrowsWhereAddressesAreScarce) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer needs addresses itself";
#endif
    const auto body = [&] {
        const rlimit limit{1UL << 30, 1UL << 30};
        ::setrlimit(RLIMIT_AS, &limit);
        Tbl* tbl = nullptr;
        if (open_ints(&tbl, 1) != 0) ::_exit(2);
        for (int i = 0; i < 100000; ++i) pushtbl(tbl, &i);
        ::_exit(verifytbl(tbl) == 0 ? 0 : 3);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(TblFileDeathTest, AFullDiskIsFatalWhenTheListGrows) {
    const auto body = [&] {
        Tbl* tbl = nullptr;
        if (open_ints(&tbl, 1) != 0) ::_exit(2);
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1 << 16, 1 << 16};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        for (int i = 0;; ++i) pushtbl(tbl, &i);
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(1),
                "Couldn't write 1 byte to extend file by [0-9]+ bytes");
    EXPECT_EQ(verifytbl(read().get()), 0);
}

TEST_F(TblFileDeathTest, AFileBeyondAllBoundsIsFatal) {
    Tbl* tbl = nullptr;
    ASSERT_EQ(open_ints(&tbl, 1), 0);
    const List list(tbl);
    EXPECT_EXIT(settbl(tbl, INT64_MAX - 1, nullptr), testing::ExitedWithCode(1),
                "Couldn't lseek [0-9]+ bytes beyond end of file");
}

TEST_F(TblFileDeathTest, AReadOnlyListTakesNoItems) {
    write_file(path_, kGoldenBytes);
    List list = read();
    const int item = 1;
    const char* extend = "\\*stack\\* Can't extend read-only list.\n";
    const char* change = "\\*stack\\* Can't change read-only list.\n";
    const auto one = testing::ExitedWithCode(1);
    EXPECT_EXIT(settbl(list.get(), 99, &item), one, extend);
    EXPECT_EXIT(pushtbl(list.get(), &item), one, extend);
    EXPECT_EXIT(unshifttbl(list.get(), &item), one, extend);
    EXPECT_EXIT(instbl(list.get(), 1, &item), one, extend);
    EXPECT_EXIT(cattbl(list.get(), golden_list().get()), one, extend);
    EXPECT_EXIT(settbl(list.get(), 0, &item), one, change);
    EXPECT_EXIT(deltbl(list.get(), 0), one, change);
    EXPECT_EXIT(sorttbl(list.get(), nullptr, nullptr), one, change);
    EXPECT_EQ(*static_cast<int*>(shifttbl(list.get())), 2);
    clrtbl(list.get(), [](void*) {});
    EXPECT_EQ(maxtbl(list.get()), 0);
}

// ---- killed writers

// Pushes ascending numbers, and after each hundred takes a few off the front.
[[noreturn]] void write_until_killed(const char* path) {
    Tbl* tbl = nullptr;
    if (filetbl(path, nullptr, 1, nullptr, sizeof(int), &tbl) != 0) ::_exit(1);
    const int last = maxtbl(tbl) > 0 ? *static_cast<int*>(gettbl(tbl, maxtbl(tbl) - 1)) : 0;
    for (int i = last + 1;; ++i) {
        pushtbl(tbl, &i);
        if (maxtbl(tbl) > 4000) shifttbl(tbl);
    }
}

// MORVA_KILLS asks for more rounds than a quick test can afford.
TEST_F(TblFile, SurvivesItsWriterBeingKilled) {
    const char* rounds = std::getenv("MORVA_KILLS");
    std::mt19937 random(11);
    for (int round = rounds != nullptr ? std::atoi(rounds) : 40; round > 0; --round) {
        const pid_t child = ::fork();
        if (child == 0) write_until_killed(path());
        ::usleep(200 + random() % 2000);
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "status " << status;
        if (!std::filesystem::exists(path_) || std::filesystem::file_size(path_) == 0) continue;
        List list = read(1);
        ASSERT_NE(list, nullptr) << logged_.text();
        ASSERT_EQ(verifytbl(list.get()), 0) << logged_.text();
        const std::vector<int> items = ints(list);
        for (std::size_t i = 1; i < items.size(); ++i)
            ASSERT_EQ(items[i], items[i - 1] + 1) << "round " << round << ", item " << i;
    }
}

TEST_F(TblFile, CutOffByAnotherProcessEndsNoProgram) {
    for (int writable : {0, 1}) {
        write_file(path_, kGoldenBytes);
        List list = read(writable);
        ASSERT_NE(list, nullptr);
        std::filesystem::resize_file(path_, 0);
        ASSERT_EQ(maxtbl(list.get()), writable ? 0 : 2);
        if (!writable) {
            EXPECT_EQ(*static_cast<int*>(gettbl(list.get(), 0)), 0);
        }
        EXPECT_THAT(kit::captured(2, [&] { list.reset(); }), HasSubstr("cut off a list file"));
    }
}

}  // namespace
