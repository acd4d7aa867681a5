// morva codec, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

class MorvaCodec : public testing::Test {
  protected:
    // Runs a shell command line in the folder of the test; complaints are part of the output.
    std::string run(const std::string& command, int status = 0) {
        const std::string line = "cd '" + dir_.path() +
                                 "' && SHIPPED='" MORVA_SOURCE_DIR
                                 "/data/samples' PATH='" MORVA_BINARY_DIR "/bin':$PATH && { " +
                                 command + "; } 2>&1";
        FILE* pipe = ::popen(line.c_str(), "r");
        std::string seen;
        for (int c; (c = std::fgetc(pipe)) != EOF;) seen.push_back(static_cast<char>(c));
        const int ended = ::pclose(pipe);
        EXPECT_EQ(WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, status) << command;
        return seen;
    }

    kit::TempDir dir_;
};

constexpr const char* kFormats[] = {"text",   "be32", "le32",        "cm6",
                                    "canada", "ucsd", "gencompress", "vkcompress"};

TEST_F(MorvaCodec, TakesTheShippedSamplesThroughEveryFormatAndBack) {
    run("morva codec decode -s 3 $SHIPPED/synthetic_crlf.gse2 -o plain");
    EXPECT_EQ(run("wc -l <plain"), "1400\n");
    for (const std::string format : kFormats)
        EXPECT_THAT(
            run("morva codec encode " + format + " plain -o packed && morva codec decode -f " +
                format + " packed | cmp - plain && morva codec info packed"),
            testing::MatchesRegex("packed: " + format +
                                  "( \\(a guess\\))?, 1400 samples in [0-9]+ bytes, "
                                  "[0-9.]+ a sample, -100999 \\.\\. 97927\n"));
}

TEST_F(MorvaCodec, WritesTheBytesOfEachFormat) {
    const struct {
        const char *format, *samples, *bytes;
    } rows[] = {
        {"be32", "1 -2", "00000001fffffffe"},
        {"le32", "1 -2", "01000000feffffff"},
        {"ucsd", "0 1 2 102", "000000001002ff0020019c"},
        {"gencompress", "+5", "0000000100000005"},
        {"vkcompress", "7", "00000007"},
        {"canada", "0 0 0 0 0 0 0 0 0 0 17 17 17 17 17 17 17 17 17 17 17",
         "0040000000000000"
         "0000"
         "011bc0"
         "0000"
         "0000"},
    };
    for (const auto& row : rows) {
        const std::string encode =
            std::string("printf '%s\\n' ") + row.samples + " | morva codec encode " + row.format;
        EXPECT_EQ(run(encode + " | od -An -v -tx1 | tr -d ' \\n'"), row.bytes) << row.format;
        EXPECT_EQ(run(encode + " | morva codec decode -f " + row.format + " | tr '\\n' ' '"),
                  std::string(row.samples + (row.samples[0] == '+')) + " ");
    }
    EXPECT_EQ(run("printf '# three\\n 3\\r\\n\\n0\\n0' | morva codec encode cm6"), "1K1\nCHK2 3\n");
    EXPECT_EQ(run("printf '\\0\\0\\0\\1\\0\\0\\0\\2' | morva codec decode -f be32 -t le32 -n 1 |"
                  "od -An -tx1"),
              " 01 00 00 00\n");
}

// Series that do not fill blocks of 20 are completed as the user wishes, or not at all.
TEST_F(MorvaCodec, LeavesTheSamplesBehindTheLastBlockToTheUser) {
    const std::string encode = "seq 1 47 | morva codec encode canada -l ";
    EXPECT_EQ(run(encode + "refuse", 2),
              "morva: standard input: 47 samples; canada takes blocks of 20, and 7 are left over: "
              "see --leftover\n");
    for (const auto& [choice, length, last] :
         {std::tuple{"zero", "60", "0"}, {"repeat", "60", "47"}, {"drop", "40", "40"}}) {
        EXPECT_EQ(run(encode + choice + " -o packed"),
                  std::string("morva: standard input: 47 samples became ") + length + "\n");
        EXPECT_EQ(run("morva codec decode -f canada packed | tail -n 1"), std::string(last) + "\n");
    }
    EXPECT_EQ(run("seq 1 7 | morva codec encode canada -l drop 2>&1 | tail -n 1"),
              "morva: standard input: canada can't hold these samples: a block has 20 samples, and "
              "there are fewer\n");
}

TEST_F(MorvaCodec, TellsWhatItCannotUse) {
    const std::string wid2 =
        "WID2 2026/03/14 04:21:07.350 ALDA  HHZ      CM6        4  100.000000   6.25e-02   1.000\n";
    kit::write_file(dir_.file("two.gse2"),
                    wid2 + "DAT2\n+-++\nCHK2 6\n" + wid2 + "DAT2\n+-++\nCHK2 7\n");
    kit::write_file(dir_.file("junk"), std::string("\1\2\0\3\4", 5));
    kit::write_file(dir_.file("bomb"), "zlib\x7f\xff\xff\xf0_x");
    kit::write_file(dir_.file("words"), "12\n12 13\n");
    kit::write_file(dir_.file("loud"), "0\n1073741824\n");
    kit::write_file(dir_.file("raw"), run("seq 1000 1100 | morva codec encode le32"));
    const std::pair<const char*, const char*> rows[] = {
        {"decode gone", "gone: can't read it: No such file or directory"},
        {"decode .", ".: can't read it: Is a directory"},
        {"decode two.gse2", "two.gse2: choose one of 2 with --section"},
        {"decode -s 2 two.gse2", "two.gse2, section 2 (ALDA HHZ): CHK2 says 7, samples give 6"},
        {"decode -s 3 two.gse2", "two.gse2: choose one of 2 with --section"},
        {"decode -s 2 $SHIPPED/synthetic.gse2",
         "/data/samples/synthetic.gse2, section 2 (ALDA LHZ): the data are INT, only CM6 can be "
         "read"},
        {"info junk", "junk: no format that is known"},
        {"info -f canada junk",
         "junk: no good canada: the keys of no number of blocks ask for these bytes"},
        {"decode -f ucsd words", "words: no good ucsd: no run of samples in the last 5 bytes"},
        {"decode bomb", "bomb: no good vkcompress: vkexpand: zlib uncompress fails, returning -3"},
        {"compare words", "words: no good text: line 2: '12 13' is no whole number of 32 bits"},
        {"compare raw", "raw: looks like le32, but other bytes might: name the format with --from"},
        {"decode -n 3 loud", "loud: only 2 samples"},
        {"encode ucsd loud",
         "loud: ucsd can't hold these samples: cucsd_try: a sample and its "
         "difference need more than 24 and 16 bits"},
        {"encode be32 loud -o no/such", "can't write no/such\n\tNo such file or directory"},
    };
    for (const auto& [command, problem] : rows)
        EXPECT_THAT(run(std::string("morva codec ") + command, 2),
                    testing::AllOf(testing::StartsWith("morva: "),
                                   testing::EndsWith(std::string(problem) + "\n")))
            << command;
}

TEST_F(MorvaCodec, ComparesTheCodecs) {
    run("{ seq 1 46; echo 2000000000; } >series");
    EXPECT_THAT(
        run("morva codec compare series"),
        testing::MatchesRegex(
            "series: 47 samples\n"
            "  codec +bytes  B/sample    of raw  enc. M/s  dec. M/s  round trip\n"
            "  cm6 +[0-9]+ +[0-9.]+ +[0-9.]+ % +[0-9.]+ +[0-9.]+  good\n"
            "  canada .* good, last sample repeated 13 times\n"
            "  ucsd +-  cucsd_try: a sample and its difference need more than 24 and 16 bits\n"
            "  gencompress .* good\n  vkcompress .* good\n"));
    EXPECT_THAT(run("morva codec compare --json series; morva codec info --json series"),
                testing::MatchesRegex(
                    "\\{\"file\":\"series\",\"samples\":47,\"codecs\":\\[\\{\"codec\":\"cm6\","
                    "\"round_trip\":true,\"bytes\":[0-9]+,\"bytes_per_sample\":[0-9.]+,"
                    "\"samples_added\":0,\"encoded_per_second\":[0-9]+,"
                    "\"decoded_per_second\":[0-9]+\\},.*\"codec\":\"ucsd\",\"round_trip\":false,"
                    "\"reason\":\".*\\}\\]\\}\n"
                    "\\{\"file\":\"series\",\"format\":\"text\",\"guessed\":false,\"bytes\":140,"
                    "\"samples\":47,\"minimum\":1,\"maximum\":2000000000\\}\n"));
}

}  // namespace
