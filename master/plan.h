// How a module is brought to a configuration: which writes, in which order.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "master/configuration.h"

namespace master {

// What a step changes besides its parameter.
struct Change {
    const Parameter* parameter;
    Value before;
    Value after;
    bool for_a_moment;  // a later step changes it again
};

struct Step {
    const Parameter* parameter;
    Value send;
    Value before;
    Value after;  // as it reads back
    std::vector<Change> besides;
};

struct Left {
    std::string name;
    Value wanted;
    std::string reason;  // "the module takes it and never stores it"
    bool is_meant;       // by the options; all others cannot be restored
};

struct Plan {
    std::vector<Step> steps = {};
    std::vector<Left> left = {};  // what differs and stays as it is
    Configuration end;            // what the module has after the last step
};

struct PlanOptions {
    // Whether the addresses of the management interface are changed, too.
    bool addresses = false;
};

// What is equal when its turn comes is not written. What the list does not have stays as it is, but
// for what follows from a country, a channel or a frequency. The plan from wherever this one was
// broken off is what was left of it, when the list has all.
Plan plan_to_restore(const Configuration& now, std::span<const Setting> wanted,
                     const PlanOptions& options = {});

// A value that a parameter is to have.
struct Write {
    const Parameter* parameter;
    Value value;
};

// The writes in their right order, also of what is equal already. What one of them stores in
// another parameter by the way is set back behind it.
Plan plan_to_write(const Configuration& now, std::span<const Write> writes);

}  // namespace master
