// The other commands that change something, or may.
#include <fmt/format.h>

#include "master/requests.h"
#include "zondarctl/commands.h"
#include "zondarctl/confirm.h"
#include "zondarctl/differences.h"
#include "zondarctl/interrupt.h"
#include "zondarctl/module.h"
#include "zondarctl/words.h"

namespace zondarctl {

namespace {

void confirm_request(const Options& options, const Request& request) {
    if (const std::string_view consequence = consequence_of(request); !consequence.empty())
        confirm(options, {std::string(consequence)});
}

}  // namespace

Run resetting_factory(const Options& options) {
    const Request request = action_request("reset-factory");
    confirm_request(options, request);
    return [request](const Options& its) {
        heed_interrupts();
        Module module(its);
        const Configuration before = module.read();
        module.ask(request);
        Report report{.data = {{"reset", true}, {"changed", Json::array()}}};
        report.line({"reset to the factory configuration"});
        try {
            put_changes(report, before, module.read(), "reset");
        } catch (const Failure& failure) {
            report.fail_to_read_back(failure);
        }
        return report;
    };
}

Run sending_raw(const Options& options, const std::string& command, const Words& info) {
    const Request request = {.command = byte_of(command, 15, "command"), .info = bytes_of(info)};
    confirm_request(options, request);
    return [request](const Options& its) {
        const Bytes answer = Module(its).ask(request);
        Report report{.data = {{"command", request.command}, {"length", answer.size()}}};
        report.data["info"] = hex_digits(answer);
        put_hex_lines(report, answer);
        return report;
    };
}

Report resync(const Options& options) {
    Session session(options.settings);
    session.resync();
    const Items items = identification(session.ask(identification_request()));
    Report report{.data = to_json(items)};
    report.line({"between two frames, and answering"});
    put_lines(report, items);
    return report;
}

}  // namespace zondarctl
