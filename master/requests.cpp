#include "master/requests.h"

#include <algorithm>
#include <iterator>

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
    // Shorter ones are refused.
    if (request.command != protocol::command::write || request.info.size() < 2)
        return "";
    const Subcommand* const row = protocol::find_subcommand(request.info[0]);
    if (row == nullptr)
        return "";
    if (row->effect == Effect::sets_clock)
        return "sets the clock of the module";
    if (row->effect == Effect::restores_factory)
        return "resets the module to its factory configuration";
    if (row->effect == Effect::resets_network)
        return "resets the network of the module, which may then have another address";
    return "";
}

}  // namespace master
