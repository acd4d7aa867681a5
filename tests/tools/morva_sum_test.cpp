// morva sum, run as a user runs it.
#include <sys/wait.h>

#include "support/kit.hpp"

namespace {

class MorvaSum : public testing::Test {
  protected:
    // Runs a shell command line in the folder of the test; complaints are part of the output.
    void expect(const std::string& command, int status, const std::string& out) {
        const std::string line = "cd '" + dir_.path() +
                                 "' && PATH='" MORVA_BINARY_DIR "/bin':$PATH && { " + command +
                                 "; } 2>&1";
        FILE* pipe = ::popen(line.c_str(), "r");
        std::string seen;
        for (int c; (c = std::fgetc(pipe)) != EOF;) seen.push_back(static_cast<char>(c));
        const int ended = ::pclose(pipe);
        EXPECT_EQ(WIFEXITED(ended) ? WEXITSTATUS(ended) : -1, status) << command;
        EXPECT_EQ(seen, out) << command;
    }
    void write(const std::string& name, std::string_view text) {
        kit::write_file(dir_.file(name), text);
    }

    kit::TempDir dir_;
};

TEST_F(MorvaSum, PrintsEveryChecksum) {
    write("digits", "123456789");
    expect("morva sum -a all digits", 0,
           "CRC16 (digits) = bb3d\nCRC32 (digits) = 0376e6e7\nCRC64 (digits) = 46a5a9388a5beffe\n"
           "QTCRC (digits) = 37c7ca30\nQTCHECKSUM (digits) = 01dd\nADLER32 (digits) = 091e01de\n"
           "MD5 (digits) = 25f9e794323b453885f5181f1b624d0b\n"
           "SHA1 (digits) = f7c3bc1d808e04732adf679965ccc34ca7ae3441\n");
    expect("printf abc | morva sum --json - no/such digits", 1,
           "{\"file\":\"-\",\"bytes\":3,\"md5\":\"900150983cd24fb0d6963f7d28e17f72\"}\n"
           "morva: can't read no/such: No such file or directory\n"
           "{\"file\":\"digits\",\"bytes\":9,\"md5\":\"25f9e794323b453885f5181f1b624d0b\"}\n");
    expect("morva sum -a md5,crc99 digits", 2, "morva: there is no checksum called 'crc99'\n");
    expect("morva sum . ", 1, "morva: can't read .: Is a directory\n");
}

// A file of more than one piece, for checksums that are put together from those of the pieces.
TEST_F(MorvaSum, AgreesWithItsOwnListsAndThoseOfOthers) {
    std::string long_text;
    for (int i = 0; i < 200000; ++i) long_text += std::to_string(i);
    write("long", long_text);
    write("odd\nname\\", "abc");
    uint32_t crc;
    qtcrc(&crc, long_text.data(), static_cast<int>(long_text.size()));
    char line[80];
    std::snprintf(line, sizeof line, "QTCRC (long) = %08x\n", crc);
    expect("morva sum -a qtcrc long", 0, line);
    expect("morva sum -a all * >../list$$ && morva sum -cq ../list$$; s=$?; rm ../list$$; exit $s",
           0, "");
    expect(
        "md5sum * >../list$$; sha1sum --tag * >>../list$$; morva sum -cq ../list$$; s=$?; "
        "rm ../list$$; exit $s",
        0, "");
    expect("morva sum --json odd*", 0,
           "{\"file\":\"odd\\nname\\\\\",\"bytes\":3,"
           "\"md5\":\"900150983cd24fb0d6963f7d28e17f72\"}\n");
}

TEST_F(MorvaSum, TellsWhatIsWrong) {
    write("abc", "abc");
    write("list",
          "# sums\n\nMD5 (abc) = 900150983CD24FB0D6963F7D28E17F72\n"
          "CRC32 (abc) = 00000000\nSHA1 (gone) = a9993e364706816aba3e25717850c26c9cd0d89d\n"
          "MD5 (abc) = short\nCRC99 (abc) = 1\nwords\n");
    const std::string complaints =
        "morva: list:6: no checksum of a file\nmorva: list:7: no checksum of a file\n"
        "morva: list:8: no checksum of a file\n";
    expect("morva sum --check list", 1,
           complaints +
               "abc: good, MD5\nabc: WRONG, CRC32\n"
               "gone: WRONG, SHA1, can't be read: No such file or directory\n"
               "morva: 2 of 3 checksums are wrong\n");
    expect("morva sum --check --json list 2>/dev/null | head -2", 0,
           "{\"file\":\"abc\",\"algorithm\":\"md5\",\"good\":true,"
           "\"stated\":\"900150983cd24fb0d6963f7d28e17f72\","
           "\"computed\":\"900150983cd24fb0d6963f7d28e17f72\"}\n"
           "{\"file\":\"abc\",\"algorithm\":\"crc32\",\"good\":false,"
           "\"stated\":\"00000000\",\"computed\":\"9b73448c\"}\n");
    expect("printf '738b  abc\\n' | morva sum -c -a crc16 -", 1,
           "abc: WRONG, CRC16\nmorva: 1 of 1 checksums are wrong\n");
    expect("morva sum --check abc nowhere", 2,
           "morva: abc:1: no checksum of a file\nmorva: found no checksums in abc\n"
           "morva: can't read nowhere\n\tNo such file or directory\n");
}

}  // namespace
