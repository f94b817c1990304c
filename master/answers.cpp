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

Meaning meaning_of_write(Info info) {
    if (info.empty())
        return {"answer: written or not", {}};
    if (is_refusal(protocol::command::write, info) &&
        std::ranges::count(info, 0) == std::ssize(info))
        return {"answer: refused", {}};
    const Subcommand* const row = protocol::find_subcommand(info[0]);
    if (row == nullptr)
        return {fmt::format("request: write, unknown sub-command {}", info[0]), {}};
    // Requests with these codes have other lengths.
    if (row->answer != Layout::none && info.size() == protocol::length(row->answer))
        return {fmt::format("answer: sub-command {}", row->code), action_answer(info)};
    std::string text = fmt::format("request: write, sub-command {} {}", row->code, row->log_name);
    text.erase(text.find_last_not_of(' ') + 1);
    return {text, written(*row, info)};
}

Meaning meaning_of_configuration(Info info) {
    if (info.empty())
        return {"answer: no configuration, the request had a wrong length", {}};
    if (info.size() == protocol::length(Layout::block))
        return {fmt::format("request: configuration, block {}",
                            protocol::fields(protocol::block_layout(info[0])).front().extra),
                {}};
    return {fmt::format("answer: configuration, block {}", info[0]), configuration(info)};
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

Meaning meaning_of(const mensaje& frame) {
    const Info info(frame.info, frame.longitud);
    if (frame.comando >= std::size(protocol::kCommands))
        return {fmt::format("unknown command {}", frame.comando), {}};
    if (frame.comando == protocol::command::write)
        return meaning_of_write(info);
    if (frame.comando == protocol::command::configuration)
        return meaning_of_configuration(info);
    const protocol::Command& command = protocol::kCommands[frame.comando];
    if (info.empty())
        return {fmt::format("request: {}", command.name), {}};
    return {fmt::format("answer: {}", command.name), items_of(command.answer, info)};
}

}  // namespace master
