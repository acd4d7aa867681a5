// Runs the example and the generator of its samples as a user does.
#include <sys/wait.h>

#include "morva/cm6.h"
#include "support/kit.hpp"

namespace {

const std::string kPrograms = MORVA_BINARY_DIR "/bin/";
const std::string kShipped = MORVA_SOURCE_DIR "/data/samples/";
const std::string kUnits = MORVA_SOURCE_DIR "/data/units";
const std::string kWid2 =
    "WID2 2026/03/14 04:21:07.350 ALDA  HHZ      CM6        4  100.000000   6.25e-02   1.000\n";

struct Outcome {
    int status;
    std::string out, err;
};

class Wfreport : public testing::Test {
  protected:
    // Runs a shell command line in the private folder.
    Outcome run(const std::string& command) {
        const std::string line = "cd '" + folder_.path() + "' && { " + command + "; } 2>errors";
        FILE* pipe = ::popen(line.c_str(), "r");
        std::string out;
        for (int c; (c = std::fgetc(pipe)) != EOF;) out.push_back(static_cast<char>(c));
        const int status = ::pclose(pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out,
                kit::read_file(folder_.file("errors"))};
    }
    // Without what a good run has to say.
    Outcome report(const std::string& arguments) {
        return run("ELOG_DELIVER=/dev/null@n " + kPrograms + "wfreport " + arguments);
    }
    void write(const std::string& name, const std::string& text) {
        kit::write_file(folder_.file(name), text);
    }

    kit::TempDir folder_;
};

// The words of the one table row that names a file.
std::vector<std::string> row_of(const std::string& out, const std::string& file) {
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<std::string> row{std::istream_iterator<std::string>(words), {}};
        if (!row.empty() && row.front() == file) return row;
    }
    return {};
}

// The row without its last word, the decode speed.
std::string fixed_part(const std::string& out, const std::string& file) {
    std::string text;
    const auto row = row_of(out, file);
    for (size_t i = 0; i + 1 < row.size(); ++i) text += (i > 0 ? " " : "") + row[i];
    return text;
}

TEST_F(Wfreport, FindsEveryShippedSectionGood) {
    const Outcome seen = report(kShipped + "synthetic.gse2 " + kShipped + "synthetic_crlf.gse2");
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.err, "");
    EXPECT_THAT(seen.out,
                testing::EndsWith("\n16 sections in 2 files: all good, 1 section skipped (INT)\n"));
    EXPECT_THAT(fixed_part(seen.out, "synthetic_crlf.gse2"),
                testing::StartsWith("synthetic_crlf.gse2 ALDA HHZ 2026-03-14 04:21:07.350 1400 "
                                    "20.0000 "));
}

TEST_F(Wfreport, HasSamplesThatTheGeneratorMakes) {
    EXPECT_EQ(run(kPrograms + "make_sample .").status, 0);
    for (const char* name : {"synthetic.gse2", "synthetic_crlf.gse2"})
        EXPECT_TRUE(kit::read_file(folder_.file(name)) == kit::read_file(kShipped + name)) << name;
}

TEST_F(Wfreport, PrintsWhatASectionHolds) {
    write("m.gse2",
          "Subject: WID2 in a mail header\n\n" + kWid2 + "STA2 SYNTH\nDAT2\n31K1\nCHK2 13\nSTOP\n");
    // 5, -1 - 4, ...: the samples are 5, 13, 15, 20 with second differences 5, 3, -6, 3.
    const Outcome seen = report("m.gse2");
    EXPECT_EQ(seen.status, 1);
    EXPECT_THAT(seen.err, testing::HasSubstr("m.gse2: section 1 (ALDA HHZ), line 3: CHK2 says 13, "
                                             "samples give 53\n"));
    EXPECT_EQ(fixed_part(seen.out, "m.gse2"),
              "m.gse2 ALDA HHZ 2026-03-14 04:21:07.350 4 100.0000 5 20 13.250 counts DIFFERS 4.50");
    EXPECT_THAT(seen.out, testing::EndsWith("\n1 section in 1 file: 1 bad section, 1 bad file\n"));
}

TEST_F(Wfreport, ReadsWid2LinesWhoseColumnsAreNotKept) {
    const std::string data = "DAT2\n+-++\nCHK2 6\n";
    const std::pair<std::string, const char*> rows[] = {
        {"WID2 2005/08/31 02:33:49.850 RJOB    Z RJOB CM6        4  200.000000   9.49e-02\n",
         "2005-08-31 02:33:49.850 4 200.0000"},
        {"WID2 2005/08/31 02:33:49.850 RJOB Z CM6 4 200.0\n", "2005-08-31 02:33:49.850 4 200.0000"},
        {"WID2  2005/08/31 02:33:49.850 RJOB    Z RJOB CM6        4  200.000000   9.49e-02\n",
         "2005-08-31 02:33:49.850 4 200.0000"},
        {"WID2  2005/08/31  02:33:49.850  RJOB  Z  RJOB  CM6  4  200.0\r\n",
         "2005-08-31 02:33:49.850 4 200.0000"},
    };
    for (const auto& [wid2, expected] : rows) {
        write("m.gse2", wid2 + data);
        const Outcome seen = report("m.gse2");
        EXPECT_EQ(seen.status, 0) << wid2 << seen.err;
        EXPECT_THAT(fixed_part(seen.out, "m.gse2"),
                    testing::StartsWith(std::string("m.gse2 RJOB Z ") + expected));
    }
}

TEST_F(Wfreport, TakesSloppyLines) {
    std::string small = kWid2;
    small.replace(small.find("CM6"), 3, "cm6");
    for (const std::string& text : {
             small + "DAT2\n+-++\nCHK2 6\nSTOP\n",
             kWid2 + "DAT2 CM6\n+-++\nCHK2 6\n",
             kWid2 + "DAT2   \n+-   \n+ \n+    \nCHK2 6    \n",
             kWid2 + "DAT2 \r\n+-  \r\n++ \r\nCHK2 6 \r\n",
         }) {
        write("m.gse2", text);
        const Outcome seen = report("m.gse2");
        EXPECT_EQ(seen.status, 0) << text << seen.err;
        EXPECT_EQ(row_of(seen.out, "m.gse2").at(11), "good") << text;
    }
}

TEST_F(Wfreport, TellsWhatIsWrongInOneLine) {
    const std::string data = "DAT2\n+-++\nCHK2 6\n";
    std::string five = kWid2;
    five.replace(five.find("       4 "), 9, "       5 ");
    std::string damaged = kWid2;
    damaged.replace(damaged.find("CM6"), 3, "C?6");
    std::string fast = kWid2;
    fast.replace(fast.find("100.000000"), 10, "     1e300");
    const std::pair<std::string, std::string> rows[] = {
        {"", "no waveform section (no line that begins with WID2)"},
        {"Some text\n", "no waveform section (no line that begins with WID2)"},
        {"WID2 \n" + data, "section 1, line 1: can't read the WID2 line"},
        {kWid2, "section 1 (ALDA HHZ), line 1: no DAT2 line"},
        {kWid2 + "DAT2\n+-++\nSTOP\n", "section 1 (ALDA HHZ), line 1: no CHK2 line"},
        {kWid2 + "DAT2\n+-++\nCHK2 \n", "section 1 (ALDA HHZ), line 1: no number in the CHK2 line"},
        {kWid2 + "DAT2\n+-?+\nCHK2 6\n", "section 1 (ALDA HHZ), line 3: bad character '?'"},
        {kWid2 + "DAT2\n+-+U\nCHK2 6\n",
         "section 1 (ALDA HHZ), line 1: the data end inside a value"},
        {five + data, "section 1 (ALDA HHZ), line 1: WID2 says 5 samples, 4 were decoded"},
        {kWid2 + data + five + data + five + data,
         "section 2 (ALDA HHZ), line 5: WID2 says 5 samples, 4 were decoded (and 1 more)"},
        {kWid2 + "DAT2\n+-++\n" + kWid2 + data, "section 1 (ALDA HHZ), line 1: no CHK2 line"},
        {damaged + data, "section 1 (ALDA HHZ), line 1: can't read the WID2 line"},
        {fast + data, "section 1 (ALDA HHZ), line 1: can't read the WID2 line"},
        // Data may not get lost because the WID2 line above them did.
        {data + kWid2 + data, "section 1, line 1: data without a WID2 line of their own"},
        {"\xef\xbb\xbf" + kWid2 + data + kWid2 + data,
         "section 1, line 2: data without a WID2 line of their own"},
        {kWid2 + data + " " + kWid2 + data,
         "section 2, line 6: data without a WID2 line of their own"},
        {kWid2 + "DAT2\n+-++\nCHK2 6" + kWid2 + data + kWid2 + data,
         "section 2, line 5: data without a WID2 line of their own"},
        {kWid2 + data + data + data,
         "section 2, line 5: data without a WID2 line of their own (and 1 more)"},
    };
    for (const auto& [text, problem] : rows) {
        write("m.gse2", text);
        const Outcome seen = report("m.gse2");
        EXPECT_EQ(seen.status, 1) << text;
        EXPECT_EQ(seen.err, "wfreport: m.gse2: " + problem + "\n");
    }
}

TEST_F(Wfreport, GoesOnAfterABadFile) {
    write("good.gse2", kWid2 + "DAT2\n+-++\nCHK2 6\n");
    write(
        "skipped.gse2",
        "WID2 2026/03/14 04:21:07.350 ALDA  LHZ      CM8        4    1.000000\nDAT2\n1\nCHK2 1\n");
    const Outcome seen = report("missing.gse2 good.gse2 . skipped.gse2");
    EXPECT_EQ(seen.status, 1);
    EXPECT_EQ(seen.err,
              "wfreport: missing.gse2: can't read it: No such file or directory\n"
              "wfreport: .: can't read it: Is a directory\n");
    EXPECT_EQ(row_of(seen.out, "good.gse2").at(11), "good");
    EXPECT_EQ(row_of(seen.out, "skipped.gse2").back(), "CM8");
    EXPECT_THAT(seen.out, testing::EndsWith("\n2 sections in 4 files: 0 bad sections, 2 bad files, "
                                            "1 section skipped (CM8)\n"));
}

TEST_F(Wfreport, ReadsStandardInputAndExplainsItself) {
    write("good.gse2", kWid2 + "DAT2\n+-++\nCHK2 6\n");
    EXPECT_EQ(report("- <good.gse2").status, 0);
    const Outcome alone = report(""), asked = report("--help");
    EXPECT_EQ(alone.status, 1);
    EXPECT_THAT(alone.err, testing::HasSubstr("usage: wfreport [-o FOLDER] FILE..."));
    EXPECT_EQ(asked.status, 0);
    EXPECT_THAT(asked.out, testing::StartsWith("usage: wfreport [-o FOLDER] FILE..."));
    EXPECT_EQ(report("good.gse2 >/dev/full").status, 1);
}

TEST_F(Wfreport, KeepsHistoriesOfGoodSections) {
    // 5, 13, 15, 20 and the same with a calibration of 2 nm; a section whose checksum differs.
    std::string nm = kWid2;
    nm.replace(nm.find("6.25e-02"), 8, "2.00e+00");
    const std::string none = kWid2.substr(0, kWid2.find("   6.25e-02")) + "\n";
    const std::string data = "DAT2\n31K1\nCHK2 ";
    write("m.gse2", none + data + "53\n" + nm + data + "53\n" + nm + data + "13\n");
    write("wfreport.pf", "folder from/pf\nring_size 7\namplitude_unit nm\n");
    const kit::Env table("UNITS", kUnits.c_str());
    for (const std::string folder : {"from/pf/", "told/"}) {
        for (int i = 0; i < 2; ++i) report(folder == "told/" ? "-o told m.gse2" : "m.gse2");
        const auto values = [&](const std::string& name) {
            return run(kPrograms + "morva ring tail " + folder + name + ".ring | sed 's/.* //'")
                .out;
        };
        EXPECT_EQ(values("counts"), "8.25\n8.25\n");
        EXPECT_EQ(values("amplitude"), "16.5\n16.5\n");
        EXPECT_THAT(
            run(kPrograms + "morva ring stats " + folder + "*.ring").out,
            testing::AllOf(testing::HasSubstr("amplitude, nm\n  points         2\n"),
                           testing::HasSubstr("decode speed, Msample/s\n  points         4")));
    }
    EXPECT_EQ(report("-o m.gse2/no m.gse2").err,
              "wfreport: m.gse2 is not a directory\n"
              "wfreport *fatal*: no folder for m.gse2/no/speed.ring\n");
}

TEST_F(Wfreport, TakesItsSettingsFromAParameterFile) {
    const std::string root = MORVA_SOURCE_DIR;
    write("wfreport.pf",
          "announce no\nselect &Tbl{\nBREK:HHN\n}\ncodecs &Tbl{\n}\ncolumns "
          "&Tbl{\nsta\nchecksum\nstart\n}\n");
    const std::string path = "PFPATH=" + root + "/data/pf:. ";
    const Outcome seen = run("KORVALIN=" + root + " " + path + kPrograms + "wfreport");
    EXPECT_EQ(seen.err,
              "wfreport: settings from " + root + "/data/pf/wfreport.pf, ./wfreport.pf\n");
    EXPECT_EQ(seen.out,
              "sta   checksum  start\n"
              "BREK  good      2026-03-14 04:21:07.350\n"
              "1 section in 2 files: all good\n");

    write("wfreport.pf", "max_file_size 1k\nmax_bad_files 1\n");
    const Outcome limited = report(kShipped + "synthetic.gse2 " + kShipped + "synthetic_crlf.gse2");
    EXPECT_THAT(limited.err, testing::HasSubstr("synthetic.gse2: can't read it: File too large"));
    EXPECT_THAT(limited.out,
                testing::EndsWith("0 sections in 1 file: 0 bad sections, 1 bad file\n"));

    write("wfreport.pf", "columns &Tbl{\n");
    EXPECT_THAT(report(kShipped + "synthetic.gse2").err,
                testing::EndsWith("errors in the settings; they come from ./wfreport.pf\n"));
}

// A section of the counts 5, 13, 15 and 20, with a calibration.
std::string calibrated(const std::string& calibration) {
    std::string wid2 = kWid2;
    wid2.replace(wid2.find("  6.25e-02   1.000"), 18, calibration);
    return wid2 + "DAT2\n31K1\nCHK2 53\n";
}

TEST_F(Wfreport, ReportsAmplitudesInPhysicalUnits) {
    const struct {
        const char *unit, *calibration, *cells;
    } rows[] = {
        {"nm", "  6.25e-02   1.000", "0.3125 1.25 0.828125 nm"},
        {"um", "  6.25e-02        ", "0.0003125 0.00125 0.000828125 um"},
        {"nm/s", "  6.25e-02   1.000", "1.9635 7.85398 5.20326 nm/s"},
        {"nm/s", "  6.25e-02   2.000", "0.981748 3.92699 2.60163 nm/s"},
        {"nm/s^2", "  6.25e-02   1.000", "12.337 49.348 32.6931 nm/s^2"},
        {"mgal", "  6.25e-02   1.000", "0.0012337 0.0049348 0.00326931 mgal"},
        {"nm", " -6.25e-02   1.000", "-1.25 -0.3125 -0.828125 nm"},
        {"counts", "  6.25e-02   1.000", "5 20 13.250 counts"},
        {"nm", "  0.00e+00   1.000", "5 20 13.250 counts"},
        {"nm", "", "5 20 13.250 counts"},
        {"nm", "       nan   1.000", "5 20 13.250 counts"},
        {"nm/s", "  6.25e-02   0.000", "5 20 13.250 counts"},
    };
    for (const auto& row : rows) {
        write("wfreport.pf", std::string("amplitude_unit ") + row.unit + "\n");
        write("m.gse2", calibrated(row.calibration));
        const kit::Env table("UNITS", kUnits.c_str());
        const Outcome seen = report("m.gse2");
        EXPECT_EQ(seen.status, 0) << row.unit << seen.err;
        EXPECT_THAT(fixed_part(seen.out, "m.gse2"),
                    testing::HasSubstr(std::string(" 100.0000 ") + row.cells + " good"))
            << row.unit << row.calibration;
    }
    const kit::Env table("UNITS", kUnits.c_str());
    for (const char* unit : {"kg", "m/furlog"}) {
        write("wfreport.pf", std::string("amplitude_unit ") + unit + "\n");
        const Outcome seen = report("m.gse2");
        EXPECT_EQ(seen.status, 1);
        EXPECT_THAT(seen.err,
                    testing::HasSubstr(std::string("parameter file wfreport: '") + unit +
                                       "' is neither counts nor a unit of ground motion\n"));
    }
}

TEST_F(Wfreport, TakesTheShippedSamplesThroughEveryCodec) {
    const std::string root = MORVA_SOURCE_DIR;
    const Outcome seen = run("KORVALIN=" + root + " PFPATH=" + root + "/data/pf " + kPrograms +
                             "wfreport | grep -cE '^(synth|all).* [0-9]+( +[0-9]\\.[0-9]{3}){5}$'");
    EXPECT_EQ(seen.out, "16\n") << seen.err;
}

// One section that fits in every format, and one whose samples UCSD cannot hold.
TEST_F(Wfreport, ReportsTheSizeUnderEveryCodec) {
    int32_t samples[40] = {};
    for (int i = 0; i < 40; ++i) samples[i] = i * i;
    std::string message;
    for (int section = 0; section < 2; ++section) {
        char* text = nullptr;
        int nbytes, size = 0;
        cm6(samples, 40, &text, &nbytes, &size);
        std::string wid2 = kWid2;
        message += wid2.replace(wid2.find("       4 "), 9, "      40 ") + "DAT2\n" + text;
        std::free(text);
        samples[20] = 1 << 30;
    }
    write("m.gse2", message);
    const std::string codecs = "codecs &Tbl{\ncm6\ncanada\nucsd\ngencompress\nvkcompress\n}\n";
    write("wfreport.pf", codecs);
    const Outcome seen = report("m.gse2");
    EXPECT_EQ(seen.status, 0) << seen.err;
    EXPECT_THAT(
        seen.out,
        testing::HasSubstr("\nbytes a sample, verified by a round trip through every codec\n"
                           "file   sta   chn  samples    cm6 canada   ucsd gencompress vkcompress\n"
                           "m.gse2 ALDA  HHZ       40  1.300  1.050  1.125       0.650"));
    EXPECT_THAT(seen.out, testing::ContainsRegex(
                              "\nm.gse2 ALDA  HHZ       40  1.[0-9.]+  [0-9.]+      -  +[0-9.]+ +"
                              "[0-9.]+\nall              +80  [0-9.]+  [0-9.]+      -  "));
    write("wfreport.pf", "codecs &Tbl{\nsteim\n}\n");
    EXPECT_THAT(report("m.gse2").err, testing::HasSubstr("there is no codec 'steim'\n"));
}

TEST_F(Wfreport, AnnouncesItself) {
    write("m.gse2", calibrated(""));
    EXPECT_THAT(run(kPrograms + "wfreport m.gse2").err,
                testing::AllOf(testing::HasSubstr("wfreport 1.0   using libmorva "),
                               testing::HasSubstr("wfreport m.gse2 <#>\n")));
    write("wfreport.pf", "announce no\n");
    EXPECT_EQ(run(kPrograms + "wfreport m.gse2").err, "wfreport: settings from ./wfreport.pf\n");
}

}  // namespace
