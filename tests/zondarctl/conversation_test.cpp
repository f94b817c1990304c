// What a capture tells of a conversation, from literals: a packet for each step.
#include "zondarctl/conversation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <utility>

#include "master/frame.h"
#include "tests/support/bytes.h"

namespace zondarctl {

namespace {

using testing::ElementsAreArray;
using What = Event::What;

using Texts = std::vector<std::string>;

const std::string kIdentify = "A5 04 00 00 00 00 FC";
const std::string kIdentity = "A5 04 00 00 00 03 5A 4E 44 0D";
const std::string kAskStatus = "A5 00 00 00 00 00 00";
const std::string kStatus = "A5 00 00 00 00 01 07 F8";
const std::string kWrite = "A5 03 00 00 00 02 02 34 C5";  // EntradaAV.0.Brillo = 52
const std::string kWritten = "A5 03 00 00 00 00 FD";
const std::string kEndsInA5 = "A5 03 00 00 00 02 02 54 A5 A5";
const std::string kHalf = "A5 04 00";

struct Step {
    What what;
    Direction by;
    std::size_t connection = 0;
    std::string bytes = {};  // in hexadecimal digits, of What::came
    unsigned times = 1;      // each time on a connection of its own
};

constexpr Direction kMaster = Direction::to_module;
constexpr Direction kModule = Direction::from_module;

Step opens(std::size_t connection) {
    return {What::opened, kMaster, connection};
}
Step accepts(std::size_t connection) {
    return {What::accepted, kModule, connection};
}
Step asks(std::size_t connection, const std::string& bytes) {
    return {What::came, kMaster, connection, bytes};
}
Step answers(std::size_t connection, const std::string& bytes) {
    return {What::came, kModule, connection, bytes};
}
Step ends(Direction by, std::size_t connection) {
    return {What::ended, by, connection};
}
Step resets(Direction by, std::size_t connection) {
    return {What::reset, by, connection};
}
// Connections that the master opens and ends, and the module ends then: two packets each.
Step empty(unsigned times) {
    return {What::ended, Direction::unknown, 0, {}, times};
}

// The master's addresses of the connections: two of one, one of another one, two of a first one
// with another module, and so on for as many as are needed.
Connection connection(std::size_t index) {
    const bool other_master = index == 2;
    const bool other_module = index == 3 || index == 4;
    return {{other_master ? 0x0A000002U : 0x0A000001U, static_cast<std::uint16_t>(40000 + index)},
            {other_module ? 0x0A000064U : 0x0A000063U, 8001}};
}

// The capture that these steps would be read from.
class Story {
  public:
    explicit Story(const std::vector<Step>& steps) {
        captured_.is_tcp = true;
        for (std::size_t i = 0; i < 10; ++i)
            captured_.connections.push_back(connection(i));
        for (const Step& step : steps)
            add(step);
    }

    [[nodiscard]] const Captured& captured() const { return captured_; }

  private:
    using Rest = std::array<Bytes, 3>;  // by Direction

    Event& put(What what, Direction by, std::size_t connection) {
        captured_.events.push_back({what, {packet_, 0}, connection, by});
        return captured_.events.back();
    }

    void add(const Step& step) {
        if (step.by == Direction::unknown) {
            add_empty(step.times);
            return;
        }
        ++packet_;
        Event& event = put(step.what, step.by, step.connection);
        Bytes& rest = rests_[{step.connection, step.by}];
        if (step.what == What::came)
            add_frames(step, rest);
        else if (step.what >= What::ended)
            event.bytes = std::exchange(rest, {});
    }

    void add_frames(const Step& step, Bytes& rest) {
        const Bytes bytes = hex(step.bytes);
        rest.insert(rest.end(), bytes.begin(), bytes.end());
        Bytes behind = rest;
        for (CapturedFrame& frame : frames_in(rest)) {
            if (frame.frame.result == 4)  // not complete
                break;
            const std::size_t length = frame.frame.skipped + frame.frame.length;
            frame.completed.packet = packet_;
            frame.direction = step.by;
            frame.connection = step.connection;
            Event& event = put(What::frame, step.by, step.connection);
            event.frame = captured_.frames.size();
            const auto end = behind.begin() + static_cast<std::ptrdiff_t>(length);
            event.bytes = {behind.begin(), end};
            behind.erase(behind.begin(), end);
            captured_.frames.push_back(frame);
        }
        rest = behind;
    }

    void add_empty(unsigned times) {
        for (unsigned i = 0; i < times; ++i) {
            const std::size_t connection = captured_.connections.size();
            captured_.connections.push_back(captured_.connections[0]);
            ++packet_;
            put(What::opened, kMaster, connection);
            put(What::ended, kMaster, connection);
            ++packet_;
            put(What::ended, kModule, connection);
        }
    }

    Captured captured_;
    std::size_t packet_ = 0;
    std::map<std::pair<std::size_t, Direction>, Bytes> rests_;
};

std::string name_of(protocol::Finding what) {
    return protocol::kFindings[static_cast<std::size_t>(what)].name;
}

std::string text_of(const master::Value& value) {
    const auto* const text = std::get_if<std::string>(&value);
    return text != nullptr ? "'" + *text + "'" : std::to_string(std::get<std::uint32_t>(value));
}

// "1 answered by 3", "2: lost"; then "lost 2", or "closed 2 in 5" when that was seen in packet 5.
Texts told(const Captured& captured) {
    const Conversation conversation = conversation_of(captured);
    Texts all;
    for (std::size_t i = 0; i < captured.frames.size(); ++i) {
        const CapturedFrame& frame = captured.frames[i];
        const Partner& partner = conversation.partners[i];
        const std::string packet = std::to_string(frame.completed.packet);
        if (partner.frame && frame.direction == kMaster) {
            EXPECT_EQ(conversation.partners[*partner.frame].frame, i);
            all.push_back(packet + " answered by " +
                          std::to_string(captured.frames[*partner.frame].completed.packet));
        }
        if (partner.no_answer)
            all.push_back(packet + ": " + name_of(*partner.no_answer));
    }
    for (const Found& found : conversation.findings) {
        std::string text = name_of(found.what) + " " + std::to_string(found.of.packet);
        if (found.found_in.packet != found.of.packet)
            text += " in " + std::to_string(found.found_in.packet);
        if (!found.detail.empty())
            text += ": " + found.detail;
        if (found.parameter != nullptr)
            text += ": " + found.parameter->name + " " + text_of(found.written) + " " +
                    text_of(found.read);
        all.push_back(text);
    }
    return all;
}

struct Case {
    const char* name;
    std::vector<Step> steps;
    Texts told;
};

void expect_told(std::span<const Case> cases) {
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_THAT(told(Story(each.steps).captured()), ElementsAreArray(each.told));
    }
}

const Case kMatches[] = {
    {"on another connection", {asks(0, kIdentify), answers(1, kIdentity)}, {"1 answered by 2"}},
    {"in the order in which they are complete",
     {opens(1), opens(0), asks(0, kHalf), asks(1, kAskStatus), asks(0, "00 00 00 FC"),
      answers(5, kStatus), answers(6, kIdentity)},
     {"4 answered by 6", "5 answered by 7"}},
    {"several in a packet",
     {asks(0, kIdentify + kIdentify + kAskStatus), answers(1, kIdentity), answers(5, kIdentity),
      answers(6, kStatus)},
     {"1 answered by 2", "1 answered by 3", "1 answered by 4"}},
    {"two modules",
     {asks(0, kIdentify), asks(3, kIdentify), answers(4, kIdentity), answers(1, kIdentity)},
     {"1 answered by 4", "2 answered by 3"}},
    {"whatever the codes of the answer say",
     {asks(0, kIdentify), answers(1, "A5 04 00 00 00 00 FD")},
     {"1 answered by 2", "wrong_checksum 2"}},
    {"in CRC8 mode",
     {asks(0, "A5 84 00 00 00 00 7C D4"), answers(1, kIdentity)},
     {"1 answered by 2"}},
    {"refused",
     {asks(0, "A5 03 00 00 00 02 FE 00 FD"),
      answers(1, "A5 03 00 00 00 FF" + std::string(510, '0') + "FE")},
     {"1 answered by 2", "refused 2"}},
    {"a damaged refusal is none",
     {asks(0, kWrite), answers(1, "A5 03 00 00 00 FF" + std::string(510, '0') + "FF")},
     {"1 answered by 2", "wrong_checksum 2"}},
    {"the longest answer is no refusal",
     {asks(0, kWrite), answers(1, "A5 03 00 00 00 FF" + std::string(508, '0') + "01 FD")},
     {"1 answered by 2"}},
};

TEST(Conversation, MatchesAnswersWithRequests) {
    expect_told(kMatches);
}

const Case kWithoutAnswer[] = {
    {"not read: before the answer",
     {asks(0, kIdentify), answers(0, kIdentity)},
     {"1: not_read", "not_read 1 in 2", "no_request 2"}},
    {"not read: behind the answer",
     {asks(0, kIdentify), answers(1, kIdentity), asks(1, kAskStatus)},
     {"1 answered by 2", "3: not_read", "not_read 3"}},
    {"closed",
     {asks(0, kIdentify), ends(kModule, 0), asks(1, kIdentify), answers(5, kIdentity)},
     {"1: closed", "3 answered by 4", "closed 1 in 2"}},
    {"closed by a reset: others remain",
     {opens(0), accepts(0), asks(0, kIdentify), asks(1, kAskStatus), resets(kModule, 0),
      answers(5, kStatus)},
     {"3: closed", "4 answered by 6", "closed 3 in 5"}},
    {"closed behind the answer",
     {asks(0, kIdentify), answers(1, kIdentity), ends(kModule, 0)},
     {"1 answered by 2"}},
    {"closed by the master",
     {asks(0, kIdentify), ends(kMaster, 0), answers(1, kIdentity)},
     {"1 answered by 3"}},
    {"nobody listens",
     {asks(0, kIdentify), asks(1, kAskStatus), asks(3, kIdentify), opens(5), resets(kModule, 5),
      answers(4, kIdentity)},
     {"1: closed", "2: closed", "3 answered by 6", "closed 1 in 5", "closed 2 in 5"}},
    {"passed over",
     {asks(0, kIdentify), asks(0, kWrite), asks(0, kAskStatus), answers(1, kStatus)},
     {"1: passed_over", "2: passed_over", "3 answered by 4", "passed_over 1 in 4",
      "passed_over 2 in 4"}},
    {"a wrong checksum",
     {asks(0, "A5 04 00 00 00 00 FD"), asks(0, kIdentify), answers(1, kIdentity)},
     {"1: wrong_checksum", "2 answered by 3", "wrong_checksum 1"}},
    {"a wrong CRC", {asks(0, "A5 84 00 00 00 00 7C D5")}, {"1: wrong_crc", "wrong_crc 1"}},
    {"a wrong checksum, and the CRC of other bytes",
     {asks(0, "A5 84 00 00 00 00 7D D5")},
     {"1: wrong_checksum", "wrong_checksum 1", "wrong_crc 1"}},
    {"a wrong checksum alone, in CRC8 mode",
     {asks(0, "A5 84 00 00 00 00 7D D4")},
     {"1: wrong_checksum", "wrong_checksum 1"}},
    {"another sequence number",
     {asks(0, "A5 14 00 00 00 00 EC"), answers(1, "A5 14 00 00 00 00 EC")},
     {"1: other_sequence", "other_sequence 1", "other_sequence 2", "no_request 2"}},
    {"no such command",
     {asks(0, "A5 05 00 00 00 00 FB"), answers(1, "A5 05 00 00 00 00 FB")},
     {"1: no_such_command", "no_such_command 1", "no_request 2"}},
    {"another sequence number, and no such command",
     {asks(0, "A5 1F 00 00 00 00 E1")},
     {"1: other_sequence", "other_sequence 1", "no_such_command 1"}},
    {"of a damaged one no more is known but its end, and that it is not read",
     {answers(0, kIdentity), asks(0, "A5 1F 00 00 00 00 A5 A5")},
     {"2: not_read", "no_request 1", "wrong_checksum 2", "ends_in_a5 2", "not_read 2"}},
};

TEST(Conversation, TellsWhyARequestHasNoAnswer) {
    expect_told(kWithoutAnswer);
}

const Case kLost[] = {
    {"behind one that ends in A5, the next alone",
     {asks(0, kEndsInA5), answers(1, kWritten), asks(5, kIdentify), asks(6, kIdentify),
      answers(7, kIdentity)},
     {"1 answered by 2", "3: lost", "4 answered by 5", "ends_in_a5 1", "lost 3"}},
    {"an A5 that is not doubled ends the frame",
     {asks(0, "A5 03 00 00 00 02 02 54 A5"), asks(5, kIdentify), answers(1, kWritten),
      answers(6, kIdentity)},
     {"1 answered by 3", "2 answered by 4", "ends_in_a5 1"}},
    {"an A5 within is none", {asks(0, "A5 03 00 00 00 02 02 A5 A5 54"), asks(5, kIdentify)}, {}},
    {"an answer may end in A5",
     {asks(0, kWrite), answers(1, kEndsInA5), asks(5, kIdentify)},
     {"1 answered by 2"}},
    {"behind one that breaks off",
     {asks(0, kHalf), ends(kMaster, 0), asks(5, kIdentify), ends(kMaster, 5)},
     {"3: lost", "breaks_off 2", "lost 3"}},
    {"bytes outside of frames do no harm",
     {asks(0, "00 11"), ends(kMaster, 0), asks(5, kIdentify), answers(1, kIdentity)},
     {"3 answered by 4"}},
    {"bytes that the module does not read do no harm",
     {answers(0, kIdentity), asks(0, kHalf), ends(kMaster, 0), asks(5, kIdentify),
      answers(1, kIdentity)},
     {"4 answered by 5", "no_request 1", "breaks_off 3"}},
    {"the module completes a frame out of two, and sees the next one",
     {asks(0, kHalf), ends(kMaster, 0), asks(5, "00 00 00 FC" + kAskStatus), answers(1, kStatus)},
     {"3 answered by 4", "breaks_off 2"}},
    {"the module ended meanwhile",
     {asks(0, kHalf), ends(kModule, 0), asks(5, kIdentify), answers(1, kIdentity)},
     {"3 answered by 4"}},
    {"the module ended a connection as it does",
     {asks(0, kHalf), ends(kMaster, 0), ends(kModule, 0), answers(1, kIdentity), ends(kModule, 1),
      asks(5, kIdentify)},
     {"6: lost", "breaks_off 2", "no_request 4", "lost 6"}},
    {"nobody listened meanwhile",
     {asks(0, kHalf), ends(kMaster, 0), opens(5), resets(kModule, 5), asks(6, kIdentify),
      answers(1, kIdentity)},
     {"5 answered by 6", "breaks_off 2"}},
    {"another module",
     {asks(0, kHalf), ends(kMaster, 0), asks(3, kIdentify), answers(4, kIdentity)},
     {"3 answered by 4", "breaks_off 2"}},
};

TEST(Conversation, KnowsWhatTheModuleTakesForTheRestOfAFrame) {
    expect_told(kLost);
}

const Case kAnswers[] = {
    {"collected by another master",
     {asks(0, kIdentify), answers(2, kIdentity)},
     {"1 answered by 2", "other_master 2"}},
    {"to no request", {answers(1, kIdentity), asks(0, kIdentify)}, {"no_request 1"}},
    {"two are left, and then those that were asked for",
     {opens(0), answers(0, kIdentity), opens(1), answers(1, kIdentity), asks(5, kIdentify),
      answers(6, kIdentity), opens(7), answers(7, kIdentity), opens(8), answers(8, kIdentity)},
     {"5 answered by 6", "no_request 2", "no_request 4", "no_request 8", "no_request 10"}},
    {"the third is an old request carried out again",
     {opens(0), answers(0, kIdentity), opens(1), answers(1, kStatus), opens(5), answers(5, kStatus),
      opens(6), answers(6, kStatus)},
     {"no_request 2", "no_request 4", "replays 6", "replays 8"}},
    {"on connections from before the capture",
     {answers(0, kIdentity), answers(1, kIdentity), answers(5, kIdentity)},
     {"no_request 1", "no_request 2", "no_request 3"}},
    {"on connections with requests",
     {opens(0), asks(0, kIdentify), answers(0, kIdentity), opens(1), asks(1, kIdentify),
      answers(1, kIdentity), opens(5), asks(5, kIdentify), answers(5, kIdentity)},
     {"2: not_read", "5: not_read", "8: not_read", "not_read 2 in 3", "no_request 3",
      "not_read 5 in 6", "no_request 6", "not_read 8 in 9", "no_request 9"}},
    {"on a connection from before the capture, behind three others",
     {opens(0), answers(0, kIdentity), opens(1), answers(1, kStatus), opens(5), answers(5, kStatus),
      answers(6, kStatus)},
     {"no_request 2", "no_request 4", "replays 6", "no_request 7"}},
    {"breaks off",
     {asks(0, kIdentify), answers(1, kHalf), ends(kModule, 1), ends(kModule, 1)},
     {"breaks_off 3"}},
};

TEST(Conversation, TellsWhatIsOddAboutAnswers) {
    expect_told(kAnswers);
}

const Case kConnections[] = {
    {"501 empty ones", {empty(500)}, {}},
    {"501 empty ones, and more",
     {empty(501), empty(600), asks(0, kIdentify)},
     {"resynchronised 1002"}},
    {"they bring the module back",
     {asks(0, kHalf), ends(kMaster, 0), empty(501), asks(5, kIdentify), answers(1, kIdentity)},
     {"1005 answered by 1006", "breaks_off 2", "resynchronised 1004"}},
    {"cut short",
     {asks(0, kHalf), ends(kMaster, 0), empty(500), asks(5, kIdentify), asks(6, kIdentify)},
     {"1003: lost", "breaks_off 2", "resync_cut_short 1003: 500 of 501 empty connections",
      "lost 1003"}},
    {"eight are on purpose",
     {empty(8), asks(0, kIdentify)},
     {"resync_cut_short 17: 8 of 501 empty connections"}},
    {"seven are not", {empty(7), asks(0, kIdentify)}, {}},
    {"an answer begins the count anew",
     {empty(499), answers(0, kIdentity), empty(7), asks(1, kIdentify), empty(500)},
     {"no_request 999"}},
    {"one that the module ends first is none",
     {empty(500), ends(kModule, 0), ends(kMaster, 0), empty(1)},
     {"resynchronised 1004"}},
    {"one with bytes is none",
     {empty(500), asks(0, kHalf), ends(kMaster, 0), ends(kModule, 0), empty(1)},
     {"resync_cut_short 1001: 500 of 501 empty connections", "breaks_off 1002"}},
    {"an end told twice is one",
     {empty(499), ends(kMaster, 0), ends(kModule, 0), resets(kModule, 0)},
     {}},
    {"nor does it count once it has ended",
     {asks(0, kHalf), ends(kMaster, 0), ends(kModule, 0), empty(500)},
     {"breaks_off 2"}},
    {"nor does one that collected an answer",
     {ends(kMaster, 0), answers(0, kIdentity), ends(kModule, 0), empty(500)},
     {"no_request 2"}},
    {"a reset before the module closed", {asks(0, kIdentify), resets(kMaster, 0)}, {"reset 2"}},
    {"a reset behind the module's end",
     {asks(0, kIdentify), ends(kModule, 0), resets(kMaster, 0)},
     {"1: closed", "closed 1 in 2"}},
    {"a reset behind the master's end",
     {asks(0, kIdentify), ends(kMaster, 0), resets(kMaster, 0)},
     {}},
    {"a reset behind an answer",
     {asks(0, kIdentify), answers(1, kIdentity), resets(kMaster, 1)},
     {"1 answered by 2"}},
    {"a reset of a connection that has an answer",
     {answers(0, kIdentity), asks(0, kIdentify), resets(kMaster, 0)},
     {"2: not_read", "no_request 1", "not_read 2"}},
    {"a reset of a connection without a byte", {opens(0), resets(kMaster, 0)}, {}},
};

TEST(Conversation, TellsWhatBecomesOfConnections) {
    expect_told(kConnections);
}

TEST(Conversation, TellsOfBytesOutsideOfFrames) {
    Captured captured = Story({asks(0, kIdentify)}).captured();
    captured.events.push_back({.what = What::outside,
                               .moment = {2, 0},
                               .connection = 0,
                               .direction = kMaster,
                               .count = 3});
    EXPECT_THAT(told(captured), testing::ElementsAre("skipped 2: 3"));
}

TEST(Conversation, TellsOfARecordedReceptionThatEndedByTimeOut) {
    Captured captured = Story({asks(0, kIdentify), answers(1, kIdentity)}).captured();
    captured.events.push_back(
        {.what = What::broken_off, .moment = {3, 0}, .connection = 1, .direction = kModule});
    EXPECT_THAT(told(captured), testing::ElementsAre("1 answered by 2", "breaks_off 3"));
}

// What is read back. Both blocks with a few bytes at their positions, all others zero.

std::string frame_of(std::uint8_t command, const Bytes& info) {
    return master::hex_digits(
        master::wire_bytes(master::request_record(command, info, false), false));
}

std::string write(std::uint8_t code, const Bytes& value) {
    return frame_of(3, joined({{code}, value}));
}
Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}
std::string write_text(std::uint8_t code, const std::string& text) {
    return write(code, joined({bytes_of(text), {0}}));
}

std::string block(std::uint8_t number, std::size_t position, const Bytes& there) {
    Bytes info(number == 2 ? 185 : 114);
    info[0] = number;
    std::copy(there.begin(), there.end(), info.begin() + static_cast<std::ptrdiff_t>(position));
    return frame_of(1, info);
}

// Writes that are answered by nothing but that they are done.
std::vector<Step> done(const std::vector<std::string>& writes) {
    std::vector<Step> steps;
    for (const std::string& frame : writes) {
        steps.push_back(asks(0, frame));
        steps.push_back(answers(1, kWritten));
    }
    return steps;
}

std::vector<Step> behind(std::vector<Step> first, const std::vector<Step>& more) {
    first.insert(first.end(), more.begin(), more.end());
    return first;
}

const std::string kRefused = frame_of(3, Bytes(255));

struct ReadBack {
    const char* name;
    std::vector<Step> steps;
    std::string block;
    Texts differs;  // without the packet
};

const ReadBack kReadBacks[] = {
    {"the same number", done({write(2, {52})}), block(1, 2, {52}), {}},
    {"another number", done({write(2, {52})}), block(1, 2, {53}), {"EntradaAV.0.Brillo 52 53"}},
    {"the last write counts", done({write(2, {52}), write(2, {53})}), block(1, 2, {53}), {}},
    {"what is not written is not compared", {}, block(1, 2, {53}), {}},
    {"in the other block", done({write(2, {52})}), block(2, 2, {53}), {}},
    {"half a block", done({write(2, {52})}), frame_of(1, {1, 0, 53}), {}},
    {"a parameter that no block shows", done({write(75, {1})}), block(2, 75, {9}), {}},
    {"not a parameter", done({write(72, bytes_of("12.00"))}), block(2, 168, {9}), {}},
    {"more bytes than the number has", done({write(8, {1, 2, 3})}), block(1, 8, {1, 2}), {}},
    {"a number that is not whole", done({write(8, {1, 2}), write(8, {1})}), block(1, 8, {9}), {}},
    {"a text",
     done({write_text(31, "Uno")}),
     block(1, 39, bytes_of("Dos")),
     {"ServiciosSalida.0.Nombre 'Uno' 'Dos'"}},
    {"a text with something behind it",
     done({write(31, bytes_of({"Uno\0Dos", 7}))}),
     block(1, 39, bytes_of("Uno")),
     {}},
    {"a text without NUL",
     done({write_text(31, "Uno"), write(31, bytes_of("Uno"))}),
     block(1, 39, {9}),
     {}},
    {"a per cent sign",
     done({write_text(31, "1%2%")}),
     block(1, 39, bytes_of("1%2%")),
     {"ServiciosSalida.0.Nombre '1 2%' '1%2%'"}},
    {"a text longer than what is stored",
     done({write_text(31, "abcdefghijklmnop")}),
     block(1, 39, bytes_of("abcdefghijklmno")),
     {"ServiciosSalida.0.Nombre 'abcdefghijklmn' 'abcdefghijklmno'"}},
    {"an address that fills its field",
     done({write_text(68, "192.168.100.100")}),
     block(2, 108, bytes_of("192.168.100.100")),
     {}},
    {"an address longer than its field",
     done({write_text(68, "192.168.100.1001")}),
     block(2, 108, bytes_of("192.168.100.100")),
     {}},
    {"stored as another number", done({write(1, {3})}), block(1, 1, {10}), {}},
    {"not stored as another number",
     done({write(1, {3})}),
     block(1, 1, {3}),
     {"ConfiguracionGen.Modo_Entrada 10 3"}},
    {"not stored", done({write(40, {1, 2})}), block(1, 107, {1, 2}), {"Red.TSID_Out 0 258"}},
    {"a switch that only 1 turns on", done({write(27, {2})}), block(1, 33, {0}), {}},
    {"a switch that 1 turns on",
     done({write(27, {1})}),
     block(1, 33, {0}),
     {"PIDsSalida.0.1.Seleccionado 1 0"}},
    {"the next parameter, too",
     done({write(17, {7})}),
     block(1, 20, {6, 0, 5}),
     {"EntradaAV.1.Audio_Bitrate 7 6", "RFOut.Cofdm_Off 7 5"}},
    {"a country is stored as it was sent",
     done({write_text(71, "Spainful")}),
     block(2, 153, bytes_of("Spain")),
     {"ConfiguracionGen.Country 'Spainful' 'Spain'"}},
    {"no country", done({write_text(71, "Utopia")}), block(2, 153, bytes_of("Utopia")), {}},
    {"what a country changes",
     done({write(39, {1, 2}), write_text(71, "Spain")}),
     block(1, 105, {9, 9}),
     {}},
    {"the channel changes with the frequency",
     done({write(19, {21}), write(20, {7, 0xA1, 0x20})}),
     block(1, 23, {9, 7, 0xA1, 0x20}),
     {}},
    {"the frequency changes with the channel",
     done({write(20, {7, 0xA1, 0x20}), write(19, {21})}),
     block(1, 23, {21, 9}),
     {}},
    {"the factory configuration", done({write(2, {52}), write(80, {0})}), block(1, 2, {53}), {}},
    {"a write that is refused changes nothing that is known",
     behind(done({write(2, {52})}), {asks(0, write(2, {53})), answers(1, kRefused)}),
     block(1, 2, {54}),
     {}},
    {"nor one that is closed",
     behind(done({write(2, {52})}), {asks(0, write(2, {53})), ends(kModule, 0)}),
     block(1, 2, {54}),
     {}},
    {"nor one that is passed over",
     behind(done({write(2, {52})}),
            {asks(0, write(2, {53})), asks(0, kIdentify), answers(1, kIdentity)}),
     block(1, 2, {54}),
     {}},
    {"one that is not read changes nothing",
     behind(done({write(2, {52})}), {asks(1, write(2, {53}))}),
     block(1, 2, {54}),
     {"EntradaAV.0.Brillo 52 54"}},
    {"nor one with a damaged answer",
     behind(done({write(2, {52})}), {asks(0, write(2, {53})), answers(1, "A5 03 00 00 00 00 FE")}),
     block(1, 2, {54}),
     {}},
    {"nor one with an answer to something else",
     behind(done({write(2, {52})}),
            {asks(0, write(2, {53})), answers(1, "A5 03 00 00 00 02 6D 00 8E")}),
     block(1, 2, {54}),
     {}},
    {"read twice",
     behind(done({write(2, {52})}), {asks(0, frame_of(1, {1})), answers(1, block(1, 2, {52}))}),
     block(1, 2, {53}),
     {}},
    {"read damaged", done({write(2, {52})}), block(1, 2, {53}).replace(3 * 120, 2, "77"), {}},
};

TEST(ReadBack, Differs) {
    for (const ReadBack& each : kReadBacks) {
        SCOPED_TRACE(each.name);
        std::vector<Step> steps = each.steps;
        steps.push_back(asks(5, frame_of(1, {1})));
        steps.push_back(answers(6, each.block));
        Texts differs;
        const Captured captured = Story(steps).captured();
        for (const std::string& text : told(captured)) {
            const std::string prefix = "differs " + std::to_string(steps.size()) + ": ";
            if (text.starts_with(prefix))
                differs.push_back(text.substr(prefix.size()));
            else
                EXPECT_FALSE(text.starts_with("differs"));
        }
        EXPECT_THAT(differs, ElementsAreArray(each.differs));
    }
}

}  // namespace

}  // namespace zondarctl
