#include "master/requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace master {

namespace {

using protocol::Effect;
using protocol::Kind;
using protocol::Subcommand;
using Info = std::span<const std::uint8_t>;

// It has the layout's length, and says that it is that answer where the layout says so.
bool has_layout(Info info, Layout layout, const Request& request) {
    if (info.size() != protocol::length(layout))
        return false;
    return std::ranges::all_of(protocol::fields(layout), [&](const protocol::Field& field) {
        if (field.kind == Kind::sub_command)
            return info[field.position] == request.info[0];
        return field.kind != Kind::fixed || *field.name == '\0' ||
               info[field.position] == field.extra;
    });
}

// A command that only reads.
Request reading(std::uint8_t code) {
    return {.command = code,
            .reads = true,
            .answers = Request::Answers{protocol::kCommands[code].answer}};
}

// What an effect has to do with beyond the value that is written. A script of the board and the
// twenty statements of a country, tried three times with pauses of seconds, take a while.
struct Reach {
    Effect effect;
    const char* consequence;  // with the other parameter's name for {}
    std::chrono::seconds patience;
};

constexpr std::chrono::seconds kShort{5};
constexpr std::chrono::seconds kLong{60};

// clang-format off
constexpr Reach kReaches[] = {
    {Effect::alone,            "", kShort},
    {Effect::next_too,         "stores the same value in {}, too", kShort},
    {Effect::tunes,            "", kShort},
    {Effect::masks_input,      "", kShort},
    {Effect::resets_network,   "resets the network of the module, which may then have another address", kLong},
    {Effect::changes_country,  "stores the country's defaults in all that depends on the country", kLong},
    {Effect::sets_clock,       "sets the clock of the module", kShort},
    {Effect::restores_factory, "resets the module to its factory configuration", kLong},
    {Effect::adds_slave,       "", kShort},
};
// clang-format on

constexpr const Reach& far_reach(Effect effect) {
    return kReaches[static_cast<std::size_t>(effect)];
}

constexpr bool effects_are_indexes() {
    return std::ranges::all_of(kReaches,
                               [](const Reach& row) { return &far_reach(row.effect) == &row; });
}
static_assert(std::size(kReaches) == std::size(protocol::kEffects) && effects_are_indexes());

// By the rows of kSubcommands.
std::vector<std::string> all_consequences() {
    std::vector<std::string> texts;
    for (const Subcommand& row : protocol::kSubcommands) {
        texts.emplace_back(far_reach(row.effect).consequence);
        if (row.effect == Effect::next_too)
            texts.back() = fmt::format(fmt::runtime(texts.back()),
                                       name_of((&row + 1)->selector, (&row + 1)->row));
    }
    return texts;
}

std::string_view consequence_of(const Subcommand& row) {
    static const std::vector<std::string> kTexts = all_consequences();
    return kTexts[static_cast<std::size_t>(&row - protocol::kSubcommands)];
}

// The sub-command that the module carries out; null for any other request. Shorter ones are
// refused.
const Subcommand* carried_out(const Request& request) {
    if (request.command != protocol::command::write || request.info.size() < 2)
        return nullptr;
    return protocol::find_subcommand(request.info[0]);
}

}  // namespace

bool answers(const Request& request, Info info) {
    if (!request.answers)
        return true;
    const auto& [one, other] = *request.answers;
    return has_layout(info, one, request) ||
           (other != Layout::none && has_layout(info, other, request));
}

bool is_refusal(std::uint8_t command, Info info) {
    return command == protocol::command::write && info.size() == protocol::length(Layout::refusal);
}

Request identification_request() {
    return reading(protocol::command::identification);
}

Request status_request() {
    return reading(protocol::command::status);
}

Request block_request(std::uint8_t block) {
    return {.command = protocol::command::configuration,
            .info = {block},
            .reads = true,
            .answers = Request::Answers{protocol::block_layout(block)}};
}

const Subcommand* find_action(std::string_view name) {
    const auto* const found = std::ranges::find(protocol::kSubcommands, name, &Subcommand::name);
    return found == std::end(protocol::kSubcommands) || name.empty() ? nullptr : found;
}

Request action_request(std::string_view name, const Items& items) {
    const Subcommand& action = *find_action(name);
    return {.command = protocol::command::write,
            .info = info_of(action.request, action.code, items),
            .answers = Request::Answers{action.answer, action.other_answer}};
}

std::string_view consequence_of(const Request& request) {
    const Subcommand* const row = carried_out(request);
    return row == nullptr ? "" : consequence_of(*row);
}

std::string_view reaches(const Parameter& parameter) {
    return consequence_of(*parameter.write);
}

std::chrono::milliseconds patience_for(const Request& request) {
    const Subcommand* const row = carried_out(request);
    return far_reach(row == nullptr ? Effect::alone : row->effect).patience;
}

}  // namespace master
