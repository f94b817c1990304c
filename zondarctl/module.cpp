#include "zondarctl/module.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <thread>

#include "master/requests.h"
#include "zondarctl/interrupt.h"
#include "zondarctl/parameter_report.h"

namespace zondarctl {

namespace {

// How long a module with another address is looked for, and how often.
constexpr std::chrono::seconds kSearch{20};
constexpr std::chrono::seconds kGlance{2};
constexpr std::chrono::milliseconds kPause{100};

// How long it is tried to set a value back, and how long at a time.
constexpr std::chrono::seconds kMending{60};
constexpr std::chrono::seconds kMendingOnce{10};

bool is_address(const Parameter& parameter) {
    return parameter.write->selector == protocol::Selector::CGS_IP_ADDRESS;
}

}  // namespace

std::string consequence_of(const Parameter& parameter, const Value& value) {
    if (const Parameter* const also = parameter.also())
        return fmt::format("passes {} through {} for a moment", also->name,
                           shown(item_of(also->name, value)));
    return std::string(reaches(parameter));
}

Module::Module(const Options& options)
    : options_(options), session_(std::make_unique<Session>(options.settings)) {}

Session& Module::session() {
    if (!session_)
        session_ = std::make_unique<Session>(options_.settings);
    return *session_;
}

Items Module::identify() {
    return identification(session().ask(identification_request()));
}

Configuration Module::read() {
    const Bytes block_1 = session().ask(block_request(1));
    return {block_1, session().ask(block_request(2))};
}

Bytes Module::ask(const Request& request) {
    session().allow(options_.timeout_given ? options_.settings.timeout : patience_for(request));
    Bytes answer = session().ask(request);
    session().allow(options_.settings.timeout);
    return answer;
}

Module::Progress Module::carry_out(const std::vector<Step>& steps) {
    Progress progress;
    const Step* before = nullptr;
    std::optional<Undisturbed> undisturbed;
    for (const Step& step : steps) {
        // It sets back what the one before has written by the way.
        const bool mends = before != nullptr && before->parameter->also() == step.parameter;
        if (interrupted() && !mends) {
            progress.interrupted = true;
            break;
        }
        // What it writes by the way is set back by the next one.
        if (step.parameter->also() != nullptr)
            undisturbed.emplace();
        try {
            carry_out(step);
        } catch (const Failure& failure) {
            progress.failure = failure;
            progress.failed = step.parameter->name;
            if (mends)
                progress.remark = set_back(step.parameter, step.before, step.after);
            else if (failure.outcome() == Outcome::unknown)
                progress.remark = set_back_besides(step);
            break;
        }
        ++progress.done;
        before = &step;
        if (step.parameter->also() == nullptr)
            undisturbed.reset();
    }
    return progress;
}

void Module::carry_out(const Step& step) {
    const Request request = write_request(*step.parameter, step.send);
    if (!is_address(*step.parameter)) {
        ask(request);
        return;
    }
    const Bytes identity = session().ask(identification_request());
    ask(request);
    follow(identity, std::get<std::string>(step.after));
}

// Nobody knows whether the step was carried out; what it wrote by the way is set back in any case.
std::string Module::set_back_besides(const Step& step) {
    for (const Change& change : step.besides) {
        if (change.parameter == step.parameter->also())
            return set_back(change.parameter, change.after, change.before);
    }
    return "";
}

// With patience: what stays as it is now may be a transmitter that is off.
std::string Module::set_back(const Parameter* parameter, const Value& now, const Value& wanted) {
    const Undisturbed undisturbed;
    const std::string text = shown(item_of(parameter->name, wanted));
    const Deadline last(kMending);
    while (!last.passed()) {
        try {
            session().allow(kMendingOnce);
            if (read().at(*parameter) == wanted)
                return fmt::format("{} is {}", parameter->name, text);
            session().ask(write_request(*parameter, wanted));
            return fmt::format("{} was set back to {}", parameter->name, text);
        } catch (const Lasting&) {
            break;
        } catch (const Failure&) {
            std::this_thread::sleep_for(kPause);
        }
    }
    return fmt::format("{} may be {} now and not {}: set it back", parameter->name,
                       shown(item_of(parameter->name, now)), text);
}

// There, or where it was: who asks it through another network or a relay finds it at the old one.
void Module::follow(const Bytes& identity, const std::string& address) {
    in_addr number{};
    if (inet_pton(AF_INET, address.c_str(), &number) != 1)
        return;
    session_.reset();
    std::vector<Target> places = {options_.settings.target, options_.settings.target};
    places[0].host = address;
    const Deadline search(options_.timeout_given ? options_.settings.timeout : kSearch);
    std::string why = "another module answers there";
    for (std::size_t glance = 0; glance < places.size() || !search.passed(); ++glance) {
        Settings settings = options_.settings;
        settings.target = places[glance % places.size()];
        settings.timeout = kGlance;
        try {
            session_ = std::make_unique<Session>(settings);
            if (session_->ask(identification_request()) == identity) {
                session_->allow(options_.settings.timeout);
                return;
            }
        } catch (const Failure& failure) {
            why = failure.what();
        }
        std::this_thread::sleep_for(kPause);
    }
    session_.reset();
    throw Failure(
        Stage::connect,
        fmt::format("sent; the module is found neither at {} nor where it was: {}", address, why),
        Outcome::unknown);
}

void put_end(Report& report, const Module::Progress& progress, std::size_t steps,
             std::string_view advice) {
    if (progress.failure) {
        report.fail(*progress.failure);
    } else if (progress.interrupted) {
        report.fail(kRefusedOrDifferent, "interrupted", "interrupted");
        report.error->of_module = true;
    } else {
        return;
    }
    // What a question in front of the writes says is about none of them.
    if (report.error->outcome == Outcome::none)
        report.error->outcome = Outcome::not_sent;
    std::string& message = report.error->message;
    if (steps > 1)
        message = fmt::format("{}{}{}; {} of {} values were written", progress.failed,
                              progress.failed.empty() ? "" : ": ", message, progress.done, steps);
    if (!progress.remark.empty())
        message += "; " + progress.remark;
    message += advice;
}

}  // namespace zondarctl
