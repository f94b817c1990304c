#include "exporter/sessions.h"

#include <algorithm>
#include <iterator>
#include <system_error>
#include <tuple>
#include <utility>

namespace exporter {

namespace {

using master::Stage;

// The answer to a question comes about at its own deadline; who asked it shall not be told shortly
// before that it is late.
constexpr std::chrono::milliseconds kGrace{200};

bool same(const master::Target& one, const master::Target& other) {
    return one.host == other.host && one.port == other.port;
}

bool same(const Question& one, const Question& other) {
    return same(one.target, other.target) && one.collect == other.collect && !one.debug &&
           !other.debug;
}

// Whatever else the module were asked, it would not answer either.
bool is_of_the_module(const std::optional<Stage>& failed) {
    return failed == Stage::resolve || failed == Stage::connect || failed == Stage::resync ||
           failed == Stage::answer;
}

}  // namespace

Sessions::Sessions(std::size_t limit, Figures& figures)
    : limit_(limit), figures_(figures), deadline_keeper_([this] { keep_deadlines(); }) {}

Sessions::~Sessions() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    work_to_do_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
    deadlines_changed_.notify_all();
    deadline_keeper_.join();
}

std::size_t Sessions::in_flight() const {
    const std::lock_guard lock(mutex_);
    return running_.size();
}

void Sessions::ask(const Question& question, std::chrono::milliseconds timeout, Take take) {
    Waiter waiter{std::move(take), master::Deadline(timeout + kGrace)};
    std::unique_lock lock(mutex_);
    std::shared_ptr<Running> running = find(question, timeout);
    if (running != nullptr) {
        waiter.joined = true;
        running->waiters.push_back(std::move(waiter));
    } else {
        running = std::make_shared<Running>(question, timeout);
        if (!admit(running)) {
            lock.unlock();
            return waiter.take(std::nullopt, false);
        }
        running->waiters.push_back(std::move(waiter));
    }
    deadlines_changed_.notify_one();
}

// One that is given as much time.
std::shared_ptr<Sessions::Running> Sessions::find(const Question& question,
                                                  std::chrono::milliseconds timeout) const {
    const auto found = std::ranges::find_if(running_, [&](const auto& running) {
        return same(running->question, question) && running->timeout >= timeout;
    });
    return found == running_.end() ? nullptr : *found;
}

std::shared_ptr<Sessions::Running> Sessions::asked_of(const master::Target& target) const {
    const auto found = std::ranges::find_if(running_, [&](const auto& running) {
        return running->front == nullptr && same(running->question.target, target);
    });
    return found == running_.end() ? nullptr : *found;
}

// False when there are too many already, or the system has no thread left.
bool Sessions::admit(const std::shared_ptr<Running>& running) {
    if (running_.size() >= limit_)
        return false;
    running->front = asked_of(running->question.target);
    if (running->front == nullptr && !start(running))
        return false;
    running_.push_back(running);
    return true;
}

bool Sessions::start(const std::shared_ptr<Running>& running) {
    if (idle_ > 0) {
        --idle_;
    } else {
        try {
            threads_.emplace_back([this] { work(); });
        } catch (const std::system_error&) {
            return false;
        }
    }
    to_start_.push_back(running);
    work_to_do_.notify_one();
    return true;
}

void Sessions::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        work_to_do_.wait(lock, [this] { return ending_ || !to_start_.empty(); });
        if (to_start_.empty())
            return;
        const std::shared_ptr<Running> running = std::move(to_start_.back());
        to_start_.pop_back();
        lock.unlock();
        answer(running);
        lock.lock();
    }
}

// What came too late behind another question says nothing about the module.
Answer Sessions::ask_now(Running& running) const {
    if (running.deadline.passed())
        return unasked(running.question, running.timeout, Stage::lock,
                       "no time was left behind what the module was asked before");
    Answer answer = answer_to(running.question, running.deadline.left(), running.progress);
    figures_.record(running.question, answer);
    return answer;
}

void Sessions::answer(const std::shared_ptr<Running>& running) {
    const Answer answer = ask_now(*running);
    const Runnings answered = end(running, answer);
    for (const Waiter& waiter : running->waiters)
        waiter.take(answer, waiter.joined);
    for (const auto& other : answered) {
        for (const Waiter& waiter : other->waiters)
            waiter.take(answer.failed ? unasked(other->question, waiter.waited(), *answer.failed,
                                                answer.message)
                                      : answer,
                        true);
    }
}

bool Sessions::answers_too(const Running& front, const Answer& answer, const Running& other) {
    return answer.failed ? is_of_the_module(answer.failed) && front.timeout >= other.timeout
                         : same(front.question, other.question);
}

// Nobody joins it any more. What stands behind it is answered, too, and returned, or comes next, in
// this thread.
Sessions::Runnings Sessions::end(const std::shared_ptr<Running>& running, const Answer& answer) {
    const std::lock_guard lock(mutex_);
    Runnings answered;
    std::shared_ptr<Running> next;
    std::erase_if(running_, [&](const std::shared_ptr<Running>& other) {
        if (other == running || (other->front == running && other->waiters.empty()))
            return true;
        if (other->front != running)
            return false;
        if (answers_too(*running, answer, *other)) {
            answered.push_back(other);
            return true;
        }
        other->front = next;
        if (next == nullptr)
            next = other;
        return false;
    });
    if (next == nullptr)
        ++idle_;  // this thread, soon: no other one is started for what comes meanwhile
    else
        to_start_.push_back(next);
    return answered;
}

// Answers those whose time ends before their question's.
void Sessions::keep_deadlines() {
    std::unique_lock lock(mutex_);
    while (!ending_ || !running_.empty()) {
        std::vector<std::tuple<std::shared_ptr<Running>, Waiter, Stage>> late;
        std::chrono::milliseconds until_next = std::chrono::hours(1);
        for (const auto& running : running_) {
            std::erase_if(running->waiters, [&](Waiter& waiter) {
                if (waiter.deadline.passed()) {
                    const Running& asked = running->front ? *running->front : *running;
                    late.emplace_back(running, std::move(waiter), asked.progress.load());
                    return true;
                }
                until_next = std::min(until_next, waiter.deadline.left());
                return false;
            });
        }
        if (late.empty()) {
            deadlines_changed_.wait_for(lock, until_next);
            continue;
        }
        lock.unlock();
        for (const auto& [running, waiter, stage] : late)
            waiter.take(unasked(running->question, waiter.waited(), stage,
                                "no time left to wait for the answer to somebody else"),
                        waiter.joined);
        lock.lock();
    }
}

}  // namespace exporter
