// The start-up steps in their order, then the processor's cycle for ever.
#include <sqlite3.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <exception>
#include <string>

#include "app/cmdline.h"
#include "app/database_files.h"
#include "app/identity.h"
#include "app/log_system.h"
#include "app/signals.h"
#include "app/single_instance.h"
#include "app/start_up.h"
#include "app/version.h"
#include "app/watchdog.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "processor/processor.h"
#include "processor/subcommands.h"

namespace {

constexpr useconds_t kCyclePause_us = 10'000;
constexpr std::timespec kStartUpLimit{10, 0};
constexpr std::timespec kReceptionLimit{30, 0};

std::terminate_handler abort_the_usual_way = nullptr;

// The range errors of the command line are plain texts, which the C++ library does not show.
[[noreturn]] void show_text_and_abort() {
    try {
        if (const std::exception_ptr uncaught = std::current_exception())
            std::rethrow_exception(uncaught);
    } catch (const std::string& text) {
        std::fprintf(stderr, "%s\n", text.c_str());
    } catch (...) {
    }
    abort_the_usual_way();
    __builtin_unreachable();
}

void open_databases(const char* configuration, const char* state) {
    ConfDB = openDb(configuration);
    TempDB = openDb(state);
    sqlite3_busy_timeout(ConfDB, kBusyTimeout_ms);
    sqlite3_busy_timeout(TempDB, kBusyTimeout_ms);
}

void keep_what_is_written();

// Where another process has a database locked for so long, again before the next write.
void keep_both_over_power_cuts(int wait_ms) {
    const bool configuration_kept = keep_over_power_cuts(ConfDB, wait_ms);
    const bool state_kept = keep_over_power_cuts(TempDB, wait_ms);
    before_write = configuration_kept && state_kept ? nullptr : keep_what_is_written;
}

// Waits for a lock as long as the write itself would, which may have the database behind it.
void keep_what_is_written() {
    keep_both_over_power_cuts(kBusyTimeout_ms);
}

}  // namespace

int main(int argc, char* argv[]) {
    abort_the_usual_way = std::set_terminate(show_text_and_abort);
    // What is printed is seen at once, in its order among the lines of standard error.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // Else perror may allocate a stream for a line, and the handler of a signal that comes
    // meanwhile waits for the allocator's lock for ever.
    std::fwide(stderr, -1);

    const Cmdline cmdline(argc, argv);
    if (cmdline.v())
        MostrarVersionSalir(ZONDAR_VERSION);
    char** const paths = argv + cmdline.first_positional();
    if (paths[0] == nullptr || paths[1] == nullptr) {
        std::puts(
            "ERROR: No se han indicado las rutas de las bases de datos obligatorias, saliendo...");
        cmdline.usage(1);
    }

    conf_log = 0;
    AbrirLogSistema(kIdentity, static_cast<unsigned>(cmdline.s()), cmdline.t());
    syslog(LOG_NOTICE, "Program started by User %d", getuid());
    if (cmdline.d()) {
        syslog(LOG_NOTICE, "Entering deamon mode...");
        [[maybe_unused]] const int ignored = daemon(1, 0);
    }
    if (cmdline.l() != 0)
        conf_log = static_cast<std::uint32_t>(cmdline.l());
    EvitarMultiplesInstancias(cmdline.p());
    clearenv();
    open_databases(paths[0], paths[1]);
    keep_both_over_power_cuts(0);
    signal_in_progress = 0;
    install_signal_handlers();

    supervise_start_up(kStartUpLimit);
    start_reception_watchdog(&kReceptionLimit);
    log_line(LOG_INFO, "%s: ready...", kIdentity);
    for (;;) {
        zondar_process(&message_received);
        usleep(kCyclePause_us);
    }
}
