#include "zondarctl/dump_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

#include "master/bytes.h"
#include "master/text_file.h"

namespace zondarctl {

namespace {

std::string text_in(const std::string& path) {
    try {
        if (const std::optional<std::string> text = read_if_there(path))
            return *text;
    } catch (const std::invalid_argument& problem) {
        throw UsageError(problem.what());
    }
    throw UsageError(fmt::format("{}: no such file", path));
}

Json json_in(const std::string& path) {
    Json json = Json::parse(text_in(path), nullptr, false);
    if (json.is_discarded())
        throw UsageError(fmt::format("{}: no JSON", path));
    if (json.is_array() && json.size() == 1) {
        Json only = std::move(json[0]);
        json = std::move(only);
    }
    if (json.is_array())
        throw UsageError(
            fmt::format("{}: holds the dumps of {} modules, not of one", path, json.size()));
    return json;
}

[[noreturn]] void no_dump(const std::string& path, const std::string& what) {
    throw UsageError(fmt::format("{}: no whole dump: {}", path, what));
}

// A text that is not UTF-8 has its bytes beside it, under its name with "_hex".
std::string text_of(const Json& object, const std::string& name) {
    if (const auto hex = object.find(name + "_hex"); hex != object.end()) {
        if (const std::optional<Bytes> bytes = from_hex(hex->get<std::string>()))
            return {bytes->begin(), bytes->end()};
    }
    return object[name].get<std::string>();
}

Setting setting_in(const Json& entry, const std::string& path) {
    if (!entry.is_object() || !entry.contains("name") || !entry["name"].is_string())
        no_dump(path, "a parameter without a name");
    const std::string name = entry["name"];
    const Json value = entry.value("value", Json());
    if (value.is_string())
        return {name, text_of(entry, "value")};
    if (value.is_number_unsigned() && value <= UINT32_MAX)
        return {name, value.get<std::uint32_t>()};
    no_dump(path, fmt::format("{} has no value", name));
}

std::string model_and_name(const std::string& model, const std::string& name) {
    return model.empty() || name.empty() ? model + name : model + " " + name;
}

Dump dump_in(const Json& json, const std::string& path) {
    if (!json.is_object() || json.value("command", "") != "dump" || !json.contains("data"))
        no_dump(path, "`zondarctl dump` has not written it");
    const Json& data = json["data"];
    Dump dump;
    for (const char* const part : {"configuration_1", "configuration_2"}) {
        if (!data.is_object() || !data.contains(part) || !data[part].is_object())
            no_dump(path, fmt::format("{} could not be read", part));
        if (data[part].value("parameters", Json::array()).empty())
            no_dump(path, fmt::format("{} has no parameters", part));
        for (const Json& entry : data[part]["parameters"])
            dump.settings.push_back(setting_in(entry, path));
    }
    if (const Json identity = data.value("identification", Json()); identity.is_object())
        dump.model = model_and_name(text_of(identity, "model"), text_of(identity, "name"));
    return dump;
}

}  // namespace

Dump read_dump(const std::string& path) {
    const Json json = json_in(path);
    try {
        return dump_in(json, path);
    } catch (const Json::exception&) {
        no_dump(path, "it has another shape");
    }
}

std::string model_of(const Items& identification) {
    const auto text = [&](const char* name) {
        return std::get<std::string>(std::ranges::find(identification, name, &Item::name)->value);
    };
    return model_and_name(text("model"), text("name"));
}

}  // namespace zondarctl
