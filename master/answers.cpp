#include "master/answers.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "master/parameters.h"
#include "master/requests.h"

namespace master {

namespace {

using protocol::Subcommand;
using Info = std::span<const std::uint8_t>;

// What a request holds; of a number that is not there whole nothing.
Items written(const Subcommand& row, Info info) {
    const auto parameter = std::ranges::find(parameters(), &row, &Parameter::write);
    if (parameter == parameters().end())
        return items_of(row.request, info);
    const Info value = info.subspan(1);
    if (parameter->is_text())
        return {{parameter->name, text_in(value)}};
    if (value.size() < row.width)
        return {};
    return {{parameter->name, std::int64_t{number_in(value.first(row.width))}}};
}

Meaning meaning_of_write_request(Info info) {
    if (info.empty())
        return {"request: write, no sub-command", {}};
    const Subcommand* const row = protocol::find_subcommand(info[0]);
    if (row == nullptr)
        return {fmt::format("request: write, unknown sub-command {}", info[0]), {}};
    std::string text = fmt::format("request: write, sub-command {} {}", row->code, row->log_name);
    text.erase(text.find_last_not_of(' ') + 1);
    return {text, written(*row, info)};
}

Meaning meaning_of_write_answer(Info info) {
    if (info.empty())
        return {"answer: written or not", {}};
    if (is_refusal_of_write(info))
        return {"answer: refused", {}};
    return {fmt::format("answer: sub-command {}", info[0]), action_answer(info)};
}

// Requests with the codes that are answered with data have other lengths.
Half half_of_write(Info info) {
    const Subcommand* const row = info.empty() ? nullptr : protocol::find_subcommand(info[0]);
    const bool answers = info.empty() || is_refusal_of_write(info) ||
                         (row != nullptr && row->answer != Layout::none &&
                          info.size() == protocol::length(row->answer));
    return answers ? Half::answer : Half::request;
}

Meaning meaning_of_block_request(Info info) {
    if (info.size() != protocol::length(Layout::block))
        return {"request: configuration, of a wrong length", {}};
    return {fmt::format("request: configuration, block {}",
                        protocol::fields(protocol::block_layout(info[0])).front().extra),
            {}};
}

Meaning meaning_of_configuration(Info info) {
    if (info.empty())
        return {"answer: no configuration, the request had a wrong length", {}};
    return {fmt::format("answer: configuration, block {}", info[0]), configuration(info)};
}

// Which half a frame of a known command looks like.
Half half_of(std::uint8_t command, Info info) {
    if (command == protocol::command::write)
        return half_of_write(info);
    const bool is_request = command == protocol::command::configuration
                                ? info.size() == protocol::length(Layout::block)
                                : info.empty();
    return is_request ? Half::request : Half::answer;
}

}  // namespace

Items identification(Info info) {
    return items_of(Layout::identification, info);
}

Items status(Info info) {
    return items_of(Layout::status, info);
}

Items configuration(Info info) {
    return info.empty() ? Items() : items_of(protocol::block_layout(info[0]), info);
}

// The two answers of an action are told apart by their length.
Items action_answer(Info info) {
    const Subcommand* const row = info.empty() ? nullptr : protocol::find_subcommand(info[0]);
    if (row == nullptr)
        return {};
    const bool other =
        row->other_answer != Layout::none && info.size() != protocol::length(row->answer);
    return items_of(other ? row->other_answer : row->answer, info);
}

bool is_refusal_of_write(Info info) {
    return is_refusal(protocol::command::write, info) &&
           std::ranges::count(info, 0) == std::ssize(info);
}

Meaning meaning_of(const mensaje& frame, Half half) {
    const Info info(frame.info, frame.longitud);
    if (frame.comando >= std::size(protocol::kCommands))
        return {fmt::format("unknown command {}", frame.comando), {}};
    const bool is_request =
        (half == Half::unknown ? half_of(frame.comando, info) : half) == Half::request;
    if (frame.comando == protocol::command::write)
        return is_request ? meaning_of_write_request(info) : meaning_of_write_answer(info);
    if (frame.comando == protocol::command::configuration)
        return is_request ? meaning_of_block_request(info) : meaning_of_configuration(info);
    const protocol::Command& command = protocol::kCommands[frame.comando];
    if (is_request)
        return {fmt::format("request: {}", command.name), {}};
    return {fmt::format("answer: {}", command.name), items_of(command.answer, info)};
}

}  // namespace master
