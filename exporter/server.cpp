#include "exporter/server.h"

#include <fmt/format.h>
#include <malloc.h>
#include <microhttpd.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "exporter/exposition.h"
#include "exporter/figures.h"
#include "exporter/front_page.h"
#include "exporter/probe_request.h"
#include "exporter/process.h"
#include "exporter/sessions.h"
#include "exporter/target_list.h"
#include "master/line.h"
#include "master/text.h"

namespace exporter {

namespace {

using Clock = std::chrono::system_clock;

constexpr const char* kHtml = "text/html; charset=utf-8";
constexpr const char* kPlain = "text/plain; charset=utf-8";

// Files that a question has open at most: the lock, two connections, several while the module is
// brought back; and those that the program has anyway, lookups of names among them.
constexpr std::size_t kFilesPerProbe = 8;
constexpr std::size_t kOtherFiles = 64 + 2 * master::kLookups;

constexpr std::size_t kFewestConnections = 64;
constexpr std::size_t kMostConnections = 16384;
constexpr std::size_t kMemoryPerConnection = 16384;  // a request line and its headers
constexpr std::size_t kManyConnections = 100;
constexpr unsigned kSilence = 60;  // seconds without a byte, after which a connection is closed
constexpr int kBacklog = 1024;

// As in monitoring/prometheus.yml.
constexpr std::chrono::duration<double> kConfigurationInterval{120};

// While it ends: how often it looks, and how long clients have to take their replies.
constexpr std::chrono::milliseconds kPause{10};
constexpr std::chrono::milliseconds kPatience{1000};

struct Reply {
    unsigned status = MHD_HTTP_OK;
    const char* type = kPlain;
    std::string text;
};

Reply error(unsigned status, std::string_view why) {
    return {status, kPlain, fmt::format("{}\n", why)};
}

// A request on its way. One for a probe is suspended until it has its reply.
struct Request {
    MHD_Connection* connection = nullptr;
    std::optional<Reply> reply = {};
};

// Nothing ends because nobody can be told, on a full disk for example.
void warn(std::string_view what) {
    std::fputs(fmt::format("zondar_exporter: {}\n", master::printable(what)).c_str(), stderr);
}

int listen_at(const std::string& address, std::uint16_t port) {
    const std::string text = fmt::format("{}", port);
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), text.c_str(), &hints, &found) != 0)
        throw std::invalid_argument(fmt::format("'{}' is no address", address));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> its(found, &freeaddrinfo);
    const int listener = socket(its->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    if (listener != -1 && setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(listener, its->ai_addr, its->ai_addrlen) == 0 && listen(listener, kBacklog) == 0)
        return listener;
    throw std::runtime_error(
        fmt::format("cannot listen at {}:{}: {}", shown(address), port, std::strerror(errno)));
}

std::size_t connections_beside(std::size_t probes) {
    const std::size_t files = raise_open_files();
    const std::size_t taken = kOtherFiles + kFilesPerProbe * probes;
    if (files < taken + kFewestConnections)
        throw std::invalid_argument(fmt::format(
            "{} probes at a time need {} open files, and {} are allowed: raise the limit, "
            "or see --probes",
            probes, taken + kFewestConnections, files));
    return std::min(files - taken, kMostConnections);
}

MHD_Result keep(void* arguments, MHD_ValueKind /*kind*/, const char* name, std::size_t name_size,
                const char* value, std::size_t value_size) {
    static_cast<std::vector<Argument>*>(arguments)->push_back(
        {std::string(name, name_size),
         value == nullptr ? std::string() : std::string(value, value_size)});
    return MHD_YES;
}

MHD_Result send(MHD_Connection* connection, const Reply& reply) {
    MHD_Response* const response = MHD_create_response_from_buffer(
        reply.text.size(), const_cast<char*>(reply.text.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr)
        return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.type);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    MHD_add_response_header(response, "Content-Security-Policy",
                            "default-src 'none'; style-src 'unsafe-inline'; form-action 'self'; "
                            "frame-ancestors 'none'");
    if (reply.status == MHD_HTTP_METHOD_NOT_ALLOWED)
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    const MHD_Result result = MHD_queue_response(connection, reply.status, response);
    MHD_destroy_response(response);
    return result;
}

}  // namespace

std::string shown(const std::string& address) {
    return address.find(':') == std::string::npos ? address : fmt::format("[{}]", address);
}

class Server::Implementation {
  public:
    explicit Implementation(const Options& options)
        : options_(options), targets_(options.targets_files), sessions_(options.probes, figures_) {
        warn_of_bound();
        const std::size_t connections = connections_beside(options.probes);
        const int listener = listen_at(options.address, options.port);
        daemon_ = MHD_start_daemon(
            MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr,
            &Implementation::handle, this, MHD_OPTION_LISTEN_SOCKET, listener,
            MHD_OPTION_CONNECTION_LIMIT, static_cast<unsigned>(connections),
            MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemoryPerConnection, MHD_OPTION_CONNECTION_TIMEOUT,
            kSilence, MHD_OPTION_NOTIFY_CONNECTION, &Implementation::give_memory_back, this,
            MHD_OPTION_NOTIFY_COMPLETED, &Implementation::forget, this, MHD_OPTION_END);
        if (daemon_ == nullptr) {
            close(listener);
            throw std::runtime_error("cannot start to answer requests");
        }
    }

    ~Implementation() {
        ending_ = true;
        const int listener = MHD_quiesce_daemon(daemon_);
        while (suspended_ > 0)
            std::this_thread::sleep_for(kPause);
        // What has its reply still has to be sent, unless the client does not take it.
        for (auto left = kPatience; left > kPause && requests_ > 0; left -= kPause)
            std::this_thread::sleep_for(kPause);
        MHD_stop_daemon(daemon_);
        close(listener);
    }

    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

  private:
    // Called first with the headers, then with each part of a body, then without one, and once more
    // when a reply has come.
    static MHD_Result handle(void* self, MHD_Connection* connection, const char* path,
                             const char* method, const char* /*version*/, const char* /*upload*/,
                             std::size_t* upload_size, void** request) {
        auto& server = *static_cast<Implementation*>(self);
        const std::string_view how = method;
        if (*request == nullptr) {
            *request = new Request{connection};
            ++server.requests_;
            if (how != MHD_HTTP_METHOD_GET && how != MHD_HTTP_METHOD_HEAD)
                return send(connection,
                            error(MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD are answered"));
            return MHD_YES;
        }
        if (*upload_size != 0) {
            *upload_size = 0;
            return MHD_YES;
        }
        auto& its = *static_cast<Request*>(*request);
        if (!its.reply && !server.reply_to(its, path))
            return MHD_YES;
        return send(connection, *its.reply);
    }

    static void forget(void* self, MHD_Connection* /*connection*/, void** request,
                       MHD_RequestTerminationCode /*why*/) {
        if (*request == nullptr)
            return;
        delete static_cast<Request*>(*request);
        *request = nullptr;
        --static_cast<Implementation*>(self)->requests_;
    }

    // What thousands of connections had lies between what is still needed, so that the C library
    // would keep it.
    static void give_memory_back(void* self, MHD_Connection* /*connection*/, void** /*its*/,
                                 MHD_ConnectionNotificationCode what) {
        auto& [open, most] = static_cast<Implementation*>(self)->connections_;
        open += what == MHD_CONNECTION_NOTIFY_STARTED ? 1 : -1;
        most = std::max(open, most);
        if (most >= kManyConnections && open <= most / 2) {
            malloc_trim(0);
            most = open;
        }
    }

    // False when the reply comes later, in another thread, which has the request from then on.
    bool reply_to(Request& request, std::string_view path) {
        refresh_targets();
        if (path == "/probe")
            return probe(request);
        if (path == "/metrics")
            request.reply = {MHD_HTTP_OK, kExpositionType, own_figures()};
        else if (path == "/-/healthy")
            request.reply = {MHD_HTTP_OK, kPlain, "healthy\n"};
        else if (path == "/")
            request.reply = {MHD_HTTP_OK, kHtml,
                             front_page(targets_, figures_.past(), Clock::now())};
        else
            request.reply = error(MHD_HTTP_NOT_FOUND, "there is /, /probe, /metrics, /-/healthy");
        return true;
    }

    bool probe(Request& request) {
        Question question;
        try {
            std::vector<Argument> arguments;
            MHD_get_connection_values_n(request.connection, MHD_GET_ARGUMENT_KIND, &keep,
                                        &arguments);
            const ProbeRequest wanted = parse_probe(arguments);
            const master::Target* const target = targets_.find(wanted.target);
            if (target == nullptr) {
                figures_.count(Result::unknown_target);
                request.reply = error(
                    MHD_HTTP_FORBIDDEN,
                    fmt::format("'{}' is in no file of targets", master::printable(wanted.target)));
                return true;
            }
            question = {*target, wanted.collect, wanted.debug};
        } catch (const std::invalid_argument& problem) {
            figures_.count(Result::bad_request);
            request.reply = error(MHD_HTTP_BAD_REQUEST, problem.what());
            return true;
        }
        const char* const header = MHD_lookup_connection_value(
            request.connection, MHD_HEADER_KIND, "X-Prometheus-Scrape-Timeout-Seconds");
        const auto time = time_for_probe(header == nullptr ? std::optional<std::string_view>()
                                                           : std::string_view(header));
        ++suspended_;
        MHD_suspend_connection(request.connection);
        const auto take = [this, &request](const std::optional<Answer>& answer, bool joined) {
            finish_probe(request, answer, joined);
        };
        if (ending_)
            take(std::nullopt, false);
        else
            sessions_.ask(question, time, take);
        return false;
    }

    void finish_probe(Request& request, const std::optional<Answer>& answer, bool joined) {
        if (answer) {
            figures_.count(answer->failed ? Result::failed : Result::ok, joined);
            request.reply = {MHD_HTTP_OK, kExpositionType, answer->text};
        } else {
            figures_.count(Result::busy);
            request.reply = error(MHD_HTTP_SERVICE_UNAVAILABLE,
                                  ending_ ? "the exporter is ending"
                                          : fmt::format("{} probes are on their way, which is "
                                                        "the bound; see --probes",
                                                        options_.probes));
        }
        MHD_resume_connection(request.connection);
        --suspended_;
    }

    [[nodiscard]] std::string own_figures() const {
        Exposition out;
        out.family("zondar_exporter_build_info", "gauge", "the exporter's version, always 1");
        out.sample({{"version", ZONDAR_VERSION}}, 1);
        out.gauge("zondar_exporter_targets", "modules that may be asked",
                  static_cast<double>(targets_.targets().size()));
        put_files(out);
        figures_.put(out);
        out.gauge("zondar_exporter_sessions_in_flight", "questions to modules on their way",
                  static_cast<double>(sessions_.in_flight()));
        out.gauge("zondar_exporter_sessions_limit", "how many of them there may be",
                  static_cast<double>(sessions_.limit()));
        put_process(out, start_);
        return out.text();
    }

    void put_files(Exposition& out) const {
        out.family("zondar_exporter_targets_file_ok", "gauge",
                   "whether the file of targets could be read as it is now; if not, its targets "
                   "of before stay");
        for (const TargetList::File& file : targets_.files())
            out.sample({{"file", file.path}}, file.error.empty() ? 1 : 0);
        out.family("zondar_exporter_targets_file_read_timestamp_seconds", "gauge",
                   "when the file of targets was read last");
        for (const TargetList::File& file : targets_.files())
            out.sample({{"file", file.path}},
                       std::chrono::duration<double>(file.read.time_since_epoch()).count());
    }

    void refresh_targets() {
        if (!targets_.refresh())
            return;
        figures_.keep_only(targets_.addresses());
        for (const TargetList::File& file : targets_.files()) {
            if (!file.error.empty())
                warn(fmt::format("{}; its {} targets of before stay", file.error,
                                 file.targets.size()));
        }
        warn_of_bound();
    }

    // Were all modules to hang, so many questions would be on their way, those about the
    // configuration included.
    void warn_of_bound() const {
        const double a_second = 1 / std::chrono::duration<double>(options_.interval).count() +
                                1 / kConfigurationInterval.count();
        const auto needed =
            static_cast<std::size_t>(static_cast<double>(targets_.targets().size()) * a_second *
                                     std::chrono::duration<double>(time_for_probe({})).count());
        if (needed > options_.probes)
            warn(fmt::format(
                "warning: {} targets every {} s can need {} probes at a time, should "
                "they hang, and the bound is {}; see --probes",
                targets_.targets().size(), options_.interval.count(), needed, options_.probes));
    }

    const Options options_;
    const Clock::time_point start_ = Clock::now();
    Figures figures_;
    TargetList targets_;  // of the thread that handles requests
    Sessions sessions_;
    struct {
        std::size_t open = 0;
        std::size_t most = 0;  // since memory was given back
    } connections_;            // of the thread that handles requests
    std::atomic<bool> ending_ = false;
    std::atomic<std::size_t> requests_ = 0;
    std::atomic<std::size_t> suspended_ = 0;  // those of them that wait for a module
    MHD_Daemon* daemon_ = nullptr;
};

Server::Server(const Options& options)
    : implementation_(std::make_unique<Implementation>(options)) {}

Server::~Server() = default;

}  // namespace exporter
