// What a master puts on the wire: bytes as people write them, requests and their frames; and frames
// as they are read.
#include "master/frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "link/link_level.h"
#include "master/requests.h"
#include "tests/support/bytes.h"

namespace master {

namespace {

TEST(HexDigits, AreUpperCasePairsWithBlanksBetween) {
    EXPECT_EQ(hex_digits({}), "");
    EXPECT_EQ(hex_digits(Bytes{0}), "00");
    EXPECT_EQ(hex_digits(Bytes{0xA5, 0x04, 0xFF}), "A5 04 FF");
}

TEST(HexDigits, AreReadInEitherCaseWithAndWithoutWhatStandsBetween) {
    const struct {
        const char* text;
        Bytes bytes;
    } kCases[] = {
        {"", {}},
        {" \t\r\n", {}},
        {"A5 04 00", {0xA5, 0x04, 0x00}},
        {"a504fF", {0xA5, 0x04, 0xFF}},
        {"\n a5\n04\r\n 00  01 ", {0xA5, 0x04, 0x00, 0x01}},
        {"0x3F", {0x3F}},
        {"0x3F3C", {0x3F, 0x3C}},
        {"0x3F, 0X3c,3D 3E", {0x3F, 0x3C, 0x3D, 0x3E}},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(from_hex(each.text), each.bytes) << each.text;
}

TEST(HexDigits, AreNothingElse) {
    for (const char* const text :
         {"A", "A5 0", "A 5", "A5 G0", "0G", "0x", "0x 3F", "A50x04", "0x0x04", "x04", "0x4",
          "A5;04", "-1", "+1", "04 00 ??", "\xC3\xA9", "A5 4 00"})
        EXPECT_EQ(from_hex(text), std::nullopt) << text;
    EXPECT_EQ(from_hex(std::string_view("A5\0A5", 5)), std::nullopt);
    // Without a byte behind it, so that a sanitizer sees what is read there.
    const std::vector<char> odd = {'A', '5', '0'};
    EXPECT_EQ(from_hex({odd.data(), odd.size()}), std::nullopt);
}

TEST(WrittenNumber, IsDecimalOrHexadecimal) {
    const struct {
        const char* text;
        std::optional<std::uint32_t> number;
    } kCases[] = {
        {"0", 0},
        {"7", 7},
        {"007", 7},
        {"255", 255},
        {"0x0", 0},
        {"0xff", 255},
        {"0XfF", 255},
        {"4294967294", 4294967294},
        {"4294967295", 4294967295},
        {"4294967296", 4294967295},
        {"99999999999999999999999", 4294967295},
        {"0xFFFFFFFF", 4294967295},
        {"0x100000000", 4294967295},
        {"", std::nullopt},
        {" ", std::nullopt},
        {"0x", std::nullopt},
        {"x1", std::nullopt},
        {"-1", std::nullopt},
        {"+1", std::nullopt},
        {"0x-1", std::nullopt},
        {"0x0x1", std::nullopt},
        {" 1", std::nullopt},
        {"1 ", std::nullopt},
        {"1.5", std::nullopt},
        {"1e3", std::nullopt},
        {"ff", std::nullopt},
        {"99999999999999999999999x", std::nullopt},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(to_number(each.text), each.number) << each.text;
}

std::string wire(std::uint8_t command, const Bytes& info, bool crc8_mode,
                 std::uint8_t sequence = 0) {
    return to_hex(wire_bytes(request_record(command, info, crc8_mode, sequence), crc8_mode));
}

constexpr bool kNormal = false;
constexpr bool kCrc8Mode = true;

TEST(RequestFrame, IsThatOfTheProtocol) {
    const struct {
        std::uint8_t command;
        const char* info;
        bool crc8_mode;
        const char* frame;
    } kCases[] = {
        {4, "", kNormal, "A5 04 00 00 00 00 FC"},
        {0, "", kNormal, "A5 00 00 00 00 00 00"},
        {1, "01", kNormal, "A5 01 00 00 00 01 01 FD"},
        {3, "02 34", kNormal, "A5 03 00 00 00 02 02 34 C5"},
        {15, "", kNormal, "A5 0F 00 00 00 00 F1"},
        {4, "", kCrc8Mode, "A5 84 00 00 00 00 7C D4"},
        {3, "02 34", kCrc8Mode, "A5 83 00 00 00 02 57 61 C3 BD"},
        // Stuffed, in CRC8 mode what is A5 on the wire.
        {3, "02 A5", kNormal, "A5 03 00 00 00 02 02 A5 A5 54"},
        {3, "02 F0", kNormal, "A5 03 00 00 00 02 02 F0 09"},
        {3, "02 F0", kCrc8Mode, "A5 83 00 00 00 02 57 A5 A5 7F 16"},
        {3, "02 A5", kCrc8Mode, "A5 83 00 00 00 02 57 F0 34 F2"},
        // With header bytes of 0 the checksum would be A5, in CRC8 mode one of the two.
        {3, "28 01 2C", kNormal, "A5 03 00 00 01 03 28 01 2C A4"},
        {3, "08 00 76", kCrc8Mode, "A5 83 00 00 01 03 5D 55 23 A4 30"},
        {3, "02 75", kCrc8Mode, "A5 83 00 00 01 02 57 20 03 2A"},
    };
    for (const auto& each : kCases) {
        EXPECT_EQ(wire(each.command, hex(each.info), each.crc8_mode), each.frame) << each.info;
    }
}

TEST(RequestFrame, BearsItsSequenceNumber) {
    EXPECT_EQ(wire(15, {}, kNormal, 7), "A5 7F 00 00 00 00 81");
    EXPECT_EQ(wire(3, {0x02, 0x34}, kNormal, 3), "A5 33 00 00 00 02 02 34 95");
    EXPECT_EQ(wire(3, {0x02, 0x34}, kCrc8Mode, 3), "A5 B3 00 00 00 02 57 61 93 A9");
    EXPECT_EQ(wire(15, {}, kNormal, 8 + 7), "A5 7F 00 00 00 00 81");
}

TEST(RequestFrame, TakesTheFirst255BytesOfItsInfo) {
    const Bytes longest(255, 1);
    Bytes longer = longest;
    longer.resize(600, 2);
    const std::string frame = wire(3, longest, kNormal);
    EXPECT_EQ(frame.substr(0, 20), "A5 03 00 00 00 FF 01");
    EXPECT_EQ(frame.size(), 3 * 262 - 1U);
    EXPECT_EQ(wire(3, longer, kNormal), frame);
}

TEST(RequestFrame, LeavesTheInfoOfItsRecordPlain) {
    const mensaje record = request_record(3, Bytes{0x02, 0x34}, kCrc8Mode);
    wire_bytes(record, kCrc8Mode);
    EXPECT_EQ(record.info[0], 0x02);
    EXPECT_EQ(record.info[1], 0x34);
}

// The frame without its doubled bytes.
Bytes unstuffed(const Bytes& frame) {
    Bytes plain;
    for (std::size_t i = 0; i < frame.size(); ++i) {
        plain.push_back(frame[i]);
        if (i >= 2 && frame[i] == 0xA5)
            ++i;
    }
    return plain;
}

// Infos of all lengths, with few and with many bytes that are doubled.
Bytes info_of_length(std::size_t length, int kind) {
    Bytes info(length);
    for (std::size_t i = 0; i < length; ++i) {
        const std::size_t kBytes[] = {0, 0xA5, 0xF0, i, 0xA5 - i, i * i};
        info[i] = static_cast<std::uint8_t>(kBytes[kind]);
    }
    return info;
}

// What the module's own codec says to a frame among other bytes.
void expect_readable(const Bytes& frame, unsigned command, const Bytes& info) {
    const auto read = read_frame(joined({frame, {0, 1, 2}}));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->result, kReceived);
    EXPECT_EQ(read->length, frame.size());
    EXPECT_EQ(read->record.comando, command);
    EXPECT_EQ(Bytes(read->record.info, read->record.info + read->record.longitud), info);
}

TEST(RequestFrame, HasNoCodeByteThatIsAStartByteAndIsReadByTheModule) {
    for (unsigned command = 0; command < 16; ++command) {
        for (std::size_t length = 0; length <= 255; ++length) {
            const Bytes info = info_of_length(length, static_cast<int>((length + command) % 6));
            for (const bool crc8_mode : {kNormal, kCrc8Mode}) {
                SCOPED_TRACE(testing::Message() << command << " " << length << " " << crc8_mode);
                const Bytes frame = wire_bytes(
                    request_record(static_cast<std::uint8_t>(command), info, crc8_mode), crc8_mode);
                const Bytes plain = unstuffed(frame);
                ASSERT_EQ(plain.size(), length + (crc8_mode ? 8 : 7));
                ASSERT_NE(plain[6 + length], 0xA5);
                ASSERT_NE(plain.back(), 0xA5);
                expect_readable(frame, command, info);
            }
        }
    }
}

// What read_frame() makes of bytes, to be compared at a glance.
std::string reading_of(const Bytes& bytes) {
    const auto read = read_frame(bytes);
    if (!read)
        return "nothing";
    const mensaje& record = read->record;
    std::string text = std::to_string(read->skipped) + "+" + std::to_string(read->length) + ": ";
    if (read->result == kTimeout)
        return text + "incomplete";
    if (read->result == kCodeError)
        return text + "code error";
    text += read->result == kReceived ? "" : "other sequence, ";
    return text + "command " + std::to_string(record.comando) + ", sequence " +
           std::to_string(record.secuencia) + ", info " + to_hex({record.info, record.longitud});
}

TEST(ReadFrame, FindsTheFirstFrame) {
    const struct {
        const char* bytes;
        const char* reading;
    } kCases[] = {
        {"", "nothing"},
        {"00 04 FC", "nothing"},
        {"A5 04 00 00 00 00 FC", "0+7: command 4, sequence 0, info "},
        {"00 FC 04 A5 04 00 00 00 00 FC 00", "3+7: command 4, sequence 0, info "},
        {"A5 03 00 00 00 02 02 34 C5 A5 04", "0+9: command 3, sequence 0, info 02 34"},
        {"A5 83 00 00 00 02 57 61 C3 BD", "0+10: command 3, sequence 0, info 02 34"},
        {"A5 83 00 00 00 02 57 A5 A5 7F 16", "0+11: command 3, sequence 0, info 02 F0"},
        // The doubled byte at the end belongs to it, a third one to the next frame.
        {"A5 03 00 00 00 03 28 01 2C A5 A5", "0+11: command 3, sequence 0, info 28 01 2C"},
        {"A5 03 00 00 00 03 28 01 2C A5", "0+10: command 3, sequence 0, info 28 01 2C"},
        {"A5 03 00 00 00 03 28 01 2C A5 A5 A5", "0+11: command 3, sequence 0, info 28 01 2C"},
        {"A5 83 00 00 00 02 57 20 04 A5 A5 00", "0+11: command 3, sequence 0, info 02 75"},
        // One that is doubled ahead of the last.
        {"A5 83 00 00 00 03 5D 55 23 A5 A5 FD A5", "0+12: command 3, sequence 0, info 08 00 76"},
        // Wrong checksum, and wrong CRC.
        {"A5 04 00 00 00 00 FD", "0+7: code error"},
        {"A5 84 00 00 00 00 7C D5", "0+8: code error"},
        {"A5 84 00 00 00 00 7D D4", "0+8: code error"},
        {"A5 03 00 00 00 02 02 34 A5 A5", "0+10: code error"},
        // Plain in either mode.
        {"A5 33 00 00 00 02 02 34 95", "0+9: other sequence, command 3, sequence 3, info 02 34"},
        {"A5 B3 00 00 00 02 57 61 93 A9",
         "0+10: other sequence, command 3, sequence 3, info 02 34"},
        {"A5 7F 00 00 00 00 81", "0+7: other sequence, command 15, sequence 7, info "},
        // A start byte is a control byte behind a start byte.
        {"A5 A5 00 00 00 00 5B 00", "0+8: code error"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(reading_of(hex(each.bytes)), each.reading) << each.bytes;
}

TEST(ReadFrame, SaysOfEachPartOfAFrameThatItIsIncomplete) {
    for (const char* const text :
         {"A5 83 00 A5 A5 00 02 57 A5 A5 DA 5B", "A5 03 00 00 00 02 02 34 C5"}) {
        const Bytes frame = hex(text);
        for (std::size_t size = 1; size < frame.size(); ++size) {
            const Bytes part(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(reading_of(part), "0+" + std::to_string(size) + ": incomplete") << text;
        }
        EXPECT_NE(reading_of(frame), "0+" + std::to_string(frame.size()) + ": incomplete");
    }
}

TEST(ReadFrame, TakesTheLongestFrame) {
    Bytes frame = hex("A5 03 00 00 00 FF");
    frame.resize(6 + 2 * 255, 0xA5);
    frame.push_back(0xA3);  // 02 + 255 * A5 + A3 is a multiple of 256
    const auto read = read_frame(frame);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->result, kReceived);
    EXPECT_EQ(read->length, 517U);
    EXPECT_EQ(Bytes(read->record.info, read->record.info + 255), Bytes(255, 0xA5));
}

constexpr char kMac[] = "0a1b2c3d4e5f";

TEST(KnownRequest, HasTheFrameOfTheProtocol) {
    const Items slave = {{"mac", kMac},      {"hostname", "encoder-1"}, {"serial", "SL2024000077"},
                         {"model", "RE100"}, {"ip", "169.254.34.50"},   {"software", "1.2.3"}};
    const struct {
        Request request;
        const char* frame;
    } kCases[] = {
        {identification_request(), "A5 04 00 00 00 00 FC"},
        {status_request(), "A5 00 00 00 00 00 00"},
        {action_request("time", {{"time", "09.05"}}), "A5 03 00 00 00 06 48 30 39 2E 30 35 B3"},
        {action_request("date", {{"date", "03.02.2024"}}),
         "A5 03 00 00 00 0B 49 30 33 2E 30 32 2E 32 30 32 34 C0"},
        {action_request("reset-factory"), "A5 03 00 00 00 02 50 00 AB"},
        {action_request("slave pending", {{"mac", kMac}, {"channel", std::int64_t{1}}}),
         "A5 03 00 00 00 0F 69 30 61 31 62 32 63 33 64 34 65 35 66 00 01 00"},
        {action_request("slave encoder", {{"mac", kMac}, {"channel", std::int64_t{1}}}),
         "A5 03 00 00 00 0F 6A 30 61 31 62 32 63 33 64 34 65 35 66 00 01 FF"},
        {action_request("slave clear", {{"channel", std::int64_t{1}}}),
         "A5 03 00 00 00 02 6B 01 8F"},
        {action_request("slave confirm", {{"channel", std::int64_t{1}}}),
         "A5 03 00 00 00 02 6C 01 8E"},
        {action_request("slave report", {{"mac", kMac}, {"status", "00000001"}}),
         "A5 03 00 00 00 17 6D 30 61 31 62 32 63 33 64 34 65 35 66 00 30 30 30 30 30 30 30 31 00 "
         "74"},
        {action_request("slave register", slave),
         "A5 03 00 00 00 4A 6E 30 61 31 62 32 63 33 64 34 65 35 66 00 65 6E 63 6F 64 65 72 2D 31 "
         "00 00 00 00 00 00 00 00 00 53 4C 32 30 32 34 30 30 30 30 37 37 00 52 45 31 30 30 00 00 "
         "00 00 00 31 36 39 2E 32 35 34 2E 33 34 2E 35 30 00 00 00 01 02 03 2F"},
        {action_request("slave upgrade", {{"mac", kMac}}),
         "A5 03 00 00 00 0E 6F 30 61 31 62 32 63 33 64 34 65 35 66 00 FC"},
        {action_request("slave state", {{"mac", kMac}, {"state", std::int64_t{2}}}),
         "A5 03 00 00 00 0F 70 30 61 31 62 32 63 33 64 34 65 35 66 00 02 F8"},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(wire(each.request.command, each.request.info, kNormal), each.frame);
}

TEST(KnownRequest, CutsTheTextsOfASlaveToWhatTheModuleStores) {
    const std::string longest(40, 'x');
    Items items;
    for (const char* const name : {"mac", "hostname", "serial", "model", "ip"})
        items.push_back({name, longest});
    const Bytes info = action_request("slave register", items).info;
    const Bytes nul = {0};
    EXPECT_EQ(to_hex(info), to_hex(joined({{110},
                                           Bytes(12, 'x'),
                                           nul,
                                           Bytes(17, 'x'),
                                           nul,
                                           Bytes(12, 'x'),
                                           nul,
                                           Bytes(9, 'x'),
                                           nul,
                                           Bytes(15, 'x'),
                                           nul,
                                           {0, 0, 0}})));
}

// The lengths from 0 to 255 of which an info that begins with `first` is an answer.
std::vector<std::size_t> answer_lengths(const Request& request, std::uint8_t first) {
    std::vector<std::size_t> lengths;
    for (std::size_t length = 0; length <= 255; ++length) {
        Bytes info(length);
        if (length > 0)
            info[0] = first;
        if (answers(request, info))
            lengths.push_back(length);
    }
    return lengths;
}

TEST(KnownRequest, IsAnsweredByAnInfoOfItsLengthAndSubCommand) {
    using Lengths = std::vector<std::size_t>;
    const struct {
        Request request;
        bool reads;
        Lengths lengths;
        bool by_subcommand;
    } kCases[] = {
        {identification_request(), true, {48}, false},
        {status_request(), true, {28}, false},
        {action_request("time", {{"time", "09.05"}}), false, {0}, false},
        {action_request("date", {{"date", "03.02.2024"}}), false, {0}, false},
        {action_request("reset-factory"), false, {0}, false},
        {action_request("slave pending", {{"mac", kMac}, {"channel", std::int64_t{1}}}),
         false,
         {3},
         true},
        {action_request("slave encoder", {{"mac", kMac}, {"channel", std::int64_t{1}}}),
         false,
         {28},
         true},
        {action_request("slave clear", {{"channel", std::int64_t{1}}}), false, {0}, false},
        {action_request("slave confirm", {{"channel", std::int64_t{1}}}), false, {0}, false},
        {action_request("slave report", {{"mac", kMac}, {"status", "1"}}), false, {2}, true},
        {action_request("slave register"), false, {75}, true},
        {action_request("slave upgrade", {{"mac", kMac}}), false, {14, 15}, true},
        {action_request("slave state", {{"mac", kMac}, {"state", std::int64_t{2}}}),
         false,
         {0},
         false},
    };
    for (const auto& each : kCases) {
        const std::uint8_t code = each.request.info.empty() ? 0 : each.request.info[0];
        SCOPED_TRACE(testing::Message()
                     << "command " << int{each.request.command} << " sub-command " << int{code});
        EXPECT_EQ(each.request.reads, each.reads);
        EXPECT_EQ(answer_lengths(each.request, code), each.lengths);
        EXPECT_EQ(answer_lengths(each.request, code + 1),
                  each.by_subcommand ? Lengths() : each.lengths);
    }
}

}  // namespace

}  // namespace master
