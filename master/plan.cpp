#include "master/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "master/ranges.h"

namespace master {

namespace {

using protocol::Effect;
using protocol::Selector;

// The defaults of a country overwrite the rest. A module may be elsewhere once it has another
// address, and with a wrong mask or gateway when its address is set.
enum class Turn : std::uint8_t { country, plain, dhcp, network, address };

Turn turn_of(const Parameter& parameter) {
    if (parameter.write->effect == Effect::changes_country)
        return Turn::country;
    if (parameter.write->selector == Selector::CG_IP_DHCP)
        return Turn::dhcp;
    if (parameter.write->selector == Selector::CGS_IP_ADDRESS)
        return Turn::address;
    return parameter.write->effect == Effect::resets_network ? Turn::network : Turn::plain;
}

// What is wrong with a line of a list at once; nothing for one that may be restored.
std::optional<std::string> flaw_of(const Parameter* parameter, const Value& value) {
    if (parameter == nullptr)
        return "the module has no such parameter";
    if (parameter->block == 0)
        return "no answer of the module holds it";
    if (!can_hold(*parameter, value))
        return "it takes " + range_of(*parameter);
    return std::nullopt;
}

class Planner {
  public:
    Planner(const Configuration& now, const PlanOptions& options)
        : plan_{.end = now}, options_(options) {}

    void want(const Setting& setting) {
        const Parameter* const parameter = find_parameter(setting.name);
        if (auto flaw = flaw_of(parameter, setting.value))
            plan_.left.push_back({setting.name, setting.value, *std::move(flaw), false});
        else
            goal(*parameter) = setting.value;
    }

    // Whatever is there, and whatever becomes of it.
    void want(const Write& write) {
        const auto& [parameter, value] = write;
        const bool becomes_it = read_back_of(*parameter, value) == value_after(*parameter, value);
        sends_[index_of(*parameter)] =
            becomes_it ? value : value_to_send(*parameter, value).value_or(value);
    }

    Plan make() {
        for (const Turn turn :
             {Turn::country, Turn::plain, Turn::dhcp, Turn::network, Turn::address}) {
            for (const Parameter& parameter : parameters()) {
                if (turn_of(parameter) != turn)
                    continue;
                if (const auto& send = sends_[index_of(parameter)])
                    write(parameter, *send);
                else if (differs(parameter))
                    reach(parameter);
            }
        }
        for (Step& step : plan_.steps) {
            for (Change& change : step.besides)
                change.for_a_moment = change.after != plan_.end.at(*change.parameter);
        }
        return std::move(plan_);
    }

  private:
    static std::size_t index_of(const Parameter& parameter) {
        return static_cast<std::size_t>(&parameter - parameters().data());
    }

    std::optional<Value>& goal(const Parameter& parameter) { return goals_[index_of(parameter)]; }

    bool differs(const Parameter& parameter) {
        return goal(parameter) && *goal(parameter) != plan_.end.at(parameter);
    }

    void leave(const Parameter& parameter, const std::string& reason, bool is_meant = false) {
        plan_.left.push_back({parameter.name, *goal(parameter), reason, is_meant});
    }

    void reach(const Parameter& parameter) {
        if (turn_of(parameter) >= Turn::dhcp && !options_.addresses)
            leave(parameter, "addresses stay as they are", true);
        else if (parameter.write->effect == Effect::tunes)
            tune(parameter);
        else if (const auto send = value_to_send(parameter, *goal(parameter)))
            write(parameter, *send);
        else
            leave(parameter, why_never(parameter, *goal(parameter)));
    }

    // Of channel and frequency the one that brings the other one with it.
    void tune(const Parameter& parameter) {
        const Parameter& other = *std::ranges::find_if(parameters(), [&](const Parameter& each) {
            return each.write->effect == Effect::tunes && &each != &parameter;
        });
        for (const Parameter* const each : {&parameter, &other}) {
            if (goal(*each) && brings_both(*each))
                return write(*each, *goal(*each));
        }
        leave(parameter, fmt::format("in the plan of '{}' no channel goes with this frequency",
                                     plan_.end.country()));
    }

    bool brings_both(const Parameter& parameter) {
        Configuration then = plan_.end;
        then.apply(parameter, *goal(parameter));
        return std::ranges::none_of(parameters(), [&](const Parameter& each) {
            return each.write->effect == Effect::tunes && goal(each) &&
                   *goal(each) != then.at(each);
        });
    }

    void write(const Parameter& parameter, const Value& send) {
        const Configuration before = plan_.end;
        plan_.end.apply(parameter, send);
        Step step = {&parameter, send, before.at(parameter), plan_.end.at(parameter), {}};
        for (const Parameter& each : parameters()) {
            if (&each != &parameter && before.at(each) != plan_.end.at(each))
                step.besides.push_back({&each, before.at(each), plan_.end.at(each), false});
        }
        plan_.steps.push_back(std::move(step));
        // Whoever sets the one does not mean the other.
        if (const Parameter* const also = parameter.also();
            also != nullptr && !goal(*also) && !sends_[index_of(*also)])
            goal(*also) = before.at(*also);
    }

    std::vector<std::optional<Value>> goals_ =
        std::vector<std::optional<Value>>(parameters().size());
    std::vector<std::optional<Value>> sends_ = goals_;  // whatever is there
    Plan plan_;
    PlanOptions options_;
};

}  // namespace

Plan plan_to_restore(const Configuration& now, std::span<const Setting> wanted,
                     const PlanOptions& options) {
    Planner planner(now, options);
    for (const Setting& setting : wanted)
        planner.want(setting);
    return planner.make();
}

Plan plan_to_write(const Configuration& now, std::span<const Write> writes) {
    Planner planner(now, {.addresses = true});
    for (const Write& write : writes)
        planner.want(write);
    return planner.make();
}

}  // namespace master
