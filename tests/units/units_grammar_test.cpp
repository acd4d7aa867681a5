// Grammar, lookup and conversion, with small tables. What a process reads it keeps: these tests run
// in children, forked before the tests of the installed table read that.
#include <sys/stat.h>
#include <sys/wait.h>

#include <cmath>
#include <thread>

#include "support/kit.hpp"

namespace {

using kit::captured;
using kit::Logged;
using kit::taken;
using kit::TempDir;
using testing::HasSubstr;

// What `body` prints in a fresh process whose table is `table`; "STATUS:" stands in front when it
// does not end with 0.
std::string with_table(const std::string& table, const std::function<void()>& body) {
    const TempDir folder;
    kit::write_file(folder.file("units"), table);
    std::string out = captured(1, [&] {
        const pid_t child = ::fork();
        if (child == 0) {
            ::setenv("UNITS", folder.path().c_str(), 1);
            ::dup2(1, 2);
            elog_set(ELOG_TAG, -1, const_cast<char*>("@"));
            body();
            std::fflush(nullptr);
            ::_exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        if (status != 0) std::printf("%d:", WEXITSTATUS(status));
    });
    for (std::size_t at; (at = out.find(folder.file("units"))) != out.npos;)
        out.replace(at, folder.file("units").size(), "TABLE");
    return out;
}

std::string names_of(Tbl* names, void (*free_name)(void*)) {
    const std::string text = taken(jointbl(names, " "));
    freetbl(names, free_name);
    return text;
}

constexpr char kTable[] =
    "# a table\n! m\n\n! s  # seconds\n! kg\nkm = 1000 m\n\thour = 3600 s\nh = hour\n"
    "meter = m\ninch = .0254 m\njoule = kg m^2 / s^2\nglass = 2 m\nHz = /s\nkilo = 7 s\n"
    "mps = m/s\n%g=9.8m/s^2\n";

// The values of expressions as "FACTOR m s kg" or the reason.
std::string value_of(const std::string& text) {
    Unit unit{};
    const Logged logged;
    if (units_parse(text.c_str(), &unit) != 0) {
        std::string said = logged.text();
        said.erase(said.find('\n'));
        return said.erase(0, said.find("xunits"));
    }
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%.12g %d %d %d", unit.factor, unit.exponents[0],
                  unit.exponents[1], unit.exponents[2]);
    return buffer;
}

TEST(Units, Grammar) {
    const struct {
        const char *text, *value;
    } rows[] = {
        {"m", "1 1 0 0"},
        {"km/hour", "0.277777777778 1 -1 0"},
        {"m2", "2 1 0 0"},
        {"m-3", "-3 1 0 0"},
        {"m^2", "1 2 0 0"},
        {"km^-1", "0.001 -1 0 0"},
        {"km^2", "1000000 2 0 0"},
        {"km^0", "1 0 0 0"},
        {"1/s", "1 0 -1 0"},
        {"/s", "1 0 -1 0"},
        {"//km", "1000 1 0 0"},
        {"m//s", "1 1 1 0"},
        {"1000 m", "1000 1 0 0"},
        {"m/s/s", "1 1 -2 0"},
        {"m/s s", "1 1 0 0"},
        {"m s^-2", "1 1 -2 0"},
        {"kg*m/s^2", "1 1 -2 1"},
        {"2^3*2/4 m", "4 1 0 0"},
        {"2*3^2", "18 0 0 0"},
        {"2^-2", "0.25 0 0 0"},
        {"1/2/s", "0.5 0 -1 0"},
        {"1.5e+3.m", "syntax error"},
        {".5e1m", "5 1 0 0"},
        {"1e", "can't find unit 'e'"},
        {"3 %g", "29.4 1 -2 0"},
        {" m # per second", "1 1 0 0"},
        {"m\n\n", "1 1 0 0"},
        {"", "syntax error"},
        {"# none", "syntax error"},
        {"m\nm", "syntax error"},
        {"m/2", "syntax error"},
        {"2*m", "syntax error"},
        {"m 2 s", "syntax error"},
        {"2 m 3", "syntax error"},
        {"sq_m", "can't find unit 'sq'"},
        {"m_s", "syntax error"},
        {"m = 3 s\n", "syntax error"},
        {"! x\n", "syntax error"},
        {"(m)", "syntax error"},
        {"m^", "syntax error"},
        {"m^s", "syntax error"},
        {"m^.5", "power '.5' is no whole number"},
        {"m^1e300", "power '1e300' is out of range"},
        {"2^1001", "power '1001' is out of range"},
        {"1.2.3 m", "bad number '1.2.3'"},
        {"1e999", "bad number '1e999'"},
        {"1/0", "number out of range"},
        {"km^200", "value out of range"},
        {"m^600 m^600", "value out of range"},
    };
    const std::string out = with_table(kTable, [&] {
        Logged table;
        units_init();
        for (const auto& row : rows) std::printf("%s\n", value_of(row.text).c_str());
    });
    std::string expected;
    for (const auto& row : rows) {
        const std::string value = row.value;
        const bool good = value.find_first_not_of("0123456789.- ") == value.npos;
        const int line = std::strcmp(row.text, "m\nm") == 0 ? 2 : 1;
        expected += good ? value + "\n"
                         : "xunits : " + value + " near line #" + std::to_string(line) + "\n";
    }
    EXPECT_EQ(out, expected);
}

TEST(Units, NamesAreFoundAsPluralsAndBehindPrefixes) {
    const struct {
        const char *name, *found;
        double factor;
    } rows[] = {
        {"m", "m", 1},
        {"meters", "meter", 1},
        {"inches", "inch", 1},
        {"glass", "glass", 1},
        {"glasses", "glass", 1},
        {"kilometers", "meter", 1000},
        {"kilo", "kilo", 1},
        {"kilojoules", "joule", 1000},
        {"milliglass", "glass", 1e-3},
        {"dekam", "m", 10},
        {"hectameter", "meter", 100},
        {"hectometers", "meter", 100},
        {"attos", "s", 1e-18},
        {"kmm", nullptr, 0},
        {"kilokilometer", nullptr, 0},
        {"", nullptr, 0},
        {"s", "s", 1},
        {"es", nullptr, 0},
        {"milli", nullptr, 0},
        {"Meter", nullptr, 0},
    };
    const std::string out = with_table(kTable, [&] {
        std::printf("%d ", unit_found("m", nullptr, nullptr));
        const Logged table;
        units_init();
        for (const auto& row : rows) {
            Unit* unit = nullptr;
            double factor = 0;
            const int found = unit_found(row.name, &unit, &factor);
            const bool right =
                row.found == nullptr
                    ? found == 0 && unit == nullptr && factor == 0
                    : found == 1 && strcmp(unit->name, row.found) == 0 && factor == row.factor;
            if (!right) std::printf("%s ", row.name);
        }
        std::printf("%d ", unit_found(std::string(500, 'x').append("s").c_str(), nullptr, nullptr));
        char* rest;
        double factor;
        const int begins = prefixed("kilogram", &rest, &factor);
        std::printf("%d %s %g ", begins, rest, factor);
        std::printf("%d %d %d", prefixed("gram", &rest, &factor), prefixed("", &rest, &factor),
                    match_unit(&nobasis, &nobasis));
        unit_found(nullptr, nullptr, nullptr);
    });
    EXPECT_THAT(out, testing::StartsWith("0 0 1 gram 1000 0 0 1"));
    EXPECT_THAT(out, HasSubstr("unit_found: name = 0\n1:"));
    EXPECT_STREQ(nobasis.name, "*NO*SUCH*UNIT*");
    EXPECT_EQ(nprefixes, 15);
}

TEST(Units, TablesAndTheirFaults) {
    const auto load = [] {
        const Logged logged;
        const int status = units_init();
        std::printf("%d %ld %ld\n%s", status, maxtbl(UnitsBasis_tbl), cntarr(Units_arr),
                    logged.text().c_str());
        std::printf("%d %s", units_init(), names_of(keysarr(Units_arr), nullptr).c_str());
    };
    std::string many;
    for (char c = 'a'; c < 'r'; ++c) many += std::string("! ") + c + "\n";
    const struct {
        std::string table, out;
    } rows[] = {
        {"", "0 0 0\n0 "},
        {"! m\nkm = 1000 m", "0 1 2\n0 km m"},
        {"! m\nm m # no definition\n3\nkm = 1000 m\n", "0 1 2\n0 km m"},
        {"! m\n\nkm = 1000 mm\nmm = m\n",
         "-1 1 1\n@: xunits : can't find unit 'mm' near line #3\n"
         "@: in the units table TABLE at character 11, the nearest known name is 'm'\n-1 m"},
        {"! m s\n",
         "-1 0 0\n@: xunits : syntax error near line #1\n"
         "@: in the units table TABLE at character 5\n-1 "},
        {"! m\nx = \n",
         "-1 1 1\n@: xunits : syntax error near line #2\n"
         "@: in the units table TABLE at character 5\n-1 m"},
        {"! m\nx = m\nx = 2 m\n", "@: replacing definition for x\n0 1 2\n0 m x"},
        {many,
         "@: too many basic units, ignoring new unit 'q'\n0 16 16\n0 "
         "a b c d e f g h i j k l m n o p"},
    };
    for (const auto& row : rows) {
        const std::string out = with_table(row.table, load);
        EXPECT_EQ(out, row.out) << row.table;
    }
}

TEST(Units, MissingAndUnreadableTables) {
    EXPECT_EQ(with_table("",
                         [] {
                             ::setenv("UNITS", "/nowhere", 1);
                             units_init();
                         }),
              "@: Can't find units table\n1:");
    EXPECT_EQ(with_table("",
                         [] {
                             const std::string folder = std::string(::getenv("UNITS")) + "/units";
                             ::unlink(folder.c_str());
                             ::mkdir(folder.c_str(), 0700);
                             const Logged logged;
                             const int status = units_init();
                             std::printf("%d %s", status, logged.text().c_str());
                         }),
              "-1 @: read failed in compile_schema\n\tIs a directory\n");
}

TEST(Units, ConvertsAndTellsDifferences) {
    const std::string out = with_table(kTable, [] {
        const Logged logged;
        units_init();
        const struct {
            const char *from, *to;
        } rows[] = {{"km", "m"},  {"m/s", "km/hour"}, {"m", "s"},     {"joule", "kg"},
                    {"m", "xyz"}, {"xyz", "m"},       {"m", "0 m"},   {"1", "2"},
                    {"", "m"},    {"m", nullptr},     {"km^3", "m^3"}};
        for (const auto& row : rows) {
            double result = -1;
            char* difference = const_cast<char*>("unset");
            const int status = units_convert(1, row.from, &result, row.to, &difference);
            std::printf("%d %g '%s'\n", status, result, difference != nullptr ? difference : "");
            std::free(difference);
            // Once more, from what was kept.
            double again = -1;
            if (units_convert(1, row.from, &again, row.to, nullptr) != status || again != result)
                std::printf("not again\n");
        }
        const double values[] = {1, 2, 3};
        double results[3];
        units_convert_array(values, 3, "km", results, "m", nullptr);
        std::printf("%g %g ", results[0], results[2]);
        std::printf("%d\n", units_convert_array(values, 3, "km", results, "s", nullptr));
        std::printf("%s,", names_of(units_match("km"), std::free).c_str());
        std::printf("%s,", names_of(units_match("3 km/s"), std::free).c_str());
        std::printf("%d", units_match("km/xyz") == nullptr);
    });
    EXPECT_EQ(out,
              "0 1000 ''\n0 3.6 ''\n1 -1 'm s^-1 '\n1 -1 'm^2 s^-2 '\n-1 -1 ''\n-1 -1 ''\n"
              "-1 -1 ''\n0 0.5 ''\n-1 -1 ''\n-1 -1 ''\n0 1e+09 ''\n1000 3000 1\n"
              "glass inch meter,mps,1");
}

TEST(Units, ChangedRecordsCountAtOnce) {
    EXPECT_EQ(with_table("! m\nfoot = 0.3 m\n",
                         [] {
                             double result;
                             const auto feet = [&] {
                                 units_convert(1, "foot", &result, "m", nullptr);
                                 std::printf("%g ", result);
                             };
                             feet();
                             Unit* old = nullptr;
                             unit_found("foot", &old, nullptr);
                             old->factor = 0.3048;
                             feet();
                             Unit* made = add_unit("foot");
                             std::printf("%g %d ", made->factor, made->exponents[0]);
                             copy_basis(made, old);
                             made->factor = 2;
                             feet();
                             Unit* loose = new_basis("loose");
                             std::printf("%s %g %d", loose->name, loose->factor,
                                         match_unit(loose, made));
                             free_unit(loose);
                         }),
              "0.3 0.3048 @: replacing definition for foot\n1 0 2 loose 1 0");
}

TEST(Units, Listings) {
    EXPECT_EQ(with_table("! m\n! s\nkm = 1000 m\nHz = 1/s\n",
                         [] {
                             units_init();
                             show_unit(nullptr);
                             show_unit(&nobasis);
                             show_all_units();
                         }),
              "unit=0\n"
              "  *NO*SUCH*UNIT*       1                      0   0\n"
              "\n2 basis units\n"
              "  m                    1                      1   0\n"
              "  s                    1                      0   1\n"
              "\n4 total units\n"
              "  Hz                   1                      0  -1\n"
              "  km                   1000                   1   0\n"
              "  m                    1                      1   0\n"
              "  s                    1                      0   1\n\n");
}

TEST(Units, ThreadsConvertAtOnce) {
    EXPECT_EQ(with_table(kTable,
                         [] {
                             std::vector<std::thread> threads;
                             for (int t = 0; t < 4; ++t)
                                 threads.emplace_back([t] {
                                     for (int i = 0; i < 300; ++i) {
                                         const std::string from = std::to_string(i + t) + " km/h";
                                         double result = 0;
                                         units_convert(3600, from.c_str(), &result, "m/s", nullptr);
                                         if (std::abs(result - 1000 * (i + t)) > 1e-6 * result)
                                             std::printf("%d: %g\n", i, result);
                                         freetbl(units_match(from.c_str()), std::free);
                                         if (i % 50 == t) add_unit(from.c_str());
                                         unit_found("kilometers", nullptr, nullptr);
                                     }
                                 });
                             for (auto& thread : threads) thread.join();
                             std::printf("done");
                         }),
              "done");
}

}  // namespace
