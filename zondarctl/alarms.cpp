#include "zondarctl/alarms.h"

#include "protocol/description.h"

namespace zondarctl {

namespace {

constexpr std::string_view kOutput = protocol::field(Layout::status, "output_sync").name;

}  // namespace

bool is_alarm(std::string_view name) {
    return name.starts_with("alarma_");
}

bool is_judged(std::string_view name) {
    return is_alarm(name) || name == kOutput;
}

bool is_alarm(const Item& item) {
    return is_alarm(item.name);
}

bool is_on(const Item& item) {
    const auto* const flag = std::get_if<bool>(&item.value);
    return flag != nullptr && *flag;
}

std::string illness_of(const Item& item) {
    if (item.name == kOutput)
        return is_on(item) ? "" : "output not synchronised";
    return is_alarm(item) && is_on(item) ? item.name : "";
}

std::vector<std::string> active_alarms(const Items& status) {
    std::vector<std::string> names;
    for (const Item& item : status) {
        if (is_alarm(item) && is_on(item))
            names.push_back(item.name);
    }
    return names;
}

Json status_json(const Items& status) {
    Json data = to_json(status);
    data["alarms"] = active_alarms(status);
    return data;
}

}  // namespace zondarctl
