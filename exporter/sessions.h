// Questions to modules on their way, in a thread for each module. Who asks a module what is being
// asked of it already has that answer. Another question to it comes next, unless it is answered by
// then: a module that does not answer one in as much time would not answer the other. There is no
// other queue, and no cache.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "exporter/figures.h"
#include "exporter/probe.h"
#include "master/deadline.h"

namespace exporter {

class Sessions {
  public:
    // Is given the answer once, in any thread; nothing when too many questions are on their way.
    using Take = std::function<void(const std::optional<Answer>& answer, bool joined)>;

    // At most so many questions at a time. Figures must live longer.
    Sessions(std::size_t limit, Figures& figures);
    // Waits until every question has its answer.
    ~Sessions();
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;

    // Whoever asks has an answer in time, even when the question was asked for somebody with more
    // patience.
    void ask(const Question& question, std::chrono::milliseconds timeout, Take take);

    [[nodiscard]] std::size_t in_flight() const;
    [[nodiscard]] std::size_t limit() const { return limit_; }

  private:
    struct Waiter {
        Take take;
        master::Deadline deadline;
        bool joined = false;
        std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();

        [[nodiscard]] std::chrono::milliseconds waited() const {
            return std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - since);
        }
    };
    struct Running {
        Running(const Question& its_question, std::chrono::milliseconds its_timeout)
            : question(its_question), timeout(its_timeout), deadline(its_timeout) {}

        Question question;
        std::chrono::milliseconds timeout;
        master::Deadline deadline;
        Progress progress = master::Stage::lock;
        std::shared_ptr<Running> front = nullptr;  // what the module is asked before it
        std::vector<Waiter> waiters = {};
    };
    using Runnings = std::vector<std::shared_ptr<Running>>;

    [[nodiscard]] std::shared_ptr<Running> find(const Question& question,
                                                std::chrono::milliseconds timeout) const;
    [[nodiscard]] std::shared_ptr<Running> asked_of(const master::Target& target) const;
    bool admit(const std::shared_ptr<Running>& running);
    bool start(const std::shared_ptr<Running>& running);
    void work();
    static bool answers_too(const Running& front, const Answer& answer, const Running& other);
    Answer ask_now(Running& running) const;
    void answer(const std::shared_ptr<Running>& running);
    Runnings end(const std::shared_ptr<Running>& running, const Answer& answer);
    void keep_deadlines();

    const std::size_t limit_;
    Figures& figures_;
    mutable std::mutex mutex_;
    std::condition_variable work_to_do_;
    std::condition_variable deadlines_changed_;
    bool ending_ = false;
    Runnings running_;
    Runnings to_start_;     // each has a thread that will take it
    std::size_t idle_ = 0;  // threads that wait, with no question meant for them
    std::vector<std::thread> threads_;
    std::thread deadline_keeper_;
};

}  // namespace exporter
