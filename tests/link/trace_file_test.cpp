// The trace file: its bytes, its permissions, what a protocol analyser's library reads back, which
// events of the link level leave a record.
#include "link/trace_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "link/link_level.h"
#include "tests/link/fake_transport.h"
#include "tests/support/bytes.h"
#include "tests/support/capture.h"
#include "tests/support/files.h"
#include "tests/support/program.h"

namespace {

namespace fs = std::filesystem;

constexpr char kPath[] = "/tmp/trace.pcap";

std::int64_t microseconds_now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return std::int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

// In the host's byte order.
template <typename Number = std::uint32_t>
Number number_at(const Bytes& file, std::size_t offset) {
    Number number = 0;
    std::memcpy(&number, file.data() + offset, sizeof number);
    return number;
}

class TraceFile : public testing::Test {
  protected:
    TraceFile() {
        wire = {};
        fs::remove_all(kPath);
        zondar_pcap_path = kPath;
    }
    ~TraceFile() override { zondar_pcap_path = ""; }

    void load(const Bytes& bytes) { std::copy(bytes.begin(), bytes.end(), frame_area(record_)); }
    void write(unsigned direction) { write_zondar_msg_to_pcap(frame_area(record_), direction); }
    void receive(const Bytes& incoming) {
        wire.incoming = incoming;
        printed_by([this] { recibir_mensaje_nenlace(&port_, &record_, 5000, 0); });
    }
    static Bytes file() { return text_bytes(read_file(kPath)); }

    tPuertoZondar port_{7};
    mensaje record_{};
};

// The records as libpcap sees them: direction byte and frame.
std::vector<std::string> records() {
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_t* const trace = pcap_open_offline(kPath, error);
    if (trace == nullptr)
        return {error};
    EXPECT_EQ(pcap_datalink(trace), 147);
    EXPECT_EQ(pcap_major_version(trace), 2);
    EXPECT_EQ(pcap_minor_version(trace), 4);
    std::vector<std::string> found;
    pcap_pkthdr* header = nullptr;
    const u_char* packet = nullptr;
    int result = 0;
    while ((result = pcap_next_ex(trace, &header, &packet)) == 1) {
        EXPECT_EQ(header->caplen, header->len);
        found.push_back(to_hex({packet, header->caplen}));
    }
    EXPECT_EQ(result, PCAP_ERROR_BREAK) << pcap_geterr(trace);
    pcap_close(trace);
    return found;
}

TEST_F(TraceFile, OfOneFrameByteByByte) {
    load(hex("A5 07 01 02 03 01 2A C8 99"));
    const std::int64_t before = microseconds_now();
    write(1);
    const std::int64_t after = microseconds_now();

    const Bytes all = file();
    ASSERT_EQ(all.size(), 24U + 16U + 10U);
    EXPECT_EQ(number_at(all, 0), 0xA1B2C3D4U);
    EXPECT_EQ(number_at<std::uint16_t>(all, 4), 2) << "major version";
    EXPECT_EQ(number_at<std::uint16_t>(all, 6), 4) << "minor version";
    EXPECT_EQ(number_at(all, 8), 0U) << "zone";
    EXPECT_EQ(number_at(all, 12), 0U) << "accuracy";
    EXPECT_EQ(number_at(all, 16), 0U) << "snapshot length";
    EXPECT_EQ(number_at(all, 20), 147U) << "link type";
    const std::int64_t stamp = std::int64_t{number_at(all, 24)} * 1000000 + number_at(all, 28);
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
    EXPECT_LT(number_at(all, 28), 1000000U);
    EXPECT_EQ(number_at(all, 32), 10U) << "captured";
    EXPECT_EQ(number_at(all, 36), 10U) << "on the wire";
    EXPECT_EQ(to_hex(std::span(all).subspan(40)), "01 A5 07 01 02 03 01 2A C8 99");
}

struct Record {
    const char* name;
    Bytes frame;
    unsigned direction;
    Bytes packet;
};

void PrintTo(const Record& test, std::ostream* out) {
    *out << test.name;
}

class TraceRecord : public TraceFile, public testing::WithParamInterface<Record> {};

TEST_P(TraceRecord, HoldsDirectionFrameAndTheCrcPosition) {
    load(GetParam().frame);
    write(GetParam().direction);
    EXPECT_EQ(file().size(), 24 + 16 + GetParam().packet.size());
    EXPECT_EQ(records(), std::vector{to_hex(GetParam().packet)});
}

INSTANTIATE_TEST_SUITE_P(
    Frames, TraceRecord,
    testing::Values(
        Record{"NoInfo", hex("A5 04 00 00 00 00 FC"), 0, hex("00 A5 04 00 00 00 00 FC 00")},
        Record{"NoInfoCrc8", hex("A5 84 00 00 00 00 7C D4 EE"), 1,
               hex("01 A5 84 00 00 00 00 7C D4")},
        Record{"Info255", joined({hex("A5 87 01 02 03 FF"), Bytes(255, 0x44), hex("B8 E7")}), 0,
               joined({hex("00 A5 87 01 02 03 FF"), Bytes(255, 0x44), hex("B8 E7")})}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(TraceFile, GrowsByOneRecordPerFrame) {
    load(hex("A5 04 00 00 00 00 FC"));
    write(0);
    load(hex("A5 07 00 00 00 01 2A CE"));
    write(1);
    write(0);
    EXPECT_EQ(file().size(), 24U + (16 + 9) + (16 + 10) + (16 + 10));
    EXPECT_EQ(records(), (std::vector<std::string>{"00 A5 04 00 00 00 00 FC 00",
                                                   "01 A5 07 00 00 00 01 2A CE 00",
                                                   "00 A5 07 00 00 00 01 2A CE 00"}));
}

// No header then, whatever the file is.
TEST_F(TraceFile, IsAppendedToWhenItExists) {
    write_file(kPath, "notes\n");
    load(hex("A5 04 00 00 00 00 FC"));
    write(0);
    const Bytes all = file();
    ASSERT_EQ(all.size(), 6U + 16U + 9U);
    EXPECT_EQ(to_hex(std::span(all).first(6)), to_hex(text_bytes("notes\n")));
    EXPECT_EQ(to_hex(std::span(all).last(9)), "00 A5 04 00 00 00 00 FC 00");
}

TEST_F(TraceFile, IsNotWrittenWithoutAPath) {
    zondar_pcap_path = "";
    EXPECT_EQ(printed_by([this] { write(0); }), (Printed{"", ""}));
    EXPECT_FALSE(fs::exists(kPath));
}

TEST_F(TraceFile, IsCreatedForAllToRead) {
    for (const mode_t mask : {022U, 0U}) {
        fs::remove(kPath);
        umask(mask);
        write(0);
        struct stat status {};
        ASSERT_EQ(stat(kPath, &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0644U) << mask;
    }
}

TEST_F(TraceFile, IsClosedAfterEveryFrame) {
    const auto open_files = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = open_files();
    write(0);
    write(1);
    EXPECT_EQ(open_files(), before);
}

TEST_F(TraceFile, ThatCannotBeOpenedGivesAnErrorLine) {
    write_file("/tmp/read_only.pcap", "");
    fs::permissions("/tmp/read_only.pcap", fs::perms::owner_read);
    write_file("/tmp/write_only.pcap", "");
    fs::permissions("/tmp/write_only.pcap", fs::perms::owner_write);
    const struct {
        const char* path;
        const char* reason;
    } cases[] = {
        {"/tmp/no/such/folder/trace.pcap", "No such file or directory"},
        {"/tmp", "Is a directory"},
        {"/tmp/read_only.pcap", "Permission denied"},
        {"/tmp/write_only.pcap", "Permission denied"},
        {"/etc/trace.pcap", "Read-only file system"},
    };
    for (const auto& [path, reason] : cases) {
        zondar_pcap_path = path;
        EXPECT_EQ(printed_by([this] { write(0); }),
                  (Printed{.out = "",
                           .err = "[ERROR]write_zondar_msg_to_pcap: Error abriendo log: " +
                                  std::string(reason) + "\n"}));
    }
    EXPECT_EQ(fs::file_size("/tmp/read_only.pcap"), 0U);
    EXPECT_EQ(fs::file_size("/tmp/write_only.pcap"), 0U);
}

TEST_F(TraceFile, ThatIsFullIsPassedOverInSilence) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit room_for_the_header{24, limit.rlim_max};
    EXPECT_EQ(printed_by([&] {
                  setrlimit(RLIMIT_FSIZE, &room_for_the_header);
                  write(0);
                  write(0);
                  setrlimit(RLIMIT_FSIZE, &limit);
              }),
              (Printed{"", ""}));
    EXPECT_EQ(file().size(), 24U);
}

// After a sending in normal mode the CRC position holds what the record had there.
TEST_F(TraceFile, HoldsASentFrame) {
    load(hex("00 00 00 00 00 01 2A 00 77"));
    record_.comando = 7;
    enviar_mensaje_nenlace(&port_, &record_, 0);
    EXPECT_EQ(records(), std::vector<std::string>{"01 A5 07 00 00 00 01 2A CE 77"});
}

// The codes are those of the scrambled info.
TEST_F(TraceFile, HoldsTheInfoOfACrc8SendingPlain) {
    load(hex("00 00 00 00 00 01 2A"));
    record_.comando = 7;
    enviar_mensaje_nenlace(&port_, &record_, 1);
    EXPECT_EQ(to_hex(wire.sent), "A5 87 00 00 00 01 7F F9 12");
    EXPECT_EQ(records(), std::vector<std::string>{"01 A5 87 00 00 00 01 2A F9 12"});
}

TEST_F(TraceFile, HoldsAReceivedFrame) {
    receive(hex("A5 07 00 00 00 01 2A CE"));
    EXPECT_EQ(records(), std::vector<std::string>{"00 A5 07 00 00 00 01 2A CE 00"});
}

TEST_F(TraceFile, HoldsTheInfoOfACrc8ReceptionPlain) {
    receive(hex("A5 87 00 00 00 01 7F F9 12"));
    EXPECT_EQ(records(), std::vector<std::string>{"00 A5 87 00 00 00 01 2A F9 12"});
}

TEST_F(TraceFile, HoldsTheInfoOfAnUnexpectedSequenceScrambled) {
    receive(hex("A5 B4 00 00 00 02 44 77 8F E3"));
    EXPECT_EQ(records(), std::vector<std::string>{"00 A5 B4 00 00 00 02 44 77 8F E3"});
}

// Of the old frame, what the time-out left of it.
TEST_F(TraceFile, HoldsTheRecordAfterATimeout) {
    load(hex("A5 07 00 00 00 01 2A CE"));
    receive(hex("A5 33"));
    EXPECT_EQ(records(), std::vector<std::string>{"00 A5 33 00 00 00 01 2A CE 00"});
}

TEST_F(TraceFile, HoldsNothingOfAFrameWithWrongCodes) {
    receive(hex("A5 07 00 00 00 01 2A CF"));
    receive(hex("A5 87 00 00 00 01 7F F9 13"));
    EXPECT_FALSE(fs::exists(kPath));
}

// What the system is asked for while this program, started once more, writes the first record. Who
// follows the file sees each part as it comes.
TEST_F(TraceFile, IsWrittenPartByPart) {
    constexpr const char* kInside = "ZONDAR_WRITES_A_RECORD";
    load(hex("A5 03 00 00 00 02 3F 3C 80 00"));
    if (std::getenv(kInside) != nullptr)
        return write(kFrameSent);
    setenv(kInside, "1", 1);
    const std::string self = fs::read_symlink("/proc/self/exe");
    const ProgramRun run =
        run_program({"/usr/bin/strace", "-E", "ASAN_OPTIONS=detect_leaks=0", "-o", "/tmp/calls",
                     "-P", kPath, "-e", "trace=access,openat,write,writev,close", self,
                     "--gtest_filter=TraceFile.IsWrittenPartByPart"});
    unsetenv(kInside);
    EXPECT_EQ(run.status, 0) << run.out << run.err;
    std::string calls;
    std::istringstream lines(read_file("/tmp/calls"));
    for (std::string line; std::getline(lines, line);) {
        // What stands before is the fixture's own look for the file.
        if (line.starts_with("access"))
            calls.clear();
        if (line.find('(') != std::string::npos)
            calls += line.substr(0, line.find('(')) + line.substr(line.rfind(" = ")) + "\n";
    }
    EXPECT_THAT(calls, testing::MatchesRegex("access = -1 ENOENT [^\n]+\n"
                                             "openat = [0-9]+\n"
                                             "write = 24\n"
                                             "write = 16\n"
                                             "write = 1\n"
                                             "write = 10\n"
                                             "close = 0\n"));
}

}  // namespace
