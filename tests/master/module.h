// The daemon's own processor as the module, on the sample board, and what it may be sent by chance.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "master/configuration.h"
#include "master/requests.h"
#include "tests/processor/requests.h"
#include "tests/support/files.h"
#include "tests/support/open_board.h"

namespace master {

class Module {
  public:
    // Nobody else opens the databases, and nothing has to outlive the test: that saves most of its
    // time.
    Module() {
        write_script("/quelt/script/set_interfaces_db.sh", "exit 0");
        sqlite3_exec(ConfDB, "PRAGMA locking_mode = EXCLUSIVE; PRAGMA synchronous = OFF", nullptr,
                     nullptr, nullptr);
    }
    [[nodiscard]] Configuration read() const { return {block(1), block(2)}; }
    void write(const Parameter& parameter, const Value& value) const {
        const Request request = write_request(parameter, value);
        EXPECT_EQ(to_hex(answer_to(request.command, request.info)), "") << parameter.name;
    }

  private:
    static Bytes block(std::uint8_t number) {
        const Request request = block_request(number);
        Bytes info = answer_to(request.command, request.info);
        EXPECT_TRUE(answers(request, info));
        return info;
    }

    OpenBoard board_;
};

inline std::string written(const Value& value) {
    const auto* const text = std::get_if<std::string>(&value);
    return text != nullptr ? "'" + *text + "'" : std::to_string(std::get<std::uint32_t>(value));
}

// "RFOut.Canal_Salida 21 -> 22".
inline std::vector<std::string> changes(const Configuration& one, const Configuration& other) {
    std::vector<std::string> lines;
    for (const Difference& each : differences(one.settings(), other.settings()))
        lines.push_back(each.name + " " + written(*each.one) + " -> " + written(*each.other));
    return lines;
}

class Chance {
  public:
    std::size_t below(std::size_t limit) { return random_() % limit; }
    template <typename Choices>
    const auto& of(const Choices& choices) {
        return choices[below(std::size(choices))];
    }

    Value value_for(const Parameter& parameter) {
        if (parameter.write->effect == protocol::Effect::changes_country && below(4) != 0)
            return std::string(of(kCountries));
        if (parameter.is_text())
            return text_of(below(parameter.limit() + 1));
        return number_of(parameter.limit());
    }

  private:
    // With countries that the module does not have, and some that it has by their beginning.
    static constexpr const char* kCountries[] = {
        "Australia", "France", "Great Britain", "Italy",       "Portugal",   "Spain",  "Narnia",
        "",          "Spain%", "Great%Britain", "Australia x", "austral%ia", "% Spain"};
    static constexpr const char* kLetters[] = {"%",  " ",    "'",    "\"",   ";",    "-",
                                               "\\", "\xC3", "\xA5", "\xFF", "\x01", "a"};

    Value number_of(std::uint32_t limit) {
        switch (below(4)) {
            case 0:
                return static_cast<std::uint32_t>(below(12));
            case 1:
                return static_cast<std::uint32_t>(below(70));
            case 2:
                return static_cast<std::uint32_t>(below(std::min(limit + 1, 900000U)));
            default:
                return static_cast<std::uint32_t>(below(limit + 1U));
        }
    }

    Value text_of(std::size_t length) {
        std::string text;
        while (text.size() < length)
            text += of(kLetters);
        return text;
    }

    std::mt19937 random_{20'261'122};
};

}  // namespace master
