#include "morva/cabinets.h"

#include "support/kit.hpp"

namespace {

using testing::HasSubstr;

std::vector<void*> g_freed;
void note_freed(void* value) {
    g_freed.push_back(value);
}

struct CabinetTest : testing::Test {
    CabinetTest() { g_freed.clear(); }
};

std::string joined(Tbl* list) {
    std::string text = kit::taken(jointbl(list, " "));
    freetbl(list, nullptr);
    return text;
}

TEST_F(CabinetTest, ArrHandsReplacedValuesToItsFreeFunction) {
    int values[3];
    Arrcabinet* cabinet = new_arrcabinet(0, note_freed);
    EXPECT_EQ(set_arrcabinet(cabinet, "s", "x", &values[0]), 0);
    EXPECT_EQ(set_arrcabinet(cabinet, "s", "x", &values[1]), 0);
    EXPECT_EQ(set_arrcabinet(cabinet, "r", "x", &values[2]), 0);
    EXPECT_EQ(g_freed, (std::vector<void*>{nullptr, &values[0], nullptr}));
    EXPECT_EQ(get_arrcabinet(cabinet, "q"), nullptr);
    EXPECT_EQ(getarr(get_arrcabinet(cabinet, "s"), "x"), &values[1]);
    EXPECT_EQ(joined(keys_arrcabinet(cabinet)), "r s");
    g_freed.clear();
    kit::captured(2, [&] { free_arrcabinet(cabinet); });
    EXPECT_EQ(g_freed, (std::vector<void*>{&values[2], &values[1]}));
    free_arrcabinet(nullptr);
}

TEST_F(CabinetTest, ArrReportsItsSteps) {
    const struct {
        int size;
        const char* how;
    } rows[] = {
        {8, "using myfreearrentry\n"}, {0, "using myfreearrentry #2\n"}, {-1, "using free\n"}};
    for (const auto& row : rows) {
        std::string arr, outer, record;
        const std::string text = kit::captured(2, [&] {
            Arrcabinet* cabinet = new_arrcabinet(row.size, row.size < 0 ? nullptr : free);
            set_arrcabinet(cabinet, "AAK", "BHZ", strdup("value"));
            const auto address = [](void* p) {
                char words[32];
                std::snprintf(words, sizeof words, "%p", p);
                return std::string(words);
            };
            arr = address(get_arrcabinet(cabinet, "AAK"));
            outer = address(cabinet->arr);
            record = address(cabinet);
            free_arrcabinet(cabinet);
        });
        EXPECT_THAT(text, HasSubstr("alist->size = " + std::to_string(row.size) + "\n"));
        EXPECT_THAT(text, HasSubstr("freeing arr " + arr + " for key AAK\n"));
        EXPECT_THAT(text, HasSubstr("freeing arr " + arr + " " + row.how));
        EXPECT_THAT(text, HasSubstr("freeing alist->arr = " + outer + "\n"));
        EXPECT_THAT(text, HasSubstr("freeing alist = " + record + "\n"));
    }
}

TEST_F(CabinetTest, TblHoldsItemsByValue) {
    Tblcabinet* cabinet = new_tblcabinet(sizeof(int), nullptr);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(push_tblcabinet(cabinet, "n", &i), 0);
    Tbl* list = get_tblcabinet(cabinet, "n");
    EXPECT_EQ(list->direct, 1);
    EXPECT_EQ(maxtbl(list), 30);
    EXPECT_EQ(*static_cast<int*>(gettbl(list, 29)), 29);
    EXPECT_EQ(get_tblcabinet(cabinet, "m"), nullptr);
    free_tblcabinet(cabinet);
}

TEST_F(CabinetTest, TblHoldsPointersAndFreesThem) {
    int item;
    Tblcabinet* cabinet = new_tblcabinet(0, note_freed);
    push_tblcabinet(cabinet, "b", &item);
    push_tblcabinet(cabinet, "a", &item);
    EXPECT_EQ(gettbl(get_tblcabinet(cabinet, "b"), 0), &item);
    EXPECT_EQ(joined(keys_tblcabinet(cabinet)), "a b");
    free_tblcabinet(cabinet);
    EXPECT_EQ(g_freed, (std::vector<void*>{&item, &item}));
    free_tblcabinet(nullptr);
}

TEST_F(CabinetTest, TblHoldsCopiesOfStrings) {
    Tblcabinet* cabinet = new_tblcabinet(-1, note_freed);
    char word[] = "BHZ";
    push_tblcabinet(cabinet, "AAK", word);
    word[2] = 'E';
    push_tblcabinet(cabinet, "AAK", word);
    EXPECT_EQ(kit::taken(jointbl(get_tblcabinet(cabinet, "AAK"), " ")), "BHZ BHE");
    free_tblcabinet(cabinet);
    EXPECT_TRUE(g_freed.empty());
}

}  // namespace
