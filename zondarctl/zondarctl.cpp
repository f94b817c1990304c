// zondarctl, the master's side of a module: its command line.
#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "master/bytes.h"
#include "protocol/description.h"
#include "zondarctl/commands.h"
#include "zondarctl/trace_option.h"

namespace zondarctl {

namespace {

using Run = std::function<Report()>;

struct Invocation {
    Options options = {};
    Style style = {};
    bool verbose = false;
    double timeout = 5;
    bool asks_module = true;
    Run run;
};

// What is behind the words of a command; CLI11 fills it.
struct Words {
    std::optional<int> block = {};
    std::vector<std::string> names = {};
    std::vector<std::string> warnings = {};
    std::string first = {};
    std::string second = {};
    bool any = false;
    unsigned sequence = 0;
    WatchOptions watch = {};
    std::map<std::string, std::string> slave = {};  // by the names of the fields
};

// Told by the help of the option, not by its type.
template <typename Number>
CLI::Validator within(Number least, Number most) {
    return CLI::Range(least, most).description("");
}

void tell_exchange(const Bytes& sent, const Bytes& received) {
    write_text(stderr, fmt::format("Tx:{}{}\nRx:{}{}\n", sent.empty() ? "" : " ", hex_digits(sent),
                                   received.empty() ? "" : " ", hex_digits(received)));
}

std::optional<std::string> target_of(const Invocation& invocation) {
    if (!invocation.asks_module || !invocation.run)
        return std::nullopt;
    return name_of(invocation.options.settings.target);
}

class CommandLine {
  public:
    CommandLine() {
        app_.set_version_flag("--version", "zondarctl " ZONDAR_VERSION);
        app_.require_subcommand(1);
        app_.fallthrough();
        add_options();
        add_reading();
        add_writing();
        add_slaves();
        add_offline();
    }

    // Throws CLI::ParseError. How errors are told is known before anything is parsed.
    const Invocation& parse(int argc, char** argv) {
        it_.style.json = std::any_of(
            argv, argv + argc, [](const char* word) { return std::string_view(word) == "--json"; });
        app_.parse(argc, argv);
        Settings& settings = it_.options.settings;
        settings.timeout = std::chrono::milliseconds(static_cast<long>(it_.timeout * 1000));
        if (it_.verbose)
            settings.on_exchange = tell_exchange;
        it_.style.color = color_wanted();
        return it_;
    }

    // The words of the command: "slave register".
    [[nodiscard]] std::string command() const {
        std::string words;
        for (auto at = app_.get_subcommands(); !at.empty(); at = at[0]->get_subcommands())
            words += (words.empty() ? "" : " ") + at[0]->get_name();
        return words;
    }
    // What is wrong with the words, in one line.
    [[nodiscard]] std::string problem(const CLI::ParseError& error) const {
        const CLI::App* last = &app_;
        while (!last->get_subcommands().empty())
            last = last->get_subcommands()[0];
        if (last->get_require_subcommand_min() == 0)
            return error.what();
        const std::vector<std::string> unknown = app_.remaining(true);
        return unknown.empty() ? "a command is required; --help lists them"
                               : fmt::format("no command or option {}", unknown[0]);
    }

    CLI::App& app() { return app_; }
    [[nodiscard]] bool is_check() const { return check_->parsed(); }
    [[nodiscard]] const Invocation& invocation() const { return it_; }

  private:
    void add_options() {
        Settings& settings = it_.options.settings;
        app_.add_option("--host", settings.target.host, "name or IPv4 address of the module")
            ->type_name("HOST")
            ->capture_default_str();
        app_.add_option("--port", settings.target.port, "its TCP port")
            ->type_name("PORT")
            ->check(within(1, 65535))
            ->capture_default_str();
        app_.add_option("-t,--timeout", it_.timeout, "seconds that the whole call may take")
            ->type_name("SECONDS")
            ->check(within(0.001, 86400.0))
            ->capture_default_str();
        app_.add_option("-r,--retries", settings.retries,
                        "how often a request that only reads is repeated")
            ->type_name("N")
            ->check(within(0, 100))
            ->capture_default_str();
        app_.add_flag("--crc8", settings.crc8_mode, "send requests in CRC8 mode");
        app_.add_flag("--json", it_.style.json, "one JSON object instead of lines");
        app_.add_flag("-v,--verbose", it_.verbose,
                      "the bytes sent and received, on standard error");
        app_.add_option("--pcap", settings.trace_path, "append the frames to a capture file")
            ->type_name("FILE");
        app_.add_flag("--yes", it_.options.yes, "do not ask before a reset or setting a clock");
    }

    // A command whose report `run` makes.
    CLI::App* add(CLI::App& parent, const std::string& name, const std::string& help, Run run,
                  bool asks_module = true) {
        CLI::App* const command = parent.add_subcommand(name, help);
        command->callback([this, run = std::move(run), asks_module] {
            it_.run = run;
            it_.asks_module = asks_module;
        });
        return command;
    }

    void add_reading() {
        add(app_, "identify", "who the module is", [this] { return identify(it_.options); });
        add(app_, "status", "its alarms, states and bitrates",
            [this] { return show_status(it_.options); });
        add(app_, "config", "its configuration, or one block of it",
            [this] { return show_configuration(it_.options, words_.block); })
            ->add_option("BLOCK", words_.block, "1 or 2")
            ->check(within(1, 2));
        add(app_, "get", "parameters by name", [this] { return get(it_.options, words_.names); })
            ->add_option("NAME", words_.names, "such as EntradaAV.0.Brillo")
            ->required();
        add(app_, "list", "all parameters, with what they can hold", list_parameters, false);
        add(app_, "dump", "everything that can be read, as JSON", [this] {
            it_.style.json = true;
            return dump(it_.options);
        });
        check_ = add(app_, "check", "a monitoring plugin's line and status",
                     [this] { return check(it_.options, words_.warnings); });
        check_->add_option("--warn", words_.warnings, "an alarm that is a warning only")
            ->type_name("ALARM");
        CLI::App* const watching = add(app_, "watch", "the status again and again, until Ctrl-C",
                                       [this] { return watch_on(); });
        watching->add_option("-n,--interval", words_.watch.interval, "seconds in between")
            ->type_name("SECONDS")
            ->check(within(0.0, 86400.0))
            ->capture_default_str();
        watching->add_option("--count", words_.watch.count, "how often")
            ->type_name("N")
            ->check(within(1U, UINT32_MAX));
        add(app_, "resync", "bring the module back to between two frames",
            [this] { return resync(it_.options); });
    }

    void add_writing() {
        CLI::App* const setting = add(app_, "set", "change a parameter and read it back", [this] {
            return set(it_.options, words_.first, words_.second);
        });
        setting->add_option("NAME", words_.first)->required();
        setting->add_option("VALUE", words_.second, "a number, also behind 0x, or a text")
            ->required();
        CLI::App* const land =
            add(app_, "country", "the country, or change it and its defaults",
                [this] { return country(it_.options, words_.first, words_.any); });
        land->add_option("NAME", words_.first, "such as Spain");
        land->add_flag("--any", words_.any, "also one without defaults");
        add(app_, "time", "the module's time of day, or set it", [this] {
            return set_time(it_.options, words_.first);
        })->add_option("TIME", words_.first, "HH.MM or now");
        add(app_, "date", "the module's date, or set it", [this] {
            return set_date(it_.options, words_.first);
        })->add_option("DATE", words_.first, "DD.MM.YYYY or now");
        add(app_, "reset-factory", "back to the factory configuration",
            [this] { return reset_factory(it_.options); });
        CLI::App* const raw = add(app_, "raw", "send any request", [this] {
            return send_raw(it_.options, words_.first, words_.names);
        });
        raw->add_option("COMMAND", words_.first, "0 to 15")->required();
        raw->add_option("HEX", words_.names, "its info");
    }

    void add_slaves() {
        CLI::App* const slave = app_.add_subcommand("slave", "what slave modules ask and tell");
        slave->require_subcommand(1);
        for (const protocol::Subcommand& action : protocol::kSubcommands) {
            std::string name = action.name;
            if (!name.starts_with(kSlave))
                continue;
            name.erase(0, kSlave.size());
            CLI::App* const command = add(
                *slave, name, fmt::format("{} ({})", action.meaning, action.code),
                [this, &action] { return run_slave_command(it_.options, action, words_.slave); });
            for (const protocol::Field& field : protocol::fields(action.request)) {
                if (has_item(field))
                    add_field(*command, field);
            }
        }
    }

    void add_field(CLI::App& command, const protocol::Field& field) {
        std::string name = field.name;
        std::string& word = words_.slave[name];
        if (is_optional(field)) {
            command.add_option("--" + name, word, field.meaning)->type_name("TEXT");
            return;
        }
        std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
        command.add_option(name, word, field.meaning)->required();
    }

    void add_offline() {
        CLI::App* const encoding = add(
            app_, "encode", "the frame of a command with its info, or of a parameter and its value",
            [this] {
                return encode(words_.names, it_.options.settings.crc8_mode, words_.sequence);
            },
            false);
        encoding->add_option("WORDS", words_.names, "COMMAND [HEX...] or NAME VALUE")->required();
        encoding->add_option("--sequence", words_.sequence, "0 to 7")
            ->type_name("N")
            ->check(within(0, 7));
        add(
            app_, "decode", "frames, from hexadecimal digits, a trace file or a TCP capture",
            [this] { return decode(words_.names, it_.options.settings.target.port); }, false)
            ->add_option("FILE|HEX", words_.names, "standard input without");
        CLI::App* const databases = app_.add_subcommand("db", "the module's database files");
        databases->require_subcommand(1);
        CLI::App* const checking = add(
            *databases, "check", "whether they are what the daemon reads, and their rows",
            [this] { return check_databases(words_.first, words_.second); }, false);
        checking->add_option("CONF", words_.first, "config_local.sqlite")->required();
        checking->add_option("TEMP", words_.second, "temp_local.sqlite")->required();
    }

    // On a terminal one status takes the place of the other.
    Report watch_on() {
        const bool in_place = isatty(STDOUT_FILENO) != 0 && !it_.style.json;
        it_.style.compact = true;
        return watch(it_.options, words_.watch, [this, in_place](const Report& report, auto taken) {
            if (in_place)
                write_text(stdout, "\033[H\033[J");
            print(report, command(), target_of(it_), taken, it_.style);
        });
    }

    CLI::App app_{"The master's side of a television head-end module."};
    CLI::App* check_ = nullptr;
    Invocation it_;
    Words words_;
};

// A stream that was closed is no place for a file or a connection: what is said to it would go
// there.
void keep_streams_taken() {
    int descriptor = 0;
    do
        descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= STDIN_FILENO && descriptor <= STDERR_FILENO);
    close(descriptor);
}

Report run(const Invocation& invocation) {
    Report report;
    try {
        require_trace_file(invocation.options.settings.trace_path);
        report = invocation.run();
    } catch (const Failure& failure) {
        report.fail(failure);
    } catch (const UsageError& error) {
        report.fail(kUsage, "usage", error.what());
    }
    return report;
}

bool is_misuse(const Report& report) {
    return report.error && report.error->stage == "usage";
}

constexpr int kUnknown = 3;  // of a monitoring plugin

// Which is read by its line, also when it was called wrongly.
void tell_monitoring(Report& report) {
    report.status = kUnknown;
    report.data["state"] = "UNKNOWN";
    report.line({fmt::format("ZONDAR UNKNOWN - {}", printable(report.error->message))});
}

}  // namespace

}  // namespace zondarctl

int main(int argc, char** argv) try {
    using namespace zondarctl;
    keep_streams_taken();
    const auto start = std::chrono::steady_clock::now();
    CommandLine line;
    Report report;
    try {
        line.parse(argc, argv);
        report = run(line.invocation());
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return line.app().exit(error);
        report.fail(kUsage, "usage", line.problem(error));
    }
    const Invocation& invocation = line.invocation();
    if (line.is_check() && is_misuse(report))
        tell_monitoring(report);
    print(report, line.command(), target_of(invocation), std::chrono::steady_clock::now() - start,
          invocation.style);
    if (std::ferror(stdout) != 0)
        report.fail(kUsage, "usage", "the answer could not be written");
    return line.is_check() && is_misuse(report) ? kUnknown : report.status;
} catch (const std::exception& error) {
    std::fprintf(stderr, "zondarctl: %s\n", error.what());
    return zondarctl::kUsage;
}
