// Times in parameter files.
#include "pf/pf_files.hpp"

namespace {

using kit::Env;
using kit::Logged;
using testing::HasSubstr;

TEST(PfTime, IsRead) {
    Pf* pf = nullptr;
    pfcompile("start 2014-06-24 12:30\nbad 24 blah\nlist &Tbl{\n2014175\n}\nref &start\n", &pf);
    EXPECT_EQ(pfget_time(pf, "start"), 1403613000);
    EXPECT_EQ(pfget_time(pf, "list[0]"), 1403568000);
    EXPECT_EQ(pfget_time(pf, "ref"), 1403613000);
    const std::string said = kit::captured(2, [&] { EXPECT_EQ(pfget_time(pf, "bad"), 24); });
    EXPECT_THAT(said, HasSubstr("Bad time value '24 blah' for bad"));
    pffree(pf);
}

TEST(PfTime, ThatIsMissingIsTheHandlersBusiness) {
    static int expected, found;
    const Pfdie before = pfdie;
    pfdie = [](Pf*, char*, int wanted, int seen, void* result) {
        expected = wanted;
        found = seen;
        *static_cast<double*>(result) = 5;
    };
    Pf* pf = pfnew(PFFILE);
    EXPECT_EQ(pfget_time(pf, "none"), 5);
    EXPECT_EQ(expected, PFSTRING);
    EXPECT_EQ(found, PFINVALID);
    pfdie = before;
    pffree(pf);
}

TEST(PfTime, IsWritten) {
    Pf* pf = pfnew(PFFILE);
    char key[] = "t";
    const struct {
        const char* zone;
        double epoch;
        const char* text;
    } rows[] = {
        {"UTC", 1403568000.25, "1403568000.250 (175) 2014-06-24  00:00:00.250 UTC Tuesday"},
        {"US/Mountain", 1403568000, "1403568000.000 (174) 2014-06-23  18:00:00.000 MDT Monday"},
    };
    for (const auto& row : rows) {
        const Env tz("TZ", row.zone);
        EXPECT_EQ(pfput_time(pf, key, row.epoch), 0);
        EXPECT_STREQ(pfget_string(pf, "t"), row.text);
    }
    const Env tz("TZ", "UTC");
    pfput_time(pf, key, 1403568000.25);
    EXPECT_EQ(pfget_time(pf, "t"), 1403568000.25);
    pffree(pf);
}

class PfRequire : public kit::PfFiles {};

// Only the last file of the search path counts.
TEST_F(PfRequire, ComparesDates) {
    const struct {
        const char* text;
        int result;
        std::string message;
    } rows[] = {
        {"pf_revision_time 2014-06-24\n", 0, ""},
        {"pf_revision_time 1403568001\n", 0, ""},
        {"k v\n", -1,
         "no pf_revision_time in the file '@/b/x.pf', \n\tbut program requires date after " +
             kit::taken(strdate(1403568000)) + "\n"},
        {"pf_revision_time 2014-06-23 23:59:59\n", -2,
         "pf_revision_time in the file '@/b/x.pf' has date " + kit::taken(strdate(1403567999)) +
             ", \n\tbut program requires date after " + kit::taken(strdate(1403568000)) + "\n"},
        {"pf_revision_time 2014-06-24\nk &Tbl{\n", -3, "error in parameter file @/b/x.pf"},
    };
    write("a/x.pf", "pf_revision_time 2020-01-01\n");
    for (const auto& row : rows) {
        write("b/x.pf", row.text);
        const Logged logged;
        EXPECT_EQ(pfrequire("x", "2014-06-24"), row.result) << row.text;
        EXPECT_THAT(logged.text(), HasSubstr(here(row.message))) << row.text;
        EXPECT_EQ(logged.text().empty(), row.result == 0) << logged.text();
    }
    const Logged logged;
    EXPECT_EQ(pfrequire("none", "2014-06-24"), -4);
    EXPECT_THAT(logged.text(), HasSubstr("can't find parameter file none"));
}

}  // namespace
