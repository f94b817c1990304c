#include "zondarctl/conversation.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <utility>

#include "link/link_level.h"
#include "link/receive_machine.h"
#include "master/answers.h"
#include "master/layout.h"

namespace zondarctl {

namespace {

using master::Bytes;
using master::Parameter;
using master::ReadFrame;
using master::Value;
using protocol::Effect;
using protocol::Finding;
using protocol::Subcommand;
using Info = std::span<const std::uint8_t>;

Info info_of(const mensaje& record) {
    return {record.info, record.longitud};
}

// The module's receiver, which knows nothing of connections.
class Receiver {
  public:
    Receiver() = default;
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    [[nodiscard]] bool in_mid_frame() const { return !bytes_.empty(); }

    void start_anew() {
        machine_ = ReceiveMachine(frame_area(record_));
        bytes_.clear();
    }

    // Hands each frame that is complete to `take`.
    template <typename Take>
    void feed(Info bytes, Take take) {
        for (const std::uint8_t byte : bytes) {
            const bool complete = machine_.feed(byte);
            if (machine_.state() != ReceiveMachine::State::WAITING_START)
                bytes_.push_back(byte);
            if (!complete)
                continue;
            take(*master::read_frame(bytes_));
            start_anew();
        }
    }

  private:
    mensaje record_{};
    ReceiveMachine machine_{frame_area(record_)};
    Bytes bytes_;  // of the frame that it is in
};

// The parameter that a write stores; null for a write of anything else.
const Parameter* stored_by(const Subcommand& row) {
    const auto all = master::parameters();
    const auto found = std::ranges::find(all, &row, &Parameter::write);
    return found == all.end() ? nullptr : &*found;
}

const Parameter* stored_in(protocol::Selector selector, std::uint8_t row) {
    const auto all = master::parameters();
    const auto found = std::ranges::find_if(all, [&](const Parameter& parameter) {
        return parameter.write->selector == selector && parameter.write->row == row;
    });
    return found == all.end() ? nullptr : &*found;
}

// What a request sends to a parameter; nothing where the module takes code bytes for a part of it.
std::optional<Value> value_sent(const Parameter& parameter, Info info) {
    const Info value = info.subspan(1);
    if (!parameter.is_text()) {
        if (value.size() < parameter.write->width)
            return std::nullopt;
        return master::number_in(value.first(parameter.write->width));
    }
    if (std::ranges::find(value, 0) == value.end())
        return std::nullopt;
    return master::text_in(value).substr(0, parameter.limit());
}

// As the field that shows it has it.
Value value_shown(const Parameter& parameter, const Value& sent) {
    Value shown = master::read_back_of(parameter, sent);
    if (auto* const text = std::get_if<std::string>(&shown)) {
        const bool has_nul = parameter.field->kind == protocol::Kind::text;
        *text = text->substr(0, parameter.field->width - (has_nul ? 1U : 0U));
    }
    return shown;
}

// What was written to a module and not read back yet.
class Written {
  public:
    void remember(Info write) {
        const Subcommand* const row = row_of(write);
        if (row == nullptr)
            return;
        forget(*row);
        const Parameter* parameter = stored_by(*row);
        if (parameter == nullptr)
            return;
        const std::optional<Value> sent = value_sent(*parameter, write);
        for (; sent && parameter != nullptr; parameter = parameter->also()) {
            if (parameter->block != 0)
                expected_[parameter] = value_shown(*parameter, *sent);
        }
    }

    // Whether it was carried out is not known, or it was not.
    void forget(Info write) {
        if (const Subcommand* const row = row_of(write))
            forget(*row);
    }

    // Tells `take` of each that a whole block shows and that differs: parameter, written, read.
    template <typename Take>
    void compare(Info block, Take take) {
        const protocol::Layout layout = protocol::block_layout(block[0]);
        std::erase_if(expected_, [&](const auto& each) {
            const auto& [parameter, expected] = each;
            if (parameter->field->layout != layout)
                return false;
            const Value read = master::value_in(*parameter, block);
            if (read != expected)
                take(*parameter, expected, read);
            return true;
        });
    }

  private:
    static const Subcommand* row_of(Info write) {
        return write.empty() ? nullptr : protocol::find_subcommand(write[0]);
    }

    void forget(const Subcommand& row) {
        if (row.effect == Effect::restores_factory)
            expected_.clear();
        expected_.erase(stored_by(row));
        protocol::for_each_also_written(
            row, [&](protocol::Selector selector, std::uint8_t number, protocol::When /*when*/) {
                expected_.erase(stored_in(selector, number));
            });
    }

    std::map<const Parameter*, Value> expected_;
};

// A request that the module has taken and not answered yet.
struct Waiting {
    std::size_t frame;
    std::size_t connection;
    mensaje record;
};

struct Module {
    std::deque<Waiting> queue;
    Receiver receiver;
    unsigned empty = 0;  // connections in a row
    unsigned stray = 0;  // answers in a row
    Written written;
};

// Of a connection, so far.
struct Course {
    Module* module;
    bool opened = false;
    bool accepted = false;
    bool sent = false;
    bool answered = false;
    bool master_ended = false;
    bool module_ended = false;
};

// A module takes what comes while it is in mid-frame for the end of a frame, until this many reads
// in a row have failed.
constexpr unsigned kEmptyToStartAnew = 501;
// So many are no accident: a re-synchronisation has begun.
constexpr unsigned kEmptyOnPurpose = 8;
// Answers that nobody asked for: one or two may be left from before.
constexpr unsigned kStrayToReplay = 3;

class Reader {
  public:
    explicit Reader(const Captured& captured) : captured_(captured) {
        told_.partners.resize(captured.frames.size());
        for (const Connection& each : captured.connections)
            courses_.push_back({&modules_[each.module]});
    }

    Conversation read() {
        for (const Event& event : captured_.events)
            take(event);
        std::ranges::stable_sort(told_.findings, {},
                                 [](const Found& found) { return found.of.packet; });
        return std::move(told_);
    }

  private:
    Found& find(Finding what, const Event& event) {
        told_.findings.push_back({.what = what,
                                  .of = event.moment,
                                  .found_in = event.moment,
                                  .connection = event.connection,
                                  .direction = event.direction});
        return told_.findings.back();
    }

    Found& find_of_frame(Finding what, const Event& event, std::size_t frame) {
        Found& found = find(what, event);
        found.frame = frame;
        found.of = captured_.frames[frame].completed;
        found.connection = captured_.frames[frame].connection;
        found.direction = captured_.frames[frame].direction;
        return found;
    }

    void leave_unanswered(std::size_t frame, Finding why, const Event& event) {
        find_of_frame(why, event, frame);
        told_.partners[frame].no_answer = why;
    }

    void take(const Event& event) {
        switch (event.what) {
            case Event::What::opened:
                courses_[event.connection].opened = true;
                break;
            case Event::What::accepted:
                courses_[event.connection].accepted = true;
                break;
            case Event::What::came:
                take_bytes(event);
                break;
            case Event::What::outside:
                find(Finding::skipped, event).detail = std::to_string(event.count);
                break;
            case Event::What::frame:
                event.direction == Direction::to_module ? take_request(event) : take_answer(event);
                break;
            case Event::What::broken_off:
                take_broken_off(event);
                break;
            case Event::What::cut:
                lose_sight(*courses_[event.connection].module);
                break;
            case Event::What::ended:
            case Event::What::reset:
                take_end(event);
                break;
        }
    }

    void take_bytes(const Event& event) {
        Course& course = courses_[event.connection];
        unsigned& empty = course.module->empty;
        if (event.direction == Direction::from_module) {
            course.answered = true;
            empty = 0;
            return;
        }
        if (empty >= kEmptyOnPurpose && empty < kEmptyToStartAnew)
            find(Finding::resync_cut_short, event).detail =
                fmt::format("{} of {} empty connections", empty, kEmptyToStartAnew);
        empty = 0;
        course.module->stray = 0;
        course.sent = true;
    }

    // The answer to what was asked did not come; without that somebody began a frame.
    void take_broken_off(const Event& event) {
        const bool of_answer = event.direction == Direction::from_module;
        if (!of_answer || courses_[event.connection].module->queue.empty())
            find(Finding::breaks_off, event);
        if (of_answer)
            take_out(event, Finding::timed_out, [](const Waiting& /*waiting*/) { return true; });
    }

    // What was asked, answered and written is not known.
    static void lose_sight(Module& module) {
        module.queue.clear();
        module.receiver.start_anew();
        module.written = {};
    }

    // Returns the first of what keeps a request from being valid.
    std::optional<Finding> find_faults(const Event& event) {
        const CapturedFrame& frame = captured_.frames[event.frame];
        const mensaje& record = frame.frame.record;
        const bool is_request = event.direction == Direction::to_module;
        const bool damaged = !is_intact(event);
        master::WrongCodes wrong{};
        if (damaged)
            wrong = master::wrong_codes(master::read_frame(event.bytes)->record);
        const std::pair<Finding, bool> faults[] = {
            {Finding::wrong_checksum, wrong.checksum},
            {Finding::wrong_crc, wrong.crc},
            {Finding::other_sequence, !damaged && (record.control >> 4U & 0x07U) != 0},
            {Finding::no_such_command,
             !damaged && is_request && (record.control & 0x0FU) >= std::size(protocol::kCommands)},
        };
        std::optional<Finding> first;
        for (const auto& [what, holds] : faults) {
            if (!holds)
                continue;
            find_of_frame(what, event, event.frame);
            if (!first)
                first = what;
        }
        if (is_request && frame.bytes.back() == kStartByte)
            find_of_frame(Finding::ends_in_a5, event, event.frame);
        return first;
    }

    void take_request(const Event& event) {
        Course& course = courses_[event.connection];
        const std::optional<Finding> fault = find_faults(event);
        if (course.answered) {
            leave_unanswered(event.frame, Finding::not_read, event);
            return;
        }
        if (course.module_ended) {
            leave_unanswered(event.frame, Finding::closed, event);
            return;
        }
        Module& module = *course.module;
        if (!captured_.is_tcp)
            module.receiver.start_anew();  // each record of a trace file stands for itself
        const auto ignore = [](const ReadFrame& /*read*/) {};
        const std::size_t skipped = captured_.frames[event.frame].frame.skipped;
        module.receiver.feed(Info(event.bytes).first(skipped), ignore);
        const Info bytes = Info(event.bytes).subspan(skipped);
        if (module.receiver.in_mid_frame()) {
            leave_unanswered(event.frame, Finding::lost, event);
            module.receiver.feed(bytes, ignore);
            return;
        }
        told_.partners[event.frame].no_answer = fault;
        module.receiver.feed(bytes, [&](const ReadFrame& read) {
            if (read.result == kReceived && read.record.comando < std::size(protocol::kCommands))
                module.queue.push_back({event.frame, event.connection, read.record});
        });
    }

    void take_answer(const Event& event) {
        find_faults(event);
        Module& module = *courses_[event.connection].module;
        take_out(event, Finding::not_read,
                 [&](const Waiting& waiting) { return waiting.connection == event.connection; });
        const ReadFrame& frame = captured_.frames[event.frame].frame;
        const unsigned command = frame.record.control & 0x0FU;
        const auto asked = std::ranges::find(module.queue, command, [](const Waiting& waiting) {
            return unsigned{waiting.record.comando};
        });
        if (asked == module.queue.end())
            take_stray(event);
        else
            match(event, static_cast<std::size_t>(asked - module.queue.begin()));
        if (command == protocol::command::write && is_intact(event) &&
            master::is_refusal_of_write(info_of(frame.record)))
            find_of_frame(Finding::refused, event, event.frame);
    }

    // The codes of a frame are right.
    [[nodiscard]] bool is_intact(const Event& event) const {
        return captured_.frames[event.frame].frame.result != kCodeError;
    }

    [[nodiscard]] std::uint32_t master_of(std::size_t connection) const {
        return captured_.connections[connection].master.address;
    }

    // Requests that will have no answer leave the queue.
    template <typename Is>
    void take_out(const Event& event, Finding why, Is is) {
        Module& module = *courses_[event.connection].module;
        std::erase_if(module.queue, [&](const Waiting& waiting) {
            if (!is(waiting))
                return false;
            leave_unanswered(waiting.frame, why, event);
            if (why != Finding::not_read && waiting.record.comando == protocol::command::write)
                module.written.forget(info_of(waiting.record));
            return true;
        });
    }

    void take_stray(const Event& event) {
        const Course& course = courses_[event.connection];
        unsigned& stray = course.module->stray;
        const bool unasked = course.opened && !course.sent;
        const bool replays = unasked && ++stray >= kStrayToReplay;
        find_of_frame(replays ? Finding::replays : Finding::no_request, event, event.frame);
    }

    // The request is the one at this place of the queue.
    void match(const Event& event, std::size_t place) {
        Module& module = *courses_[event.connection].module;
        module.stray = 0;
        std::size_t seen = 0;
        take_out(event, Finding::passed_over,
                 [&](const Waiting& /*waiting*/) { return seen++ < place; });
        const Waiting request = module.queue.front();
        module.queue.pop_front();
        told_.partners[event.frame].frame = request.frame;
        told_.partners[request.frame].frame = event.frame;
        if (master_of(request.connection) != master_of(event.connection))
            find_of_frame(Finding::other_master, event, event.frame);
        keep_account(event, request.record);
    }

    // Of what was written.
    void keep_account(const Event& event, const mensaje& request) {
        Written& written = courses_[event.connection].module->written;
        const Info info = info_of(captured_.frames[event.frame].frame.record);
        if (request.comando == protocol::command::write) {
            if (info.empty() && is_intact(event))
                written.remember(info_of(request));
            else
                written.forget(info_of(request));
            return;
        }
        const bool whole_block = request.comando == protocol::command::configuration &&
                                 is_intact(event) && !info.empty() &&
                                 info.size() == protocol::length(protocol::block_layout(info[0]));
        if (!whole_block)
            return;
        written.compare(info,
                        [&](const Parameter& parameter, const Value& one, const Value& other) {
                            Found& found = find_of_frame(Finding::differs, event, event.frame);
                            found.parameter = &parameter;
                            found.written = one;
                            found.read = other;
                        });
    }

    void take_end(const Event& event) {
        const bool begun = std::ranges::find(event.bytes, kStartByte) != event.bytes.end();
        if (begun)
            find(Finding::breaks_off, event);
        Course& course = courses_[event.connection];
        if (event.direction == Direction::to_module) {
            take_end_of_master(event, course);
            course.master_ended = true;
        } else {
            take_end_of_module(event, course);
            course.module_ended = true;
        }
    }

    void take_end_of_master(const Event& event, const Course& course) {
        if (!course.answered)
            course.module->receiver.feed(event.bytes, [](const ReadFrame& /*read*/) {});
        if (event.what == Event::What::reset && course.sent && !course.answered &&
            !course.master_ended && !course.module_ended)
            find(Finding::reset, event);
    }

    void take_end_of_module(const Event& event, const Course& course) {
        Module& module = *course.module;
        // Who is refused has no answers to come from a module that it knew.
        const bool refused = event.what == Event::What::reset && course.opened && !course.accepted;
        take_out(event, Finding::closed, [&](const Waiting& waiting) {
            return waiting.connection == event.connection ||
                   (refused && master_of(waiting.connection) == master_of(event.connection));
        });
        if (course.module_ended)
            return;
        if (course.master_ended && !course.sent && !course.answered) {
            if (++module.empty != kEmptyToStartAnew)
                return;
            find(Finding::resynchronised, event);
            module.receiver.start_anew();
        } else if (!course.master_ended && !course.answered) {
            module.receiver.start_anew();
        }
    }

    const Captured& captured_;
    Conversation told_;
    std::map<Endpoint, Module> modules_;
    std::vector<Course> courses_;  // by the index of the connection
};

}  // namespace

Conversation conversation_of(const Captured& captured) {
    return Reader(captured).read();
}

}  // namespace zondarctl
