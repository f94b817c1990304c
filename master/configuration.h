// The configuration of a module as it can be read, and what writes make of it: as the module does,
// without one.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "master/parameters.h"

namespace master {

// A line of a dump.
struct Setting {
    std::string name;
    Value value;
};
using SettingList = std::vector<Setting>;

class Configuration {
  public:
    // From the infos of both blocks, as long as they have to be.
    Configuration(std::span<const std::uint8_t> block_1, std::span<const std::uint8_t> block_2);

    // Of a parameter that a block shows.
    [[nodiscard]] const Value& at(const Parameter& parameter) const;
    // The name that is stored.
    [[nodiscard]] const std::string& country() const;
    // Of all that the blocks show, in the order of parameters().
    [[nodiscard]] SettingList settings() const;

    // Becomes what the module has once it has carried out this write of a value that the parameter
    // can hold.
    void apply(const Parameter& parameter, const Value& sent);

    bool operator==(const Configuration&) const = default;

  private:
    void carry_out(const Parameter& parameter, const Value& sent);
    void put(const Parameter& parameter, const Value& value);
    void put(protocol::Selector selector, std::uint8_t row, int number);
    void tune(int channel, int frequency);
    void change_country(const std::string& name);

    std::vector<Value> values_;  // by the index of the parameter; 0 of one that no block shows
};

// A parameter that two lists do not have alike; nothing where a list does not have it.
struct Difference {
    std::string name;
    std::optional<Value> one;
    std::optional<Value> other;
};

// In the order of the first list, then of the second. The last of equal names counts.
std::vector<Difference> differences(std::span<const Setting> one, std::span<const Setting> other);

}  // namespace master
