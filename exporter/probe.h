// A probe: what Prometheus wants to know of a module, asked in one session with it. Nothing is ever
// written, and no slave's request is sent.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "master/failure.h"
#include "master/targets.h"

namespace exporter {

enum class Collect : std::uint8_t {
    status,         // and the identification: two commands in turn show answers that are off by one
    configuration,  // both blocks
};

struct Question {
    master::Target target;
    Collect collect = Collect::status;
    bool debug = false;  // the answer tells the stages with their times, bytes and meanings
};

struct Answer {
    std::optional<master::Stage> failed = {};
    std::string message = {};  // of the failure
    std::chrono::duration<double> took{0};
    unsigned exchanges = 0;
    bool resynchronised = false;
    std::string text = {};  // what is sent to who asked
};

// How far a question has come, for those who cannot wait for its end.
using Progress = std::atomic<master::Stage>;

// Asks the module. Whatever goes wrong with it is told in the answer.
Answer answer_to(const Question& question, std::chrono::milliseconds timeout, Progress& progress);

// The answer to a question that was not asked, since this has been found out by then.
Answer unasked(const Question& question, std::chrono::milliseconds waited, master::Stage stage,
               const std::string& why);

}  // namespace exporter
