// zondar_exporter: asks modules for Prometheus until it is told to end.
#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "exporter/server.h"
#include "master/targets.h"
#include "master/text.h"

namespace {

// Exit statuses: of a wrong command line, and of what cannot be read or listened at.
constexpr int kUsage = 2;
constexpr int kFailed = 1;

// "ADDRESS:PORT", an IPv6 address in brackets.
void parse_listen(const std::string& text, exporter::Options& options) {
    const std::size_t colon = text.rfind(':');
    std::string address = text.substr(0, colon);
    if (address.starts_with('[') && address.ends_with(']'))
        address = address.substr(1, address.size() - 2);
    std::uint16_t port = 0;
    if (colon == std::string::npos || address.empty() ||
        !CLI::detail::lexical_cast(text.substr(colon + 1), port) || port == 0)
        throw CLI::ValidationError(
            "--listen", fmt::format("'{}' is not ADDRESS:PORT, such as 127.0.0.1:9801", text));
    options.address = address;
    options.port = port;
}

// What cannot be written, on a full disk for example, is no error of ours.
void tell(std::FILE* stream, std::string_view what) {
    std::fputs(fmt::format("zondar_exporter: {}\n", master::printable(what)).c_str(), stream);
    std::fflush(stream);
}

int problem(int status, std::string_view what) {
    tell(stderr, what);
    return status;
}

// Returns once the process is told to end.
void serve(const exporter::Options& options) {
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&ends, number);
    // Blocked in all threads, which are still to be started.
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    const exporter::Server server(options);
    tell(stdout, fmt::format("listening at {}:{}", exporter::shown(options.address), options.port));
    int number = 0;
    sigwait(&ends, &number);
}

int run(int argc, char** argv) {
    // Hundreds of threads that allocate little shall not have an arena each.
    mallopt(M_ARENA_MAX, 2);
    exporter::Options options;
    CLI::App app("Asks modules for Prometheus.", "zondar_exporter");
    app.set_version_flag("--version", "zondar_exporter " ZONDAR_VERSION);
    app.add_option("--targets", options.targets_files,
                   "the modules that may be asked, in the JSON of Prometheus' file-based "
                   "discovery; may be given several times")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->required();
    app.add_option_function<std::string>(
           "--listen", [&](const std::string& text) { parse_listen(text, options); },
           "where to listen (127.0.0.1:9801)")
        ->type_name("ADDRESS:PORT");
    app.add_option("--probes", options.probes, "at most so many at a time (512)")
        ->type_name("N")
        ->check(CLI::Range(1, 8192));
    unsigned interval = 20;
    app.add_option("--interval", interval,
                   "how often Prometheus asks each module, to warn when --probes is too small (20)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 86400));
    try {
        app.parse(argc, argv);
        options.interval = std::chrono::seconds(interval);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : problem(kUsage, error.what());
    }
    serve(options);
    return 0;
}

}  // namespace

int main(int argc, char** argv) try {
    return run(argc, argv);
} catch (const std::exception& error) {
    std::fprintf(stderr, "zondar_exporter: %s\n", error.what());
    return kFailed;
}
