// docs/commands.json: what a master has to know, for programs in other languages.
#include <algorithm>

#include "master/answers.h"
#include "master/parameters.h"
#include "master/requests.h"
#include "processor/configuration.h"
#include "processor/parameter_names.h"
#include "processor/slaves.h"
#include "zondarctl/commands.h"
#include "zondarctl/parameter_report.h"

namespace zondarctl {

namespace {

const char* name_of(Place::Kind kind) {
    switch (kind) {
        case Place::Kind::text:
            return "text";
        case Place::Kind::line:
            return "line";
        case Place::Kind::number:
            return "number";
        case Place::Kind::level:
            return "sign and magnitude";
        case Place::Kind::version:
            return "version";
        case Place::Kind::bit:
            return "bit";
        case Place::Kind::zero:
            return "zero";
    }
    return "";
}

// Those of a field count from `first`.
Json to_json(std::span<const Place> places, int first = 0) {
    Json list = Json::array();
    for (const Place& place : places) {
        Json entry = {
            {"name", place.name}, {"position", first + place.position}, {"width", place.width}};
        entry["kind"] = name_of(place.kind);
        if (place.kind == Place::Kind::bit)
            entry["bit"] = place.bit;
        list.push_back(entry);
    }
    return list;
}

Json to_json(std::span<const Field> fields) {
    Json list = Json::array();
    for (const Field& field : fields) {
        if (std::holds_alternative<Filled>(field.source)) {
            for (Json& part : to_json(clock_places(), field.position))
                list.push_back(std::move(part));
            continue;
        }
        Json entry = Json::object();
        if (const auto* const number = std::get_if<Number>(&field.source))
            entry["name"] = name_of(*number);
        else if (const auto* const text = std::get_if<Text>(&field.source))
            entry["name"] = name_of(*text);
        else
            entry["name"] = "block";
        entry["position"] = field.position;
        entry["width"] = field.width;
        entry["kind"] = is_number(field) ? "number" : "text";
        list.push_back(entry);
    }
    return list;
}

// What stands in the info of a command with this answer, and how long it is.
struct Command {
    std::uint8_t code;
    const char* name;
    std::span<const Place> request;
    std::vector<const char*> answers;  // their layouts
};

constexpr Place kBlock[] = {{"block", 0, 1, Place::Kind::number}};

const Command kCommands[] = {
    {kStatusCommand, "status", {}, {"status"}},
    {kConfigurationCommand, "configuration", kBlock, {"configuration_1", "configuration_2"}},
    {kStatusCommand2, "status", {}, {"status"}},
    {kWriteCommand, "write", {}, {}},  // the sub-commands have them
    {kIdentificationCommand, "identification", {}, {"identification"}},
};

// A sub-command that does something else than storing a parameter: its request behind the
// sub-command, the length of its answer.
struct Action {
    std::uint8_t code;
    const char* name;  // as zondarctl has it
    std::span<const Place> request;
    int answer_length;
};

constexpr Place kTime[] = {{"HH.MM", 1, 5, Place::Kind::text}};
constexpr Place kDate[] = {{"DD.MM.YYYY", 1, 10, Place::Kind::text}};
constexpr Place kNotLookedAt[] = {{"ignored", 1, 1, Place::Kind::number}};
constexpr Place kChannel[] = {{"channel", 1, 1, Place::Kind::number}};
constexpr Place kMac[] = {{"mac", 1, 13, Place::Kind::text}};
constexpr Place kMacChannel[] = {kMac[0], {"channel", 14, 1, Place::Kind::number}};
constexpr Place kMacStatus[] = {kMac[0], {"status", 14, 9, Place::Kind::text}};
constexpr Place kMacState[] = {kMac[0], {"state", 14, 1, Place::Kind::number}};
constexpr Place kIdentity[] = {
    kMac[0],
    {"hostname", 14, 18, Place::Kind::text},
    {"serial", 32, 13, Place::Kind::text},
    {"model", 45, 10, Place::Kind::text},
    {"ip", 55, 16, Place::Kind::text},
    {"software", 71, 3, Place::Kind::version},
};

constexpr Action kActions[] = {
    {kTimeCode, "time", kTime, 0},
    {kDateCode, "date", kDate, 0},
    {kFactoryResetCode, "reset-factory", kNotLookedAt, 0},
    {kPendingStateCode, "slave pending", kMacChannel, 3},
    {kEncoderCode, "slave encoder", kMacChannel, 28},
    {kClearPendingCode, "slave clear", kChannel, 0},
    {kConfirmPendingCode, "slave confirm", kChannel, 0},
    {kEncoderStatusCode, "slave report", kMacStatus, 2},
    {kRegisterCode, "slave register", kIdentity, 75},
    {kUpgradeCode, "slave upgrade", kMac, 15},
    {kSlaveStateCode, "slave state", kMacState, 0},
};

std::string column_of(const std::string& name) {
    return name.substr(name.rfind('.') + 1);
}

Json answer_json(const Action& action) {
    Json fields = to_json(slave_answer_places(action.code));
    if (action.code == kEncoderCode) {
        // The settings are named as those of channel 0, whatever the channel.
        for (Json& field : to_json(encoder_settings())) {
            field["name"] = column_of(field["name"]);
            fields.push_back(field);
        }
    }
    return {{"length", action.answer_length}, {"fields", fields}};
}

Json subcommand_json(const Subcommand& row) {
    Json entry;
    const auto parameter = std::ranges::find(parameters(), &row, &Parameter::write);
    if (parameter != parameters().end()) {
        entry = describe(*parameter);
    } else {
        const auto* const action = std::ranges::find(kActions, row.code, &Action::code);
        entry = {{"name", action->name}, {"sub_command", row.code}, {"kind", "action"}};
        entry["request"] = to_json(action->request);
        entry["answer"] = answer_json(*action);
    }
    entry["log_name"] = row.name == nullptr ? Json() : Json(row.name);
    return entry;
}

}  // namespace

Json catalogue() {
    Json document = {{"schema", 1}, {"commands", Json::array()}, {"layouts", Json::object()}};
    for (const Command& command : kCommands) {
        Json entry = {{"command", command.code}, {"name", command.name}};
        entry["request"] = to_json(command.request);
        entry["answers"] = command.answers;
        document["commands"].push_back(entry);
    }
    const auto layout = [&](const char* name, int length, const Json& fields) {
        document["layouts"][name] = {{"length", length}, {"fields", fields}};
    };
    layout("identification", 48, to_json(identification_places()));
    layout("status", 28, to_json(status_places()));
    layout("configuration_1", 114, to_json(configuration_block(1)));
    layout("configuration_2", 185, to_json(configuration_block(2)));
    document["sub_commands"] = Json::array();
    for (const Subcommand& row : subcommands())
        document["sub_commands"].push_back(subcommand_json(row));
    return document;
}

}  // namespace zondarctl
