// The module that is asked, as the commands that change its configuration use it.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "master/plan.h"
#include "zondarctl/commands.h"

namespace zondarctl {

// What a write of this value reaches further than its words say, for a question; empty for nothing.
std::string consequence_of(const Parameter& parameter, const Value& value);

class Module {
  public:
    // Locks it. All members throw Failures.
    explicit Module(const Options& options);

    Items identify();
    Configuration read();
    // With the time that such a request takes, unless one was given.
    Bytes ask(const Request& request);

    // What became of the steps of a plan.
    struct Progress {
        std::size_t done = 0;
        std::optional<Failure> failure = {};  // of the step behind these,
        std::string failed = {};              // and its parameter
        bool interrupted = false;
        std::string remark = {};  // on what a step left behind it
    };
    // Each step has a time of its own. Ctrl-C is heeded between two steps, but not in front of one
    // that sets back what the last one has written by the way. A module that has another address
    // then is read there, if it answers there.
    Progress carry_out(const std::vector<Step>& steps);

  private:
    // Where the module was found last; where it was at first, when it was lost since.
    Session& session();
    void carry_out(const Step& step);
    std::string set_back_besides(const Step& step);
    std::string set_back(const Parameter* parameter, const Value& now, const Value& wanted);
    void follow(const Bytes& identity, const std::string& address);

    Options options_;
    std::unique_ptr<Session> session_;
};

// Why a plan was not carried out to its end, if it was not, how far it came, and what to do.
void put_end(Report& report, const Module::Progress& progress, std::size_t steps,
             std::string_view advice = "");

}  // namespace zondarctl
