// docs/commands.json: what a master has to know, for programs in other languages.
#include "master/answers.h"
#include "master/parameters.h"
#include "master/requests.h"
#include "processor/configuration.h"
#include "processor/parameter_names.h"
#include "processor/slaves.h"
#include "tools/commands.h"
#include "tools/parameter_report.h"

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

Json to_json(std::span<const Place> places) {
    Json list = Json::array();
    for (const Place& place : places) {
        Json entry = {{"name", place.name}, {"position", place.position}, {"width", place.width}};
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
        Json entry = Json::object();
        if (const auto* const number = std::get_if<Number>(&field.source))
            entry["name"] = name_of(*number);
        else if (const auto* const text = std::get_if<Text>(&field.source))
            entry["name"] = name_of(*text);
        else if (std::holds_alternative<Filled>(field.source))
            entry["name"] = clock_name(field);
        else
            entry["name"] = "block";
        entry["position"] = field.position;
        entry["width"] = field.width;
        entry["kind"] = is_number(field) ? "number" : "text";
        list.push_back(entry);
    }
    return list;
}

Json subcommand_json(const Subcommand& row) {
    for (const Parameter& parameter : parameters()) {
        if (parameter.write == &row) {
            Json entry = describe(parameter);
            entry["log_name"] = row.name;
            return entry;
        }
    }
    Json entry = {{"name", nullptr}, {"sub_command", row.code}};
    entry["log_name"] = row.name == nullptr ? Json() : Json(row.name);
    return entry;
}

}  // namespace

Json catalogue() {
    Json document = {{"schema", 1}, {"commands", Json::array()}};
    const auto command = [&](int code, const char* name) {
        document["commands"].push_back({{"command", code}, {"name", name}});
    };
    command(kStatusCommand, "status");
    command(kConfigurationCommand, "configuration");
    command(kStatusCommand2, "status");
    command(kWriteCommand, "write");
    command(kIdentificationCommand, "identification");
    document["identification"] = to_json(identification_places());
    document["status"] = to_json(status_places());
    document["configuration_1"] = to_json(configuration_block(1));
    document["configuration_2"] = to_json(configuration_block(2));
    document["encoder"] = to_json(encoder_settings());
    document["sub_commands"] = Json::array();
    for (const Subcommand& row : subcommands())
        document["sub_commands"].push_back(subcommand_json(row));
    return document;
}
