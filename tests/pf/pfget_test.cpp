// Values fetched: types checked, text read as numbers, handlers called.
#include <cmath>
#include <functional>

#include "morva/pfresolve.h"
#include "pf/pf.hpp"
#include "support/kit.hpp"

using namespace morva::pf;

namespace {

char* index(long i) {
    return reinterpret_cast<char*>(i);
}

// A file with strings of the test's own, a list, an array and a function.
class PfGet : public testing::Test {
  protected:
    PfGet() : pf_(pfnew(PFFILE)) {
        pf_->filename = const_cast<char*>("rt.pf");
        Tbl* strings = strtbl("one", "2", nullptr);
        put("list", strings);
        freetbl(strings, nullptr);
        list_ = static_cast<Pf*>(getarr(pf_->value.arr, "list"));
        pfput(list_, index(2), nullptr, PFARR);
        put("text", "a string");
        pfset(pf_, "array{inner}", "7");
        pfset(pf_, "array{list}[0]", "first");
        pfput(pf_, const_cast<char*>("call"), const_cast<char*>("&env(MORVA_TEST_RATE)"),
              PFFUNCTION);
    }
    ~PfGet() override { pffree(pf_); }

    void put(const char* key, const char* text) { pfput_string(pf_, const_cast<char*>(key), text); }
    void put(const char* key, Tbl* tbl) { pfput_tbl(pf_, const_cast<char*>(key), tbl); }

    Pf* pf_;
    Pf* list_;
};

TEST_F(PfGet, NumbersMustBeAllOfTheText) {
    struct Case {
        const char* text;
        double integer;
        bool integer_is_good;
        double real;
        bool real_is_good;
        double size;
    };
    const Case cases[] = {
        {"0x1F", 31, true, 31, true, 31},
        {"010", 8, true, 10, true, 10},
        {" -3 \t", -3, true, -3, true, -3},
        {"12abc", 12, false, 12, false, 12},
        {"", 0, false, 0, false, 0},
        {"x", 0, false, 0, false, 0},
        {"99999999999999999999", 9223372036854775807.0, true, 1e20, true, 1e20},
        {"2.5e3", 2, false, 2500, true, 2500},
        {"2k", 2, false, 2, false, 2000},
        {"1.5G", 1, false, 1.5, false, 1.5e9},
        {"7M", 7, false, 7, false, 7e6},
        {"3m", 3, false, 3, false, 0.003},
        {"40u", 40, false, 40, false, 40e-6},
        {"4K", 4, false, 4, false, 4},
        {"4g", 4, false, 4, false, 4},
        {"k", 0, false, 0, false, 0},
    };
    for (const Case& c : cases) {
        put("x", c.text);
        const auto complains = [&](const char* kind, const std::function<void()>& body) {
            const std::string told = kit::captured(2, body);
            const std::string complaint =
                "Bad " + std::string(kind) + " value '" + c.text + "' for x";
            EXPECT_TRUE(told.empty() || told.find(complaint) != std::string::npos) << told;
            return !told.empty();
        };
        double value = 0;
        EXPECT_NE(complains("integer", [&] { value = static_cast<double>(pfget_int(pf_, "x")); }),
                  c.integer_is_good)
            << c.text;
        EXPECT_EQ(value, c.integer) << c.text;
        EXPECT_NE(complains("floating point", [&] { value = pfget_double(pf_, "x"); }),
                  c.real_is_good)
            << c.text;
        EXPECT_EQ(value, c.real) << c.text;
        EXPECT_FALSE(complains("size", [&] { value = pfget_size(pf_, "x"); })) << c.text;
        EXPECT_DOUBLE_EQ(value, c.size) << c.text;
    }
    EXPECT_EQ(sz2dbl(nullptr), 0);
}

TEST_F(PfGet, IntegersAreWhatStrtolReads) {
    for (const char* text :
         {"7", "+7", "0", "00", "08", "0x", "0b1", "-1", "1 ", "12 x", "999999999999999999",
          "1000000000000000000", "9223372036854775807", "9223372036854775808",
          "-9223372036854775808", "9999999999999999999", "000000000000000000000007"}) {
        put("x", text);
        kit::captured(
            2, [&] { EXPECT_EQ(pfget_int(pf_, "x"), std::strtol(text, nullptr, 0)) << text; });
    }
}

TEST_F(PfGet, BooleansAreWords) {
    for (const char* word : {"yes", "OK", "y", "true", "1", "On", "T"}) {
        put("x", word);
        EXPECT_EQ(pfget_boolean(pf_, "x"), -1) << word;
    }
    for (const char* word : {"no", "N", "False", "0", "off", "f"}) {
        put("x", word);
        EXPECT_EQ(kit::captured(2, [&] { EXPECT_EQ(pfget_boolean(pf_, "x"), 0) << word; }), "");
    }
    EXPECT_EQ(kit::captured(2, [&] { EXPECT_EQ(pfget_boolean(pf_, "missing"), 0); }), "");
    const std::string told =
        kit::captured(2, [&] { EXPECT_EQ(pfget_boolean(list_, index(0)), 0); });
    EXPECT_NE(told.find("Bad boolean value 'one' for #0"), std::string::npos) << told;
}

TEST_F(PfGet, PathsAndIndicesLeadToStrings) {
    EXPECT_STREQ(pfget_string(pf_, "text"), "a string");
    EXPECT_STREQ(pfget_string(pf_, "array{list}[0]"), "first");
    EXPECT_EQ(pfget_int(pf_, "array{inner}"), 7);
    EXPECT_EQ(pfget_int(list_, index(1)), 2);
    EXPECT_EQ(pfget_string(pf_, "missing"), nullptr);
    EXPECT_EQ(pfget_string(list_, index(3)), nullptr);
    const kit::Env rate("MORVA_TEST_RATE", "40");
    EXPECT_EQ(pfget_int(pf_, "call"), 40);
}

TEST_F(PfGet, ContainersComeAsListsAndArraysOfValues) {
    Tbl* values = pfget_tbl(pf_, "list");
    ASSERT_EQ(maxtbl(values), 3);
    EXPECT_STREQ(static_cast<char*>(gettbl(values, 1)), "2");
    EXPECT_EQ(static_cast<Pf*>(gettbl(values, 2))->type, PFARR);
    freetbl(values, nullptr);

    const kit::Env rate("MORVA_TEST_RATE", "40");
    Arr* strings = pfget_arr(pf_, "");
    Tbl* keys = keysarr(strings);
    EXPECT_EQ(kit::taken(jointbl(keys, " ")), "call text");
    EXPECT_STREQ(static_cast<char*>(getarr(strings, "call")), "40");
    freetbl(keys, nullptr);
    freearr(strings, nullptr);

    EXPECT_EQ(pfget_tbl(pf_, "missing"), nullptr);
    EXPECT_EQ(pfget_arr(pf_, "missing"), nullptr);
}

TEST_F(PfGet, OneEntryComesWithItsType) {
    struct Case {
        Pf* pf;
        char* key;
        int type;
        const char* string;
    };
    char text[] = "text", array[] = "array", call[] = "call", path[] = "array{inner}";
    Pf* string = static_cast<Pf*>(getarr(pf_->value.arr, "text"));
    const Case cases[] = {
        {pf_, text, PFSTRING, "a string"},     {pf_, array, PFARR, nullptr},
        {pf_, path, PFINVALID, nullptr},       {pf_, call, PFINVALID, nullptr},
        {list_, index(0), PFSTRING, "one"},    {list_, index(2), PFARR, nullptr},
        {list_, index(9), PFINVALID, nullptr}, {string, nullptr, PFSTRING, "a string"},
        {nullptr, text, PFINVALID, nullptr},
    };
    for (const Case& c : cases) {
        void* value = &value;
        EXPECT_EQ(pfget(c.pf, c.key, &value), c.type);
        if (c.type == PFSTRING) {
            EXPECT_STREQ(static_cast<char*>(value), c.string);
        } else {
            EXPECT_EQ(value != nullptr && static_cast<Pf*>(value)->type == PFARR, c.type == PFARR);
        }
    }
    Pf* strange = pfnew(9);
    void* value = nullptr;
    const std::string told =
        kit::captured(2, [&] { EXPECT_EQ(pfget(strange, text, &value), PFINVALID); });
    EXPECT_NE(told.find("unrecognized pf type 9 in pfget"), std::string::npos);
    strange->type = PFSTRING;
    pffree(strange);

    Tbl* keys = pfkeys(pf_);
    EXPECT_EQ(kit::taken(jointbl(keys, " ")), "array call list text");
    freetbl(keys, nullptr);
    EXPECT_EQ(pfkeys(list_), nullptr);
    EXPECT_EQ(pfmaxtbl(list_), 3);
    EXPECT_EQ(pfmaxtbl(pf_), 0);
}

// What a handler that returns was told, and what it leaves in the getter's result.
struct Told {
    int calls, expected, found;
    std::function<void(void*)> answer;
};
Told g_told;

void handler(Pf*, char*, int expected, int found, void* result) {
    ++g_told.calls;
    g_told.expected = expected;
    g_told.found = found;
    if (g_told.answer) g_told.answer(result);
}

class PfGetHandler : public PfGet {
  protected:
    PfGetHandler() {
        g_told = {};
        pfconfig("die", reinterpret_cast<void*>(&handler));
    }
    ~PfGetHandler() override { pfconfig("die", nullptr); }
};

TEST_F(PfGetHandler, MissingNumbersTakeTheHandlersSubstitute) {
    EXPECT_EQ(pfget_int(pf_, "missing"), 0);
    EXPECT_EQ(g_told.found, PFINVALID);
    EXPECT_EQ(g_told.expected, PFSTRING);
    g_told.answer = [](void* result) { *static_cast<long*>(result) = -7; };
    EXPECT_EQ(pfget_int(pf_, "missing"), -7);
    g_told.answer = [](void* result) { *static_cast<double*>(result) = 0.5; };
    EXPECT_EQ(pfget_double(pf_, "missing"), 0.5);
    EXPECT_EQ(pfget_size(list_, index(9)), 0.5);
    EXPECT_EQ(g_told.calls, 4);
    EXPECT_EQ(pfget_string(pf_, "missing"), nullptr);
    EXPECT_EQ(g_told.calls, 4);
}

TEST_F(PfGetHandler, WrongTypesGiveNothingOrTheHandlersNode) {
    EXPECT_EQ(pfget_string(pf_, "list"), nullptr);
    EXPECT_EQ(g_told.found, PFTBL);
    EXPECT_EQ(pfget_int(pf_, "list"), 0);
    EXPECT_EQ(pfget_boolean(pf_, "array"), 0);
    EXPECT_EQ(pfget_tbl(pf_, "array"), nullptr);
    EXPECT_EQ(pfget_arr(pf_, "text"), nullptr);
    EXPECT_EQ(g_told.expected, PFARR);
    EXPECT_EQ(g_told.calls, 5);
    static Pf* inner;
    pfresolve(pf_, "array{inner}", 0, &inner);
    g_told.answer = [](void* result) { *static_cast<Pf**>(result) = inner; };
    EXPECT_EQ(pfget_int(pf_, "list"), 7);
}

TEST_F(PfGet, ItemsOfTheWrongTypeAreNotFatal) {
    EXPECT_EQ(pfget_int(list_, index(2)), 0);
    EXPECT_EQ(pfget_string(list_, index(2)), nullptr);
    EXPECT_EQ(pfget_tbl(list_, index(0)), nullptr);
}

TEST_F(PfGet, PathsAreSetWhateverTheyHeld) {
    EXPECT_EQ(pfset(pf_, "list", pfget_string(pf_, "text")), 0);
    EXPECT_EQ(pfset(pf_, "text", pfget_string(pf_, "text")), 0);
    EXPECT_EQ(pfset(pf_, "call", "45"), 0);
    EXPECT_EQ(pfset(pf_, "new{a}[0]", "x"), 0);
    EXPECT_STREQ(pfget_string(pf_, "list"), "a string");
    EXPECT_STREQ(pfget_string(pf_, "text"), "a string");
    EXPECT_STREQ(pfget_string(pf_, "call"), "45");
    EXPECT_STREQ(pfget_string(pf_, "new{a}[0]"), "x");
    const kit::Logged log;
    EXPECT_EQ(pfset(pf_, "text{a}", "x"), -1);
    EXPECT_EQ(pfset(pf_, "", "x"), -1);
    EXPECT_EQ(pf_->type, PFFILE);
}

using PfGetDeathTest = PfGet;

TEST_F(PfGetDeathTest, RequiredValuesEndTheProgram) {
    const auto dies = [](const std::function<void()>& body, const char* words) {
        EXPECT_EXIT(body(), testing::ExitedWithCode(1), words);
    };
    dies([&] { pfget_int(pf_, "no"); },
         "program needs value for 'no', not found in parameter file 'rt\\.pf'");
    dies([&] { pfget_double(pf_, "call"); }, "program needs value for 'call', not found");
    dies([&] { pfget_string(pf_, "list"); },
         "wrong parameter type for 'list' : expected scalar but got table in 'rt\\.pf'");
    dies([&] { pfget_tbl(pf_, "array"); }, "expected table but got array in");
    dies([&] { pfget_arr(pf_, "text"); }, "expected array but got scalar in");
    dies([&] { pfget_int(list_, index(5)); },
         "wrong parameter type for #5 : expected scalar but got invalid in ''");
    dies([&] { pfget_int(nullptr, "no"); }, "program needs value for 'no'");
}

}  // namespace
