// A whole stream through the receive machine, frame after frame, as the physical level feeds it:
// where it writes, what it leaves out, and where it finds the codes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fuzz/require.h"
#include "link/receive_machine.h"

namespace {

using State = ReceiveMachine::State;

constexpr std::uint8_t kStart = 0xA5;
constexpr std::uint8_t kMark = 0xC3;
constexpr std::size_t kRecord = 265;
constexpr std::size_t kBehind = 64;
constexpr std::size_t kLongest = 263;
constexpr std::size_t kLength = 5;
constexpr std::size_t kInfo = 6;
constexpr std::size_t kChecksumRx = 261;
constexpr std::size_t kCrcRx = 262;

// A record with marks in it and behind it.
using Record = std::array<std::uint8_t, kRecord + kBehind>;

constexpr Record kMarked = [] {
    Record record{};
    record.fill(kMark);
    return record;
}();

bool all_marks(const Record& record, std::size_t from, std::size_t to) {
    return from >= to || std::memcmp(&record[from], kMarked.data(), to - from) == 0;
}

void check_frame(const ReceiveMachine& machine, const Record& record) {
    const bool crc8_mode = (record[1] & 0x80U) != 0;
    const std::size_t info_end = kInfo + record[kLength];
    const std::size_t end = info_end + (crc8_mode ? 2 : 1);
    REQUIRE(machine.state() == State::TRAMA_RECIBIDA);
    REQUIRE(machine.stored() == end);
    REQUIRE(record[0] == kStart);
    if (crc8_mode)
        REQUIRE(record[kCrcRx] == record[info_end + 1]);
    // The CRC of a frame with 254 info bytes lies where the received checksum is kept.
    if (!crc8_mode || info_end + 1 != kChecksumRx)
        REQUIRE(record[kChecksumRx] == record[info_end]);
    REQUIRE(all_marks(record, end, kChecksumRx));
    if (!crc8_mode && end <= kCrcRx)
        REQUIRE(record[kCrcRx] == kMark);
}

// Takes one frame, or what the stream has of it. Returns the number of bytes taken.
std::size_t take_frame(const std::uint8_t* data, std::size_t size) {
    Record record = kMarked;
    ReceiveMachine machine(record.data());
    bool complete = false;
    bool discarded = false;
    std::size_t taken = 0;
    while (taken < size && !complete) {
        const std::size_t before = machine.stored();
        const std::uint8_t byte = data[taken++];
        complete = machine.feed(byte);
        const std::size_t stored = machine.stored();
        REQUIRE(stored == before || stored == before + 1);
        REQUIRE(stored <= kLongest);
        if (stored > before)
            REQUIRE(record[before] == byte);
        else if (before == 0)
            REQUIRE(byte != kStart);
        else  // the second of a pair, never a third
            REQUIRE(byte == kStart && before >= 2 && record[before - 1] == kStart && !discarded);
        discarded = stored == before && before > 0;
        REQUIRE((machine.state() == State::WAITING_START) == (stored == 0));
        REQUIRE((machine.state() == State::READING_HEADER) == (stored > 0 && stored <= kLength));
        REQUIRE(complete == (machine.state() == State::TRAMA_RECIBIDA));
    }
    if (complete)
        check_frame(machine, record);
    else
        REQUIRE(all_marks(record, machine.stored(), kChecksumRx));
    REQUIRE(all_marks(record, kLongest, record.size()));
    return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    while (size > 0) {
        const std::size_t taken = take_frame(data, size);
        data += taken;
        size -= taken;
    }
    return 0;
}
