#include "master/session.h"

#include <fmt/format.h>

#include <exception>

#include "link/link_level.h"
#include "link/trace_file.h"
#include "master/failure.h"
#include "master/frame.h"

namespace master {

namespace {

// Frames go to the trace file during its life.
class UseTrace {
  public:
    explicit UseTrace(const std::string& path) { zondar_pcap_path = path.c_str(); }
    ~UseTrace() { zondar_pcap_path = ""; }
    UseTrace(const UseTrace&) = delete;
    UseTrace& operator=(const UseTrace&) = delete;
};

[[noreturn]] void no_answer(const Line& line) {
    const std::size_t count = line.received().size();
    switch (line.end()) {
        case Line::End::left_over:
            throw Failure(Stage::command,
                          "the module was waiting to answer somebody else; it did not take this "
                          "request");
        case Line::End::flood:
            throw Failure(Stage::answer,
                          fmt::format("no frame in the first {} bytes of the answer", count));
        case Line::End::closed:
            throw Failure(Stage::answer,
                          count == 0 ? "the module gave no answer"
                                     : fmt::format("the answer broke off after {} bytes", count));
        case Line::End::deadline:
        case Line::End::open:
            break;
    }
    throw Failure(Stage::answer, count == 0
                                     ? "no answer in time"
                                     : fmt::format("only {} bytes of the answer in time", count));
}

void check(int result, const mensaje& answer, const Request& request, const Line& line) {
    if (result == kTimeout)
        no_answer(line);
    if (result == kCodeError)
        throw Failure(Stage::code, "wrong checksum or CRC in the answer");
    if (result == kSequenceError)
        throw Failure(Stage::sequence,
                      fmt::format("the answer has sequence number {}", answer.secuencia));
    if (answer.comando != request.command)
        throw Failure(Stage::command, fmt::format("an answer to command {} instead of {}",
                                                  answer.comando, request.command));
}

bool repeatable(Stage stage) {
    return stage == Stage::answer || stage == Stage::code || stage == Stage::sequence ||
           stage == Stage::command;
}

}  // namespace

Session::Session(const Settings& settings)
    : settings_(settings),
      deadline_(settings.timeout),
      address_(address_of(settings.target)),
      lock_(address_, deadline_) {}

// The failure that counts is the first one: later ones may only follow from it. But a replay is
// what the others follow from.
Bytes Session::ask(const Request& request) {
    std::exception_ptr first;
    for (unsigned attempt = 0;; ++attempt) {
        try {
            if (lock_.unsettled())
                resync();
            return exchange(request);
        } catch (const Replay&) {
            throw;
        } catch (const Failure& failure) {
            if (first == nullptr)
                first = std::current_exception();
            if (!request.reads || attempt >= settings_.retries || deadline_.passed() ||
                !repeatable(failure.stage()))
                std::rethrow_exception(first);
        }
    }
}

void Session::resync() {
    lock_.set_unsettled(true);
    resynchronise(address_, deadline_, left_over_);
    left_over_ = 0;
    lock_.set_unsettled(false);
}

Bytes Session::exchange(const Request& request) {
    mensaje record = request_record(request.command, request.info, settings_.crc8_mode);
    mensaje answer{};
    tPuertoZondar port{};
    Line line(address_, deadline_);

    lock_.set_unsettled(true);
    int result = kTimeout;
    try {
        const UseWire use_wire(line);
        const UseTrace use_trace(settings_.trace_path);
        enviar_mensaje_nenlace(&port, &record, settings_.crc8_mode ? 1 : 0);
        result = recibir_mensaje_nenlace(&port, &answer, 0, 0);
    } catch (const Failure&) {
        lock_.set_unsettled(line.connected());
        tell(line);
        throw;
    }
    tell(line);
    left_over_ += line.left_over();
    check(result, answer, request, line);
    Bytes info(answer.info, answer.info + answer.longitud);
    const bool refused = is_refusal(request.command, info);
    if (!refused && !answers(request, info))
        throw Failure(Stage::command, "an answer to another request");
    lock_.set_unsettled(false);
    if (refused)
        throw Failure(Stage::refused, "the module refused the request");
    return info;
}

void Session::tell(const Line& line) const {
    if (settings_.on_exchange)
        settings_.on_exchange(line.sent(), line.received());
}

}  // namespace master
