// What the board's scripts may print, down to the odd: the pure parsers alone, without a script.
#include "processor/device_text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tests/processor/marked_buffer.h"
#include "tests/support/bytes.h"

namespace {

struct MacCase {
    const char* line;
    int result;
    const char* digits;  // empty: nothing is written
};

constexpr MacCase kMacs[] = {
    {.line = "00:1a:2b:3c:4d:5e", .result = 0, .digits = "001a2b3c4d5e"},
    {.line = "00:1A:2B:3C:4D:5E", .result = 0, .digits = "001A2B3C4D5E"},
    {.line = "aB:Cd:Ef:01:23:45", .result = 0, .digits = "aBCdEf012345"},
    // each position on its own, no two digits alike
    {.line = "01:23:45:67:89:ab", .result = 0, .digits = "0123456789ab"},
    // only the first colon counts; neither the digits nor the other separators are looked at
    {.line = "zz:--+..,gh/ij kl", .result = 0, .digits = "zz--..ghijkl"},
    {.line = "00::::::::::::::9", .result = 0, .digits = "00:::::::::9"},
    {.line = "1:22:33:44:55:66:7", .result = -1, .digits = ""},
    {.line = "1:22:33:44:55:66:", .result = -1, .digits = ""},
    {.line = ":22:33:44:55:66:7", .result = -1, .digits = ""},
    {.line = "0::11:22:33:44:55", .result = -1, .digits = ""},
    {.line = ":0:11:22:33:44:55", .result = -1, .digits = ""},
    {.line = "001:a2:b3:c4:d5:e", .result = -1, .digits = ""},
    {.line = "00-1a-2b-3c-4d-5e", .result = -1, .digits = ""},
    {.line = "00-1a:2b:3c:4d:5e", .result = -1, .digits = ""},
    {.line = "00:1a:2b:3c:4d:5", .result = -1, .digits = ""},
    {.line = "00:1a:2b:3c:4d:5e6", .result = -1, .digits = ""},
    {.line = "00:", .result = -1, .digits = ""},
    {.line = "00", .result = -1, .digits = ""},
    {.line = "", .result = -1, .digits = ""},
};

TEST(ParseMac, TakesSeventeenCharactersWithTheFirstColonAtPositionTwo) {
    for (const MacCase& c : kMacs) {
        SCOPED_TRACE(c.line);
        Bytes buffer = marked();
        EXPECT_EQ(parse_mac(c.line, buffer.data()), c.result);
        EXPECT_EQ(to_hex(buffer), to_hex(marked(text_bytes(c.digits))));
    }
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

struct Scanned {
    int result;
    Bytes buffer;
};

Scanned scan(std::string output, int selector) {
    Scanned scanned{.result = 0, .buffer = marked()};
    const std::unique_ptr<std::FILE, CloseFile> file(fmemopen(output.data(), output.size(), "r"));
    scanned.result = scan_versions(file.get(), selector, scanned.buffer.data());
    return scanned;
}

constexpr int kSoftware = 1;

struct VersionsCase {
    std::string output;
    const char* version;  // in hex, empty: nothing is written
    int result = 0;
    int selector = kSoftware;
};

void check(const std::vector<VersionsCase>& cases) {
    for (const VersionsCase& c : cases) {
        SCOPED_TRACE("selector " + std::to_string(c.selector) + ", output:\n" +
                     c.output.substr(0, 200));
        const Scanned scanned = scan(c.output, c.selector);
        EXPECT_EQ(scanned.result, c.result);
        EXPECT_EQ(to_hex(scanned.buffer), to_hex(marked(hex(c.version))));
    }
}

const std::string kBoard =
    "ZND2AV-T Software: 2.4.1\n"
    "ZND2AV-T U-Boot: 1.3.5\n"
    "ZND2AV-T Hardware: 3.1.9\n";

TEST(ScanVersions, TakesTheLabelOfTheSelector) {
    check({
        {.output = kBoard, .version = "02 04 01", .selector = 1},
        {.output = kBoard, .version = "01 03 05", .selector = 2},
        {.output = kBoard, .version = "03 01 09", .selector = 3},
    });
}

constexpr int kUnknownSelectors[] = {0, 4, -1, 256, 257, 2147483647};

TEST(ScanVersions, OfNoKnownSelectorFindsNothing) {
    for (const int selector : kUnknownSelectors) {
        check({
            {.output = kBoard, .version = "", .selector = selector},
            {.output = "b : 7.7.7\n", .version = "", .selector = selector},
            {.output = "b : .7\n", .version = "", .selector = selector},
        });
    }
}

// A word that begins with a NUL byte reads as an empty one.
TEST(ScanVersions, OfNoKnownSelectorIsNotTheLabelThatBeginsWithNul) {
    for (const int selector : kUnknownSelectors) {
        check({
            {.output = std::string("b \0label 7.7.7\n", 15), .version = "", .selector = selector},
            {.output = std::string("b \0 .7\n", 7), .version = "", .selector = selector},
        });
    }
}

TEST(ScanVersions, ReadsWordsWhateverSeparatesThem) {
    check({
        {.output = "b Software: 1.2.3", .version = "01 02 03"},
        {.output = "b Software: 1.2.3\r\nb U-Boot: 4.5.6\r\n", .version = "01 02 03"},
        {.output = "b U-Boot: 4.5.6 b Software: 1.2.3 b Hardware: 7.8.9", .version = "01 02 03"},
        {.output = "b\nSoftware:\n1.2.3\n", .version = "01 02 03"},
        {.output = " \t\n b\t\tSoftware: \v\f 1.2.3 \n\n", .version = "01 02 03"},
        // the words are counted in threes: a line of two or four shifts all that follow
        {.output = "b extra Software: 1.2.3\n", .version = ""},
        {.output = "Software: 9.9.9\nb Software: 1.2.3\n", .version = ""},
        {.output = "Software: 1.2.3\n", .version = ""},
    });
}

TEST(ScanVersions, ComparesTheWholeLabel) {
    check({
        {.output = "b software: 1.2.3\n", .version = ""},
        {.output = "b Software 1.2.3\n", .version = ""},
        {.output = "b Software:: 1.2.3\n", .version = ""},
        {.output = "b xSoftware: 1.2.3\n", .version = ""},
        {.output = "b Soft 1.2.3\n", .version = ""},
        {.output = "Software: b 1.2.3\n", .version = ""},
        {.output = "b UBoot: 1.2.3\n", .version = "", .selector = 2},
        {.output = "b Kernel: 9.9.9\nb Software: 1.2.3\n", .version = "01 02 03"},
        {.output = "Software: Software: 1.2.3\n", .version = "01 02 03"},
    });
}

TEST(ScanVersions, TakesTheLastMatchingLine) {
    check({
        {.output = "b Software: 1.2.3\nb Software: 4.5.6\n", .version = "04 05 06"},
        {.output = "b Software: 1.2.3\nb U-Boot: 7.8.9\nb Software: 4\n", .version = "04 00 00"},
    });
}

TEST(ScanVersions, MakesABytePerPart) {
    check({
        {.output = "b Software: 255.0.255\n", .version = "FF 00 FF"},
        {.output = "b Software: 256.257.511\n", .version = "00 01 FF"},
        {.output = "b Software: 1000.65535.65536\n", .version = "E8 FF 00"},
        {.output = "b Software: -1.-2.-256\n", .version = "FF FE 00"},
        {.output = "b Software: +1.007.010\n", .version = "01 07 0A"},
        {.output = "b Software: 1a.2-rc1.3beta\n", .version = "01 02 03"},
        {.output = "b Software: v1.x.y\n", .version = "00 00 00"},
        {.output = "b Software: 0x10.0x10.0x10\n", .version = "00 00 00"},
        // fewer parts, empty parts, more parts
        {.output = "b Software: 7\n", .version = "07 00 00"},
        {.output = "b Software: 7.\n", .version = "07 00 00"},
        {.output = "b Software: 7.8\n", .version = "07 08 00"},
        {.output = "b Software: 7.8.\n", .version = "07 08 00"},
        {.output = "b Software: 7..9\n", .version = "07 00 09"},
        {.output = "b Software: 7.8.9.10\n", .version = "07 08 09"},
    });
}

TEST(ScanVersions, FailsOnAVersionWithoutFirstPartAndWritesNothing) {
    check({
        {.output = "b Software: .5.6\n", .version = "", .result = -1},
        {.output = "b Software: .\n", .version = "", .result = -1},
        {.output = "b Software: ...\n", .version = "", .result = -1},
        {.output = "b Software: 1.2.3\nb Software: .5.6\n", .version = "", .result = -1},
        {.output = "b Software: .5.6\nb Software: 1.2.3\n", .version = "", .result = -1},
        // a word that begins with a NUL byte reads as an empty one
        {.output = std::string("b Software: \0 7\n", 16), .version = "", .result = -1},
        // not the wanted label
        {.output = "b U-Boot: .5.6\nb Software: 1.2.3\n", .version = "01 02 03"},
    });
}

TEST(ScanVersions, IgnoresARecordThatTheEndCutsOff) {
    check({
        {.output = "", .version = ""},
        {.output = " \n\n", .version = ""},
        {.output = "b", .version = ""},
        {.output = "b Software:", .version = ""},
        {.output = "b Software: \n", .version = ""},
        {.output = "b Software: 1.2.3\nb", .version = "01 02 03"},
        {.output = "b Software: 1.2.3\nb Software:", .version = "01 02 03"},
        {.output = "b Software: 1.2.3\nb Software: 4", .version = "04 00 00"},
    });
}

TEST(ScanVersions, SurvivesWordsAndOutputsOfAnyLength) {
    const std::string wide(1'000'000, 'x');
    std::string many;
    for (int i = 0; i < 50'000; ++i)
        many += "b Kernel: 9.9.9\n";
    const std::string zeros(500, '0');
    check({
        {.output = wide, .version = ""},
        {.output = wide + " Software: 1.2.3\n", .version = "01 02 03"},
        {.output = "b " + wide + " 1.2.3\nb Software: 4.5.6\n", .version = "04 05 06"},
        {.output = "b Software:" + wide + " 1.2.3\n", .version = ""},
        {.output = "b Kernel: " + wide + "\nb Software: 4.5.6\n", .version = "04 05 06"},
        {.output = "b Software: 1.2.3" + wide + "\nb U-Boot: 4.5.6\n", .version = "01 02 03"},
        {.output = many + "b Software: 1.2.3\n" + many, .version = "01 02 03"},
        // around the longest word that is kept whole
        {.output = "b Software: 1.2." + std::string(58, '0') + "9\n", .version = "01 02 09"},
        {.output = "b Software: " + zeros + ".2.3\n", .version = "00 00 00"},
    });
}

TEST(ScanVersions, TakesBytesThatAreNoText) {
    check({
        {.output = std::string("b\0b Software: 1.2.3\n", 20), .version = "01 02 03"},
        {.output = std::string("\0\0\0 Software: 1.2.3\n", 20), .version = "01 02 03"},
        {.output = "\xFF\xFE Software: 1.2.3\n", .version = "01 02 03"},
        {.output = "b \xFFSoftware: 1.2.3\n", .version = ""},
    });
}

TEST(ScanVersions, FailsWhenTheOutputCannotBeRead) {
    const std::unique_ptr<std::FILE, CloseFile> folder(std::fopen("/tmp", "r"));
    ASSERT_NE(folder, nullptr);
    Bytes buffer = marked();
    EXPECT_EQ(scan_versions(folder.get(), kSoftware, buffer.data()), -1);
    EXPECT_EQ(to_hex(buffer), to_hex(marked()));
}

}  // namespace
