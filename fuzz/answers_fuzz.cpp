// What a device sends, as a master takes it: the input as a stream of frames and what each of them
// means, and the input as the info of each answer that a master knows.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "fuzz/require.h"
#include "link/link_level.h"
#include "master/answers.h"
#include "master/frame.h"
#include "master/parameters.h"
#include "master/requests.h"

namespace master {

namespace {

using Info = std::span<const std::uint8_t>;

constexpr std::uint8_t kStart = 0xA5;
constexpr std::size_t kShortest = 7;
constexpr std::size_t kLongest = 2 + 2 * 261;  // each byte behind the second one doubled
constexpr std::size_t kLongestText = 18;
constexpr std::size_t kMostItemsOfRequest = 6;
constexpr std::int64_t kLargest = 0xFFFFFF;
constexpr std::int64_t kLowestLevel = -127;

// Neither twice nor without a name, and no value that the field of its kind cannot hold.
void check_items(const Items& items) {
    std::set<std::string> names;
    for (const Item& item : items) {
        REQUIRE(!item.name.empty());
        REQUIRE(names.insert(item.name).second);
        if (const auto* const number = std::get_if<std::int64_t>(&item.value)) {
            REQUIRE(*number >= (item.name == "null_level" ? kLowestLevel : 0));
            REQUIRE(*number <= kLargest);
        } else if (const auto* const text = std::get_if<std::string>(&item.value)) {
            REQUIRE(text->size() <= kLongestText);
            REQUIRE(text->find('\0') == std::string::npos);
        }
    }
}

// An item for each field that lies within the info, and no other.
void check_layout(Layout layout, Info info) {
    const Items items = items_of(layout, info);
    check_items(items);
    std::size_t next = 0;
    for (const protocol::Field& field : protocol::fields(layout)) {
        if (!has_item(field) || std::size_t{field.position} + field.width > info.size())
            continue;
        REQUIRE(next < items.size());
        const Item& item = items[next++];
        REQUIRE(item.name == name_of(field));
        if (is_text(field.kind))
            REQUIRE(std::get<std::string>(item.value).size() <= field.width);
    }
    REQUIRE(next == items.size());
}

void check_parameters(const Items& items, Info info) {
    const Request request = block_request(info[0]);
    const bool whole = answers(request, info);
    for (const Parameter& parameter : parameters()) {
        const auto item = std::find_if(items.begin(), items.end(), [&](const Item& each) {
            return each.name == parameter.name;
        });
        const bool is_of_block = parameter.field != nullptr && parameter.block == info[0];
        if (!whole || !is_of_block)
            continue;
        REQUIRE(item != items.end());
        const Value value = value_in(parameter, info);
        if (const auto* const text = std::get_if<std::string>(&value)) {
            REQUIRE(*text == std::get<std::string>(item->value));
            REQUIRE(text->size() <= parameter.field->width);
        } else {
            const std::uint32_t number = std::get<std::uint32_t>(value);
            REQUIRE(std::int64_t{number} == std::get<std::int64_t>(item->value));
            REQUIRE(number <= parameter.limit());
        }
    }
}

void check_info(Info info) {
    for (std::size_t i = 0; i < std::size(protocol::kLayoutNames); ++i)
        check_layout(static_cast<Layout>(i), info);
    check_items(action_answer(info));
    const Items items = configuration(info);
    check_items(items);
    if (!info.empty() && (info[0] == 1 || info[0] == 2))
        check_parameters(items, info);
}

// A text of a request has no field that bounds it.
void check_meaning(const Meaning& meaning) {
    REQUIRE(meaning.text.starts_with("request: ") || meaning.text.starts_with("answer: ") ||
            meaning.text.starts_with("unknown command "));
    if (meaning.text.starts_with("answer: "))
        check_items(meaning.items);
    if (meaning.text.starts_with("request: "))
        REQUIRE(meaning.items.size() <= kMostItemsOfRequest);
}

// What was read is read again from a frame of its own.
void check_again(const mensaje& record) {
    const Bytes info(record.info, record.info + record.longitud);
    for (const bool crc8_mode : {false, true}) {
        const Bytes frame = wire_bytes(request_record(record.comando, info, crc8_mode), crc8_mode);
        REQUIRE(frame.back() != kStart);
        const auto again = read_frame(frame);
        REQUIRE(again.has_value() && again->result == kReceived);
        REQUIRE(again->skipped == 0 && again->length == frame.size());
        REQUIRE(again->record.comando == record.comando);
        REQUIRE(std::equal(info.begin(), info.end(), again->record.info,
                           again->record.info + again->record.longitud));
    }
}

// Reads the first frame of the stream. Returns where the next one may begin.
std::size_t take_frame(Info stream) {
    const auto frame = read_frame(stream);
    const auto start = std::find(stream.begin(), stream.end(), kStart);
    REQUIRE(frame.has_value() == (start != stream.end()));
    if (!frame)
        return stream.size();
    REQUIRE(frame->skipped == static_cast<std::size_t>(start - stream.begin()));
    REQUIRE(frame->length > 0 && frame->length <= stream.size() - frame->skipped);
    REQUIRE(frame->length <= kLongest);
    if (frame->result == kTimeout) {
        REQUIRE(frame->skipped + frame->length == stream.size());
        return stream.size();
    }
    REQUIRE(frame->length >= kShortest);
    if (frame->result == kReceived || frame->result == kSequenceError) {
        const mensaje& record = frame->record;
        REQUIRE((record.secuencia == 0) == (frame->result == kReceived));
        REQUIRE(record.comando < 16 && record.secuencia < 8);
        for (const Half half : {Half::unknown, Half::request, Half::answer})
            check_meaning(meaning_of(record, half));
        check_info({record.info, record.longitud});
        check_again(record);
    } else {
        REQUIRE(frame->result == kCodeError);
        const WrongCodes wrong = wrong_codes(frame->record);
        REQUIRE(wrong.checksum || wrong.crc);
    }
    return frame->skipped + frame->length;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Without a byte of room behind it, so that a sanitizer sees what is read there.
    const std::vector<std::uint8_t> info(data, data + std::min<std::size_t>(size, 255));
    check_info(info);
    for (Info rest(data, size); !rest.empty();)
        rest = rest.subspan(take_frame(rest));
    return 0;
}

}  // namespace master
