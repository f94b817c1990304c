#include "exporter/probe.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <array>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include "exporter/exposition.h"
#include "exporter/metrics.h"
#include "link/link_level.h"
#include "master/answers.h"
#include "master/frame.h"
#include "master/line.h"
#include "master/requests.h"
#include "master/session.h"
#include "master/text.h"

namespace exporter {

namespace {

using master::Bytes;
using master::Stage;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Step {
    std::string_view name;
    Clock::time_point begin;
};

// What happened when, for people.
class Log {
  public:
    explicit Log(bool wanted) : wanted_(wanted) {}

    template <typename... Arguments>
    void line(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        if (wanted_)
            text_ += fmt::format("# {:7.3f} s  {}\n", Seconds(Clock::now() - start_).count(),
                                 fmt::format(format, std::forward<Arguments>(arguments)...));
    }

    void frame(std::string_view direction, const Bytes& bytes) {
        if (!wanted_)
            return;
        line("{}: {}", direction, bytes.empty() ? "nothing" : master::hex_digits(bytes));
        const auto frame = master::read_frame(bytes);
        if (!frame || frame->result != kReceived)
            return;
        const master::Meaning meaning = master::meaning_of(frame->record);
        text_ += fmt::format("#              {}\n", master::printable(meaning.text));
        for (const master::Item& item : meaning.items)
            text_ += fmt::format("#                {} = {}\n", item.name, shown(item));
    }

    [[nodiscard]] const std::string& text() const { return text_; }

  private:
    static std::string shown(const master::Item& item) {
        if (const auto* const text = std::get_if<std::string>(&item.value))
            return master::printable(*text);
        if (const auto* const number = std::get_if<std::int64_t>(&item.value))
            return std::to_string(*number);
        return std::get<bool>(item.value) ? "yes" : "no";
    }

    bool wanted_;
    Clock::time_point start_ = Clock::now();
    std::string text_;
};

std::string text_of(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
}

class Probe {
  public:
    Probe(const Question& question, std::chrono::milliseconds timeout, Progress& progress)
        : question_(question), timeout_(timeout), progress_(progress), log_(question.debug) {}

    Answer run() {
        const Clock::time_point start = Clock::now();
        log_.line("asks {} for its {} within {:.1f} s", printable_name(), wanted(),
                  Seconds(timeout_).count());
        try {
            converse();
        } catch (const master::Failure& failure) {
            answer_.failed = failure.stage();
            answer_.message = failure.what();
            log_.line("fails at stage {}: {}", name_of(failure.stage()),
                      master::printable(failure.what()));
        } catch (const std::exception& problem) {  // of this machine, not of the module
            answer_.failed = Stage::lock;
            answer_.message = fmt::format("cannot ask: {}", problem.what());
            log_.line("{}", answer_.message);
        }
        answer_.resynchronised = session_ && session_->resyncs() > 0;
        session_.reset();
        end_ = Clock::now();
        answer_.took = end_ - start;
        log_.line("ends");
        answer_.text = log_.text() + exposition();
        return std::move(answer_);
    }

    // The answer without having asked.
    Answer unasked(Stage stage, const std::string& why) {
        answer_.failed = stage;
        answer_.message = why;
        answer_.took = timeout_;
        log_.line("does not ask {}: {}", printable_name(), master::printable(why));
        answer_.text = log_.text() + exposition();
        return std::move(answer_);
    }

  private:
    [[nodiscard]] std::string printable_name() const {
        return master::printable(name_of(question_.target));
    }
    [[nodiscard]] const char* wanted() const {
        return question_.collect == Collect::status ? "status" : "configuration";
    }

    // A step ends where the next one begins, or the probe ends.
    void begin(std::string_view step) {
        log_.line("{}", step);
        steps_.push_back({step, Clock::now()});
    }

    void converse() {
        master::Settings settings{.target = question_.target,
                                  .timeout = timeout_,
                                  .on_exchange = [this](const Bytes& sent, const Bytes& received) {
                                      ++answer_.exchanges;
                                      log_.frame("Tx", sent);
                                      log_.frame("Rx", received);
                                  }};
        begin("open");
        progress_ = Stage::resolve;
        const master::Deadline deadline(timeout_);
        const std::string address = text_of(address_of(question_.target, deadline));
        if (address != question_.target.host) {
            settings.target.host = address;
            settings.timeout = deadline.left();
        }
        progress_ = Stage::lock;
        session_.emplace(settings);
        progress_ = Stage::answer;
        collect(*session_);
    }

    void collect(master::Session& session) {
        if (question_.collect == Collect::status) {
            begin("status");
            const Bytes status = session.ask(master::status_request());
            begin("identification");
            const Bytes identification = session.ask(master::identification_request());
            put_status(collected_, status);
            put_identification(collected_, identification);
        } else {
            begin("configuration");
            const Bytes block_1 = session.ask(master::block_request(1));
            const Bytes block_2 = session.ask(master::block_request(2));
            put_configuration(collected_, block_1, block_2);
        }
    }

    // When another program holds the lock, nothing is known of the module.
    [[nodiscard]] std::string exposition() const {
        Exposition out;
        if (answer_.failed != Stage::lock)
            out.gauge("zondar_up", "whether the module answered all that it was asked",
                      answer_.failed ? 0 : 1);
        out.family("zondar_probe_failed", "gauge", "whether the probe failed, by the stage");
        for (const char* const stage : master::kStageNames) {
            const bool here = answer_.failed && std::string_view(name_of(*answer_.failed)) == stage;
            out.sample({{"stage", stage}}, here ? 1 : 0);
        }
        out.gauge("zondar_probe_duration_seconds", "how long the probe took", answer_.took.count());
        out.family("zondar_probe_step_duration_seconds", "gauge",
                   "how long each step took that was begun; open finds the host and waits until "
                   "nobody else asks the module");
        for (std::size_t i = 0; i < steps_.size(); ++i) {
            const Clock::time_point end = i + 1 < steps_.size() ? steps_[i + 1].begin : end_;
            out.sample({{"step", steps_[i].name}}, Seconds(end - steps_[i].begin).count());
        }
        out.gauge("zondar_probe_exchanges", "requests that were sent, repeated ones included",
                  answer_.exchanges);
        out.gauge("zondar_probe_resynchronised",
                  "whether the module had to be brought back to between two frames first",
                  answer_.resynchronised ? 1 : 0);
        return out.text() + collected_.text();
    }

    const Question& question_;
    std::chrono::milliseconds timeout_;
    Progress& progress_;
    Log log_;
    std::optional<master::Session> session_;
    Answer answer_;
    std::vector<Step> steps_;
    Clock::time_point end_;
    Exposition collected_;
};

}  // namespace

Answer answer_to(const Question& question, std::chrono::milliseconds timeout, Progress& progress) {
    return Probe(question, timeout, progress).run();
}

Answer unasked(const Question& question, std::chrono::milliseconds waited, Stage stage,
               const std::string& why) {
    Progress progress = stage;
    return Probe(question, waited, progress).unasked(stage, why);
}

}  // namespace exporter
