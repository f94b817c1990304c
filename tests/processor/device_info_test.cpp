// The device sources on real files and scripts of the sandbox's /quelt: present, missing, odd.
#include "processor/device_info.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "tests/processor/marked_buffer.h"
#include "tests/support/bytes.h"
#include "tests/support/files.h"

namespace fs = std::filesystem;

namespace {

constexpr char kModel[] = "/quelt/conf/quelt_modelo";
constexpr char kSerial[] = "/quelt/conf/quelt_numserie";
constexpr char kMac[] = "/quelt/script/MAC";
constexpr char kSlaveIp[] = "/quelt/script/get_slave_ip.sh";
constexpr char kVersions[] = "/quelt/script/get_board_versions.sh";
constexpr char kHostname[] = "/quelt/bin/hostname";
constexpr char kFactory[] = "/quelt/script/reset_factory_default.sh";
constexpr char kNetwork[] = "/quelt/script/set_interfaces_db.sh";

using Getter = int (*)(std::uint8_t*);

int software_version(std::uint8_t* buffer) {
    return get_versions(buffer, 1);
}

// `text` with zeros behind it, as a source of `width` bytes writes it.
Bytes field(const std::string& text, std::size_t width) {
    Bytes bytes = text_bytes(text);
    bytes.resize(width);
    return bytes;
}

void expect_written(Getter getter, const Bytes& written) {
    Bytes buffer = marked();
    EXPECT_EQ(getter(buffer.data()), 0);
    EXPECT_EQ(to_hex(buffer), to_hex(marked(written)));
}

void expect_result_without_writing(Getter getter, int result) {
    Bytes buffer = marked();
    EXPECT_EQ(getter(buffer.data()), result);
    EXPECT_EQ(to_hex(buffer), to_hex(marked()));
}

void expect_failure(Getter getter) {
    expect_result_without_writing(getter, -1);
}

struct FileCase {
    const char* name;
    std::string text;
    const char* model;  // nullptr: the model fails
    const char* device_name;
    const char* serial;
};

const std::vector<FileCase> kFileCases = {
    {.name = "empty", .text = "", .model = nullptr, .device_name = "", .serial = ""},
    {.name = "blank first line",
     .text = "\nABCDEF\n",
     .model = nullptr,
     .device_name = "",
     .serial = ""},
    {.name = "short", .text = "AB\n", .model = "AB", .device_name = "AB", .serial = "AB"},
    {.name = "no line end", .text = "AB", .model = "AB", .device_name = "AB", .serial = "AB"},
    {.name = "second line",
     .text = "AB\nCDEFGHIJKLMN\n",
     .model = "AB",
     .device_name = "AB",
     .serial = "AB"},
    {.name = "carriage return",
     .text = "AB\r\n",
     .model = "AB\r",
     .device_name = "AB\r",
     .serial = "AB\r"},
    {.name = "blank", .text = " \n", .model = " ", .device_name = " ", .serial = " "},
    {.name = "not ASCII",
     .text = "\xC3\xB1\xFF\n",
     .model = "\xC3\xB1\xFF",
     .device_name = "\xC3\xB1\xFF",
     .serial = "\xC3\xB1\xFF"},
    {.name = "NUL inside",
     .text = std::string("AB\0CD\n", 6),
     .model = "AB",
     .device_name = "AB",
     .serial = "AB"},
    {.name = "NUL first",
     .text = std::string("\0CD\n", 4),
     .model = nullptr,
     .device_name = "",
     .serial = ""},
    {.name = "width of the name",
     .text = "ABCDEFGH\n",
     .model = "ABCDEFGH",
     .device_name = "ABCDEFGH",
     .serial = "ABCDEFGH"},
    {.name = "width of the model",
     .text = "ABCDEFGHI\n",
     .model = "ABCDEFGHI",
     .device_name = "ABCDEFGH",
     .serial = "ABCDEFGHI"},
    {.name = "one more",
     .text = "ABCDEFGHIJ\n",
     .model = "ABCDEFGHI",
     .device_name = "ABCDEFGH",
     .serial = "ABCDEFGHIJ"},
    {.name = "width of the serial number",
     .text = "ABCDEFGHIJKL\n",
     .model = "ABCDEFGHI",
     .device_name = "ABCDEFGH",
     .serial = "ABCDEFGHIJKL"},
    {.name = "longer than all",
     .text = "ABCDEFGHIJKLM\n",
     .model = "ABCDEFGHI",
     .device_name = "ABCDEFGH",
     .serial = "ABCDEFGHIJKL"},
    {.name = "a megabyte",
     .text = std::string(1'000'000, 'M'),
     .model = "MMMMMMMMM",
     .device_name = "MMMMMMMM",
     .serial = "MMMMMMMMMMMM"},
};

TEST(FileSource, GivesTheFirstLineCutAtItsWidthAndZeros) {
    for (const FileCase& c : kFileCases) {
        SCOPED_TRACE(c.name);
        write_file(kModel, c.text);
        write_file(kSerial, c.text);
        if (c.model != nullptr)
            expect_written(get_type_model, field(c.model, 10));
        else
            expect_failure(get_type_model);
        expect_written(get_name, field(c.device_name, 8));
        expect_written(get_serial_num, field(c.serial, 12));
    }
}

TEST(FileSource, HasAFileOfItsOwn) {
    write_file(kModel, "MODEL\n");
    write_file(kSerial, "SERIAL\n");
    expect_written(get_type_model, field("MODEL", 10));
    expect_written(get_name, field("MODEL", 8));
    expect_written(get_serial_num, field("SERIAL", 12));
}

TEST(FileSource, WithoutItsFileWritesNothing) {
    expect_failure(get_type_model);
    expect_result_without_writing(get_name, 0);
    expect_failure(get_serial_num);
}

TEST(FileSource, ThatMayNotBeReadWritesNothing) {
    for (const char* path : {kModel, kSerial}) {
        write_file(path, "ABCDEFGHIJKL\n");
        fs::permissions(path, fs::perms::none);
    }
    expect_failure(get_type_model);
    expect_result_without_writing(get_name, 0);
    expect_failure(get_serial_num);
}

// A folder can be opened, but no line read.
TEST(FileSource, ThatIsAFolderCountsAsEmpty) {
    fs::create_directories(kModel);
    fs::create_directories(kSerial);
    expect_failure(get_type_model);
    expect_written(get_name, field("", 8));
    expect_written(get_serial_num, field("", 12));
}

TEST(FileSource, IsReadAnewEachTime) {
    write_file(kSerial, "first\n");
    expect_written(get_serial_num, field("first", 12));
    write_file(kSerial, "second\n");
    expect_written(get_serial_num, field("second", 12));
}

// The same scripts for every getter that reads one: what one line gives is in the tables below.
struct CommandSource {
    const char* name;
    const char* path;
    Getter get;
    int result_without_output;
    std::string good_line;
    Bytes good_bytes;
};

std::ostream& operator<<(std::ostream& out, const CommandSource& source) {
    return out << source.name;
}

class CommandSources : public testing::TestWithParam<CommandSource> {
  protected:
    // The host name is what a program found by its name prints: one of ours goes first.
    CommandSources() { setenv("PATH", "/quelt/bin:/usr/bin:/bin", 1); }

    static void script(const std::string& lines) { write_script(GetParam().path, lines); }
    static void expect_good() { expect_written(GetParam().get, GetParam().good_bytes); }
    static void expect_nothing() {
        expect_result_without_writing(GetParam().get, GetParam().result_without_output);
    }
};

TEST_P(CommandSources, TakeTheOutput) {
    script("echo '" + GetParam().good_line + "'");
    expect_good();
}

TEST_P(CommandSources, AreRunAnewEachTime) {
    script("");
    expect_nothing();
    script("echo '" + GetParam().good_line + "'");
    expect_good();
    script("");
    expect_nothing();
}

// The host name's command then finds no such program, the others no such script.
TEST_P(CommandSources, ThatAreMissingGiveNothing) {
    setenv("PATH", "/quelt/bin", 1);
    expect_nothing();
}

TEST_P(CommandSources, ThatMayNotBeExecutedGiveNothing) {
    setenv("PATH", "/quelt/bin", 1);
    script("echo '" + GetParam().good_line + "'");
    fs::permissions(GetParam().path, fs::perms::owner_read);
    expect_nothing();
}

TEST_P(CommandSources, ThatPrintNothingGiveNothing) {
    for (const char* lines :
         {"true", "false", "exit 3", "kill -KILL $$", "exec >&-", "echo >&2 no"}) {
        SCOPED_TRACE(lines);
        script(lines);
        expect_nothing();
    }
}

TEST_P(CommandSources, MayFailBehindTheirOutput) {
    for (const char* end : {"exit 3", "kill -KILL $$", "kill -SEGV $$"}) {
        SCOPED_TRACE(end);
        script("echo '" + GetParam().good_line + "'\n" + end);
        expect_good();
    }
}

TEST_P(CommandSources, MayPrintInPieces) {
    const std::string& line = GetParam().good_line;
    script("printf %s '" + line.substr(0, 4) + "'\nsleep 0.05\necho '" + line.substr(4) + "'");
    expect_good();
}

TEST_P(CommandSources, MayOpenNoDescriptor) {
    script("echo '" + GetParam().good_line + "'");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    Bytes buffer = marked();
    const int result = GetParam().get(buffer.data());
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(to_hex(buffer), to_hex(marked()));
}

const CommandSource kCommandSources[] = {
    {.name = "Mac",
     .path = kMac,
     .get = get_MAC_num,
     .result_without_output = -1,
     .good_line = "00:1a:2b:3c:4d:5e",
     .good_bytes = text_bytes("001a2b3c4d5e")},
    {.name = "SlaveIp",
     .path = kSlaveIp,
     .get = get_slave_ip,
     .result_without_output = -1,
     .good_line = "169.254.34.21",
     .good_bytes = field("169.254.34.21\n", 16)},
    {.name = "Hostname",
     .path = kHostname,
     .get = get_hostname,
     .result_without_output = -1,
     .good_line = "head-end",
     .good_bytes = field("head-end", 18)},
    {.name = "Versions",
     .path = kVersions,
     .get = software_version,
     .result_without_output = 0,
     .good_line = "b Software: 1.2.3",
     .good_bytes = {1, 2, 3}},
};

INSTANTIATE_TEST_SUITE_P(, CommandSources, testing::ValuesIn(kCommandSources),
                         [](const auto& test) { return test.param.name; });

struct LineCase {
    std::string output;
    std::optional<std::string> text;  // none: refused
};

// The script prints the bytes as they are.
void check_lines(const char* script, Getter getter, std::size_t width,
                 const std::vector<LineCase>& cases) {
    for (const LineCase& c : cases) {
        SCOPED_TRACE(c.output.substr(0, 100));
        write_file("/quelt/output", c.output);
        write_script(script, "cat /quelt/output");
        if (c.text.has_value())
            expect_written(getter, field(*c.text, width));
        else
            expect_failure(getter);
    }
}

std::string random_bytes(std::size_t count) {
    std::mt19937 random(20'240'612);
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes += static_cast<char>(random());
    return bytes;
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

constexpr std::size_t kMegabyte = 1'000'000;

TEST(Mac, IsOneLineOfSeventeenCharacters) {
    check_lines(
        kMac, get_MAC_num, 12,
        {
            {.output = "00:1a:2b:3c:4d:5e", .text = "001a2b3c4d5e"},
            {.output = "00:1A:2b:3C:4d:5E\n", .text = "001A2b3C4d5E"},
            {.output = "00:1a:2b:3c:4d:5e\nff:ff:ff:ff:ff:ff\n", .text = "001a2b3c4d5e"},
            // cut behind the 17th character
            {.output = "00:1a:2b:3c:4d:5e\r\n", .text = "001a2b3c4d5e"},
            {.output = "00:1a:2b:3c:4d:5e6\n", .text = "001a2b3c4d5e"},
            {.output = "00:1a:2b:3c:4d:5e:6f:70\n", .text = "001a2b3c4d5e"},
            {.output = "00:1a:2b:3c:4d:5e" + std::string(kMegabyte, ' '), .text = "001a2b3c4d5e"},
            {.output = repeated("00:1a:2b:3c:4d:5e\n", 50'000), .text = "001a2b3c4d5e"},
            // the line end is not one of the 17
            {.output = "00:1a:2b:3c:4d:5\n", .text = {}},
            {.output = "00:1a:2b:3c:4d:5", .text = {}},
            {.output = "1:22:33:44:55:66:7\n", .text = {}},
            {.output = "001:a2:b3:c4:d5:e\n", .text = {}},
            {.output = "001a2b3c4d5e\n", .text = {}},
            {.output = "\n00:1a:2b:3c:4d:5e\n", .text = {}},
            {.output = " 00:1a:2b:3c:4d:5e\n", .text = {}},
            {.output = std::string("00:1a:2b\0:3c:4d:5e\n", 19), .text = {}},
            {.output = std::string("\0"
                                   "00:1a:2b:3c:4d:5e\n",
                                   19),
             .text = {}},
            {.output = std::string(kMegabyte, 'x'), .text = {}},
            {.output = random_bytes(kMegabyte), .text = {}},
        });
}

TEST(SlaveIp, KeepsItsLineEnd) {
    check_lines(kSlaveIp, get_slave_ip, 16,
                {
                    {.output = "1.2.3.4\n", .text = "1.2.3.4\n"},
                    {.output = "1.2.3.4", .text = "1.2.3.4"},
                    {.output = "1.2.3.4\r\n", .text = "1.2.3.4\r\n"},
                    {.output = "1.2.3.4\n5.6.7.8\n", .text = "1.2.3.4\n"},
                    {.output = "192.168.34.121\n", .text = "192.168.34.121\n"},
                    {.output = "169.254.134.121\n", .text = "169.254.134.121"},
                    {.output = "169.254.134.121", .text = "169.254.134.121"},
                    {.output = "169.254.134.1212\n", .text = "169.254.134.121"},
                    {.output = "\n1.2.3.4\n", .text = "\n"},
                    {.output = " \n", .text = " \n"},
                    {.output = "any text\n", .text = "any text\n"},
                    {.output = std::string("1.2\0.4\n", 7), .text = std::string("1.2\0.4\n", 7)},
                    {.output = std::string(kMegabyte, 'x'), .text = "xxxxxxxxxxxxxxx"},
                    {.output = repeated("1.2.3.4\n", 100'000), .text = "1.2.3.4\n"},
                    {.output = "", .text = {}},
                });
}

TEST(Hostname, IsAllLinesInOneCutAtSeventeenCharacters) {
    setenv("PATH", "/quelt/bin:/usr/bin:/bin", 1);
    check_lines(kHostname, get_hostname, 18,
                {
                    {.output = "zn", .text = "zn"},
                    {.output = "zn\n2av\n", .text = "zn2av"},
                    {.output = "\n\nzn\n", .text = "zn"},
                    {.output = "head-end-number-1\n", .text = "head-end-number-1"},
                    {.output = "head-end-number-12\n", .text = "head-end-number-1"},
                    {.output = "zn2av.example.org\n", .text = "zn2av.example.org"},
                    {.output = "zn 2 av\r\n", .text = "zn 2 av\r"},
                    {.output = std::string(kMegabyte, 'x'), .text = "xxxxxxxxxxxxxxxxx"},
                    {.output = repeated("x\n", 100'000), .text = "xxxxxxxxxxxxxxxxx"},
                    {.output = "\n", .text = {}},
                    {.output = "\n\n\n", .text = {}},
                    {.output = std::string("\0zn\n", 4), .text = {}},
                });
}

TEST(Hostname, IsThatOfTheMachine) {
    std::array<char, 256> name{};
    ASSERT_EQ(gethostname(name.data(), name.size()), 0);
    expect_written(get_hostname, field(std::string(name.data()).substr(0, 17), 18));
}

TEST(Versions, AreScannedFromTheScriptForEachSelector) {
    write_script(kVersions, "echo b Software: 1.2.3; echo b U-Boot: 4.5.6; echo b Hardware: 7.8.9");
    expect_written([](std::uint8_t* b) { return get_versions(b, 1); }, {1, 2, 3});
    expect_written([](std::uint8_t* b) { return get_versions(b, 2); }, {4, 5, 6});
    expect_written([](std::uint8_t* b) { return get_versions(b, 3); }, {7, 8, 9});
    for (const int selector : {0, 4, -1}) {
        Bytes buffer = marked();
        EXPECT_EQ(get_versions(buffer.data(), selector), 0);
        EXPECT_EQ(to_hex(buffer), to_hex(marked()));
    }
}

TEST(Versions, FailOnAVersionWithoutFirstPart) {
    write_script(kVersions, "echo b Software: 1.2.3; echo b Software: .2.3");
    expect_failure(software_version);
}

TEST(Versions, AreFoundInAFlood) {
    for (const std::string& flood :
         {std::string(kMegabyte, 'x'), repeated("b Kernel: 9.9.9\n", 60'000),
          random_bytes(kMegabyte)}) {
        write_file("/quelt/output", flood);
        write_script(kVersions, "cat /quelt/output");
        expect_result_without_writing(software_version, 0);
        write_script(kVersions, "echo b Software: 1.2.3; cat /quelt/output");
        expect_written(software_version, {1, 2, 3});
    }
}

struct Reset {
    int (*run)();
    const char* script;
};

constexpr Reset kResets[] = {{send_reset_factory, kFactory}, {send_reset_network, kNetwork}};

TEST(Resets, RunTheirScriptAndGiveItsExitStatus) {
    for (const Reset& reset : kResets) {
        SCOPED_TRACE(reset.script);
        write_script(reset.script, "echo \"$0\" >> /tmp/ran");
        EXPECT_EQ(reset.run(), 0);
        EXPECT_EQ(read_file("/tmp/ran"), std::string(reset.script) + "\n");
        fs::remove("/tmp/ran");

        for (const int status : {1, 3, 127, 255}) {
            write_script(reset.script, "exit " + std::to_string(status));
            EXPECT_EQ(reset.run(), status);
        }
        write_script(reset.script, "kill -KILL $$");
        EXPECT_EQ(reset.run(), 137);  // as a shell says that signal 9 ended its command
        write_script(reset.script, "kill -KILL $PPID");
        EXPECT_EQ(reset.run(), -1);  // the shell itself
        write_script(reset.script, "");
        fs::permissions(reset.script, fs::perms::owner_read);
        EXPECT_EQ(reset.run(), 126);
        fs::remove(reset.script);
        EXPECT_EQ(reset.run(), 127);
    }
}

}  // namespace
