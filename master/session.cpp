#include "master/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

#include "link/link_level.h"
#include "master/failure.h"
#include "master/frame.h"
#include "master/resync.h"

namespace master {

namespace {

bool repeatable(Stage stage) {
    return stage == Stage::answer || stage == Stage::code || stage == Stage::sequence ||
           stage == Stage::command;
}

// What came begins no answer.
bool is_foreign(const Line& line) {
    const Bytes& received = line.received();
    return line.end() == Line::End::stranger ||
           (!received.empty() && std::ranges::find(received, kStartByte) == received.end());
}

}  // namespace

Session::Session(const Settings& settings)
    : settings_(settings),
      deadline_(settings.timeout),
      address_(address_of(settings.target, deadline_)),
      lock_(address_, deadline_) {}

void Session::allow(std::chrono::milliseconds timeout) {
    settings_.timeout = timeout;
    deadline_ = Deadline(timeout);
}

Bytes Session::ask(const Request& request) {
    try {
        return request.reads ? ask_repeatedly(request) : ask_once(request);
    } catch (Failure& failure) {
        if (request.reads)
            failure.set_outcome(Outcome::none);
        else if (failure.outcome() == Outcome::unknown)
            throw Failure(failure.stage(),
                          fmt::format("sent; {}; the module may have carried it out: read it back",
                                      failure.what()));
        throw;
    }
}

// The failure that counts is the first one: later ones may only follow from it. But a lasting one
// is what the others follow from.
Bytes Session::ask_repeatedly(const Request& request) {
    std::exception_ptr first;
    for (unsigned attempt = 0;; ++attempt) {
        try {
            return ask_once(request);
        } catch (const Lasting&) {
            throw;
        } catch (const Failure& failure) {
            if (first == nullptr)
                first = std::current_exception();
            if (attempt >= settings_.retries || deadline_.passed() || !repeatable(failure.stage()))
                std::rethrow_exception(first);
        }
    }
}

// An exchange takes as long as two connections: one that is begun too late would only have to be
// made good again.
Bytes Session::ask_once(const Request& request) {
    if (lock_.unsettled()) {
        const auto took = bring_back();
        if (deadline_.left() < 2 * took)
            throw Failure(Stage::resync,
                          "the module is re-synchronised, but no time is left to ask it");
    }
    return exchange(request);
}

void Session::resync() {
    bring_back();
}

// Whatever it meets, no request was sent by then.
std::chrono::milliseconds Session::bring_back() {
    ++resyncs_;
    try {
        const auto took = resynchronise(address_, deadline_, lock_, left_over_);
        left_over_ = 0;
        return took;
    } catch (Failure& failure) {
        failure.set_outcome(Outcome::not_sent);
        throw;
    }
}

Bytes Session::exchange(const Request& request) {
    mensaje record = request_record(request.command, request.info, settings_.crc8_mode);
    mensaje answer{};
    tPuertoZondar port{};
    Line line(address_, deadline_, settings_.trace_path);

    lock_.set_failed_reads(0);
    int result = kTimeout;
    try {
        const UseWire use_wire(line);
        enviar_mensaje_nenlace(&port, &record, settings_.crc8_mode ? 1 : 0);
        result = recibir_mensaje_nenlace(&port, &answer, 0, 0);
    } catch (const Failure&) {
        if (!line.connected())
            lock_.settle();
        tell(line);
        throw;
    }
    tell(line);
    left_over_ += line.left_over();
    if (result == kTimeout && is_foreign(line)) {
        lock_.settle();
        throw NoModule(line.received());
    }
    check(result, answer, request, line);
    Bytes info(answer.info, answer.info + answer.longitud);
    const bool refused = is_refusal(request.command, info);
    if (!refused && !answers(request, info))
        throw Failure(Stage::command, "an answer to another request");
    lock_.settle();
    if (refused)
        throw Failure(Stage::refused, "the module refused the request");
    return info;
}

void Session::no_answer(const Line& line) const {
    const std::size_t count = line.received().size();
    if (line.end() == Line::End::left_over)
        throw Failure(
            Stage::command,
            "the module was waiting to answer somebody else; it did not take this request",
            Outcome::not_taken);
    if (line.end() == Line::End::flood)
        throw Failure(Stage::answer,
                      fmt::format("no frame in the first {} bytes of the answer", count));
    if (line.end() == Line::End::closed)
        throw Failure(Stage::answer,
                      count == 0 ? "the module gave no answer"
                                 : fmt::format("the answer broke off after {} bytes", count));
    const std::chrono::duration<double> allowed = settings_.timeout;
    throw Failure(Stage::answer, count == 0
                                     ? fmt::format("no answer after {} s", allowed.count())
                                     : fmt::format("only {} bytes of the answer in time", count));
}

void Session::check(int result, const mensaje& answer, const Request& request,
                    const Line& line) const {
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

void Session::tell(const Line& line) const {
    if (settings_.on_exchange)
        settings_.on_exchange(line.sent(), line.received());
}

}  // namespace master
